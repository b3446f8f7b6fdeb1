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

using DPL::FromUTF8String;
using DPL::ToUTF8String;
using ZelmarDB::KxWidgetDAOReadOnly;

Recording recording;

namespace {

/** Records the call and gives the answer laid down for it, else `usual`. */
std::string answer(const std::string& call, const std::string& usual = "")
{
    recording.lines.push_back("  " + call);
    const auto laidDown = recording.answers.find(call);
    std::string given = laidDown == recording.answers.end() ? usual : laidDown->second;
    if (given == "WidgetNotExist") throw KxWidgetDAOReadOnly::Exception::WidgetNotExist("no such widget");
    if (given == "DatabaseError") throw KxWidgetDAOReadOnly::Exception::DatabaseError("disk I/O error");
    if (given == "SqlException") throw DPL::DB::SqlConnection::Exception::Base("no such file");
    if (given == "std::exception") throw std::runtime_error("out of luck");
    if (given == "unknown") throw 42;
    return given;
}

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
        answer("label " + std::string(pkg_id) + " " + path + " " + std::to_string(app_path_type) + " " + label, "0"));
}

const char* perm_strerror(int result) { return result == -7 ? "no labels here" : "?"; }

namespace ZelmarDB {

void KxDatabase::attachToThreadRW() { answer("attach"); }

void KxDatabase::detachFromThread() { answer("detach"); }

std::wstring KxWidgetDAOReadOnly::getTizenAppId() const
{
    return FromUTF8String(answer("getTizenAppId " + std::to_string(m_handle), "t." + std::to_string(m_handle)));
}

boost::optional<std::wstring> KxWidgetDAOReadOnly::getKxAppId() const
{
    const std::string id = answer("getKxAppId " + std::to_string(m_handle));
    return id.empty() ? boost::none : boost::make_optional(FromUTF8String(id));
}

bool KxWidgetDAOReadOnly::isInstalledOnUSB() const
{
    return answer("isInstalledOnUSB " + std::to_string(m_handle), "1") == "1";
}

std::wstring KxWidgetDAOReadOnly::getTizenAppIdFromKxAppId(const std::wstring& kxAppId)
{
    const std::string id = ToUTF8String(kxAppId);
    return FromUTF8String(answer("getTizenAppId " + id, "t." + id));
}

bool KxWidgetDAOReadOnly::isWidgetInstalled(const std::wstring& tizenAppId)
{
    return answer("isWidgetInstalled " + ToUTF8String(tizenAppId), "1") == "1";
}

int KxWidgetDAOReadOnly::getHandleFromTizenAppId(const std::wstring& tizenAppId)
{
    return std::stoi(answer("getHandle " + ToUTF8String(tizenAppId), "5"));
}

std::list<std::shared_ptr<KxWidgetDAOReadOnly>> KxWidgetDAOReadOnly::getAvailableWidgets()
{
    std::list<std::shared_ptr<KxWidgetDAOReadOnly>> widgets;
    const int count = std::stoi(answer("getAvailableWidgets", "0"));
    for (int handle = 0; handle < count; ++handle) {
        widgets.push_back(std::make_shared<KxWidgetDAOReadOnly>(handle));
    }
    return widgets;
}

void KxWidgetDAO::setAvailable(const std::wstring& tizenAppId, bool available)
{
    answer("setAvailable " + ToUTF8String(tizenAppId) + (available ? " 1" : " 0"));
}

void KxWidgetDAO::setExternalStoragePath(const std::wstring& tizenAppId, const boost::optional<std::wstring>& path)
{
    answer("setPath " + ToUTF8String(tizenAppId) + " " + (path ? "'" + ToUTF8String(*path) + "'" : "none"));
}

}  // namespace ZelmarDB
