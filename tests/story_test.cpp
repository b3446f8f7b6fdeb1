#include <gtest/gtest.h>

#include <boost/filesystem.hpp>
#include <cstdlib>
#include <fstream>
#include <regex>

#include "recording.h"
#include "run_tool.h"

namespace {

/**
 * A file of stories/. Its lines "# command" prepare or check the device, "? call = answer" lay down what the platform
 * answers, "$ words" run the tool; all others are what must follow: each log line, call and output, in order.
 */
class Story : public testing::TestWithParam<boost::filesystem::directory_entry> {};

TEST_P(Story, GoesAsTold)
{
    ASSERT_TRUE(std::getenv("PRIVATE_OPT")) << "This empties /opt: run it through tests/private-opt.";
    ASSERT_EQ(0, std::system("rm -rf /opt/* && mkdir -p /opt/usr/apps /opt/storage/usb/sda1"));
    recording = Recording();
    std::ostringstream expected;
    expected << std::ifstream(GetParam().path().string()).rdbuf();
    std::istringstream lines(expected.str());
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || std::string("#?$").find(line[0]) == std::string::npos) {
            continue;
        }
        recording.story += line + "\n";
        const std::string rest = line.substr(2);
        if (line[0] == '#') {
            EXPECT_EQ(0, std::system(rest.c_str())) << line;
        } else if (line[0] == '?') {
            const size_t sign = rest.find(" = ");
            recording.answers[rest.substr(0, sign)] = rest.substr(sign + 3);
        } else {
            const Outcome run = runTool(rest, ' ');
            recording.story +=
                "out: " + run.out + "\nerr: " + run.err + "\nstatus: " + std::to_string(run.status) + "\n\n";
        }
    }
    // Only the other units' numbers are fixed; in these they move with the code.
    const std::regex moving("(^|\\n)((?:make_|zelmar_frontend_common)[^(]*(?:\\(\\))?)\\(\\d+\\)");
    EXPECT_EQ(expected.str(), std::regex_replace(recording.story, moving, "$1$2(_)"));
}

INSTANTIATE_TEST_SUITE_P(All, Story, testing::ValuesIn(boost::filesystem::directory_iterator(STORIES), {}),
                         [](const auto& story) { return story.param.path().stem().string(); });

}  // namespace
