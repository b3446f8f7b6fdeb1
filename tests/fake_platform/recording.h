#pragma once

#include <map>
#include <string>
#include <vector>

/** What the tool asked of the platform, and what it is to be answered. */
struct Recording {
    /** One line for each log line and call, in order; the calls as the keys of `answers`. */
    std::string story;

    /**
     * By call ("setAvailable t.a 1"): the text or number to answer, or the exception to throw: "WidgetNotExist",
     * "DatabaseError", "SqlException", "std::exception" or "unknown". A call not named here goes well: any widget P
     * is installed on USB as "t.P".
     */
    std::map<std::string, std::string> answers;

    /** The identifiers of the available widgets; an empty one stands for a widget that has none. */
    std::vector<std::string> available;
};

extern Recording recording;
