// SPDX-License-Identifier: Apache-2.0

// Any command line, a word in each line of the input: the tool must end by itself, with a result or with a reason.

#include <boost/algorithm/string.hpp>
#include <cstdlib>

#include "recording.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    // The first byte chooses how the line begins, so that no time is lost with finding out what a switch is.
    const char* const beginnings[] = {"", "--make-all-unavailable\n--pa=/\n", "--he\n--make-u\n--\n--x\n",
                                      "--make-available\n--path\n/opt\n--kxAppId=a\n"};
    const std::string beginning = size > 0 ? beginnings[data[0] % 4] : "";
    const int status = runTool("zelmar-frontend\n" + beginning + std::string(data, data + size), '\n');
    const bool out = boost::contains(recorded, "\nout:"), err = boost::contains(recorded, "\nerr:");
    if (status == 0 ? !out && !err : out || !err) std::abort();
    return 0;
}
