// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace ZelmarWidgets {

/**
 * Prints the state of each widget, then each change, until SIGTERM or SIGINT comes or the reader closes standard
 * output. Throws Failure and ZelmarDB::RegistryError.
 */
void watch(bool json);

}  // namespace ZelmarWidgets
