// SPDX-License-Identifier: Apache-2.0

#include <platform/dlog.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace {

constexpr size_t LONGEST_TAG = 100;

/** The system log's socket: one datagram a line. syslog(3) would wait for ever for a logger that does not read. */
class SystemLog {
public:
    /** Sends the line, or loses it in silence. */
    void send(const char* line, size_t length);

private:
    bool connected();

    int m_socket = -1;
    int m_flags = MSG_NOSIGNAL;
};

bool SystemLog::connected()
{
    if (m_socket >= 0) {
        return true;
    }
    m_socket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    constexpr timeval patience = {1, 0};
    setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    constexpr sockaddr_un address = {AF_UNIX, "/dev/log"};
    if (connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(m_socket);
        m_socket = -1;
    }
    return m_socket >= 0;
}

void SystemLog::send(const char* line, size_t length)
{
    bool mayReconnect = true;
    while (connected() && ::send(m_socket, line, length, m_flags) < 0) {
        if (errno == EMSGSIZE) {
            length -= std::min<size_t>(length, 4096);  // as much of the line as the socket takes
        } else if (errno == EAGAIN) {
            m_flags |= MSG_DONTWAIT;  // the logger took nothing for 1 s: no further line waits for it
            return;
        } else if (errno != EINTR) {  // the logger has gone, or was restarted since the last line
            close(m_socket);
            m_socket = -1;
            if (!std::exchange(mayReconnect, false)) {
                return;
            }
        }
    }
}

/** The beginning of a line: the facility LOG_USER (8) plus the system log's number for the priority. */
const char* syslogHead(int priority)
{
    switch (priority) {
        case 4:
            return "<14>";  // LOG_INFO
        case 5:
            return "<12>";  // LOG_WARNING
        case 6:
            return "<11>";  // LOG_ERR
        default:
            return "<15>";  // LOG_DEBUG
    }
}

}  // namespace

int __dlog_print(int priority, const char* tag, const char* format, ...)
{
    static SystemLog systemLog;

    // No time: the logger stamps what it receives.
    char line[1024];
    const char* const text = stpcpy(stpncpy(stpcpy(line, syslogHead(priority)), tag, LONGEST_TAG), ": ");
    const auto head = static_cast<size_t>(text - line);
    va_list arguments;
    va_start(arguments, format);
    const int printed = std::vsnprintf(line + head, sizeof line - head, format, arguments);
    va_end(arguments);
    if (printed < 0) {
        return 0;
    }
    const size_t length = head + static_cast<size_t>(printed);
    if (length < sizeof line) {
        systemLog.send(line, length);
        return 0;
    }

    const std::unique_ptr<char[]> longLine(new (std::nothrow) char[length + 1]);
    if (!longLine) {  // cut: callers that are out of memory rely on a log that does not throw
        systemLog.send(line, sizeof line - 1);
        return 0;
    }
    std::memcpy(longLine.get(), line, head);
    va_start(arguments, format);
    std::vsnprintf(longLine.get() + head, length - head + 1, format, arguments);
    va_end(arguments);
    systemLog.send(longLine.get(), length);
    return 0;
}
