// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "plugging.h"
#include "widget_survey.h"

namespace ZelmarWidgets {

// For people, aligned and without control characters, or for machines.

void printTable(const std::vector<Widget>& widgets);
void printJson(const std::vector<Widget>& widgets);

void printLines(const std::vector<ReportLine>& lines);
void printJson(const std::vector<ReportLine>& lines);

/** The text with control characters written as \xHH: names from anywhere must not take over a terminal. */
std::string printable(const std::string& text);

/** Ends the output. Throws Failure if any of it could not be written. */
void finishOutput();

}  // namespace ZelmarWidgets
