// SPDX-License-Identifier: Apache-2.0

#include <platform/dpl.h>
#include <boost/locale/encoding_utf.hpp>
#include <stdexcept>

namespace conv = boost::locale::conv;

namespace DPL {

std::wstring FromUTF8String(const std::string& text)
{
    try {
        return conv::utf_to_utf<wchar_t>(text, conv::stop);
    } catch (const conv::conversion_error&) {
        throw std::runtime_error("Not well-formed UTF-8: " + text);
    }
}

std::string ToUTF8String(const std::wstring& text)
{
    try {
        return conv::utf_to_utf<char>(text, conv::stop);
    } catch (const conv::conversion_error&) {
        throw std::runtime_error("A wide string cannot be written as UTF-8: " +
                                 conv::utf_to_utf<char>(text, conv::skip));
    }
}

}  // namespace DPL
