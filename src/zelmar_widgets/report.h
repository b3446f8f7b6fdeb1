// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "executor.h"
#include "planner.h"

namespace ZelmarWidgets {

/** A widget as it is, and as it should be. */
struct WidgetStatus {
    WidgetFacts facts;
    WidgetPlan plan;
};

// For people, aligned and printable, or for machines: JSON, whose format the manual page tells field by field.

void printTable(const std::vector<WidgetStatus>& widgets);
void printJson(const std::vector<WidgetStatus>& widgets, const std::vector<std::string>& troubles);

void printLines(const Report& report);
void printJson(const Report& report);

void printJson(const Failure& failure);

/** How the database has a widget. */
struct WidgetState {
    std::string identifier;
    std::string application;
    std::string state;
    std::string stick{};  // that the widget is available from
};

void printLine(const WidgetState& widget);
void printJsonLine(const WidgetState& widget);

/**
 * The text without control characters and with all else that could take over a terminal, or look like another name,
 * written as \xHH; a backslash becomes two.
 */
std::string printable(const std::string& text);

/** Ends the output. Throws Failure if any of it could not be written. */
void finishOutput();

}  // namespace ZelmarWidgets
