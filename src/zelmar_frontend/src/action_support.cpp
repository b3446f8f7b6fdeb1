// SPDX-License-Identifier: Apache-2.0

#include "action_support.h"

#include "zelmar_frontend_constants.h"

namespace ZelmarFrontend {

void ActionSupport::runCleanFunctions(const std::string& key)
{
    const auto entry = m_cleanFunctions.find(key);
    if (entry == m_cleanFunctions.end()) {
        return;
    }
    for (const auto& handler : entry->second.m_handlers) {
        handler->execute();
    }
}

}  // namespace ZelmarFrontend
