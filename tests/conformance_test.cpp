// Holds a platform folder against the contract in the headers of src/platform/include/platform.

#include "conformance.h"

#include <gtest/gtest.h>
#include <platform/dlog.h>
#include <platform/dpl.h>
#include <platform/privilege_control.h>
#include <platform/zelmar_dao.h>
#include <boost/filesystem.hpp>
#include <boost/optional/optional_io.hpp>
#include <cstdlib>
#include <fstream>
#include <set>

using namespace ZelmarDB;
using DPL::FromUTF8String;
using DPL::ToUTF8String;
using Ids = std::multiset<std::string>;
using WidgetNotExist = KxWidgetDAOReadOnly::Exception::WidgetNotExist;
using DatabaseError = KxWidgetDAOReadOnly::Exception::DatabaseError;

static_assert(std::is_base_of_v<std::exception, KxWidgetDAOReadOnly::Exception::Base>, "main catches nothing else");

namespace {

const std::string ODD = "'\"`%s%n; DROP \\\nколобок😀";

/** The thread is attached to a new database: a and ODD are on USB, b is not, and t.c has no KxAppId. */
class Database : public testing::Test {
protected:
    void SetUp() override
    {
        if (!std::getenv("PRIVATE_OPT")) {
            throw std::runtime_error("This replaces the widget database: run it through tests/private-opt.");
        }
        Conformance::makeDatabase();
        Conformance::putWidget("t.a", std::string("a"), true);
        Conformance::putWidget("t." + ODD, ODD, true);
        Conformance::putWidget("t.b", std::string("b"), false);
        Conformance::putWidget("t.c", boost::none, true);
        KxDatabase::attachToThreadRW();
    }
    void TearDown() override { KxDatabase::detachFromThread(); }
};

Ids availableWidgets()
{
    Ids ids;
    for (const auto& widget : KxWidgetDAOReadOnly::getAvailableWidgets()) {
        ids.insert(ToUTF8String(widget->getTizenAppId()));
    }
    return ids;
}

TEST_F(Database, AnswersForEachWidget)
{
    for (const std::string id : {"a", "b", ODD.c_str()}) {
        const std::wstring tizenAppId = FromUTF8String("t." + id);
        EXPECT_EQ(tizenAppId, KxWidgetDAO::getTizenAppIdFromKxAppId(FromUTF8String(id)));
        EXPECT_TRUE(KxWidgetDAO::isWidgetInstalled(tizenAppId));
        const KxWidgetDAO widget(KxWidgetDAO::getHandleFromTizenAppId(tizenAppId));
        EXPECT_EQ(tizenAppId, widget.getTizenAppId());
        EXPECT_EQ(id, ToUTF8String(widget.getKxAppId().value()));
        EXPECT_EQ(id != "b", widget.isInstalledOnUSB());
    }
    EXPECT_FALSE(KxWidgetDAO(KxWidgetDAO::getHandleFromTizenAppId(L"t.c")).getKxAppId());
}

TEST_F(Database, KnowsOfAWidgetThatItHasNone)
{
    for (const wchar_t* id : {L"", L"x", L"A", L"%"}) {
        EXPECT_EQ(L"", KxWidgetDAO::getTizenAppIdFromKxAppId(id));
    }
    EXPECT_FALSE(KxWidgetDAO::isWidgetInstalled(L"t.x"));
    EXPECT_EQ(-1, KxWidgetDAO::getHandleFromTizenAppId(L"t.x"));
    const KxWidgetDAO none(-1);
    EXPECT_THROW(none.getTizenAppId(), WidgetNotExist);
    EXPECT_THROW(none.getKxAppId(), WidgetNotExist);
    EXPECT_THROW(none.isInstalledOnUSB(), WidgetNotExist);
    EXPECT_THROW(KxWidgetDAO::setAvailable(L"t.x", true), WidgetNotExist);
    EXPECT_THROW(KxWidgetDAO::setExternalStoragePath(L"t.x", std::wstring()), WidgetNotExist);
}

TEST_F(Database, ShowsEachChangeAtOnceAndKeepsIt)
{
    EXPECT_EQ(Ids(), availableWidgets());
    for (const std::string& id : {std::string("t.a"), "t." + ODD}) {
        const std::wstring wide = FromUTF8String(id);
        for (const bool available : {true, false, true}) {
            KxWidgetDAO::setAvailable(wide, available);
            EXPECT_EQ(available, Conformance::readWidget(id).available);
        }
        KxWidgetDAO::setExternalStoragePath(wide, FromUTF8String(ODD));
        EXPECT_EQ(ODD, Conformance::readWidget(id).externalStoragePath);
        KxWidgetDAO::setExternalStoragePath(wide, boost::none);
        EXPECT_EQ(boost::none, Conformance::readWidget(id).externalStoragePath);
        KxWidgetDAO::setExternalStoragePath(wide, std::wstring());
        EXPECT_EQ(std::string(), Conformance::readWidget(id).externalStoragePath);
        Conformance::putWidget(id + ".new", boost::none, true);
        EXPECT_TRUE(KxWidgetDAO::isWidgetInstalled(wide + L".new")) << "a change that another made";
    }
    EXPECT_FALSE(Conformance::readWidget("t.b").available) << "nobody asked for it";

    KxDatabase::attachToThreadRW();
    EXPECT_EQ((Ids{"t.a", "t." + ODD}), availableWidgets()) << "attaching twice";
    KxDatabase::detachFromThread();
    KxDatabase::attachToThreadRW();
    EXPECT_EQ((Ids{"t.a", "t." + ODD}), availableWidgets()) << "attaching anew";
}

TEST_F(Database, TellsEachFailure)
{
    const KxWidgetDAO widget(KxWidgetDAO::getHandleFromTizenAppId(L"t.a"));
    Conformance::breakDatabase();
    EXPECT_THROW(KxWidgetDAO::getTizenAppIdFromKxAppId(L"a"), DatabaseError);
    EXPECT_THROW(KxWidgetDAO::isWidgetInstalled(L"t.a"), DatabaseError);
    EXPECT_THROW(KxWidgetDAO::getHandleFromTizenAppId(L"t.a"), DatabaseError);
    EXPECT_THROW(KxWidgetDAO::getAvailableWidgets(), DatabaseError);
    EXPECT_THROW(widget.getTizenAppId(), DatabaseError);
    EXPECT_THROW(widget.getKxAppId(), DatabaseError);
    EXPECT_THROW(widget.isInstalledOnUSB(), DatabaseError);
    EXPECT_THROW(KxWidgetDAO::setAvailable(L"t.a", true), DatabaseError);
    EXPECT_THROW(KxWidgetDAO::setExternalStoragePath(L"t.a", std::wstring()), DatabaseError);

    KxDatabase::detachFromThread();
    EXPECT_TRUE(Conformance::removeDatabase());
    EXPECT_THROW(KxDatabase::attachToThreadRW(), DPL::DB::SqlConnection::Exception::Base);
    EXPECT_FALSE(Conformance::removeDatabase()) << "the attempt must not make one";
    Conformance::makeDatabase();
    KxDatabase::attachToThreadRW();
}

TEST(Label, IsThatOfTheLinkItself)
{
    const std::string folder = "/opt/usr/apps/conformance_img", file = folder + "/file", link = folder + "/link";
    boost::filesystem::create_directories(folder);
    std::ofstream(file).close();
    const std::string before = Conformance::labelOf(file);
    for (const std::string& target : {file, folder + "/missing"}) {
        boost::filesystem::remove(link);
        boost::filesystem::create_symlink(target, link);
        EXPECT_EQ(0, perm_app_setup_path("a", link.c_str(), 0, "other"));
        EXPECT_EQ("other", Conformance::labelOf(link));
        EXPECT_EQ(0, perm_app_setup_path("a", link.c_str(), 0, "_"));
        EXPECT_EQ("_", Conformance::labelOf(link));

        const int refusal = perm_app_setup_path("a", target.c_str(), 0, "_");
        EXPECT_NE(0, refusal) << target << " is no link";
        EXPECT_STRNE("", perm_strerror(refusal));
    }
    EXPECT_EQ(before, Conformance::labelOf(file));
    boost::filesystem::remove_all(folder);
}

TEST(Text, IsNeitherChangedNorInterpreted)
{
    for (const std::string& text : {std::string(100000, 'x'), std::string("\u0080\u07ff\u0800\uffff\U0010ffff"), ODD}) {
        EXPECT_EQ(text, ToUTF8String(FromUTF8String(text)));
        EXPECT_EQ(0, __dlog_print(3, "CONFORMANCE", "%s", text.c_str()));
    }
    for (const char* text : {"\x80", "a\xff", "\xc3(", "\xe2\x82", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
        EXPECT_THROW(FromUTF8String(text), std::exception) << text;
    }
    for (const wchar_t character : {L'\xd800', L'\xdfff', L'\x110000'}) {
        EXPECT_THROW(ToUTF8String(std::wstring(1, character)), std::exception) << character;
    }
    EXPECT_EQ(L"я😀", FromUTF8String("я😀"));
    EXPECT_EQ("/opt/usr/a_img", KxPathBuilder().Append("/opt/usr").Append("a_img").GetFullPath());
    EXPECT_EQ("/opt/" + ODD + "/..", KxPathBuilder("/opt").Append(ODD).Append("..").GetFullPath());
}

}  // namespace
