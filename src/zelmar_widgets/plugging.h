// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

namespace ZelmarWidgets {

/** What a command did with a widget. */
struct ReportLine {
    std::string identifier;
    std::string result;    // "available", "unavailable", "planned", "cleared" of links, or "failed"
    std::string advice{};  // what is wrong and what to do; empty: the widget is as it should be
    std::string code{};    // the tool's, after a failure
    std::string stick{};   // that the widget is available from
};

// Each throws Failure and ZelmarDB::RegistryError; the lines are in the order of the identifiers.

/** Makes the database's widgets on the stick available; with `dryRun`, only tells which these are. */
std::vector<ReportLine> plug(const std::string& mountPoint, bool dryRun);

/** Makes the widgets that lead to the stick unavailable, or available from another stick that holds them too. */
std::vector<ReportLine> unplug(const std::string& mountPoint);

/** Brings into order what lookAtWidgets finds wrong. */
std::vector<ReportLine> heal();

}  // namespace ZelmarWidgets
