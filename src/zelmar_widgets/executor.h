// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "failure.h"
#include "planner.h"

// Carries out the plans for a command, or reports what they would do.
namespace ZelmarWidgets {

/** CLEARED: links to sticks were removed from a widget that is not on USB. */
enum class Result { AVAILABLE, UNAVAILABLE, CLEARED, FAILED };

/** The state of a widget after the command. */
struct ReportLine {
    std::string identifier;
    std::string application;
    Result result;
    std::string stick{};   // from which the widget is available
    std::string code{};    // the tool's, after a failure
    std::string advice{};  // what is wrong and what to do; empty: the widget is as it should be
};

struct Report {
    std::vector<ReportLine> lines;      // by identifier
    std::vector<std::string> troubles;  // messages for people that concern more than one widget
    ExitStatus status = ALL_WELL;
    bool isDryRun = false;  // the lines show what would result
};

/**
 * Surveys, plans and carries out the plans, until there is nothing to do. Throws Failure and ZelmarDB::RegistryError.
 */
Report execute(const Scope& scope);

/** Changes nothing, and reports what execute would do. Throws the same. */
Report dryRun(const Scope& scope);

}  // namespace ZelmarWidgets
