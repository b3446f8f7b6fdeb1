// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

// Runs zelmar-frontend and reads its result line.
namespace ZelmarWidgets {

/** The result of a widget in a run of the tool. */
struct ToolResult {
    std::string identifier;
    std::string code;  // the tool's error code; empty: success
};

/** The zelmar-frontend that lies beside this program. */
std::string toolPath();

/** The identifiers in their order, split into as many as one run of the tool can take. */
std::vector<std::vector<std::string>> batchesOf(const std::vector<std::string>& identifiers);

/**
 * Run the tool once. Return the result of each widget, in order. The caller holds the InstanceLock. Throw Failure if
 * the run fails as a whole.
 */
std::vector<ToolResult> makeAvailable(const std::string& stick, const std::vector<std::string>& identifiers);
std::vector<ToolResult> makeUnavailable(const std::vector<std::string>& identifiers);

}  // namespace ZelmarWidgets
