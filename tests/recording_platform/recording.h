// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <map>
#include <string>
#include <vector>

/** What the tool asked of the platform, and what it is to be answered. */
struct Recording {
    /** The log lines and the calls in order; the calls, indented, as the keys of `answers`. */
    std::vector<std::string> lines;

    /**
     * By call ("setAvailable t.a 1"): the text or number to answer, or the exception to throw: "WidgetNotExist",
     * "DatabaseError", "SqlException", "std::exception" or "unknown". Where nothing is laid down all goes well: any
     * widget P is installed on USB as "t.P", and none is available.
     */
    std::map<std::string, std::string> answers;
};

extern Recording recording;
