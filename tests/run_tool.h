#pragma once

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

// The tool's own `main`, which renamed_main.h lets stand beside a test program's.
extern "C" int zelmar_frontend_main(int argc, char** argv);

struct Outcome {
    int status;
    std::string out, err;
};

/** Runs the tool in this process; the words begin with its name. */
inline Outcome runTool(std::vector<std::string> words)
{
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    std::ostringstream out, err;
    auto* const realOut = std::cout.rdbuf(out.rdbuf());
    auto* const realErr = std::cerr.rdbuf(err.rdbuf());
    const int status = zelmar_frontend_main(static_cast<int>(words.size()), argv.data());
    std::cout.rdbuf(realOut);
    std::cerr.rdbuf(realErr);
    return {status, out.str(), err.str()};
}
