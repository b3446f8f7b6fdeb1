// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <platform/widget_registry.h>
#include <set>
#include <string>
#include <vector>

#include "planner.h"

// Finds out what is: the state from which the planner decides.
namespace ZelmarWidgets {

/** The state of widgets, links and sticks, as far as the planner needs it. */
struct Situation {
    std::vector<WidgetFacts> widgets;  // by identifier; those that the database does not know come last
    std::vector<std::string> roots;
    std::vector<std::string> troubles;  // messages for people: what could not be read
};

enum class Sticks { LOOK_AT, LEAVE_ALONE };

/**
 * Surveys the widgets that the command is about, and those in `alsoWanted`. LEAVE_ALONE: no stick is looked at, and no
 * widget has content. Changes nothing. Throws ZelmarDB::RegistryError and Failure.
 */
Situation survey(const Scope& scope, const std::set<std::string>& alsoWanted, ZelmarDB::RegistryAccess access,
                 Sticks sticks);

}  // namespace ZelmarWidgets
