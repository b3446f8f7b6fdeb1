// SPDX-License-Identifier: Apache-2.0

#pragma once

/** Where a link's label is kept. */
constexpr char LABEL_ATTRIBUTE[] = "security.SMACK64";
