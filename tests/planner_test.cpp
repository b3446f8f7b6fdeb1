// SPDX-License-Identifier: Apache-2.0
// What is → what is to be done, without a system.

#include <front_end.h>
#include <gtest/gtest.h>
#include <mounted_sticks.h>
#include <planner.h>
#include <report.h>
#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

using namespace ZelmarWidgets;
using Command = Scope::Command;
using namespace std::string_literals;

namespace {

const std::vector<std::string> ROOTS{"/opt/storage/usb", "/media"};
const std::string LETTERS = "iwcs";  // the image and the three metadata files

std::string pathOf(const std::string& stick)
{
    return stick == "x" ? "/mnt/x" : stick == "own" ? "/home/own" : stick == "m" ? "/media/m" : ROOTS[0] + "/" + stick;
}

std::vector<std::string> cellsOf(const std::string& row)
{
    std::vector<std::string> cells;
    std::istringstream rest(row);
    for (std::string cell; std::getline(rest, cell, '|');) {
        const std::size_t first = cell.find_first_not_of(' ');
        cells.push_back(first == std::string::npos ? "" : cell.substr(first, cell.find_last_not_of(' ') - first + 1));
    }
    cells.resize(7);
    return cells;
}

/** What the cells tell of the widget, and what every stick holds, whether somebody asks it or not. */
std::pair<WidgetFacts, std::vector<Content>> read(const std::string& row, const std::string& linkCell,
                                                  const std::string& stickCell)
{
    WidgetFacts widget;
    widget.identifier = "P";
    std::istringstream words(row);
    for (std::string word; words >> word;) {
        widget.home = word == "tv" ? Home::TELEVISION : word == "unknown" ? Home::UNKNOWN : widget.home;
        widget.available |= word == "available";
        widget.hasImageDirectory &= word != "nodir";
        widget.hidden |= word == "hidden";
        if (word[0] == '@') {
            widget.rowStick = pathOf(word.substr(1));
            widget.storagePath = contentDirectory(widget.rowStick, "P");
        }
    }
    std::istringstream links(linkCell);
    for (std::string link; links >> link;) {
        const std::size_t file = LETTERS.find(link[0]);
        const bool labelled = link.back() != '!';
        const std::string stick = link.substr(1, link.size() - (labelled ? 1 : 2));
        const std::string folder = stick == "bin" ? "/bin" : contentDirectory(pathOf(stick), "P");
        widget.links[file] = {folder + "/" + fileNames("P")[file], labelled};
    }
    std::vector<Content> contents;
    std::istringstream sticks(stickCell);
    for (std::string stick; sticks >> stick;) {
        const std::size_t colon = stick.find(':');
        Content content{pathOf(stick.substr(0, colon)), colon != std::string::npos};
        for (std::size_t file = 0; content.folder && file < FILE_COUNT; ++file) {
            content.files[file] = stick.find(LETTERS[file], colon) != std::string::npos;
        }
        contents.push_back(content);
    }
    return {widget, contents};
}

/** As the surveyor does it: asks the candidates up to the first that holds the image. */
WidgetPlan planned(WidgetFacts widget, const Scope& scope, const std::vector<Content>& contents)
{
    std::vector<std::string> mounted;
    for (const Content& content : contents) {
        if (content.stick != pathOf("x")) {
            mounted.push_back(content.stick);
        }
    }
    for (const std::string& stick : candidates(widget, scope, mounted)) {
        const auto content =
            std::find_if(contents.begin(), contents.end(), [&](const Content& some) { return some.stick == stick; });
        widget.contents.push_back(content == contents.end() ? Content{stick} : *content);
        if (widget.contents.back().files[IMAGE]) {
            break;
        }
    }
    if (!isAbout(scope, widget)) {
        return {"P", "not about it", {}, {}, {}};
    }
    return planFor(widget, scope, ROOTS);
}

/** The last three cells of a row. */
std::string text(const WidgetPlan& plan)
{
    const char* const names[] = {"directory", "clear", "unavailable", "available"};
    std::string steps;
    for (const Step step : plan.steps) {
        steps += (steps.empty() ? "" : " ") + std::string(names[static_cast<int>(step)]);
    }
    const std::string stick = plan.stick.substr(plan.stick.rfind('/') + 1);
    return stick + " | " + namesOf(plan.faults) + " | " + steps;
}

TEST(Planner, DoesWhatTheTableSays)
{
    const std::map<std::string, Command> commands{
        {"heal", Command::HEAL}, {"plug", Command::PLUG}, {"unplug", Command::UNPLUG}, {"remove", Command::REMOVE}};
    std::ifstream table(PLANNER_TABLE);
    int rows = 0;
    Scope scope;
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string first;
        words >> first;
        if (first == "$") {
            std::string command;
            words >> command >> scope.argument;
            scope.command = commands.at(command);
            scope.argument = command == "plug" || scope.argument[0] == 'd' ? pathOf(scope.argument) : scope.argument;
        } else if (!first.empty() && first != "#") {
            const auto cells = cellsOf(line);
            const auto [widget, contents] = read(cells[1], cells[2], cells[3]);
            EXPECT_EQ(cells[4] + " | " + cells[5] + " | " + cells[6], text(planned(widget, scope, contents)))
                << scope.argument << ": " << cells[0];
            ++rows;
        }
    }
    EXPECT_LT(50, rows);
}

TEST(Batches, EndAtEachLimit)
{
    const auto sizes = [](std::size_t count, std::size_t length) {
        std::vector<std::size_t> all;
        for (const auto& batch : batchesOf(std::vector<std::string>(count, std::string(length, 'x')))) {
            all.push_back(batch.size());
        }
        return all;
    };
    const std::size_t word = 1 + sizeof(char*);  // beyond the identifier itself
    EXPECT_EQ(std::vector<std::size_t>(), sizes(0, 1));
    EXPECT_EQ(std::vector<std::size_t>({1000}), sizes(1000, 1));
    EXPECT_EQ(std::vector<std::size_t>({1000, 1000, 1}), sizes(2001, 1));
    EXPECT_EQ(std::vector<std::size_t>({2, 1}), sizes(3, 50000 - word));
    EXPECT_EQ(std::vector<std::size_t>({1, 1}), sizes(2, 50001 - word));
    EXPECT_EQ(std::vector<std::size_t>({1, 1}), sizes(2, 200000));
}

TEST(Names, StayWhole)
{
    const auto mounts = mountsIn("21 1 8:1 / / rw - ext4 /dev/sda1 rw\n23 21 8:17 / /a\\040b\\011\\134\r\v\xff rw\n");
    ASSERT_EQ(2U, mounts.size());
    EXPECT_EQ("/", mounts[0].point);
    EXPECT_EQ("/a b\t\\\r\v\xff", mounts[1].point);
    EXPECT_EQ("8:17", mounts[1].device);
    EXPECT_EQ("/", stickOf("/chess_img", "chess"));
    EXPECT_EQ("", stickOf("/d/xchess_img", "chess"));
    EXPECT_EQ("/chess_img", contentDirectory("/", "chess"));
    EXPECT_EQ("\\x00\\xc2\\x9b\\x9b\\xc3( \\\\ колобок", printable("\0\u009b\x9b\xc3( \\ колобок"s));
}

}  // namespace
