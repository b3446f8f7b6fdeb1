// SPDX-License-Identifier: Apache-2.0

#include "instance_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <cerrno>
#include <iostream>

#include "failure.h"

namespace ZelmarWidgets {

namespace {

constexpr char LOCK_FILE[] = "/run/zelmar-widgets.lock";
constexpr char QUEUE_FILE[] = "/run/zelmar-widgets.queue";

/** The file, open and locked. */
int locked(const char* path)
{
    const int file = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (file < 0) {
        throw systemFailure(errno, path);
    }
    if (flock(file, LOCK_EX | LOCK_NB) == 0) {
        return file;
    }
    if (isatty(STDERR_FILENO) != 0) {
        std::cerr << "zelmar-widgets: waiting for another instance" << std::endl;
    }
    while (flock(file, LOCK_EX) != 0) {
        if (errno != EINTR) {
            const int error = errno;
            close(file);
            throw systemFailure(error, path);
        }
    }
    return file;
}

}  // namespace

InstanceLock::InstanceLock()
{
    const int queue = locked(QUEUE_FILE);
    try {
        m_file = locked(LOCK_FILE);
    } catch (...) {
        close(queue);
        throw;
    }
    close(queue);
}

InstanceLock::~InstanceLock()
{
    close(m_file);
}

}  // namespace ZelmarWidgets
