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

// Changes that follow each other within this time are told together: each look reads the whole database.
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

/** Nothing while there is no usable database: it may be about to be made or replaced. */
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

void tellChanges(const States& before, const States& now, bool json)
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

/** The signals that end this program, as a descriptor. */
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

/** Whether the end has come, before `change` is readable or the time is over. */
bool endsWithin(int milliseconds, int signals, int change)
{
    // No event is asked of standard output: it tells when its reader has gone.
    std::array<pollfd, 3> sources{{{signals, POLLIN, 0}, {STDOUT_FILENO, 0, 0}, {change, POLLIN, 0}}};
    poll(sources.data(), sources.size(), milliseconds);
    return sources[0].revents != 0 || (sources[1].revents & (POLLERR | POLLHUP)) != 0;
}

}  // namespace

void watch(bool json)
{
    const auto registry = ZelmarDB::watchRegistry();
    if (!registry) {
        throw Failure(COULD_NOT_WORK, Failure::Kind::SYSTEM, "this platform cannot tell of changes",
                      "call 'zelmar-widgets status' from time to time");
    }
    const int signals = endSignals();
    constexpr int NO_CHANGE = -1;
    States told;
    do {
        registry->reset();
        if (auto now = statesNow()) {
            tellChanges(told, *now, json);
            told = std::move(*now);
        }
        if (!std::cout.flush() && !endsWithin(0, signals, NO_CHANGE)) {
            finishOutput();
        }
    } while (!endsWithin(PAUSE_MILLISECONDS, signals, NO_CHANGE) &&
             !endsWithin(FOREVER, signals, registry->descriptor()));
}

}  // namespace ZelmarWidgets
