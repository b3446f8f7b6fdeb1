// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <iostream>
#include <streambuf>
#include <string>
#include <vector>

#include "recording.h"

// The tool's own `main`, renamed when it is linked into a test program.
extern "C" int zelmar_frontend_main(int argc, char** argv);

/** As long as it lives, each whole line that is written to the stream is recorded, after the name. */
class RecordedOutput : public std::streambuf {
public:
    RecordedOutput(std::ostream& stream, const char* name) : m_stream(stream), m_real(stream.rdbuf(this)), m_name(name)
    {
    }
    ~RecordedOutput() override { m_stream.rdbuf(m_real); }

private:
    int overflow(int character) override
    {
        if (character != '\n') {
            m_line += static_cast<char>(character);
        } else {
            recording.lines.push_back(m_line.empty() ? m_name : m_name + " " + m_line);
            m_line.clear();
        }
        return character;
    }

    std::ostream& m_stream;
    std::streambuf* const m_real;
    const std::string m_name;
    std::string m_line;
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
    const RecordedOutput out(std::cout, "out:"), err(std::cerr, "err:");
    return zelmar_frontend_main(static_cast<int>(argv.size() - 1), argv.data()) & 255;
}
