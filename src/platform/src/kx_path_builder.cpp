// SPDX-License-Identifier: Apache-2.0

#include <platform/zelmar_dao.h>

namespace ZelmarDB {

KxPathBuilder& KxPathBuilder::Append(const std::string& component)
{
    if (!m_path.empty() && m_path.back() != '/') {
        m_path += '/';
    }
    m_path += component;
    return *this;
}

}  // namespace ZelmarDB
