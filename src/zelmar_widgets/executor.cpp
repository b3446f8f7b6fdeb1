// SPDX-License-Identifier: Apache-2.0

#include "executor.h"

#include <platform/widget_registry.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <zelmar_frontend_constants.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <thread>
#include <utility>

#include "front_end.h"
#include "instance_lock.h"
#include "mounted_sticks.h"
#include "widget_survey.h"

namespace fs = std::filesystem;

namespace ZelmarWidgets {

namespace {

using Clock = std::chrono::steady_clock;
using Command = Scope::Command;
using Identifiers = std::vector<std::string>;
using ZelmarDB::RegistryAccess;
using ZelmarDB::RegistryError;
using ZelmarDB::RegistryFault;

// For how long a command tries again what another process, a full disk or changing mounts keep it from.
constexpr std::chrono::minutes PATIENCE(1);
// systemd looks at the mounts at most once a second.
constexpr std::chrono::seconds PAUSE(1);
// How often a command looks again at a widget that another instance seems to be changing, too.
constexpr int MAX_SURPRISES = 3;
// The kernel follows no more of them, either.
constexpr int MAX_LINKS = 40;

/** Why a widget is not as it should be. */
struct WidgetFailure {
    std::string code;  // the tool's, if it has one
    std::string advice;
    bool mayPass = false;  // by itself, in a while
    bool isOfRun = false;  // the tool failed as a whole
};

bool mayPass(RegistryFault fault)
{
    return fault == RegistryFault::HELD || fault == RegistryFault::FULL;
}

/** Whether the tool's error code tells of the database or the disk, not of the widget. */
bool mayPass(const std::string& code)
{
    return code == ZelmarFrontend::ERROR_UNKNOWN || code == ZelmarFrontend::ERROR_LOCAL_STORAGE_USED ||
           (code == ZelmarFrontend::ERROR_SYMLINKS_CREATE && isDiskFull(ZelmarFrontend::INSTALLATION_ROOT));
}

/** The tool has one line for all that is wrong with the database; the registry says more. */
WidgetFailure failureOfRun(const Failure& failure)
{
    try {
        ZelmarDB::registeredWidgets(RegistryAccess::CHANGE);
        return {"", failure.text(), false, true};
    } catch (const RegistryError& error) {
        return {"", registryFailure(error).text(), mayPass(error.fault()), true};
    }
}

/** On a terminal, for what takes more than one run. */
void showProgress(std::size_t done, std::size_t all)
{
    if (isatty(STDERR_FILENO) != 0) {
        std::cerr << '\r' << (done < all ? std::to_string(done) + " of " + std::to_string(all) + " widgets" : "\033[K")
                  << std::flush;
    }
}

std::vector<WidgetPlan> plansFor(const Situation& situation, const Scope& scope)
{
    std::vector<WidgetPlan> plans;
    plans.reserve(situation.widgets.size());
    for (const WidgetFacts& widget : situation.widgets) {
        plans.push_back(planFor(widget, scope, situation.roots));
    }
    return plans;
}

/** Nobody unplugs what nobody knows: it is mistyped. */
void requireKnown(const Situation& situation, const Scope& scope)
{
    std::error_code error;
    if (scope.command == Command::UNPLUG && situation.widgets.empty() &&
        fs::status(scope.argument, error).type() == fs::file_type::not_found) {
        throw badCommandLine("nothing is known of '" + scope.argument + "': it is not there, and no widget leads to it",
                             "name the directory where the stick is or was mounted");
    }
}

/** What a plug has to say of a widget whose folder its stick holds, but not the image. */
std::string adviceOnFolder(const WidgetFacts& widget, const Scope& scope)
{
    const bool hasFolderOnly = scope.command == Command::PLUG &&
                               std::any_of(widget.contents.begin(), widget.contents.end(), [&](const Content& content) {
                                   return content.stick == scope.argument && content.folder && !content.files[IMAGE];
                               });
    return hasFolderOnly
               ? contentDirectory(scope.argument, widget.identifier) + " holds no image; copy it there, then plug again"
               : "";
}

/** The widget's line if it is, or will be, as its plan says. */
ReportLine lineFor(const WidgetFacts& widget, const WidgetPlan& plan)
{
    const Result result = widget.home != Home::STICK ? Result::CLEARED
                          : plan.stick.empty()       ? Result::UNAVAILABLE
                                                     : Result::AVAILABLE;
    return {widget.identifier, widget.application, result, plan.stick, "", ""};
}

ExitStatus statusOf(const Report& report)
{
    const bool isWell = report.troubles.empty() && std::all_of(report.lines.begin(), report.lines.end(),
                                                               [](const auto& line) { return line.advice.empty(); });
    return isWell ? ALL_WELL : SOME_WIDGET_WRONG;
}

class Execution {
public:
    explicit Execution(const Scope& scope) : m_scope(scope) {}

    Report run();

private:
    using Run = std::function<std::vector<ToolResult>(const Identifiers&)>;

    bool look(Sticks sticks);
    bool carryOut();
    bool isToBeDone(const WidgetPlan& plan) const;
    void changeFiles(const WidgetPlan& plan);
    void runTool(const Identifiers& identifiers, const Run& run);
    void makeUnplugged(const Identifiers& identifiers);
    void makePlugged(const std::string& stick, const Identifiers& identifiers);
    Identifiers unfailed(const Identifiers& identifiers) const;
    void forgetWhatMayPass();
    bool hasReasonToWait();
    bool isSurprised();
    bool wait();
    ReportLine reportLine(const WidgetFacts& widget, const WidgetPlan& plan) const;
    Report report() const;

    const Scope& m_scope;
    const MountWatch m_mounts;
    bool m_hasAwaitedMount = false;
    int m_surprises = 0;
    std::optional<Clock::time_point> m_giveUpAt;
    Situation m_situation;
    std::vector<WidgetPlan> m_plans;                  // of the situation's widgets, in their order
    std::set<std::string> m_concerned;                // the widgets that this has been about
    std::set<std::string> m_promised;                 // those that a plugged stick was found to hold
    std::set<std::string> m_touched;                  // those for which something was done
    std::map<std::string, std::set<Step>> m_done;     // each step of a widget is done once, unless mounts change
    std::map<std::string, WidgetFailure> m_failures;  // the first of each widget
};

Report Execution::run()
{
    // No stick, were it one that hangs, keeps another one's widgets from becoming unavailable.
    Sticks sticks = m_scope.command == Command::UNPLUG ? Sticks::LEAVE_ALONE : Sticks::LOOK_AT;
    for (;;) {
        if (!look(sticks)) {
            continue;
        }
        const bool hasWorked = carryOut();
        if (std::exchange(sticks, Sticks::LOOK_AT) == Sticks::LEAVE_ALONE) {
            continue;
        }
        if (hasReasonToWait() || (!hasWorked && isSurprised())) {
            if (!wait()) {
                look(Sticks::LOOK_AT);
                return report();
            }
        } else if (!hasWorked) {
            return report();
        }
    }
}

/** False if the database could not be read, but may be now. */
bool Execution::look(Sticks sticks)
{
    try {
        m_situation = survey(m_scope, m_concerned, RegistryAccess::CHANGE, sticks);
    } catch (const RegistryError& error) {
        if (!mayPass(error.fault()) || !wait()) {
            throw;
        }
        return false;
    }
    requireKnown(m_situation, m_scope);
    m_plans = plansFor(m_situation, m_scope);
    for (const WidgetPlan& plan : m_plans) {
        m_concerned.insert(plan.identifier);
        if (m_scope.command == Command::PLUG && plan.stick == m_scope.argument) {
            m_promised.insert(plan.identifier);
        }
    }
    return true;
}

/** What the plans ask for: first what becomes unavailable, which touches no stick. False if there was nothing to do. */
bool Execution::carryOut()
{
    forgetWhatMayPass();
    Identifiers leaving;
    std::map<std::string, Identifiers> coming;
    bool hasWorked = false;
    for (const WidgetPlan& plan : m_plans) {
        if (!isToBeDone(plan)) {
            continue;
        }
        hasWorked = true;
        m_touched.insert(plan.identifier);
        m_done[plan.identifier].insert(plan.steps.begin(), plan.steps.end());
        changeFiles(plan);
        for (const Step step : plan.steps) {
            if (step == Step::MAKE_UNAVAILABLE) {
                leaving.push_back(plan.identifier);
            } else if (step == Step::MAKE_AVAILABLE) {
                coming[plan.stick].push_back(plan.identifier);
            }
        }
    }
    makeUnplugged(unfailed(leaving));
    for (const auto& [stick, identifiers] : coming) {
        makePlugged(stick, unfailed(identifiers));
    }
    return hasWorked;
}

bool Execution::isToBeDone(const WidgetPlan& plan) const
{
    const auto done = m_done.find(plan.identifier);
    return !plan.steps.empty() &&
           (done == m_done.end() || std::none_of(plan.steps.begin(), plan.steps.end(),
                                                 [&](Step step) { return done->second.count(step) != 0; }));
}

/** The steps that are not the tool's: it makes no directory, and refuses widgets that are not on USB. */
void Execution::changeFiles(const WidgetPlan& plan)
{
    const std::string directory = imageDirectory(plan.identifier);
    std::error_code error;
    if (plan.steps.front() == Step::CREATE_DIRECTORY) {
        const InstanceLock lock;
        fs::create_directories(directory, error);
        if (error) {
            m_failures[plan.identifier].advice = systemFailure(error.value(), directory).text();
        }
    } else if (plan.steps.front() == Step::CLEAR_LINKS) {
        const InstanceLock lock;
        for (const std::string& name : plan.staleLinks) {
            const std::string link = fs::path(directory) / name;
            // A file that stands there by now is the owner's.
            if (fs::is_symlink(fs::symlink_status(link, error)) && unlink(link.c_str()) != 0) {
                m_failures[plan.identifier].advice = systemFailure(errno, link).text();
            }
        }
    }
}

void Execution::runTool(const Identifiers& identifiers, const Run& run)
{
    const std::vector<Identifiers> batches = batchesOf(identifiers);
    std::size_t done = 0;
    for (const Identifiers& batch : batches) {
        try {
            const InstanceLock lock;
            for (const auto& [identifier, code] : run(batch)) {
                if (!code.empty()) {
                    m_failures.insert({identifier, {code, causeOf(code, imageDirectory(identifier)), mayPass(code)}});
                }
            }
        } catch (const Failure& failure) {
            const WidgetFailure common = failureOfRun(failure);
            for (const std::string& identifier : batch) {
                m_failures.insert({identifier, common});
            }
        }
        done += batch.size();
        if (batches.size() > 1) {
            showProgress(done, identifiers.size());
        }
    }
}

void Execution::makeUnplugged(const Identifiers& identifiers)
{
    runTool(identifiers, makeUnavailable);
}

void Execution::makePlugged(const std::string& stick, const Identifiers& identifiers)
{
    runTool(identifiers, [&](const Identifiers& batch) { return makeAvailable(stick, batch); });
    // The tool undid only its own changes: a widget that was available before is still marked so.
    Identifiers failed;
    for (const WidgetFacts& widget : m_situation.widgets) {
        if (widget.available && m_failures.count(widget.identifier) != 0 &&
            std::find(identifiers.begin(), identifiers.end(), widget.identifier) != identifiers.end()) {
            failed.push_back(widget.identifier);
        }
    }
    makeUnplugged(failed);
}

Identifiers Execution::unfailed(const Identifiers& identifiers) const
{
    Identifiers rest;
    std::copy_if(identifiers.begin(), identifiers.end(), std::back_inserter(rest),
                 [&](const std::string& identifier) { return m_failures.count(identifier) == 0; });
    return rest;
}

/** So that it is tried again. */
void Execution::forgetWhatMayPass()
{
    for (auto failure = m_failures.begin(); failure != m_failures.end();) {
        if (failure->second.mayPass) {
            m_done.erase(failure->first);
            failure = m_failures.erase(failure);
        } else {
            ++failure;
        }
    }
}

/** Whether to look again a moment later. */
bool Execution::hasReasonToWait()
{
    // A loose contact may unmount and mount the stick again unseen. If systemd does see the stick gone, it ends this
    // process.
    if (m_mounts.changed()) {
        m_done.clear();
        m_failures.clear();
        return true;
    }
    const bool isAwaited = m_scope.command == Command::PLUG && m_concerned.empty() &&
                           !std::exchange(m_hasAwaitedMount, true) && !MountedSticks().isMountPoint(m_scope.argument);
    return isAwaited || std::any_of(m_failures.begin(), m_failures.end(),
                                    [](const auto& failure) { return failure.second.mayPass; });
}

/** Whether a widget is not as it should be though all was done for it: another instance has changed it since. */
bool Execution::isSurprised()
{
    bool isSurprised = false;
    for (std::size_t number = 0; number < m_plans.size(); ++number) {
        const WidgetPlan& plan = m_plans[number];
        if (plan.faults.empty() || isToBeDone(plan) || m_failures.count(plan.identifier) != 0) {
            continue;
        }
        isSurprised = true;
        // What another wants otherwise is left to it, but links are made whole.
        const WidgetFacts& widget = m_situation.widgets[number];
        if (widget.available && widget.rowStick == plan.stick) {
            m_done.erase(plan.identifier);
        }
    }
    return isSurprised && ++m_surprises <= MAX_SURPRISES;
}

/** False if the command has waited long enough. */
bool Execution::wait()
{
    if (!m_giveUpAt) {
        m_giveUpAt = Clock::now() + PATIENCE;
        if (isatty(STDERR_FILENO) != 0) {
            std::cerr << "zelmar-widgets: waiting up to a minute for the database, the disk or the mounts" << std::endl;
        }
    }
    if (Clock::now() >= *m_giveUpAt) {
        return false;
    }
    std::this_thread::sleep_for(PAUSE);
    return true;
}

ReportLine Execution::reportLine(const WidgetFacts& widget, const WidgetPlan& plan) const
{
    ReportLine line = lineFor(widget, plan);
    const auto failure = m_failures.find(widget.identifier);
    if (plan.faults.empty()) {
        line.advice = adviceOnFolder(widget, m_scope);
        if (line.advice.empty() && m_promised.count(widget.identifier) != 0 && plan.stick != m_scope.argument) {
            line.advice = m_scope.argument + " holds it no more; plug the stick in again";
        }
        return line;
    }
    if (failure == m_failures.end() && m_scope.command == Command::PLUG && widget.available) {
        line.stick = widget.rowStick;  // another stick has been plugged since
        return line;
    }
    line.result = Result::FAILED;
    line.stick.clear();
    if (failure == m_failures.end()) {
        line.advice = "it is still " + namesOf(plan.faults) + "; see what stands in " +
                      imageDirectory(widget.identifier) + ", then call again";
        return line;
    }
    line.code = failure->second.code;
    line.advice = failure->second.advice;
    return line;
}

Report Execution::report() const
{
    Report report{{}, m_situation.troubles};
    std::set<std::string> runFailures;
    for (std::size_t number = 0; number < m_plans.size(); ++number) {
        const ReportLine line = reportLine(m_situation.widgets[number], m_plans[number]);
        const bool isAskedFor = m_scope.command == Command::PLUG && m_plans[number].stick == m_scope.argument;
        if (!line.advice.empty() || isAskedFor || m_touched.count(line.identifier) != 0) {
            report.lines.push_back(line);
        }
        const auto failure = m_failures.find(line.identifier);
        if (line.result == Result::FAILED && failure != m_failures.end()) {
            if (failure->second.isOfRun || failure->second.mayPass) {
                runFailures.insert(failure->second.advice);
            }
        }
    }
    report.troubles.insert(report.troubles.end(), runFailures.begin(), runFailures.end());
    report.status = runFailures.empty() ? statusOf(report) : COULD_NOT_WORK;
    return report;
}

}  // namespace

bool isDiskFull(const std::string& directory)
{
    struct statvfs disk = {};
    return statvfs(directory.c_str(), &disk) == 0 &&
           ((disk.f_blocks != 0 && disk.f_bfree == 0) || (disk.f_files != 0 && disk.f_ffree == 0));
}

Report bringAbout(const Scope& scope)
{
    return Execution(scope).run();
}

Report foretell(const Scope& scope)
{
    const Situation situation = survey(scope, {}, RegistryAccess::READ, Sticks::LOOK_AT);
    requireKnown(situation, scope);
    Report report{{}, situation.troubles};
    for (const WidgetFacts& widget : situation.widgets) {
        const WidgetPlan plan = planFor(widget, scope, situation.roots);
        ReportLine line = lineFor(widget, plan);
        line.advice = adviceOnFolder(widget, scope);
        if (!plan.steps.empty() || !line.advice.empty()) {
            report.lines.push_back(line);
        }
    }
    report.status = statusOf(report);
    report.isDryRun = true;
    return report;
}

std::string stickToUnplug(const std::string& mountPoint)
{
    std::error_code error;
    fs::path path = fs::absolute(mountPoint, error).lexically_normal();
    if (error || path.empty()) {
        throw badCommandLine("no mount point: '" + mountPoint + "'", "name a directory");
    }
    const auto withoutSlash = [](const fs::path& some) {
        return some.has_filename() ? some : some.parent_path();
    };
    path = withoutSlash(path);
    // A link may outlive the mount point that it leads to.
    for (int links = 0; links < MAX_LINKS && fs::is_symlink(fs::symlink_status(path, error)); ++links) {
        path = path.parent_path() / fs::read_symlink(path, error);
    }
    const fs::path resolved = fs::weakly_canonical(path, error);
    return withoutSlash(error ? path : resolved);
}

std::string stickToPlug(const std::string& mountPoint)
{
    std::error_code error;
    const fs::path stick = fs::canonical(mountPoint, error);
    if (error == std::errc::no_such_file_or_directory || (!error && !fs::is_directory(stick, error))) {
        throw badCommandLine("no directory: '" + mountPoint + "'", "name the one where the stick is mounted");
    }
    if (error) {
        throw systemFailure(error.value(), mountPoint, SOME_WIDGET_WRONG);
    }
    if (!isText(stick)) {
        throw badCommandLine(stick.string() + " is not UTF-8, so the database cannot hold it",
                             "mount the stick elsewhere");
    }
    return stick;
}

}  // namespace ZelmarWidgets
