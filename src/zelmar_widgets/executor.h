// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "failure.h"
#include "planner.h"

namespace ZelmarWidgets {

enum class Result { AVAILABLE, UNAVAILABLE, CLEARED, FAILED };  // CLEARED: of links that are none of the widget's

/** How a widget stands after the command. */
struct ReportLine {
    std::string identifier;
    std::string application;
    Result result;
    std::string stick{};   // that the widget is available from
    std::string code{};    // the tool's, after a failure
    std::string advice{};  // what is wrong and what to do; empty: the widget is as it should be
};

struct Report {
    std::vector<ReportLine> lines;      // by identifier
    std::vector<std::string> troubles;  // not of one widget alone: messages for people
    ExitStatus status = ALL_WELL;
    bool isDryRun = false;  // the lines tell what would be
};

/** Whether the file system that the directory is on has no room; false where that is not known. */
bool isDiskFull(const std::string& directory);

/** Brings about what the planner says of the command's scope. Throws Failure and ZelmarDB::RegistryError. */
Report bringAbout(const Scope& scope);

/** Only tells what bringAbout would do. */
Report foretell(const Scope& scope);

/** The arguments of PLUG and UNPLUG as the tool records them; the latter may lead to nothing any more. Throw Failure.
 */
std::string stickToPlug(const std::string& mountPoint);
std::string stickToUnplug(const std::string& mountPoint);

}  // namespace ZelmarWidgets
