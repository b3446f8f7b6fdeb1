// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "checking.h"
#include "executor.h"
#include "planner.h"

namespace ZelmarWidgets {

// Of all that --json prints. It changes when a field changes its meaning or goes.
constexpr int JSON_FORMAT = 1;

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

void printLine(const Check& check);
void printJson(const std::vector<Check>& checks);

void printJson(const Failure& failure);

/** Control characters and bytes that are not UTF-8 become \xHH, a backslash becomes two: no terminal obeys the text. */
std::string printable(const std::string& text);

/**
 * JSON holds UTF-8 alone: a byte that is none becomes U+FFFD and two digits, U+FFFD itself is doubled. So names stay
 * distinct, and nearly all stay as they are.
 */
std::string textForJson(const std::string& text);

/** Ends the output. Throws Failure if any of it could not be written. */
void finishOutput();

}  // namespace ZelmarWidgets
