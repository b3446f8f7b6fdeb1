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

class Story : public testing::Test {
protected:
    void SetUp() override
    {
        recording = Recording();
        fs::remove_all(APPS);
        fs::remove_all(STICK);
        fs::create_directories(APPS);
        fs::create_directories(STICK);
    }

    /** A widget's image directory, and its files on the stick. */
    void widget(const std::string& pkgId, const std::vector<std::string>& files)
    {
        fs::create_directory(APPS / (pkgId + "_img"));
        fs::create_directory(STICK / (pkgId + "_img"));
        for (const std::string& file : files) {
            std::ofstream(((STICK / (pkgId + "_img")) / file).c_str()) << "content";
        }
    }

    /** All that a run of the tool said and asked, one line each; a log line's number is shown where it is fixed. */
    std::string run(std::vector<std::string> words)
    {
        words.insert(words.begin(), "zelmar-frontend");
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(&word[0]);
        }
        argv.push_back(nullptr);
        std::ostringstream out, err;
        auto* const realOut = std::cout.rdbuf(out.rdbuf());
        auto* const realErr = std::cerr.rdbuf(err.rdbuf());
        const int status = zelmar_frontend_main(static_cast<int>(words.size()), argv.data());
        std::cout.rdbuf(realOut);
        std::cerr.rdbuf(realErr);
        recording.story += "out: " + out.str() + "err: " + err.str() + "status: " + std::to_string(status);
        return recording.story;
    }
};

TEST_F(Story, AWidgetWithItsImageOnlyIsMadeAvailable)
{
    widget("a", {"a.img"});
    EXPECT_NE(std::string::npos, run({"--make-available", "--path", STICK.string(), "a"}).find("out: a,SUCCESS:\n"));
}

}  // namespace
