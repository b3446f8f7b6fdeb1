#pragma once

#include <map>
#include <string>

/** What the tool asked of the platform, and what it is to be answered. */
struct Recording {
    /** One line for each log line and call, in order; the calls as the keys of `answers`. */
    std::string story;

    /**
     * By call ("setAvailable t.a 1"): the text or number to answer, or the exception to throw: "WidgetNotExist",
     * "DatabaseError", "SqlException", "std::exception" or "unknown". Where nothing is laid down all goes well: any
     * widget P is installed on USB as "t.P", and none is available.
     */
    std::map<std::string, std::string> answers;
};

extern Recording recording;
