// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <boost/algorithm/string.hpp>
#include <boost/filesystem.hpp>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

#include "recording.h"

namespace {

// What parts the steps of a story, and the lines of a step. README.md has the grammar.
const std::regex BEFORE_STEP("\n(?=[#!$\n]|$)"), BETWEEN_LINES(R"( \| |\n +)");
// Only the other units' numbers are fixed; in these they move with the code.
const std::regex MOVING_NUMBER(R"(^((?:make_|zelmar_frontend_common).*)\(\d+\) >)");
const std::regex CHANGE_OR_OUTPUT("^(set|label|out:|err:)");

/** Runs the tool and returns what should equal `told`, which begins with the command. */
std::string runAsTold()
{
    const std::string command = told.substr(0, told.find(" -> "));
    const int status = runTool("zelmar-frontend" + command.substr(command.find(' ')), ' ');
    std::string happened = command + " -> " + std::to_string(status) + "\n";
    std::istringstream lines(recorded);
    for (std::string line; std::getline(lines, line);) {
        line = std::regex_replace(line, MOVING_NUMBER, "$1(_) >") + "\n";
        if (told[1] == '$' || std::regex_search(line, CHANGE_OR_OUTPUT) || boost::contains(told, "\n" + line)) {
            happened += line;
        }
    }
    return happened;
}

class Story : public testing::TestWithParam<boost::filesystem::directory_entry> {};

TEST_P(Story, GoesAsTold)
{
    ASSERT_TRUE(std::getenv("PRIVATE_OPT")) << "This empties /opt: run it through tools/private-opt.";
    ASSERT_EQ(0, std::system("rm -rf /opt/* && mkdir -p /opt/usr/apps /opt/storage/usb/sda1"));
    std::ifstream file(GetParam().path().string());
    std::string story;
    std::getline(file, story, '\0');
    story = std::regex_replace(story, BETWEEN_LINES, "\n");
    for (std::sregex_token_iterator step(story.begin(), story.end(), BEFORE_STEP, -1), end; step != end; ++step) {
        told = step->str() + "\n";
        if (told[0] == '!') {
            EXPECT_EQ(0, std::system(&told[1])) << told;
        } else if (told[0] == '$') {
            EXPECT_EQ(told, runAsTold());
        } else {
            EXPECT_TRUE(std::regex_match(told, std::regex("(#.*)?\n"))) << told;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, Story, testing::ValuesIn(boost::filesystem::directory_iterator(STORIES), {}),
                         [](const auto& story) { return story.param.path().stem().string(); });

}  // namespace
