// SPDX-License-Identifier: Apache-2.0

#pragma once

/**
 * Writes one line to the system log under the tag `tag`, which must stay valid until the process ends.
 * `priority`: 3 debug, 4 info, 5 warning, 6 error. Returns 0. Without a logger, the line is lost in silence. A line
 * that is too long for the log is cut. Waits for a slow logger, but at most 1 s for a logger that takes no line; after
 * that, no line waits.
 */
extern "C" int __dlog_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
