// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace ZelmarFrontend {

/** Fills closed standard descriptors, so that no message lands in a file or socket that is opened later. */
void fillStandardDescriptors();

}  // namespace ZelmarFrontend
