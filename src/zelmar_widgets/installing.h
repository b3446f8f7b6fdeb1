// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <platform/widget_registry.h>
#include <string>

namespace ZelmarWidgets {

// Each throws Failure and ZelmarDB::RegistryError.

/** Creates the widget's image directory and its row. */
void add(const std::string& identifier, const std::string& application, bool onUsb);

/** Makes the widget unavailable, then removes its row and its image directory. */
void remove(const std::string& identifier);

/** Creates the database; one that is there is kept or replaced. */
ZelmarDB::RegistryCreation init(ZelmarDB::ExistingRegistry existing);

}  // namespace ZelmarWidgets
