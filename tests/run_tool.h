#pragma once

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

// The tool's own `main`, renamed when it is linked into a test program.
extern "C" int zelmar_frontend_main(int argc, char** argv);

struct Outcome {
    int status;
    std::string out, err;
};

/** Runs the tool in this process. The words of `line`, its name first, are parted by `separator`. */
inline Outcome runTool(std::string line, char separator)
{
    std::vector<char*> argv = {line.data()};
    for (char& end : line) {
        if (end == separator) {
            end = '\0';
            argv.push_back(&end + 1);
        }
    }
    argv.push_back(nullptr);
    std::ostringstream out, err;
    auto* const realOut = std::cout.rdbuf(out.rdbuf());
    auto* const realErr = std::cerr.rdbuf(err.rdbuf());
    const int status = zelmar_frontend_main(static_cast<int>(argv.size() - 1), argv.data());
    std::cout.rdbuf(realOut);
    std::cerr.rdbuf(realErr);
    return {status, out.str(), err.str()};
}
