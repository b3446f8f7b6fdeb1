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

}  // namespace

InstanceLock::InstanceLock() : m_file(open(LOCK_FILE, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600))
{
    if (m_file < 0) {
        throw systemFailure(errno, LOCK_FILE);
    }
    if (flock(m_file, LOCK_EX | LOCK_NB) == 0) {
        return;
    }
    if (isatty(STDERR_FILENO) != 0) {
        std::cerr << "zelmar-widgets: waiting for another instance" << std::endl;
    }
    while (flock(m_file, LOCK_EX) != 0) {
        if (errno != EINTR) {
            const int error = errno;
            close(m_file);
            throw systemFailure(error, LOCK_FILE);
        }
    }
}

InstanceLock::~InstanceLock()
{
    close(m_file);
}

}  // namespace ZelmarWidgets
