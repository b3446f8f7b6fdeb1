// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <boost/algorithm/string.hpp>
#include <boost/filesystem.hpp>
#include <cstdlib>
#include <fstream>
#include <regex>

#include "recording.h"
#include "run_tool.h"

namespace {

// Only the other units' numbers are fixed; in these they move with the code.
const std::regex MOVING_NUMBER(R"(^((?:make_|zelmar_frontend_common)[^(]*(?:\(\))?)\(\d+\))");
const std::regex CHANGE_OR_OUTPUT("^(  set|  label|out:|err:)");

/** The lines up to an empty one; calls that stand on one line are parted. */
std::string readParagraph(std::istream& story)
{
    std::string text;
    for (std::string line; std::getline(story, line) && !line.empty();) {
        if (line[0] == ' ') {
            boost::replace_all(line, ", ", "\n  ");
        }
        text += line + "\n";
    }
    return text;
}

/** Runs the tool and returns what should equal `told`, which begins with the command. README.md has the grammar. */
std::string runAsTold(const std::string& told)
{
    const bool whole = boost::starts_with(told, "$$");
    const std::string command = told.substr(0, told.find(" -> "));
    recording.lines.clear();
    const int status = runTool("zelmar-frontend" + command.substr(command.find(' ')), ' ');

    std::string happened = command + " -> " + std::to_string(status) + "\n";
    for (const std::string& recorded : recording.lines) {
        const std::string line = std::regex_replace(recorded, MOVING_NUMBER, "$1(_)") + "\n";
        if (whole || std::regex_search(line, CHANGE_OR_OUTPUT) || boost::contains(told, "\n" + line)) {
            happened += line;
        }
    }
    return happened;
}

class Story : public testing::TestWithParam<boost::filesystem::directory_entry> {};

TEST_P(Story, GoesAsTold)
{
    ASSERT_TRUE(std::getenv("PRIVATE_OPT")) << "This empties /opt: run it through tests/private-opt.";
    ASSERT_EQ(0, std::system("rm -rf /opt/* && mkdir -p /opt/usr/apps /opt/storage/usb/sda1"));
    recording = Recording();
    std::ifstream story(GetParam().path().string());
    for (std::string line; std::getline(story, line);) {
        const std::string rest = line.substr(line.find(' ') + 1);
        if (line[0] == '!') {
            EXPECT_EQ(0, std::system(rest.c_str())) << line;
        } else if (line[0] == '?') {
            const size_t sign = rest.find(" =");
            recording.answers[rest.substr(0, sign)] = boost::trim_left_copy(rest.substr(sign + 2));
        } else if (line[0] == '$') {
            const bool brief = boost::contains(line, " | ");
            const std::string told =
                boost::replace_all_copy(line, " | ", "\n") + "\n" + (brief ? "" : readParagraph(story));
            EXPECT_EQ(told, runAsTold(told));
        } else {
            EXPECT_TRUE(line.empty() || line[0] == '#') << line;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, Story, testing::ValuesIn(boost::filesystem::directory_iterator(STORIES), {}),
                         [](const auto& story) { return story.param.path().stem().string(); });

}  // namespace
