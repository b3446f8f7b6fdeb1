#pragma once

#include <platform/dlog.h>
#include <array>
#include <string_view>

namespace ZelmarFrontend {

/** Priorities of the platform log, as __dlog_print takes them. */
enum LogPriority { DEBUG = 3, ERROR = 6 };

/** A source file's name without folder and extension. One that does not fit is an error of the compiler's. */
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

/** One line to the platform log: unit, function and number, then the message. */
#define ZELMAR_LOG(priority, number, format, ...)                                                   \
    __dlog_print(ZelmarFrontend::LogPriority::priority, "ZELMAR_INSTALLER", "%s: %s(%d) > " format, \
                 ZelmarFrontend::UNIT_NAME.data(), __func__, number, ##__VA_ARGS__)

#define ZELMAR_DEBUG(...) ZELMAR_LOG(DEBUG, __LINE__, __VA_ARGS__)

// Log parsers match these lines by their number, so it is given and stays when the file is edited.
#define ZELMAR_DEBUG_AT(number, ...) ZELMAR_LOG(DEBUG, number, __VA_ARGS__)
#define ZELMAR_ERROR_AT(number, ...) ZELMAR_LOG(ERROR, number, __VA_ARGS__)

/** For a message whose format and arguments disagree on purpose; the caller says who relies on it. */
#define ZELMAR_DEBUG_MISMATCHED(...)                                                             \
    do {                                                                                         \
        _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wformat\"")            \
            _Pragma("GCC diagnostic ignored \"-Wformat-extra-args\"") ZELMAR_DEBUG(__VA_ARGS__); \
        _Pragma("GCC diagnostic pop")                                                            \
    } while (false)
