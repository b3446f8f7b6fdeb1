// SPDX-License-Identifier: Apache-2.0

#include "watching.h"

#include <platform/widget_registry.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <array>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <tuple>

#include "failure.h"
#include "report.h"
#include "widget_paths.h"

namespace ZelmarWidgets {

namespace {

using ZelmarDB::RegisteredWidget;
using ZelmarDB::RegistryFault;

// Changes within this time are printed together, because each time the whole database is read.
constexpr int PAUSE_MILLISECONDS = 50;
constexpr int FOREVER = -1;

struct WidgetState {
    std::string application;
    std::string state;
    std::string stick;  // empty: none
};
using States = std::map<std::string, WidgetState>;

bool operator!=(const WidgetState& one, const WidgetState& other)
{
    return std::tie(one.application, one.state, one.stick) != std::tie(other.application, other.state, other.stick);
}

WidgetState stateOf(const RegisteredWidget& row)
{
    if (!row.installedOnUsb) {
        return {row.application, "on-device", ""};
    }
    if (!row.available) {
        return {row.application, "unavailable", ""};
    }
    return {row.application, "available", stickOf(row.storagePath, row.identifier)};
}

/** Empty while there is no usable database, which may soon be created or replaced. */
std::optional<States> statesNow()
{
    try {
        States states;
        for (const RegisteredWidget& row : ZelmarDB::registeredWidgets(ZelmarDB::RegistryAccess::READ)) {
            states[row.identifier] = stateOf(row);
        }
        return states;
    } catch (const ZelmarDB::RegistryError& e) {
        if (e.fault() == RegistryFault::FORBIDDEN) {
            throw;
        }
        if (e.fault() != RegistryFault::MISSING) {
            std::cerr << "zelmar-widgets: " << printable(registryFailure(e).text()) << std::endl;
        }
        return std::nullopt;
    }
}

void print(const std::string& identifier, const WidgetState& widget, bool json)
{
    if (json) {
        nlohmann::ordered_json line = {{"format", JSON_FORMAT},
                                       {"identifier", textForJson(identifier)},
                                       {"application", textForJson(widget.application)},
                                       {"state", widget.state},
                                       {"stick", nullptr}};
        if (!widget.stick.empty()) {
            line["stick"] = textForJson(widget.stick);
        }
        std::cout << line.dump() << '\n';
    } else {
        std::cout << printable(identifier) << ": " << widget.state
                  << (widget.stick.empty() ? "" : " from " + printable(widget.stick)) << '\n';
    }
}

void printChanges(const States& before, const States& now, bool json)
{
    for (const auto& [identifier, widget] : now) {
        const auto old = before.find(identifier);
        if (old == before.end() || old->second != widget) {
            print(identifier, widget, json);
        }
    }
    for (const auto& [identifier, widget] : before) {
        if (now.count(identifier) == 0) {
            print(identifier, {widget.application, "removed", ""}, json);
        }
    }
}

/** A descriptor that is readable when a signal to end the program has come. */
int endSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC);
    if (descriptor < 0) {
        throw systemFailure(errno, "a signal descriptor");
    }
    return descriptor;
}

/** Waits until `change` is readable or the time is over. True if the program is to end before that. */
bool endsWithin(int milliseconds, int signals, int change)
{
    // Without any event asked for, poll still reports that the reader of standard output has closed it.
    std::array<pollfd, 3> sources{{{signals, POLLIN, 0}, {STDOUT_FILENO, 0, 0}, {change, POLLIN, 0}}};
    poll(sources.data(), sources.size(), milliseconds);
    return sources[0].revents != 0 || (sources[1].revents & (POLLERR | POLLHUP)) != 0;
}

}  // namespace

void watch(bool json)
{
    const auto registry = ZelmarDB::watchRegistry();
    if (!registry) {
        throw Failure(COMMAND_FAILED, Failure::Kind::SYSTEM, "this platform cannot watch the database for changes",
                      "call 'zelmar-widgets status' from time to time");
    }
    const int signals = endSignals();
    constexpr int NO_CHANGE = -1;
    States printed;
    do {
        registry->reset();
        if (auto now = statesNow()) {
            printChanges(printed, *now, json);
            printed = std::move(*now);
        }
        if (!std::cout.flush() && !endsWithin(0, signals, NO_CHANGE)) {
            finishOutput();
        }
    } while (!endsWithin(PAUSE_MILLISECONDS, signals, NO_CHANGE) &&
             !endsWithin(FOREVER, signals, registry->descriptor()));
}

}  // namespace ZelmarWidgets
