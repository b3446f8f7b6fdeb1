// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <platform/dlog.h>
#include <platform/dpl.h>
#include <platform/widget_registry.h>
#include <boost/locale/encoding_utf.hpp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

int __dlog_print(int priority, const char* tag, const char* format, ...)
{
    // In memory: a line never waits, and the file starts anew with the system.
    static const int log = open("/run/zelmar.log", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    char* text = nullptr;
    va_list arguments;
    va_start(arguments, format);
    if (vasprintf(&text, format, arguments) >= 0) {
        dprintf(log, "%d %s: %s\n", priority, tag, text);
        std::free(text);
    }
    va_end(arguments);
    return 0;
}

std::wstring DPL::FromUTF8String(const std::string& text)
{
    return boost::locale::conv::utf_to_utf<wchar_t>(text, boost::locale::conv::stop);
}

std::string DPL::ToUTF8String(const std::wstring& text)
{
    return boost::locale::conv::utf_to_utf<char>(text, boost::locale::conv::stop);
}

bool ZelmarDB::isLogKept()
{
    return true;
}
