// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace DPL {

/**
 * Each converts back what the other returns to the same text, zeros included. Throw an exception derived from
 * std::exception on text that is not well-formed: overlong UTF-8, a surrogate, a number beyond U+10FFFF.
 */
std::wstring FromUTF8String(const std::string& text);
std::string ToUTF8String(const std::wstring& text);

/** Root of the platform's exceptions. Not derived from std::exception. */
class Exception {
public:
    explicit Exception(const std::string& message) : m_message(message) {}
    virtual ~Exception() = default;

    const std::string& message() const noexcept { return m_message; }

private:
    std::string m_message;
};

namespace DB {

class SqlConnection {
public:
    class Exception {
    public:
        class Base : public DPL::Exception {
        public:
            using DPL::Exception::Exception;
        };
    };
};

}  // namespace DB

}  // namespace DPL
