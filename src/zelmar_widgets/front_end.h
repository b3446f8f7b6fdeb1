// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

namespace ZelmarWidgets {

/** How a widget fared in a run of the tool. */
struct ToolResult {
    std::string identifier;
    std::string code;  // the tool's error code; empty: success
};

/**
 * Run the zelmar-frontend that lies beside this program, as often as it takes to name all the widgets; a result for
 * each, in order. Throw Failure if a run failed as a whole.
 */
std::vector<ToolResult> makeAvailable(const std::string& stick, const std::vector<std::string>& identifiers);
std::vector<ToolResult> makeUnavailable(const std::vector<std::string>& identifiers);

}  // namespace ZelmarWidgets
