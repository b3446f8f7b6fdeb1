// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <platform/widget_registry.h>
#include <stdexcept>
#include <string>

namespace ZelmarWidgets {

enum ExitStatus { ALL_WELL = 0, SOME_WIDGET_WRONG = 1, BAD_COMMAND_LINE = 2, COULD_NOT_WORK = 3 };

/** Ends the program with `status`. The message says what failed on what, and what to do. */
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus status, const std::string& message) : std::runtime_error(message), m_status(status) {}

    ExitStatus status() const noexcept { return m_status; }

private:
    ExitStatus m_status;
};

/** "permission denied on <what>; call it as root", from the system's error number. */
Failure systemFailure(int error, const std::string& what);

Failure registryFailure(const ZelmarDB::RegistryError& error);

Failure unknownWidget(const std::string& identifier);

/** In plain words, what the tool's error code says of the widget, and what to do; empty for a success. */
std::string causeOf(const std::string& code, const std::string& imageDirectory);

}  // namespace ZelmarWidgets
