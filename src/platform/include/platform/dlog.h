#pragma once

/**
 * Writes one line to the system log under the identifier `tag`, which must stay valid until the process ends.
 * `priority`: 3 debug, 4 info, 5 warning, 6 error. Returns 0. A line that nobody takes is lost in silence, and one that
 * is too long for the log's socket (some 200 KiB) is cut. Waits for a slow logger, but not longer than a second for one
 * that takes nothing, and then for no line any more.
 */
extern "C" int __dlog_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
