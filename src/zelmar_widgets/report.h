// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "checking.h"
#include "executor.h"
#include "planner.h"

// Prints what the commands have found or done.
namespace ZelmarWidgets {

// The number of the format of all JSON. It changes when a field is removed or changes its meaning.
constexpr int JSON_FORMAT = 1;

/** A widget as it is, and as it should be. */
struct WidgetStatus {
    WidgetFacts facts;
    WidgetPlan plan;
};

// Text is for people. JSON is for programs; the manual page explains each field.

void printTable(const std::vector<WidgetStatus>& widgets);
void printJson(const std::vector<WidgetStatus>& widgets, const std::vector<std::string>& troubles);

void printLines(const Report& report);
void printJson(const Report& report);

void printLine(const Check& check);
void printJson(const std::vector<Check>& checks);

void printJson(const Failure& failure);

/** Control characters and bytes that are not UTF-8 become \xHH, a backslash two: no name can control a terminal. */
std::string printable(const std::string& text);

/**
 * JSON must be UTF-8: a byte that is not becomes U+FFFD and two hexadecimal digits, and U+FFFD itself is doubled. So
 * different names stay different, and nearly all stay as they are.
 */
std::string textForJson(const std::string& text);

/** Flushes standard output. Throws Failure if any of it could not be written. */
void finishOutput();

}  // namespace ZelmarWidgets
