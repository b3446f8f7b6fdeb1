// Any command line, a word in each line of the input: the tool must end by itself, with a result or with a reason.

#include <cstdlib>

#include "recording.h"
#include "run_tool.h"

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size)
{
    recording = Recording();
    const Outcome run = runTool("zelmar-frontend\n" + std::string(data, size), '\n');
    if (run.status == 0 ? run.out.empty() && run.err.empty() : !run.out.empty() || run.err.empty()) {
        std::abort();
    }
    return 0;
}
