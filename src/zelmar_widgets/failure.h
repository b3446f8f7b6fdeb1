// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <platform/widget_registry.h>
#include <stdexcept>
#include <string>

namespace ZelmarWidgets {

enum ExitStatus { ALL_WELL = 0, SOME_WIDGET_WRONG = 1, BAD_COMMAND_LINE = 2, COMMAND_FAILED = 3 };

/** Ends the command with `status`. The message says what failed on what, the advice what to do. */
class Failure : public std::runtime_error {
public:
    enum class Kind { COMMAND_LINE, SYSTEM, DATABASE, TOOL, WIDGET };

    Failure(ExitStatus status, Kind kind, const std::string& message, const std::string& advice)
        : std::runtime_error(message), m_status(status), m_kind(kind), m_advice(advice)
    {
    }

    ExitStatus status() const noexcept { return m_status; }
    Kind kind() const noexcept { return m_kind; }
    const std::string& advice() const noexcept { return m_advice; }

    /** The message and the advice, as a person reads them. */
    std::string text() const { return what() + ("; " + m_advice); }

private:
    ExitStatus m_status;
    Kind m_kind;
    std::string m_advice;
};

/** "permission denied on <what>", from the system's error number. */
Failure systemFailure(int error, const std::string& what, ExitStatus status = COMMAND_FAILED);

Failure registryFailure(const ZelmarDB::RegistryError& error);

Failure badCommandLine(const std::string& message, const std::string& advice);

Failure unknownWidget(const std::string& identifier);

/** What the tool's error code means for the widget, and what to do, for people. */
std::string explanationOf(const std::string& code, const std::string& imageDirectory);

}  // namespace ZelmarWidgets
