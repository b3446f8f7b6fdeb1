// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <boost/io/ios_state.hpp>
#include <iostream>
#include <streambuf>
#include <string>
#include <vector>

#include "recording.h"

// The tool's own `main`, renamed when it is linked into a test program.
extern "C" int zelmar_frontend_main(int argc, char** argv);

/** As long as it lives, what is written to the stream is recorded, each line after the name. */
class RecordedOutput : public std::streambuf {
public:
    RecordedOutput(std::ostream& stream, const char* name) : m_name(name), m_restorer(stream, this) {}

private:
    int overflow(int character) override
    {
        if (recorded.empty() || recorded.back() == '\n') {
            recorded += character == '\n' ? m_name : m_name + " ";
        }
        recorded += static_cast<char>(character);
        return character;
    }

    const std::string m_name;
    const boost::io::ios_rdbuf_saver m_restorer;
};

/** Runs the tool in this process; returns its exit status. `separator` parts the words of `line`, its name first. */
inline int runTool(std::string line, char separator)
{
    std::vector<char*> argv = {line.data()};
    for (char& end : line) {
        if (end == separator) {
            end = '\0';
            argv.push_back(&end + 1);
        }
    }
    argv.push_back(nullptr);
    recorded.clear();
    const RecordedOutput out(std::cout, "out:"), err(std::cerr, "err:");
    return zelmar_frontend_main(static_cast<int>(argv.size() - 1), argv.data()) & 255;
}
