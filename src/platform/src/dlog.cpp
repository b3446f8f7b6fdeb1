#include <platform/dlog.h>
#include <syslog.h>
#include <cstdarg>
#include <cstdio>

namespace {

int syslogPriority(int priority)
{
    switch (priority) {
        case 4:
            return LOG_INFO;
        case 5:
            return LOG_WARNING;
        case 6:
            return LOG_ERR;
        default:
            return LOG_DEBUG;
    }
}

}  // namespace

int __dlog_print(int priority, const char* tag, const char* format, ...)
{
    static const char* openedAs = nullptr;
    if (openedAs != tag) {
        openlog(tag, 0, LOG_USER);
        openedAs = tag;
    }
    // The log's socket refuses a datagram of some 200 KiB: better the start of a long result than nothing of it.
    static char line[64 << 10];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    syslog(syslogPriority(priority), "%s", line);
    return 0;
}
