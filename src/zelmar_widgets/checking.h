// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <string>

namespace ZelmarWidgets {

/** One of the things that the programs need. */
struct Check {
    std::string subject;  // a word
    std::string finding;
    std::string advice;  // empty: it is well
};

/** Tells each check when it is done, the sticks last: one may hang. Changes nothing. */
void check(const std::function<void(const Check&)>& tell);

}  // namespace ZelmarWidgets
