// SPDX-License-Identifier: Apache-2.0

#pragma once

/**
 * Writes one line to the system log under the tag `tag`, which must stay valid until the process ends.
 * `priority`: 3 debug, 4 info, 5 warning, 6 error. Returns 0. A line that nobody takes is lost in silence; one that is
 * too long for the log is cut. Waits for a slow logger, but at most a second for one that takes nothing; after that, no
 * line waits.
 */
extern "C" int __dlog_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
