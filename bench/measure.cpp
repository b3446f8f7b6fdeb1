// SPDX-License-Identifier: Apache-2.0

// measure COMMAND [ARGUMENT...]: runs the command while /dev/log is read as a system's logger would, then adds one
// line to the standard output: its seconds, its peak memory in KiB and how many lines it logged.

#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

constexpr sockaddr_un LOG_ADDRESS = {AF_UNIX, "/dev/log"};

const sockaddr* logAddress()
{
    return reinterpret_cast<const sockaddr*>(&LOG_ADDRESS);
}

void must(bool done, const char* step)
{
    if (!done) {
        std::perror(step);
        std::exit(125);
    }
}

/** Counts datagrams up to the first empty one, many a call: the short queue must never make the command wait. */
int countLines(int socket)
{
    constexpr unsigned BATCH = 64;
    static mmsghdr messages[BATCH];
    for (int lines = 0;;) {
        const int received = recvmmsg(socket, messages, BATCH, MSG_WAITFORONE | MSG_TRUNC, nullptr);
        must(received > 0, "recvmmsg");
        lines += received;
        if (messages[received - 1].msg_len == 0) {
            return lines - 1;
        }
    }
}

}  // namespace

int main(int, char** argv)
{
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    unlink(LOG_ADDRESS.sun_path);
    must(bind(log, logAddress(), sizeof LOG_ADDRESS) == 0, "bind");
    int lines = 0;
    std::thread reader([&] { lines = countLines(log); });

    const auto start = std::chrono::steady_clock::now();
    pid_t command = 0;
    must(posix_spawnp(&command, argv[1], nullptr, nullptr, argv + 1, environ) == 0, argv[1]);
    int status = 0;
    rusage usage = {};
    must(wait4(command, &status, 0, &usage) == command, "wait4");
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;

    const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    must(sendto(sender, nullptr, 0, 0, logAddress(), sizeof LOG_ADDRESS) == 0, "sendto");
    reader.join();
    std::printf("%.6f %ld %d\n", seconds.count(), usage.ru_maxrss, lines);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 126;
}
