// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace ZelmarWidgets {

/**
 * Tells the state of each widget, then each change, until SIGTERM or SIGINT comes or the reader of standard output has
 * gone. Throws Failure and ZelmarDB::RegistryError.
 */
void watch(bool json);

}  // namespace ZelmarWidgets
