// SPDX-License-Identifier: Apache-2.0

#include <platform/widget_registry.h>
#include <standard_descriptors.h>
#include <sys/stat.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "checking.h"
#include "executor.h"
#include "failure.h"
#include "installing.h"
#include "mounted_sticks.h"
#include "report.h"
#include "watching.h"
#include "widget_survey.h"

using namespace ZelmarWidgets;

namespace {

/** What the command line asks for. */
struct Request {
    std::vector<std::string> identifiers;
    std::string identifier;
    std::string application;
    std::string mountPoint;
    bool json = false;
    bool dryRun = false;
    bool onDevice = false;
    bool replace = false;
};

/** The widgets of these identifiers, in the order of the identifiers. Throws Failure if one is missing. */
std::vector<WidgetStatus> widgetsNamed(const std::vector<WidgetStatus>& widgets,
                                       const std::vector<std::string>& identifiers)
{
    std::vector<WidgetStatus> named;
    for (const std::string& identifier : identifiers) {
        const auto widget = std::find_if(widgets.begin(), widgets.end(),
                                         [&](const WidgetStatus& any) { return any.facts.identifier == identifier; });
        if (widget == widgets.end()) {
            throw unknownWidget(identifier);
        }
        named.push_back(*widget);
    }
    return named;
}

void printTroubles(const std::vector<std::string>& troubles)
{
    for (const std::string& trouble : troubles) {
        std::cerr << "zelmar-widgets: " << printable(trouble) << '\n';
    }
}

ExitStatus showStatus(const Request& request)
{
    const Scope everything;
    const Situation situation = survey(everything, {}, ZelmarDB::RegistryAccess::READ, Sticks::LOOK_AT);
    std::vector<WidgetStatus> widgets;
    for (const WidgetFacts& facts : situation.widgets) {
        const WidgetPlan plan = planFor(facts, everything, situation.roots);
        if (facts.home != Home::UNKNOWN || !plan.faults.empty()) {
            widgets.push_back({facts, plan});
        }
    }
    if (!request.identifiers.empty()) {
        widgets = widgetsNamed(widgets, request.identifiers);
    }
    if (request.json) {
        printJson(widgets, situation.troubles);
    } else {
        printTable(widgets);
    }
    printTroubles(situation.troubles);
    const bool isAllWell = std::all_of(widgets.begin(), widgets.end(),
                                       [](const WidgetStatus& widget) { return widget.plan.faults.empty(); });
    return isAllWell && situation.troubles.empty() ? ALL_WELL : SOME_WIDGET_WRONG;
}

ExitStatus change(const Scope& scope, const Request& request)
{
    const Report report = request.dryRun ? dryRun(scope) : execute(scope);
    if (request.json) {
        printJson(report);
    } else {
        printLines(report);
    }
    printTroubles(report.troubles);
    return report.status;
}

ExitStatus showChecks(bool json)
{
    std::vector<Check> checks;
    runChecks([&](const Check& check) {
        if (!json) {
            printLine(check);
        }
        checks.push_back(check);
    });
    if (json) {
        printJson(checks);
    }
    const bool isAllWell =
        std::all_of(checks.begin(), checks.end(), [](const Check& check) { return check.advice.empty(); });
    return isAllWell ? ALL_WELL : SOME_WIDGET_WRONG;
}

void createDatabase(bool replace)
{
    using ZelmarDB::ExistingRegistry;
    const auto [created, setAside] = init(replace ? ExistingRegistry::REPLACE : ExistingRegistry::KEEP);
    for (const std::string& path : setAside) {
        std::cout << "set aside " << printable(path) << '\n';
    }
    std::cout << (created ? "created" : "kept") << " the widget database\n";
}

/**
 * The arguments of the command line, the last one first, as CLI11 takes them. CLI11 splits an identifier of `status`
 * such as "[a,b]" into a list, unless something follows the bracket: a null character does, until `withoutGuard`
 * removes it.
 */
std::vector<std::string> reversedArguments(int argc, const char* const* argv)
{
    std::vector<std::string> arguments(argv + 1, argv + argc);
    if (!arguments.empty() && arguments.front() == "status") {
        for (std::string& argument : arguments) {
            if (argument.rfind('[', 0) == 0) {
                argument += '\0';
            }
        }
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

std::string withoutGuard(const std::string& argument)
{
    return argument.substr(0, argument.find('\0'));
}

/** Adds the options that plug, unplug and heal share. */
CLI::App* addChange(CLI::App& app, const std::string& name, const std::string& description, Request& request)
{
    CLI::App* const command = app.add_subcommand(name, description);
    command->add_flag("--dry-run", request.dryRun, "Change nothing; print what would be done");
    command->add_flag("--json", request.json, "Print JSON");
    return command;
}

/** The commands that only show something. Each runs when it has been parsed, and leaves its status in `status`. */
void addQueries(CLI::App& app, Request& request, ExitStatus& status)
{
    CLI::App* const showing = app.add_subcommand("status", "Show what is available, from where, and what is wrong");
    showing->add_flag("--json", request.json, "Print JSON");
    showing->add_option("IDENTIFIER", request.identifiers, "Only these widgets")->transform(withoutGuard);
    showing->callback([&] { status = showStatus(request); });

    CLI::App* const watching = app.add_subcommand("watch", "Print the state of each widget, then each change of it");
    watching->add_flag("--json", request.json, "Print JSON, one object a line");
    watching->callback([&] { watch(request.json); });

    CLI::App* const checking = app.add_subcommand("check", "Check what the programs need, and say what to do");
    checking->add_flag("--json", request.json, "Print JSON");
    checking->callback([&] { status = showChecks(request.json); });
}

/** The commands that apply the planner's rule. */
void addChanges(CLI::App& app, Request& request, ExitStatus& status)
{
    CLI::App* const plugging = addChange(app, "plug", "Make the widgets on a mounted stick available", request);
    plugging->add_option("MOUNT_POINT", request.mountPoint, "Where the stick is mounted")->required();
    plugging->callback([&] { status = change({Scope::Command::PLUG, stickToPlug(request.mountPoint)}, request); });

    CLI::App* const unplugging = addChange(
        app, "unplug", "Make the widgets on a stick unavailable, whether it is still mounted or not", request);
    unplugging->add_option("MOUNT_POINT", request.mountPoint, "Where the stick is or was mounted")->required();
    unplugging->callback([&] {
        status = change({Scope::Command::UNPLUG, stickToUnplug(request.mountPoint)}, request);
    });

    CLI::App* const healing = addChange(app, "heal", "Repair the faults that 'status' shows", request);
    healing->callback([&] { status = change({Scope::Command::HEAL, ""}, request); });
}

/** The commands that maintain the database. */
void addInstalling(CLI::App& app, Request& request)
{
    CLI::App* const adding = app.add_subcommand("add", "Add a widget: its row in the database and its image directory");
    adding->add_option("IDENTIFIER", request.identifier, "Its package identifier")->required();
    adding->add_option("--app", request.application, "Its application identifier")
        ->required()
        ->type_name("APPLICATION");
    adding->add_flag("--on-device", request.onDevice, "Its content is on the television itself, not on USB");
    adding->callback([&] {
        add(request.identifier, request.application, !request.onDevice);
        std::cout << "added " << printable(request.identifier) << '\n';
    });

    CLI::App* const removing = app.add_subcommand("remove", "Make a widget unavailable and remove what 'add' made");
    removing->add_option("IDENTIFIER", request.identifier, "Its package identifier")->required();
    removing->callback([&] {
        ZelmarWidgets::remove(request.identifier);
        std::cout << "removed " << printable(request.identifier) << '\n';
    });

    CLI::App* const creating = app.add_subcommand("init", "Create the widget database, if there is none");
    creating->add_flag("--replace", request.replace, "Set an existing database aside, and create an empty one");
    creating->callback([&] { createDatabase(request.replace); });
}

/** Parses the command line and runs its command. Throws what the command throws, and CLI::ParseError. */
ExitStatus run(CLI::App& app, Request& request, int argc, const char* const* argv)
{
    app.require_subcommand(0, 1);
    app.get_formatter()->label("TEXT", "");
    app.get_formatter()->label("REQUIRED", "");
    app.set_version_flag("--version", "zelmar-widgets " ZELMAR_VERSION, "Print the version and exit");
    app.footer(
        "Exit status: 0 all is as it should be, 1 some widget is not, 2 the command line is wrong,\n"
        "3 the command failed. See also 'man zelmar-widgets'.");
    ExitStatus status = ALL_WELL;
    addQueries(app, request, status);
    addChanges(app, request, status);
    addInstalling(app, request);

    app.parse(reversedArguments(argc, argv));
    if (app.get_subcommands().empty()) {
        throw badCommandLine("no command", "see 'zelmar-widgets --help'");
    }
    return status;
}

/** Prints the failure; if JSON was asked for, as an object, too. */
ExitStatus reportFailure(const Failure& failure, bool json)
{
    if (json) {
        printJson(failure);
        std::cout.flush();
    }
    std::cerr << "zelmar-widgets: " << printable(failure.text()) << '\n';
    return failure.status();
}

}  // namespace

int main(int argc, char** argv)
{
    // When the reader has closed the pipe, or a file may not grow, the write must fail, not end the program.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    // Everybody may read the files that this program makes; only their owner may write to them.
    umask(S_IWGRP | S_IWOTH);
    ZelmarFrontend::fillStandardDescriptors();
    std::ios::sync_with_stdio(false);
    Request request;
    try {
        CLI::App app("Looks after the widgets on USB sticks: what is available, from where, and what is wrong.",
                     "zelmar-widgets");
        ExitStatus status = ALL_WELL;
        try {
            status = run(app, request, argc, argv);
        } catch (const CLI::ParseError& e) {
            if (e.get_exit_code() != 0) {
                return reportFailure(badCommandLine(e.what(), "see 'zelmar-widgets --help'"), request.json);
            }
            app.exit(e);  // prints the help or the version
        }
        finishOutput();
        return status;
    } catch (const Failure& e) {
        return reportFailure(e, request.json);
    } catch (const ZelmarDB::RegistryError& e) {
        return reportFailure(registryFailure(e), request.json);
    } catch (const std::exception& e) {
        return reportFailure({COMMAND_FAILED, Failure::Kind::SYSTEM, e.what(), "remove the cause, then call again"},
                             request.json);
    }
}
