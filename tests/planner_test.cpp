// SPDX-License-Identifier: Apache-2.0
// What is → what is to be done, without a system.

#include <front_end.h>
#include <gtest/gtest.h>
#include <mounted_sticks.h>
#include <planner.h>
#include <report.h>
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
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
        steps += std::string(" ") + names[static_cast<int>(step)];
    }
    const std::string stick = plan.stick.substr(plan.stick.rfind('/') + 1);
    return stick + " | " + namesOf(plan.faults) + " |" + steps;
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
            EXPECT_EQ(cells[4] + " | " + cells[5] + " |" + (cells[6].empty() ? "" : " ") + cells[6],
                      text(planned(widget, scope, contents)))
                << scope.argument << ": " << cells[0];
            ++rows;
        }
    }
    EXPECT_LT(50, rows);
}

/** The plan carried out, as the tool does it. */
void carryOut(WidgetFacts& widget, const WidgetPlan& plan, const std::vector<Content>& contents)
{
    for (const Step step : plan.steps) {
        widget.hasImageDirectory = true;
        for (std::size_t file = 0; file < FILE_COUNT; ++file) {
            const auto& names = plan.staleLinks;
            const bool stale = std::find(names.begin(), names.end(), fileNames("P")[file]) != names.end();
            const auto content = std::find_if(contents.begin(), contents.end(),
                                              [&](const Content& some) { return some.stick == plan.stick; });
            if (step == Step::MAKE_UNAVAILABLE || (step == Step::CLEAR_LINKS && stale)) {
                widget.links[file].reset();
            } else if (step == Step::MAKE_AVAILABLE && content->files[file]) {
                widget.links[file] = {contentDirectory(plan.stick, "P") + "/" + fileNames("P")[file], true};
            }
        }
        if (step == Step::MAKE_UNAVAILABLE || step == Step::MAKE_AVAILABLE) {
            widget.available = step == Step::MAKE_AVAILABLE;
            widget.rowStick = widget.available ? plan.stick : "";
            widget.storagePath = widget.available ? contentDirectory(plan.stick, "P") : "";
        }
    }
}

TEST(Planner, HasNothingToDoAfterwards)
{
    const char* const given = std::getenv("SEED");
    const auto seed = given == nullptr ? std::random_device()() : static_cast<unsigned>(std::atoi(given));
    std::cout << "SEED=" << seed << '\n';
    std::mt19937 random(seed);
    const auto oneOf = [&](const std::vector<std::string>& some) {
        return some[random() % some.size()];
    };
    for (int round = 0; round < 20000; ++round) {
        const std::string row = oneOf({"usb", "usb", "tv", "unknown"}) + oneOf({"", " available", " available"}) +
                                oneOf({"", " @d1", " @d2", " @x"}) + oneOf({"", "", "", " nodir"});
        std::string links;
        std::string sticks;
        for (const char letter : LETTERS) {
            links += oneOf({"", std::string(" ") + letter + oneOf({"d1", "d1!", "d2", "x", "own", "bin"})});
        }
        for (const std::string stick : {" d3", " d1", " d2", " x"}) {
            sticks += oneOf({"", stick, stick + ":", stick + ":c", stick + ":iw", stick + ":iwcs"});
        }
        auto [widget, contents] = read(row, links, sticks);
        const Scope scope = std::vector<Scope>{{Command::HEAL, ""},
                                               {Command::PLUG, pathOf("d1")},
                                               {Command::UNPLUG, pathOf("d1")},
                                               {Command::REMOVE, "P"}}[random() % 4];
        const WidgetPlan plan = planned(widget, scope, contents);
        EXPECT_EQ(plan.faults.empty(), plan.steps.empty());
        carryOut(widget, plan, contents);
        EXPECT_TRUE(planned(widget, scope, contents).faults.empty())
            << row << " |" << links << " |" << sticks << " | " << text(plan) << " | "
            << text(planned(widget, scope, contents));
    }
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

TEST(Names, StayWholeDistinctAndPrintable)
{
    const auto mounts = mountsIn(
        "21 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
        "22 21 0:30 / /opt/storage/usb/my\\040stick\\011\\012\\134 rw\n"
        "23 21 8:17 / /opt/\r\v\f\xff rw\n");
    ASSERT_EQ(3U, mounts.size());
    EXPECT_EQ("/", mounts[0].point);
    EXPECT_EQ("/opt/storage/usb/my stick\t\n\\", mounts[1].point);
    EXPECT_EQ("/opt/\r\v\f\xff", mounts[2].point);
    EXPECT_EQ("8:17", mounts[2].device);

    EXPECT_EQ("\\x00 \\x1b\\x7f\\xc2\\x9b \\x9b \\xff\\xc3( \\\\ колобок \u00a0",
              printable("\0 \x1b\x7f\u009b \x9b \xff\xc3( \\ колобок \u00a0"s));
    for (const auto& [folder, stick] :
         {std::pair("/chess_img", "/"), {"/d/chess_img", "/d"}, {"/d/xchess_img", ""}, {"chess_img", ""}}) {
        EXPECT_EQ(stick, stickOf(folder, "chess"));
    }
    EXPECT_EQ("/chess_img", contentDirectory("/", "chess"));
    EXPECT_TRUE(leadsInto("/a/b/", "/a/b"));
    EXPECT_TRUE(leadsInto("/a//./b/x", "/a/b"));
    EXPECT_FALSE(leadsInto("/a/b/../c", "/a/b"));
    EXPECT_FALSE(leadsInto("/a/bc", "/a/b"));
}

}  // namespace
