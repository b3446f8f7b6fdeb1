// SPDX-License-Identifier: Apache-2.0

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
#include <set>

using namespace ZelmarDB;
using namespace DPL;
using Failure = KxWidgetDAOReadOnly::Exception;
using Path = boost::optional<std::wstring>;

static_assert(std::is_base_of_v<std::exception, Failure::Base>, "main catches nothing else");

namespace {

const std::string ODD = "'\"`%s%n; DROP \\\nколобок😀";

TEST(Database, AnswersChangesAndFails)
{
    ASSERT_TRUE(std::getenv("PRIVATE_OPT")) << "This replaces the widget database: run it through tests/private-opt.";
    Conformance::makeDatabase();
    Conformance::putWidget("t.c", "", true);
    KxDatabase::attachToThreadRW();
    const KxWidgetDAO bare(KxWidgetDAO::getHandleFromTizenAppId(L"t.c"));
    EXPECT_FALSE(bare.getKxAppId());
    EXPECT_FALSE(KxWidgetDAO::isWidgetInstalled(L"t.x"));
    EXPECT_EQ(-1, KxWidgetDAO::getHandleFromTizenAppId(L"t.x"));
    EXPECT_THROW(KxWidgetDAO(-1).getTizenAppId(), Failure::WidgetNotExist);
    EXPECT_THROW(KxWidgetDAO(-1).getKxAppId(), Failure::WidgetNotExist);
    EXPECT_THROW(KxWidgetDAO(-1).isInstalledOnUSB(), Failure::WidgetNotExist);
    EXPECT_THROW(KxWidgetDAO::setAvailable(L"t.x", true), Failure::WidgetNotExist);
    EXPECT_THROW(KxWidgetDAO::setExternalStoragePath(L"t.x", Path()), Failure::WidgetNotExist);

    std::multiset<std::wstring> available, listed;
    for (const std::string& id : {std::string("a"), std::string("b"), ODD}) {
        Conformance::putWidget("t." + id, id, id != "b");
        const std::wstring tizenAppId = *available.insert(FromUTF8String("t." + id));
        EXPECT_EQ(tizenAppId, KxWidgetDAO::getTizenAppIdFromKxAppId(FromUTF8String(id)));
        EXPECT_TRUE(KxWidgetDAO::isWidgetInstalled(tizenAppId));
        const KxWidgetDAO widget(KxWidgetDAO::getHandleFromTizenAppId(tizenAppId));
        EXPECT_EQ(tizenAppId, widget.getTizenAppId());
        EXPECT_EQ(id, ToUTF8String(widget.getKxAppId().value()));
        EXPECT_EQ(id != "b", widget.isInstalledOnUSB());
        for (const Path& path : {Path(FromUTF8String(ODD)), Path(), Path(L"")}) {
            KxWidgetDAO::setAvailable(tizenAppId, path.has_value());
            KxWidgetDAO::setExternalStoragePath(tizenAppId, path);
            EXPECT_EQ(Conformance::State(path, path.map(ToUTF8String)), Conformance::readWidget("t." + id));
        }
    }
    EXPECT_EQ(Conformance::State(), Conformance::readWidget("t.c")) << "nobody changed it";
    for (const wchar_t* id : {L"", L"x", L"A", L"%"}) {
        EXPECT_EQ(L"", KxWidgetDAO::getTizenAppIdFromKxAppId(id));
    }

    KxDatabase::detachFromThread();
    KxDatabase::attachToThreadRW();
    KxDatabase::attachToThreadRW();
    for (const auto& widget : KxWidgetDAOReadOnly::getAvailableWidgets()) {
        listed.insert(widget->getTizenAppId());
    }
    EXPECT_EQ(available, listed);

    Conformance::breakDatabase();
    EXPECT_THROW(KxWidgetDAO::getTizenAppIdFromKxAppId(L"a"), Failure::DatabaseError);
    EXPECT_THROW(KxWidgetDAO::isWidgetInstalled(L"t.a"), Failure::DatabaseError);
    EXPECT_THROW(KxWidgetDAO::getHandleFromTizenAppId(L"t.a"), Failure::DatabaseError);
    EXPECT_THROW(KxWidgetDAO::getAvailableWidgets(), Failure::DatabaseError);
    EXPECT_THROW(bare.getTizenAppId(), Failure::DatabaseError);
    EXPECT_THROW(bare.getKxAppId(), Failure::DatabaseError);
    EXPECT_THROW(bare.isInstalledOnUSB(), Failure::DatabaseError);
    EXPECT_THROW(KxWidgetDAO::setAvailable(L"t.a", true), Failure::DatabaseError);
    EXPECT_THROW(KxWidgetDAO::setExternalStoragePath(L"t.a", Path()), Failure::DatabaseError);
    KxDatabase::detachFromThread();
    KxDatabase::detachFromThread();

    EXPECT_TRUE(Conformance::removeDatabase());
    EXPECT_THROW(KxDatabase::attachToThreadRW(), DPL::DB::SqlConnection::Exception::Base);
    EXPECT_FALSE(Conformance::removeDatabase()) << "the attempt must not make one";
}

TEST(Label, IsThatOfTheLinkItself)
{
    const std::string folder = "/opt/usr/apps/conformance_img", link = folder + "/link";
    boost::filesystem::create_directories(folder);
    const std::string before = Conformance::labelOf(folder);
    for (const std::string& target : {folder, folder + "/missing"}) {
        boost::filesystem::remove(link);
        boost::filesystem::create_symlink(target, link);
        for (const char* label : {"other", "_"}) {
            EXPECT_EQ(0, perm_app_setup_path("a", link.c_str(), 0, label));
            EXPECT_EQ(label, Conformance::labelOf(link));
        }
        EXPECT_NE(0, perm_app_setup_path("a", link.c_str(), 1, "other"));
        EXPECT_EQ("_", Conformance::labelOf(link)) << "no such type";
        const int refusal = perm_app_setup_path("a", target.c_str(), 0, "_");
        EXPECT_NE(0, refusal) << target << " is no link";
        EXPECT_STRNE("", perm_strerror(refusal));
    }
    EXPECT_EQ(before, Conformance::labelOf(folder));
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
    EXPECT_EQ("/opt/usr/a_img", KxPathBuilder().Append("/opt/usr").Append("a_img").GetFullPath());
    EXPECT_EQ("/opt/" + ODD + "/..", KxPathBuilder("/opt/").Append(ODD).Append("..").GetFullPath());
}

}  // namespace
