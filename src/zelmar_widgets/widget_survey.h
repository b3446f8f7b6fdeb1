// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <platform/widget_registry.h>
#include <set>
#include <string>
#include <vector>

#include "planner.h"

namespace ZelmarWidgets {

/** What is, as far as the planner has to know it. */
struct Situation {
    std::vector<WidgetFacts> widgets;  // by identifier; those that the database does not know come last
    std::vector<std::string> roots;
    std::vector<std::string> troubles;  // what could not be looked at: messages for people
};

enum class Sticks { LOOK_AT, LEAVE_ALONE };

/**
 * Looks at the widgets that the command is about, and at those named in `also`. Changes nothing. Throws
 * ZelmarDB::RegistryError and Failure.
 */
Situation survey(const Scope& scope, const std::set<std::string>& also, ZelmarDB::RegistryAccess access, Sticks sticks);

}  // namespace ZelmarWidgets
