#include <platform/dlog.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>

namespace {

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
            m_flags |= MSG_DONTWAIT;  // the logger took nothing for a second: no further line waits for it
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
    static SystemLog systemLog;
    constexpr int usualLength = 500;

    // No time: the logger stamps what it receives.
    std::string line = '<' + std::to_string(LOG_USER | syslogPriority(priority)) + '>' + tag + ": ";
    const size_t head = line.size();
    line.resize(head + usualLength);
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(&line[head], usualLength + 1, format, arguments);
    va_end(arguments);
    if (length < 0) {
        return 0;
    }
    line.resize(head + static_cast<size_t>(length));
    if (length > usualLength) {
        va_start(arguments, format);
        std::vsnprintf(&line[head], static_cast<size_t>(length) + 1, format, arguments);
        va_end(arguments);
    }
    systemLog.send(line.data(), line.size());
    return 0;
}
