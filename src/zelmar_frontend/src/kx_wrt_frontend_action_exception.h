// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <exception>
#include <string>

namespace ZelmarFrontend {

/** A step of an action failed; the reason has been logged where it happened. */
class KxWrtFrontendActionException : public std::exception {
public:
    explicit KxWrtFrontendActionException(const std::string& message) : m_message(message) {}

    const char* what() const noexcept override { return m_message.c_str(); }

private:
    std::string m_message;
};

}  // namespace ZelmarFrontend
