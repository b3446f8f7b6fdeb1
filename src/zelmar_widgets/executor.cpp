// SPDX-License-Identifier: Apache-2.0

#include "executor.h"

#include <platform/widget_registry.h>
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

#include "checking.h"
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

// How long a command tries again what fails because of another process, a full disk or changing mounts.
constexpr std::chrono::minutes PATIENCE(1);
// systemd looks at the mounts at most once a second.
constexpr std::chrono::seconds PAUSE(1);
// How often a command surveys again because another instance seems to change the same widgets.
constexpr int MAX_INTERFERENCES = 3;

/** Why a widget is not as it should be. */
struct WidgetFailure {
    std::string code;  // the tool's, if it has one
    std::string advice;
    bool mayPass = false;  // the cause may go away by itself
    bool isOfRun = false;  // the tool failed as a whole
};

bool mayPass(RegistryFault fault)
{
    return fault == RegistryFault::HELD || fault == RegistryFault::FULL;
}

/** Whether the tool's error code may be due to the database or the disk, not to the widget. */
bool mayPass(const std::string& code)
{
    return code == ZelmarFrontend::ERROR_UNKNOWN || code == ZelmarFrontend::ERROR_LOCAL_STORAGE_USED ||
           (code == ZelmarFrontend::ERROR_SYMLINKS_CREATE && isDiskFull(ZelmarFrontend::INSTALLATION_ROOT));
}

/** The tool has one message for everything that is wrong with the database; the registry has one for each fault. */
WidgetFailure failureOfRun(const Failure& failure)
{
    try {
        ZelmarDB::registeredWidgets(RegistryAccess::CHANGE);
        return {"", failure.text(), false, true};
    } catch (const RegistryError& error) {
        return {"", registryFailure(error).text(), mayPass(error.fault()), true};
    }
}

/** Prints a counter on a terminal. */
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

/** Refuses to unplug a path that does not exist and that no widget leads to: it is mistyped. */
void requireKnownStick(const Situation& situation, const Scope& scope)
{
    std::error_code error;
    if (scope.command == Command::UNPLUG && situation.widgets.empty() &&
        fs::status(scope.argument, error).type() == fs::file_type::not_found) {
        throw badCommandLine("'" + scope.argument + "' does not exist, and no widget leads to it",
                             "name the directory where the stick is or was mounted");
    }
}

/** The advice of PLUG on a widget if the plugged stick holds its folder without the image; else empty. */
std::string adviceOnMissingImage(const WidgetFacts& widget, const Scope& scope)
{
    const bool hasFolderOnly = scope.command == Command::PLUG &&
                               std::any_of(widget.contents.begin(), widget.contents.end(), [&](const Content& content) {
                                   return content.stick == scope.argument && content.folder && !content.files[IMAGE];
                               });
    return hasFolderOnly
               ? contentDirectory(scope.argument, widget.identifier) + " holds no image; copy it there, then plug again"
               : "";
}

/** The line of a widget that is, or will be, as its plan says. */
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
    using ToolRun = std::function<std::vector<ToolResult>(const Identifiers&)>;

    void surveyAndPlan(Sticks sticks);
    Situation surveyPatiently(Sticks sticks);
    bool carryOutPlans();
    bool isToBeDone(const WidgetPlan& plan) const;
    void changeFiles(const WidgetPlan& plan);
    void runTool(const Identifiers& identifiers, const ToolRun& run);
    void makeWidgetsUnavailable(const Identifiers& identifiers);
    void makeWidgetsAvailable(const std::string& stick, const Identifiers& identifiers);
    Identifiers withoutFailed(const Identifiers& identifiers) const;
    void forgetPassingFailures();
    bool shouldWait();
    bool wasInterferedWith();
    bool wait();
    ReportLine reportLine(const WidgetFacts& widget, const WidgetPlan& plan) const;
    Report report() const;

    const Scope& m_scope;
    const MountWatch m_mounts;
    bool m_hasAwaitedMount = false;
    int m_interferences = 0;
    std::optional<Clock::time_point> m_giveUpAt;
    Situation m_situation;
    std::vector<WidgetPlan> m_plans;                  // of the situation's widgets, in their order
    std::set<std::string> m_concerned;                // widgets that any survey of this command was about
    std::set<std::string> m_foundOnStick;             // PLUG: those that its stick was once found to hold
    std::set<std::string> m_touched;                  // those for which a step was done
    std::map<std::string, std::set<Step>> m_done;     // each step of a widget is done once, unless mounts change
    std::map<std::string, WidgetFailure> m_failures;  // the first of each widget
};

Report Execution::run()
{
    if (m_scope.command == Command::UNPLUG) {
        // Widgets become unavailable before any stick is looked at: another stick may hang.
        surveyAndPlan(Sticks::LEAVE_ALONE);
        carryOutPlans();
    }
    for (;;) {
        surveyAndPlan(Sticks::LOOK_AT);
        const bool hasWorked = carryOutPlans();
        if (shouldWait() || (!hasWorked && wasInterferedWith())) {
            if (!wait()) {
                surveyAndPlan(Sticks::LOOK_AT);
                return report();
            }
        } else if (!hasWorked) {
            return report();
        }
    }
}

void Execution::surveyAndPlan(Sticks sticks)
{
    m_situation = surveyPatiently(sticks);
    requireKnownStick(m_situation, m_scope);
    m_plans = plansFor(m_situation, m_scope);
    for (const WidgetPlan& plan : m_plans) {
        m_concerned.insert(plan.identifier);
        if (m_scope.command == Command::PLUG && plan.stick == m_scope.argument) {
            m_foundOnStick.insert(plan.identifier);
        }
    }
}

/** Tries again while the database cannot be read for a reason that may pass. */
Situation Execution::surveyPatiently(Sticks sticks)
{
    for (;;) {
        try {
            return survey(m_scope, m_concerned, RegistryAccess::CHANGE, sticks);
        } catch (const RegistryError& error) {
            if (!mayPass(error.fault()) || !wait()) {
                throw;
            }
        }
    }
}

/** First makes widgets unavailable, which needs no stick, then others available. False if there was nothing to do. */
bool Execution::carryOutPlans()
{
    forgetPassingFailures();
    Identifiers toMakeUnavailable;
    std::map<std::string, Identifiers> toMakeAvailable;  // by stick
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
                toMakeUnavailable.push_back(plan.identifier);
            } else if (step == Step::MAKE_AVAILABLE) {
                toMakeAvailable[plan.stick].push_back(plan.identifier);
            }
        }
    }
    makeWidgetsUnavailable(withoutFailed(toMakeUnavailable));
    for (const auto& [stick, identifiers] : toMakeAvailable) {
        makeWidgetsAvailable(stick, withoutFailed(identifiers));
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

/** Does the steps that the tool cannot: it makes no directory, and refuses widgets that are not on USB. */
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
            // If a file has taken the place of the link since the survey, it belongs to the widget's owner: it stays.
            if (fs::is_symlink(fs::symlink_status(link, error)) && unlink(link.c_str()) != 0) {
                m_failures[plan.identifier].advice = systemFailure(errno, link).text();
            }
        }
    }
}

void Execution::runTool(const Identifiers& identifiers, const ToolRun& run)
{
    const std::vector<Identifiers> batches = batchesOf(identifiers);
    std::size_t done = 0;
    for (const Identifiers& batch : batches) {
        try {
            const InstanceLock lock;
            for (const auto& [identifier, code] : run(batch)) {
                if (!code.empty()) {
                    m_failures.insert(
                        {identifier, {code, explanationOf(code, imageDirectory(identifier)), mayPass(code)}});
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

void Execution::makeWidgetsUnavailable(const Identifiers& identifiers)
{
    runTool(identifiers, makeUnavailable);
}

void Execution::makeWidgetsAvailable(const std::string& stick, const Identifiers& identifiers)
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
    makeWidgetsUnavailable(failed);
}

Identifiers Execution::withoutFailed(const Identifiers& identifiers) const
{
    Identifiers rest;
    std::copy_if(identifiers.begin(), identifiers.end(), std::back_inserter(rest),
                 [&](const std::string& identifier) { return m_failures.count(identifier) == 0; });
    return rest;
}

/** Forgets failures that may pass by themselves, so that the steps are tried again. */
void Execution::forgetPassingFailures()
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

/** Whether to survey again after a pause. Forgets all that was done and that failed if mounts have changed. */
bool Execution::shouldWait()
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

/** Whether another instance has changed a widget: it is not as it should be, though all its steps were done. */
bool Execution::wasInterferedWith()
{
    bool isInterferedWith = false;
    for (std::size_t number = 0; number < m_plans.size(); ++number) {
        const WidgetPlan& plan = m_plans[number];
        if (plan.faults.empty() || isToBeDone(plan) || m_failures.count(plan.identifier) != 0) {
            continue;
        }
        isInterferedWith = true;
        // If the other instance chose another stick, its choice stands. If only links are wrong, they are made again.
        const WidgetFacts& widget = m_situation.widgets[number];
        if (widget.available && widget.rowStick == plan.stick) {
            m_done.erase(plan.identifier);
        }
    }
    return isInterferedWith && ++m_interferences <= MAX_INTERFERENCES;
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
        line.advice = adviceOnMissingImage(widget, m_scope);
        if (line.advice.empty() && m_foundOnStick.count(widget.identifier) != 0 && plan.stick != m_scope.argument) {
            line.advice = m_scope.argument + " no longer holds it; plug the stick in again";
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
    report.status = runFailures.empty() ? statusOf(report) : COMMAND_FAILED;
    return report;
}

}  // namespace

Report execute(const Scope& scope)
{
    return Execution(scope).run();
}

Report dryRun(const Scope& scope)
{
    const Situation situation = survey(scope, {}, RegistryAccess::READ, Sticks::LOOK_AT);
    requireKnownStick(situation, scope);
    Report report{{}, situation.troubles};
    for (const WidgetFacts& widget : situation.widgets) {
        const WidgetPlan plan = planFor(widget, scope, situation.roots);
        ReportLine line = lineFor(widget, plan);
        line.advice = adviceOnMissingImage(widget, scope);
        if (!plan.steps.empty() || !line.advice.empty()) {
            report.lines.push_back(line);
        }
    }
    report.status = statusOf(report);
    report.isDryRun = true;
    return report;
}

}  // namespace ZelmarWidgets
