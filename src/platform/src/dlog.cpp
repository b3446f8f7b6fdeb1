#include <platform/dlog.h>
#include <syslog.h>
#include <cstdarg>

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
    va_list arguments;
    va_start(arguments, format);
    vsyslog(syslogPriority(priority), format, arguments);
    va_end(arguments);
    return 0;
}
