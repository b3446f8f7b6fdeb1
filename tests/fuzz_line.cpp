// Any command line, a word in each line of the input: the tool must end by itself, with a result or with a reason.

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <cstdlib>

#include "run_tool.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    // The first byte chooses how the line begins, so that no time is lost with finding out what a switch is.
    const char* const beginnings[] = {"", "--make-all-unavailable\n--pa=/\n", "--he\n--make-u\n--\n--x\n",
                                      "--make-available\n--path\n/opt\n--kxAppId=a\n"};
    const std::string beginning = size > 0 ? beginnings[data[0] % 4] : "";
    recording = Recording();
    const int status = runTool("zelmar-frontend\n" + beginning + std::string(data, data + size), '\n');
    const auto written = [](const char* name) {
        return std::any_of(recording.lines.begin(), recording.lines.end(),
                           [name](const std::string& line) { return boost::starts_with(line, name); });
    };
    if (status == 0 ? !written("out:") && !written("err:") : written("out:") || !written("err:")) {
        std::abort();
    }
    return 0;
}
