#include <gtest/gtest.h>

#include <boost/filesystem.hpp>
#include <fstream>
#include <iostream>
#include <regex>
#include <sstream>

#include "recording.h"

extern "C" int zelmar_frontend_main(int argc, char** argv);

namespace fs = boost::filesystem;

namespace {

const fs::path APPS = "/opt/usr/apps";
const fs::path STICK = "/opt/storage/usb/sda1";
const std::vector<std::string> ALL_METADATA = {"widget.info", "config.xml", "config.xml.spm"};

/** Runs of the tool, each told as all that it logged, asked and printed, and compared with a file of stories/. */
class Story : public testing::Test {
protected:
    Story()
    {
        recording = Recording();
        for (const fs::path& folder : {APPS, STICK}) {
            fs::remove_all(folder);
            fs::create_directories(folder);
        }
    }

    /** Compares what the runs have told so far. */
    void is(const std::string& name)
    {
        std::ifstream file(STORIES "/" + name + ".txt");
        std::ostringstream expected;
        expected << file.rdbuf();
        // Only these units' numbers are fixed; elsewhere they move with the code.
        const std::regex moving("(^|\n)((?:make_|zelmar_frontend_common)[^(]*(?:\\(\\))?)\\(\\d+\\)");
        EXPECT_EQ(expected.str(), std::regex_replace(recording.story, moving, "$1$2(_)"));
    }

    void widget(const std::string& pkgId, std::vector<std::string> files)
    {
        const std::string folder = pkgId + "_img";
        fs::create_directory(APPS / folder);
        fs::create_directory(STICK / folder);
        for (const std::string& file : files) {
            std::ofstream((STICK / folder / file).c_str()) << "content";
        }
    }

    /** A directory that a link leads to although its own name is longer than a path may be. */
    void imageDirectoryTooFarToName(const std::string& pkgId)
    {
        fs::path half = "x";
        while (half.size() < 3000) {
            half /= std::string(200, 'x');
        }
        fs::create_directories("/opt/far" / half);
        fs::remove("/opt/near");
        fs::create_symlink("/opt/far" / half, "/opt/near");
        fs::current_path("/opt/near");
        fs::create_directories(half);
        fs::create_symlink("/opt/near" / half, APPS / (pkgId + "_img"));
        fs::current_path("/");
    }

    void run(std::vector<std::string> words)
    {
        words.insert(words.begin(), "zelmar-frontend");
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(&word[0]);
        }
        std::ostringstream out, err;
        auto* const realOut = std::cout.rdbuf(out.rdbuf());
        auto* const realErr = std::cerr.rdbuf(err.rdbuf());
        const int status = zelmar_frontend_main(static_cast<int>(argv.size()), argv.data());
        std::cout.rdbuf(realOut);
        std::cerr.rdbuf(realErr);
        recording.story += "out: " + out.str() + "\nerr: " + err.str() + "\nstatus: " + std::to_string(status) + "\n\n";
    }

    void makeAvailable(std::vector<std::string> pkgIds)
    {
        pkgIds.insert(pkgIds.begin(), {"--make-available", "--path", STICK.string()});
        run(pkgIds);
    }
};

TEST_F(Story, FrontEnd)
{
    for (const char* failure : {"SqlException", "std::exception", "unknown"}) {
        recording.answers = {{"attach", failure}, {"detach", failure}};
        run({"--make-available"});
        recording.answers.erase("attach");
        run({"--help"});
    }
    recording.answers.clear();
    run({});
    run({"--path", "/nowhere", "a"});
    run({"--make-all-unavailable", "--make-unavailable", "--make-available", "a"});
    run({"--make-unavailable", "--help"});
    run({"--make-all-unavailable", "--help"});
    is("front_end");
}

TEST_F(Story, MakeAvailableUndoesEachFailedWidgetAndGoesOn)
{
    for (const std::string pkgId : {"ok", "real", "label", "state"}) {
        widget(pkgId, ALL_METADATA);
        std::ofstream((STICK / (pkgId + "_img") / (pkgId + ".img")).c_str());
    }
    fs::remove(STICK / "state_img/config.xml");
    fs::create_directory(STICK / "state_img/config.xml");
    fs::create_symlink("/gone", APPS / "ok_img/ok.img");
    std::ofstream(((APPS / "real_img") / "widget.info").c_str());
    widget("path", ALL_METADATA);
    widget("refused", {});
    imageDirectoryTooFarToName("far");
    std::ofstream((APPS / "file_img").c_str());
    recording.answers = {{"getTizenAppId unknown", ""},
                         {"getHandle t.local", "-1"},
                         {"getHandle t.lost", "WidgetNotExist"},
                         {"getHandle t.sick", "DatabaseError"},
                         {"label label /opt/usr/apps/label_img/label.img 0 _", "7"},
                         {"setPath t.path '/opt/storage/usb/sda1/path_img'", "DatabaseError"},
                         {"setAvailable t.refused 1", "DatabaseError"},
                         {"setAvailable t.state 1", "WidgetNotExist"}};
    makeAvailable(
        {"ok", "unknown", "local", "lost", "sick", "gone", "far", "file", "real", "label", "path", "refused", "state"});
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(APPS / "real_img/widget.info")));
    is("make_available");
}

TEST_F(Story, AnExceptionRollsBackTheWidgetsWithAVerdictUntilAnUndoFails)
{
    for (const char* pkgId : {"a", "b"}) {
        widget(pkgId, {std::string(pkgId) + ".img"});
    }
    recording.answers = {{"isWidgetInstalled t.c", "DatabaseError"}};
    makeAvailable({"a", "b", "c"});
    EXPECT_TRUE(fs::is_empty(APPS / "a_img") && fs::is_empty(APPS / "b_img"));
    for (const char* failure : {"std::exception", "unknown"}) {
        recording.answers["setAvailable t.a 0"] = failure;
        makeAvailable({"a", "b", "c"});
        EXPECT_TRUE(fs::is_empty(APPS / "a_img") && !fs::is_empty(APPS / "b_img"));
    }
    is("rollback");
}

TEST_F(Story, MakeUnavailableKeepsGoing)
{
    for (const char* pkgId : {"ok", "lost", "state"}) {
        widget(pkgId, {});
    }
    std::ofstream((APPS / "file_img").c_str());
    imageDirectoryTooFarToName("far");
    fs::create_symlink("/gone", APPS / "ok_img/ok.img");
    fs::create_symlink("/gone", APPS / "ok_img/config.xml");
    fs::create_symlink("/other", APPS / "ok_img/other");
    std::ofstream(((APPS / "ok_img") / "widget.info").c_str());
    recording.answers = {{"isWidgetInstalled t.absent", "WidgetNotExist"},
                         {"setPath t.ok ''", "WidgetNotExist"},
                         {"setAvailable t.lost 0", "WidgetNotExist"},
                         {"setAvailable t.state 0", "DatabaseError"}};
    run({"--make-unavailable", "absent", "gone", "file", "far", "ok", "lost", "state", "ok"});
    recording.answers = {{"isWidgetInstalled t.state", "DatabaseError"}};
    run({"--make-unavailable", "state"});
    is("make_unavailable");
}

TEST_F(Story, MakeAllUnavailableSkipsWhatItCannotRead)
{
    run({"--make-all-unavailable", "--path", "ignored", "ignored"});
    widget("b", {});
    recording.available = {"a", "b", "", "d", "e"};
    recording.answers = {{"getTizenAppId 0", "WidgetNotExist"}, {"getKxAppId 3", "DatabaseError"}};
    run({"--make-all-unavailable"});
    recording.answers = {{"getKxAppId 1", "std::exception"}};
    run({"--make-all-unavailable"});
    is("make_all_unavailable");
}

}  // namespace
