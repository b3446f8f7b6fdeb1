// SPDX-License-Identifier: Apache-2.0

// Holds a platform folder against the contract in the headers of src/platform/include/platform.

#include "conformance.h"

#include <fcntl.h>
#include <platform/dlog.h>
#include <platform/privilege_control.h>
#include <atomic>
#include <boost/filesystem.hpp>
#include <boost/filesystem/fstream.hpp>
#include <boost/optional/optional_io.hpp>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <iostream>
#include <map>
#include <set>
#include <thread>

#include "told.h"

using namespace ZelmarDB;
using namespace DPL;
using namespace std::literals;
namespace fs = boost::filesystem;
using Path = boost::optional<std::wstring>;

static_assert(std::is_base_of_v<std::exception, KxWidgetDAO::Exception::Base>, "main catches nothing else");

namespace {

const bool PRIVATE = std::getenv("PRIVATE_OPT") != nullptr ||
                     (std::cerr << "Run it through tools/private-opt: it replaces /opt.\n", std::exit(1), false);
const std::string ODD = "'\"`%s%n; DROP \\\nколобок😀", FOLDER = "/opt/usr/apps/conformance_img";

void expectOfEachHandle(const char* outcome, int handle)
{
    SCOPED_TRACE("widget with handle " + std::to_string(handle));
    EXPECT_TOLD(outcome, KxWidgetDAO(handle).getTizenAppId());
    EXPECT_TOLD(outcome, KxWidgetDAO(handle).getKxAppId().has_value());
    EXPECT_TOLD(outcome, KxWidgetDAO(handle).isInstalledOnUSB());
}

void expectOfEachText(const char* outcome, const std::wstring& id)
{
    SCOPED_TRACE("widget " + testing::PrintToString(id));
    EXPECT_TOLD(outcome, KxWidgetDAO::getTizenAppIdFromKxAppId(id));
    EXPECT_TOLD(outcome, KxWidgetDAO::isWidgetInstalled(id));
    EXPECT_TOLD(outcome, KxWidgetDAO::getHandleFromTizenAppId(id));
    EXPECT_TOLD(outcome, KxWidgetDAO::setAvailable(id, true));
    EXPECT_TOLD(outcome, KxWidgetDAO::setExternalStoragePath(id, Path()));
}

TEST(Database, AnswersAndChanges)
{
    Conformance::makeDatabase();
    Conformance::putWidget("t.c", "", true);
    expectOfEachHandle("DatabaseError", 0);  // the thread is not attached
    expectOfEachText("DatabaseError", L"t.c");
    EXPECT_TOLD("done", KxDatabase::attachToThreadRW());
    EXPECT_TOLD("none", KxWidgetDAO(KxWidgetDAO::getHandleFromTizenAppId(L"t.c")).getKxAppId().get_value_or(L"none"));
    EXPECT_TOLD("false", KxWidgetDAO::isWidgetInstalled(L"t.x"));
    EXPECT_TOLD("-1", KxWidgetDAO::getHandleFromTizenAppId(L"t.x"));
    expectOfEachHandle("WidgetNotExist", -1);
    EXPECT_TOLD("WidgetNotExist", KxWidgetDAO::setAvailable(L"t.x", true));
    EXPECT_TOLD("WidgetNotExist", KxWidgetDAO::setExternalStoragePath(L"t.x", Path()));
    expectOfEachText("DatabaseError", L"\xd800");

    std::multiset<std::wstring> available, listed;
    for (const std::string& id : {std::string("a"), std::string("b"), ODD}) {
        SCOPED_TRACE("widget " + id);
        Conformance::putWidget("t." + id, id, id != "b");
        const std::wstring tizenAppId = *available.insert(FromUTF8String("t." + id));
        EXPECT_TOLD("t." + id, KxWidgetDAO::getTizenAppIdFromKxAppId(FromUTF8String(id)));
        EXPECT_TOLD("true", KxWidgetDAO::isWidgetInstalled(tizenAppId));
        const KxWidgetDAO widget(KxWidgetDAO::getHandleFromTizenAppId(tizenAppId));
        EXPECT_TOLD("t." + id, widget.getTizenAppId());
        EXPECT_TOLD(id, widget.getKxAppId().get_value_or(L"none"));
        EXPECT_TOLD(id == "b" ? "false" : "true", widget.isInstalledOnUSB());
        for (const Path& path : {Path(FromUTF8String(ODD)), Path(), Path(L"")}) {
            EXPECT_TOLD("done", KxWidgetDAO::setAvailable(tizenAppId, path.has_value()));
            EXPECT_TOLD("done", KxWidgetDAO::setExternalStoragePath(tizenAppId, path));
            EXPECT_EQ(Conformance::State(path, path.map(ToUTF8String)), Conformance::readWidget("t." + id));
        }
    }
    EXPECT_EQ(Conformance::State(), Conformance::readWidget("t.c")) << "nobody changed it";
    for (const wchar_t* id : {L"", L"x", L"A", L"%"}) {
        EXPECT_TOLD("", KxWidgetDAO::getTizenAppIdFromKxAppId(id)) << ToUTF8String(id);
    }

    mark("/detaching");
    EXPECT_TOLD("done", KxDatabase::detachFromThread());
    mark("/detached");
    EXPECT_TOLD("done", KxDatabase::attachToThreadRW());
    for (const auto& widget : KxWidgetDAOReadOnly::getAvailableWidgets()) {
        listed.insert(widget->getTizenAppId());
    }
    EXPECT_EQ(available, listed);
    EXPECT_TOLD("done", KxDatabase::detachFromThread());
}

TEST(Database, FailsAsPromised)
{
    Conformance::makeDatabase();
    Conformance::putWidget("t.a", "a", true);
    EXPECT_TOLD("done", KxDatabase::attachToThreadRW());
    const auto openFiles = [] {
        std::map<fs::path, fs::path> files;
        for (const fs::directory_entry& file : fs::directory_iterator("/proc/self/fd")) {
            files[file.path()] = fs::read_symlink(file.path());
        }
        return files;
    };
    const auto before = openFiles();
    EXPECT_TOLD("done", KxDatabase::attachToThreadRW());
    EXPECT_EQ(before, openFiles()) << "after a second attachToThreadRW()";

    if (const auto lock = Conformance::lockDatabase()) {
        const auto start = std::chrono::steady_clock::now();
        for (int change = 0; change < 10; ++change) {
            EXPECT_TOLD("DatabaseError", KxWidgetDAO::setAvailable(L"t.a", true));
        }
        const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
        EXPECT_GT(8, waited.count()) << "seconds, for 10 times setAvailable() of a locked t.a";
    }
    const int handle = KxWidgetDAO::getHandleFromTizenAppId(L"t.a");
    Conformance::breakDatabase();
    expectOfEachHandle("DatabaseError", handle);
    expectOfEachText("DatabaseError", L"t.a");
    EXPECT_TOLD("DatabaseError", KxWidgetDAO::getAvailableWidgets().size());
    EXPECT_TOLD("done", KxDatabase::detachFromThread());
    EXPECT_TOLD("done", KxDatabase::detachFromThread()) << "the thread is not attached any more";

    Conformance::makeEmptyFile();
    EXPECT_TOLD("SqlException", KxDatabase::attachToThreadRW()) << "an empty file is no database";
    EXPECT_TRUE(Conformance::removeDatabase());
    EXPECT_TOLD("SqlException", KxDatabase::attachToThreadRW());
    EXPECT_FALSE(Conformance::removeDatabase()) << "the attempt must not make one";
}

std::string label(const std::string& path, const char* text, int type = 0)
{
    const int result = perm_app_setup_path("a", path.c_str(), type, text);
    const char* const reason = perm_strerror(result);
    return result == 0 ? "done" : thrown("refused", reason ? reason : "");
}

TEST(Label, IsThatOfTheLinkItself)
{
    const std::string link = FOLDER + "/link", file = FOLDER + "/file", missing = FOLDER + "/missing";
    fs::create_directories(FOLDER);
    fs::ofstream(file).close();
    for (const std::string& target : {FOLDER, file, missing}) {
        fs::remove(link);
        fs::create_symlink(target, link);
        for (const char* text : {"other", "_"}) {
            EXPECT_TOLD("done", label(link, text)) << link << " to " << target;
            EXPECT_EQ(text, Conformance::labelOf(link));
        }
        EXPECT_TOLD("refused", label(link, "other", 1)) << "there is no such type";
        EXPECT_EQ("_", Conformance::labelOf(link));
        EXPECT_TOLD("refused", label(target, "_")) << target << " is no link";
        EXPECT_EQ("", Conformance::labelOf(target)) << target;
    }
    EXPECT_TOLD("refused", label("/proc/self/exe", "_")) << "a link on a file system without labels";
    for (const int unknown : {INT_MIN, -1, 4711, INT_MAX}) {
        EXPECT_TRUE(perm_strerror(unknown)) << "perm_strerror(" << unknown << ")";
    }

    std::atomic<bool> done{false};
    std::thread swapper([&] {
        while (!done) {
            renameat2(AT_FDCWD, link.c_str(), AT_FDCWD, file.c_str(), RENAME_EXCHANGE);
        }
    });
    for (const auto start = std::chrono::steady_clock::now(); std::chrono::steady_clock::now() - start < 1s;) {
        label(link, "_");
    }
    done = true;
    swapper.join();
    for (const std::string& path : {link, file}) {
        EXPECT_TRUE(fs::is_symlink(path) || Conformance::labelOf(path).empty()) << "a file was put in the link's place";
    }
    fs::remove_all(FOLDER);
}

TEST(Text, IsNeitherChangedNorInterpreted)
{
    for (const std::string& text : {"\u0080\u07ff\u0800\uffff\U0010ffff"s, "a\0b"s, ODD, std::string(100'000, 'x')}) {
        EXPECT_TOLD(text, FromUTF8String(text));
    }
    for (const char* text : {"\x80", "a\xff", "\xc3(", "\xe2\x82", "\xc0\xaf", "\xe0\x9f\xbf", "\xf0\x8f\xbf\xbf",
                             "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80"}) {
        EXPECT_TOLD("std::exception", FromUTF8String(text)) << testing::PrintToString(text);
    }
    for (const wchar_t character : {L'\xd800', L'\xdfff', L'\x110000'}) {
        EXPECT_TOLD("std::exception", ToUTF8String(std::wstring(1, character))) << int(character);
    }
    EXPECT_EQ("a", KxPathBuilder().Append("a").GetFullPath());
    EXPECT_EQ("/opt/usr/a_img", KxPathBuilder().Append("/opt/usr").Append("a_img").GetFullPath());
    EXPECT_EQ("/opt/" + ODD + "/..", KxPathBuilder("/opt/").Append(ODD).Append("..").GetFullPath());
    EXPECT_EQ("/opt//usr", KxPathBuilder("/opt").Append("/usr").GetFullPath());
}

TEST(Log, TakesEachLine)
{
    Conformance::takeLog();
    for (const std::string& text : {std::string("%s%n"), ODD, std::string(100'000, 'x')}) {
        EXPECT_EQ(0, __dlog_print(3, "CONFORMANCE", "a line of %s", text.c_str()));
        const std::string taken = Conformance::takeLog(), line = "CONFORMANCE: a line of " + text.substr(0, 4);
        EXPECT_TRUE(taken.find(line) != std::string::npos)
            << taken.size() << " bytes were logged: " << taken.substr(0, 99);
    }
}

}  // namespace
