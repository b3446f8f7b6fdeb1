// SPDX-License-Identifier: Apache-2.0

#include "front_end.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "failure.h"

namespace ZelmarWidgets {

namespace {

using Arguments = std::vector<std::string>;
using Identifiers = std::vector<std::string>;

// Limits of one run: the widgets, so that little is rolled back if it fails and other instances do not wait long for
// the lock; the bytes, so that every system accepts the arguments.
constexpr std::size_t WIDGETS_A_RUN = 1000;
constexpr std::size_t BYTES_A_RUN = 100'000;

constexpr int CANNOT_EXECUTE = 127;

Failure toolFailure(const std::string& message, const std::string& advice)
{
    return {COMMAND_FAILED, Failure::Kind::TOOL, message, advice};
}

/** Holds what a program prints in memory; unlike a pipe, it never fills up and blocks the program. */
class Output {
public:
    explicit Output(const char* name) : m_file(memfd_create(name, MFD_CLOEXEC))
    {
        if (m_file < 0) {
            throw systemFailure(errno, "a file in memory");
        }
    }
    ~Output() { close(m_file); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    int file() const { return m_file; }

    /** What was printed, without the newline at its end. */
    std::string text() const
    {
        std::string text;
        std::array<char, 65536> piece{};
        for (off_t at = 0;;) {
            const ssize_t length = pread(m_file, piece.data(), piece.size(), at);
            if (length <= 0) {
                break;
            }
            text.append(piece.data(), static_cast<std::size_t>(length));
            at += length;
        }
        if (!text.empty() && text.back() == '\n') {
            text.pop_back();
        }
        return text;
    }

private:
    int m_file;
};

/** As the option --path takes it: between double quotes, with an ampersand before each double quote and ampersand. */
std::string quoted(const std::string& path)
{
    std::string value = "\"";
    for (const char character : path) {
        if (character == '&' || character == '"') {
            value += '&';
        }
        value += character;
    }
    return value + '"';
}

/** Runs the tool and returns its result line. */
std::string run(const Arguments& arguments)
{
    const std::string tool = toolPath();
    std::vector<char*> argv{const_cast<char*>(tool.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);

    const Output result("result");
    const Output errors("errors");
    const pid_t caller = getpid();
    const pid_t process = fork();
    if (process < 0) {
        throw systemFailure(errno, tool);
    }
    if (process == 0) {
        // The kernel kills the tool when its caller ends, since the caller's instance lock is released then. The caller
        // may also have ended before this took effect.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != caller) {
            _exit(CANNOT_EXECUTE);
        }
        dup2(result.file(), STDOUT_FILENO);
        dup2(errors.file(), STDERR_FILENO);
        execv(tool.c_str(), argv.data());
        std::cerr << std::strerror(errno);
        _exit(CANNOT_EXECUTE);
    }
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) {
        throw toolFailure(tool + " was ended by signal " + std::to_string(WTERMSIG(status)),
                          "run 'zelmar-widgets heal'");
    }
    if (WEXITSTATUS(status) == CANNOT_EXECUTE) {
        throw toolFailure("cannot run " + tool + ": " + errors.text(), "install it there");
    }
    if (WEXITSTATUS(status) != 0) {
        throw toolFailure(tool + ": " + errors.text(), "see 'journalctl -t ZELMAR_INSTALLER', then call again");
    }
    return result.text();
}

/** Expects the identifiers one after the other: they may contain the commas and colons that separate the entries. */
std::vector<ToolResult> readResultLine(const std::string& line, const Identifiers& identifiers)
{
    std::size_t at = 0;
    const auto skip = [&](const std::string& text) {
        const bool isNext = line.compare(at, text.size(), text) == 0;
        at += isNext ? text.size() : 0;
        return isNext;
    };
    std::vector<ToolResult> results;
    for (const std::string& identifier : identifiers) {
        if (skip(identifier + ",SUCCESS:")) {
            results.push_back({identifier, ""});
        } else if (skip(identifier + ",FAIL,")) {
            const std::size_t end = line.find(':', at);
            results.push_back({identifier, line.substr(at, end - at)});
            skip(results.back().code + ":");
        }
    }
    if (at != line.size() || results.size() != identifiers.size()) {
        throw toolFailure("cannot understand the result line of zelmar-frontend: " + line,
                          "install both programs from one release");
    }
    return results;
}

/** Runs the tool with `arguments`, followed by the identifiers. */
std::vector<ToolResult> runFor(Arguments arguments, const Identifiers& identifiers)
{
    arguments.emplace_back("--");
    arguments.insert(arguments.end(), identifiers.begin(), identifiers.end());
    return readResultLine(run(arguments), identifiers);
}

}  // namespace

std::string toolPath()
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "zelmar-frontend";
}

std::vector<Identifiers> batchesOf(const Identifiers& identifiers)
{
    std::vector<Identifiers> batches;
    std::size_t bytes = 0;
    for (const std::string& identifier : identifiers) {
        const std::size_t size = identifier.size() + 1 + sizeof(char*);
        if (batches.empty() || batches.back().size() == WIDGETS_A_RUN || bytes + size > BYTES_A_RUN) {
            batches.emplace_back();
            bytes = 0;
        }
        batches.back().push_back(identifier);
        bytes += size;
    }
    return batches;
}

std::vector<ToolResult> makeAvailable(const std::string& stick, const Identifiers& identifiers)
{
    return runFor({"--make-available", "--path", quoted(stick)}, identifiers);
}

std::vector<ToolResult> makeUnavailable(const Identifiers& identifiers)
{
    return runFor({"--make-unavailable"}, identifiers);
}

}  // namespace ZelmarWidgets
