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

using Words = std::vector<std::string>;

// Limits of one run: widgets, so that little is rolled back if it fails and nobody waits long for the lock; bytes,
// which every system accepts as arguments.
constexpr std::size_t WIDGETS_A_RUN = 1000;
constexpr std::size_t BYTES_A_RUN = 100'000;

constexpr int CANNOT_EXECUTE = 127;

Failure toolFailure(const std::string& message, const std::string& advice)
{
    return {COULD_NOT_WORK, Failure::Kind::TOOL, message, advice};
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

/** The tool's option takes any path between double quotes, where these and ampersands follow an ampersand. */
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
std::string run(const Words& words)
{
    const std::string tool = toolPath();
    std::vector<char*> arguments{const_cast<char*>(tool.c_str())};
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);

    const Output result("result");
    const Output errors("errors");
    const pid_t caller = getpid();
    const pid_t process = fork();
    if (process < 0) {
        throw systemFailure(errno, tool);
    }
    if (process == 0) {
        // Ends with its caller, even one that ended just now: the lock against other instances is gone then.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != caller) {
            _exit(CANNOT_EXECUTE);
        }
        dup2(result.file(), STDOUT_FILENO);
        dup2(errors.file(), STDERR_FILENO);
        execv(tool.c_str(), arguments.data());
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

/** Reads the result line along the identifiers that were asked for, since these may hold its commas and colons. */
std::vector<ToolResult> readResultLine(const std::string& line, const Words& identifiers)
{
    std::size_t at = 0;
    const auto skip = [&](const std::string& text) {
        const bool there = line.compare(at, text.size(), text) == 0;
        at += there ? text.size() : 0;
        return there;
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
        throw toolFailure("the result line of zelmar-frontend is not understood: " + line,
                          "install both programs from one release");
    }
    return results;
}

/** Runs the tool with `words` and then the identifiers. */
std::vector<ToolResult> runFor(Words words, const Words& identifiers)
{
    words.emplace_back("--");
    words.insert(words.end(), identifiers.begin(), identifiers.end());
    return readResultLine(run(words), identifiers);
}

}  // namespace

std::string toolPath()
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "zelmar-frontend";
}

std::vector<Words> batchesOf(const Words& identifiers)
{
    std::vector<Words> batches;
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

std::vector<ToolResult> makeAvailable(const std::string& stick, const Words& identifiers)
{
    return runFor({"--make-available", "--path", quoted(stick)}, identifiers);
}

std::vector<ToolResult> makeUnavailable(const Words& identifiers)
{
    return runFor({"--make-unavailable"}, identifiers);
}

}  // namespace ZelmarWidgets
