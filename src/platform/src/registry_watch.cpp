// SPDX-License-Identifier: Apache-2.0

#include <platform/widget_registry.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "registry_locks.h"
#include "widget_database.h"

namespace ZelmarDB {

namespace {

constexpr long WRITER_CHECK_NANOSECONDS = 20'000'000;

/** Its descriptor is an epoll set: it is readable while a descriptor in the set is. */
class DatabaseWatch : public RegistryWatch {
public:
    DatabaseWatch()
        : m_files(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
          m_timer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
          m_any(epoll_create1(EPOLL_CLOEXEC))
    {
        for (const int source : {m_files, m_timer}) {
            epoll_event event = {EPOLLIN, {}};
            if (epoll_ctl(m_any, EPOLL_CTL_ADD, source, &event) != 0) {
                const int error = errno;
                closeAll();
                throw noWatch(error);
            }
        }
    }
    ~DatabaseWatch() override { closeAll(); }
    DatabaseWatch(const DatabaseWatch&) = delete;
    DatabaseWatch& operator=(const DatabaseWatch&) = delete;

    int descriptor() const override { return m_any; }

    void reset() override
    {
        std::array<char, 4096> told{};
        while (read(m_files, told.data(), told.size()) > 0) {
        }

        // From the root down: a folder that appears after its parent is watched is not missed.
        const std::string file = DATABASE_FILE;
        for (std::size_t slash = 0; slash != std::string::npos; slash = file.find('/', slash + 1)) {
            watch(slash == 0 ? "/" : file.substr(0, slash), IN_CREATE | IN_MOVED_TO | IN_ONLYDIR);
        }
        // The files, not their folder: a process that only reads the database may write to its shared memory there.
        watch(file, IN_MODIFY);
        watch(file + "-wal", IN_MODIFY);
        // A change is written to the log before it can be seen, and no event follows. So look again soon. 0: no timer.
        const itimerspec soon = {{}, {0, writeLock() ? WRITER_CHECK_NANOSECONDS : 0}};
        timerfd_settime(m_timer, 0, &soon, nullptr);
    }

private:
    static RegistryError noWatch(int error)
    {
        return {RegistryFault::EXHAUSTED, std::string(DATABASE_FILE) + " cannot be watched: " + std::strerror(error)};
    }

    /** A file that does not exist is no failure: the watch on its folder signals when it appears. */
    void watch(const std::string& path, std::uint32_t events)
    {
        if (inotify_add_watch(m_files, path.c_str(), events) < 0 && (errno == ENOSPC || errno == ENOMEM)) {
            throw noWatch(errno);
        }
    }

    void closeAll() const
    {
        close(m_files);
        close(m_timer);
        close(m_any);
    }

    const int m_files;
    const int m_timer;
    const int m_any;
};

}  // namespace

std::unique_ptr<RegistryWatch> watchRegistry()
{
    return std::make_unique<DatabaseWatch>();
}

}  // namespace ZelmarDB
