// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <platform/dlog.h>
#include <array>
#include <string_view>

namespace ZelmarFrontend {

/** Priorities of the platform log, as __dlog_print takes them. */
enum LogPriority { PRIORITY_DEBUG = 3, PRIORITY_ERROR = 6 };

/** A source file's name without folder and extension. A name that does not fit does not compile. */
constexpr std::array<char, 64> unitName(std::string_view file)
{
    file.remove_prefix(file.rfind('/') + 1);
    std::array<char, 64> name = {};
    for (size_t i = 0; i < file.rfind('.'); ++i) {
        name[i] = file[i];
    }
    return name;
}

/** The unit that is being compiled. */
constexpr std::array<char, 64> UNIT_NAME = unitName(__BASE_FILE__);

}  // namespace ZelmarFrontend

/**
 * One line to the platform log: unit, function and number, then the message.
 *
 * Log parsers in the field match whole lines, so their oddities stay: failures at debug priority, misspelt words, the
 * function name "operator()", formats that do not fit their arguments, and the fixed numbers of the lines that are
 * logged with an ..._AT macro. Every other oddity has a comment that begins "odd" at its line.
 */
#define ZELMAR_LOG(priority, number, format, ...)                                      \
    __dlog_print(ZelmarFrontend::priority, "ZELMAR_INSTALLER", "%s: %s(%d) > " format, \
                 ZelmarFrontend::UNIT_NAME.data(), __func__, number, ##__VA_ARGS__)

#define ZELMAR_DEBUG(...) ZELMAR_LOG(PRIORITY_DEBUG, __LINE__, __VA_ARGS__)

// The number stays the same when the file is edited.
#define ZELMAR_DEBUG_AT(number, ...) ZELMAR_LOG(PRIORITY_DEBUG, number, __VA_ARGS__)
#define ZELMAR_ERROR_AT(number, ...) ZELMAR_LOG(PRIORITY_ERROR, number, __VA_ARGS__)

/** For a message whose format and arguments disagree on purpose. */
#define ZELMAR_DEBUG_MISMATCHED(...)                                                             \
    do {                                                                                         \
        _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wformat\"")            \
            _Pragma("GCC diagnostic ignored \"-Wformat-extra-args\"") ZELMAR_DEBUG(__VA_ARGS__); \
        _Pragma("GCC diagnostic pop")                                                            \
    } while (false)
