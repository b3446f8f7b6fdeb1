// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <string>

// Checks what the programs need.
namespace ZelmarWidgets {

/** The result of a check of one thing that the programs need. */
struct Check {
    std::string subject;  // what was checked, in one word
    std::string finding;
    std::string advice;  // empty: nothing has to be done
};

/** Calls `onResult` after each check. Sticks come last, since one may hang. Changes nothing. */
void runChecks(const std::function<void(const Check&)>& onResult);

/** Whether the file system of the directory has no room; false if that cannot be found out. */
bool isDiskFull(const std::string& directory);

}  // namespace ZelmarWidgets
