// SPDX-License-Identifier: Apache-2.0
// What is → what is to be done, without a system.

#include <front_end.h>
#include <gtest/gtest.h>
#include <mounted_sticks.h>
#include <planner.h>
#include <report.h>
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>
#include <sstream>

using namespace ZelmarWidgets;
using Command = Scope::Command;
using std::string_literals::operator""s;

namespace {

const std::vector<std::string> ROOTS{"/opt/storage/usb", "/media"};
const std::string LETTERS = "iwcs";  // the image and the three metadata files

std::string pathOf(const std::string& stick)
{
    return stick == "x" ? "/mnt/x" : stick == "own" ? "/home/own" : stick == "m" ? "/media/m" : ROOTS[0] + "/" + stick;
}

struct Row {
    const char* name;
    const char* row;     // usb, tv or unknown; available; @stick of the path; nodir; hidden
    const char* links;   // file letter and stick it leads to, "!" if unlabelled; "own" is a folder of the owner's
    const char* sticks;  // mounted, the latest first; after a colon, the files in the widget's folder; x is not mounted
    const char* plan;    // stick | faults | steps
};

/** What the row tells of a widget "P", and what every stick holds, whether somebody asks it or not. */
std::pair<WidgetFacts, std::vector<Content>> read(const Row& row)
{
    WidgetFacts widget;
    widget.identifier = "P";
    std::istringstream words(row.row);
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
    std::istringstream links(row.links);
    for (std::string link; links >> link;) {
        const std::size_t file = LETTERS.find(link[0]);
        const bool labelled = link.back() != '!';
        const std::string stick = link.substr(1, link.size() - (labelled ? 1 : 2));
        const std::string folder = stick == "bin" ? "/bin" : contentDirectory(pathOf(stick), "P");
        widget.links[file] = {folder + "/" + fileNames("P")[file], labelled};
    }
    std::vector<Content> contents;
    std::istringstream sticks(row.sticks);
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

std::string text(const WidgetPlan& plan)
{
    const char* const names[] = {"directory", "clear", "unavailable", "available"};
    std::string steps;
    for (const Step step : plan.steps) {
        steps += std::string(" ") + names[static_cast<int>(step)];
    }
    const std::string stick = plan.stick.substr(plan.stick.rfind('/') + 1);
    return stick + (plan.faults.empty() && steps.empty() ? "" : " | " + namesOf(plan.faults) + " |" + steps);
}

void check(const Scope& scope, const std::vector<Row>& rows)
{
    for (const Row& row : rows) {
        const auto [widget, contents] = read(row);
        EXPECT_EQ(row.plan, text(planned(widget, scope, contents))) << row.name;
    }
}

TEST(Planner, Heals)
{
    check(
        {Command::HEAL, ""},
        {
            {"all is well", "usb available @d1", "id1 cd1", "d1:ic", "d1"},
            {"unavailable, no stick", "usb", "", "d1 d2", ""},
            {"a path that is left in the row does not matter", "usb @d1", "", "", ""},
            {"the row's stick comes before one mounted later", "usb available @d1", "id1", "d2:i d1:i", "d1"},
            {"a stick mounted elsewhere, known by the row", "usb available @x", "ix", "d1:i x:i", "x"},
            {"an empty folder is no content", "usb available @d1", "id1", "d2: d1:i", "d1"},
            {"missing", "usb available @d1", "id1", "d1:iw", "d1 | link-missing | available"},
            {"leads into another stick", "usb available @d1", "id1 cd2", "d1:ic d2:c",
             "d1 | link-elsewhere | unavailable available"},
            {"leads to what the stick no longer holds", "usb available @d1", "id1 cd1", "d1:i",
             "d1 | link-elsewhere | unavailable available"},
            {"leads out of all sticks", "usb available @d1", "ibin", "d1:i", "d1 | link-elsewhere | available"},
            {"a link of the owner's that is in nobody's way", "usb available @d1", "id1 cbin", "d1:i", "d1"},
            {"unlabelled", "usb available @d1", "id1! cd1!", "d1:ic", "d1 | link-unlabelled | available"},
            {"all at once", "usb available @d1", "wd2 cd1!", "d1:iwc",
             "d1 | link-missing, link-elsewhere, link-unlabelled | unavailable available"},
            {"pulled", "usb available @d1", "id1", "d2", " | content-gone | unavailable"},
            {"pulled, and a link is gone already", "usb available @d1", "", "", " | content-gone | unavailable"},
            {"pulled, another holds it", "usb available @d1", "id1", "d2:i",
             "d2 | content-gone | unavailable available"},
            {"its image has been deleted", "usb available @d1", "id1", "d1:c", " | no-image | unavailable"},
            {"deleted, another holds it", "usb available @d1", "", "d1: d2:i", "d2 | no-image | available"},
            {"not plugged", "usb", "", "d2 d1:i", "d1 | not-plugged | available"},
            {"the one mounted last", "usb", "", "d2:i d1:i", "d2 | not-plugged | available"},
            {"the one in the row, though another was mounted last", "usb @d1", "", "d2:i d1:i",
             "d1 | not-plugged | available"},
            {"not plugged, with a link to another", "usb", "id2", "d1:i",
             "d1 | not-plugged, link-left | unavailable available"},
            {"a link is left", "usb", "cd1", "", " | link-left | unavailable"},
            {"a link is no witness", "usb", "iown", "", " | link-left | unavailable"},
            {"a link through another name of the root", "usb", "im", "", " | link-left | unavailable"},
            {"the owner's own link", "usb", "ibin", "", ""},
            {"no directory", "usb nodir", "", "", " | directory-missing | directory"},
            {"no directory, not plugged", "usb nodir", "", "d1:i", "d1 | directory-missing | directory available"},
            {"no directory, pulled", "usb nodir available @d1", "", "", " | directory-missing | directory unavailable"},
            {"on the television", "tv", "ibin cown", "d1:ic", ""},
            {"on the television, available", "tv available nodir", "", "d1:ic", ""},
            {"on the television, with links to sticks", "tv available @x", "id1 cx wown", "", " | link-left | clear"},
            {"unknown", "unknown", "ibin cown", "", ""},
            {"unknown, with a link to a stick", "unknown", "id1", "d1:i", " | unknown-widget | clear"},
            {"not to be looked at", "usb hidden available @d1", "", "", ""},
        });
}

TEST(Planner, PlugsUnplugsAndRemoves)
{
    check({Command::PLUG, pathOf("d2")},
          {
              {"comes first", "usb available @d1", "id1", "d1:i d2:i", "d2 | not-plugged | unavailable available"},
              {"a second time", "usb available @d2", "id2", "d1:i d2:i", "d2"},
              {"an empty folder takes nothing", "usb available @d1", "id1", "d2: d1:i", "d1"},
              {"another stick was swapped for it", "usb available @d2", "id2", "d1:i d2",
               "d1 | content-gone | unavailable available"},
              {"a link to it is left", "usb", "cd2", "d2", " | link-left | unavailable"},
              {"another's", "usb", "", "d1:i d2", "not about it"},
              {"another's, though the name begins alike", "usb @d22", "", "d2", "not about it"},
              {"on the television", "tv", "", "d2:i", "not about it"},
          });
    check(
        {Command::UNPLUG, pathOf("d1")},
        {
            {"still mounted", "usb available @d1", "id1", "d1:i", " | content-gone | unavailable"},
            {"a mount below has gone, too", "usb available @d1/a", "", "d1/a:i", " | content-gone | unavailable"},
            {"another holds it", "usb available @d1", "id1", "d1:i d2:i", "d2 | content-gone | unavailable available"},
            {"a link only", "usb", "cd1", "d1:i", " | link-left | unavailable"},
            {"a link of a widget on the television", "tv", "cd1 iown", "", " | link-left | clear"},
            {"another's", "usb available @d2", "", "d1:i", "not about it"},
            {"another's, though the name begins alike", "usb available @d11", "id11", "", "not about it"},
        });
    check({Command::UNPLUG, "/"},
          {{"everything", "usb available @d1", "id1", "d1:i", " | content-gone | unavailable"}});
    check({Command::REMOVE, "P"},
          {
              {"no stick counts", "usb available @d1", "id1", "d1:i d2:i", " | content-gone | unavailable"},
              {"no directory", "usb nodir", "", "d1:i", ""},
              {"no directory, available", "usb nodir available @d1", "", "", " | content-gone | directory unavailable"},
          });
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
        auto [widget, contents] = read({"", row.c_str(), links.c_str(), sticks.c_str(), ""});
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
