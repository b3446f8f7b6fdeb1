// Any command line, a word in each line of the input: the tool must end by itself, with a result or with a reason.

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "recording.h"

extern "C" int zelmar_frontend_main(int argc, char** argv);

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size)
{
    recording = Recording();
    std::vector<std::string> words{"zelmar-frontend"};
    std::istringstream input({data, size});
    for (std::string word; std::getline(input, word);) {
        words.push_back(word);
    }
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
    if (status == 0 ? out.str().empty() && err.str().empty() : !out.str().empty() || err.str().empty()) {
        std::abort();
    }
    return 0;
}
