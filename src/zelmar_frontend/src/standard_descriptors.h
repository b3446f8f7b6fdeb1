// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace ZelmarFrontend {

/** Opens the closed standard descriptors, so that no file or socket that is opened later receives messages. */
void fillStandardDescriptors();

}  // namespace ZelmarFrontend
