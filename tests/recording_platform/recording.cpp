// SPDX-License-Identifier: Apache-2.0

#include "recording.h"

#include <platform/dlog.h>
#include <platform/privilege_control.h>
#include <platform/zelmar_dao.h>
#include <boost/algorithm/string.hpp>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>

// A message is recorded by a format with more in it.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

using Dao = ZelmarDB::KxWidgetDAOReadOnly;

Recording recording;

namespace {

/** Records the call and gives the answer laid down for it, else `usual`. */
std::string answer(const std::string& call, const std::string& usual = "")
{
    recording.lines.push_back("  " + call);
    const auto laidDown = recording.answers.find(call);
    std::string given = laidDown == recording.answers.end() ? usual : laidDown->second;
    if (given == "WidgetNotExist") throw Dao::Exception::WidgetNotExist("no such widget");
    if (given == "DatabaseError") throw Dao::Exception::DatabaseError("disk I/O error");
    if (given == "SqlException") throw DPL::DB::SqlConnection::Exception::Base("no such file");
    if (given == "std::exception") throw std::runtime_error("out of luck");
    if (given == "unknown") throw 42;
    return given;
}

std::string text(int handle) { return std::to_string(handle); }
std::string text(const std::wstring& id) { return DPL::ToUTF8String(id); }
std::wstring wide(const std::string& id) { return DPL::FromUTF8String(id); }

}  // namespace

int __dlog_print(int priority, const char* tag, const char* format, ...)
{
    // The messages that do not print their last argument are told with it.
    std::string text = format;
    for (const char* end : {"%error", "vaild", "pkgid: "}) {
        text += boost::ends_with(format, end) ? "[%s]" : "";
    }
    boost::replace_all(text, "%error", "%%error");
    char line[1000];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, text.c_str(), arguments);
    va_end(arguments);
    const bool usual = priority == 3 && tag == std::string("ZELMAR_INSTALLER");
    recording.lines.push_back((usual ? "" : std::to_string(priority) + " " + tag + " ") + line);
    return 0;
}

int perm_app_setup_path(const char* pkg_id, const char* path, int app_path_type, ...)
{
    va_list arguments;
    va_start(arguments, app_path_type);
    const std::string label = va_arg(arguments, const char*);
    va_end(arguments);
    return std::stoi(
        answer("label " + std::string(pkg_id) + " " + path + " " + text(app_path_type) + " " + label, "0"));
}

const char* perm_strerror(int result) { return result == -7 ? "no labels here" : "?"; }

namespace ZelmarDB {

void KxDatabase::attachToThreadRW() { answer("attach"); }

void KxDatabase::detachFromThread() { answer("detach"); }

std::wstring Dao::getTizenAppId() const
{
    return wide(answer("getTizenAppId " + text(m_handle), "t." + text(m_handle)));
}

boost::optional<std::wstring> Dao::getKxAppId() const
{
    const std::string id = answer("getKxAppId " + text(m_handle));
    return boost::make_optional(!id.empty(), wide(id));
}

bool Dao::isInstalledOnUSB() const { return answer("isInstalledOnUSB " + text(m_handle), "1") == "1"; }

std::wstring Dao::getTizenAppIdFromKxAppId(const std::wstring& kxAppId)
{
    return wide(answer("getTizenAppId " + text(kxAppId), "t." + text(kxAppId)));
}

bool Dao::isWidgetInstalled(const std::wstring& id) { return answer("isWidgetInstalled " + text(id), "1") == "1"; }

int Dao::getHandleFromTizenAppId(const std::wstring& id) { return std::stoi(answer("getHandle " + text(id), "5")); }

std::list<std::shared_ptr<Dao>> Dao::getAvailableWidgets()
{
    std::list<std::shared_ptr<Dao>> widgets;
    const int count = std::stoi(answer("getAvailableWidgets", "0"));
    for (int handle = 0; handle < count; ++handle) {
        widgets.push_back(std::make_shared<Dao>(handle));
    }
    return widgets;
}

void KxWidgetDAO::setAvailable(const std::wstring& id, bool available)
{
    answer("setAvailable " + text(id) + (available ? " 1" : " 0"));
}

void KxWidgetDAO::setExternalStoragePath(const std::wstring& id, const boost::optional<std::wstring>& path)
{
    answer("setPath " + text(id) + " " + (path ? "'" + text(*path) + "'" : "none"));
}

}  // namespace ZelmarDB
