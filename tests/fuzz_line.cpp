// Any command line, a word in each line of the input: the tool must end by itself, with a result or with a reason.

#include <cstdlib>

#include "recording.h"
#include "run_tool.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    // The first byte chooses how the line begins, so that no time is lost with finding out what a switch is.
    const char* const beginnings[] = {"", "--make-all-unavailable\n--pa=/\n", "--he\n--make-u\n--\n--x\n",
                                      "--make-available\n--path\n/opt\n--kxAppId=a\n"};
    const std::string beginning = size > 0 ? beginnings[data[0] % 4] : "";
    recording = Recording();
    const Outcome run = runTool("zelmar-frontend\n" + beginning + std::string(data, data + size), '\n');
    if (run.status == 0 ? run.out.empty() && run.err.empty() : !run.out.empty() || run.err.empty()) {
        std::abort();
    }
    return 0;
}
