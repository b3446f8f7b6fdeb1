// SPDX-License-Identifier: Apache-2.0

#include "recording.h"

#include <platform/dlog.h>
#include <platform/privilege_control.h>
#include <platform/zelmar_dao.h>
#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <boost/io/ios_state.hpp>
#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <regex>
#include <stdexcept>
#include <vector>

// The tool's own `main`, renamed when it is linked into a test program.
extern "C" int zelmar_frontend_main(int argc, char** argv);

// A message is recorded by a format with more in it.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

using namespace ZelmarDB;
using Dao = KxWidgetDAOReadOnly;

std::string recorded, told;

namespace {

/** Records the call and gives the answer that is told with it, else `usual`. */
std::string answer(const std::string& call, const std::string& usual = "")
{
    const auto sign = boost::find_first(told, "\n" + call + " = ");
    const std::string given = sign.empty() ? usual : std::string(sign.end(), std::find(sign.end(), told.end(), '\n'));
    recorded += call + (sign.empty() ? "" : " = " + given) + "\n";
    if (given == "WidgetNotExist") throw Dao::Exception::WidgetNotExist("no such widget");
    if (given == "DatabaseError") throw Dao::Exception::DatabaseError("disk I/O error");
    if (given == "SqlException") throw DPL::DB::SqlConnection::Exception::Base("no such file");
    if (given == "std::exception") throw std::runtime_error("out of luck");
    if (given == "unknown") throw 42;
    return given == "none" ? "" : given;
}

std::string text(const std::wstring& id) { return DPL::ToUTF8String(id); }
std::wstring wide(const std::string& id) { return DPL::FromUTF8String(id); }
std::wstring applicationOf(const std::string& id) { return wide(answer("getTizenAppId " + id, "t." + id)); }

/** As long as it lives, what is written to the stream is recorded, each line after the name. */
class RecordedOutput : public std::streambuf {
public:
    RecordedOutput(std::ostream& stream, const char* name) : m_name(name), m_restorer(stream, this) {}

private:
    int overflow(int character) override
    {
        if (recorded.empty() || recorded.back() == '\n') recorded += character == '\n' ? m_name : m_name + " ";
        recorded += static_cast<char>(character);
        return character;
    }

    const std::string m_name;
    const boost::io::ios_rdbuf_saver m_restorer;
};

}  // namespace

int runTool(std::string line, char separator)
{
    std::vector<char*> argv = {line.data()};
    for (char& end : line) {
        if (end == separator) {
            end = '\0';
            argv.push_back(&end + 1);
        }
    }
    argv.push_back(nullptr);
    recorded.clear();
    const RecordedOutput out(std::cout, "out:"), err(std::cerr, "err:");
    return zelmar_frontend_main(static_cast<int>(argv.size() - 1), argv.data()) & 255;
}

int __dlog_print(int priority, const char* tag, const char* format, ...)
{
    // The messages that do not print their last argument are told with it.
    std::string whole = std::regex_replace(format, std::regex("(%error|vaild|pkgid: )$"), "$1[%s]");
    boost::replace_all(whole, "%error", "%%error");
    char line[1000];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, whole.c_str(), arguments);
    va_end(arguments);
    const bool usual = priority == 3 && tag == std::string("ZELMAR_INSTALLER");
    recorded += (usual ? "" : std::to_string(priority) + " " + tag + " ") + line + "\n";
    return 0;
}

int perm_app_setup_path(const char* pkg_id, const char* path, int app_path_type, ...)
{
    va_list arguments;
    va_start(arguments, app_path_type);
    const std::string label = std::to_string(app_path_type) + " " + va_arg(arguments, const char*);
    va_end(arguments);
    return std::stoi(answer(std::string("label ") + pkg_id + " " + path + " " + label, "0"));
}

const char* perm_strerror(int result) { return result == -7 ? "no labels here" : "?"; }

void KxDatabase::attachToThreadRW() { answer("attach"); }
void KxDatabase::detachFromThread() { answer("detach"); }

std::wstring Dao::getTizenAppId() const { return applicationOf(std::to_string(m_handle)); }
std::wstring Dao::getTizenAppIdFromKxAppId(const std::wstring& kxAppId) { return applicationOf(text(kxAppId)); }

boost::optional<std::wstring> Dao::getKxAppId() const
{
    const std::string id = answer("getKxAppId " + std::to_string(m_handle));
    return boost::make_optional(!id.empty(), wide(id));
}

int Dao::getHandleFromTizenAppId(const std::wstring& id) { return std::stoi(answer("getHandle " + text(id), "5")); }
bool Dao::isInstalledOnUSB() const { return answer("isInstalledOnUSB " + std::to_string(m_handle), "1") == "1"; }
bool Dao::isWidgetInstalled(const std::wstring& id) { return answer("isWidgetInstalled " + text(id), "1") == "1"; }

std::list<std::shared_ptr<Dao>> Dao::getAvailableWidgets()
{
    std::list<std::shared_ptr<Dao>> widgets;
    for (int handle = std::stoi(answer("getAvailableWidgets", "0")); handle > 0;) {
        widgets.push_front(std::make_shared<Dao>(--handle));
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
