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
#include "report.h"
#include "watching.h"
#include "widget_survey.h"

using namespace ZelmarWidgets;

namespace {

/** The command line, as its options are read. */
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

/** In the order asked for. Throws Failure if one is missing. */
std::vector<WidgetStatus> pick(const std::vector<WidgetStatus>& widgets, const std::vector<std::string>& identifiers)
{
    std::vector<WidgetStatus> picked;
    for (const std::string& identifier : identifiers) {
        const auto widget = std::find_if(widgets.begin(), widgets.end(),
                                         [&](const WidgetStatus& some) { return some.facts.identifier == identifier; });
        if (widget == widgets.end()) {
            throw unknownWidget(identifier);
        }
        picked.push_back(*widget);
    }
    return picked;
}

void tellTroubles(const std::vector<std::string>& troubles)
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
        widgets = pick(widgets, request.identifiers);
    }
    if (request.json) {
        printJson(widgets, situation.troubles);
    } else {
        printTable(widgets);
    }
    tellTroubles(situation.troubles);
    const bool isWell = std::all_of(widgets.begin(), widgets.end(),
                                    [](const WidgetStatus& widget) { return widget.plan.faults.empty(); });
    return isWell && situation.troubles.empty() ? ALL_WELL : SOME_WIDGET_WRONG;
}

ExitStatus bringAbout(const Scope& scope, const Request& request)
{
    const Report report = request.dryRun ? foretell(scope) : bringAbout(scope);
    if (request.json) {
        printJson(report);
    } else {
        printLines(report);
    }
    tellTroubles(report.troubles);
    return report.status;
}

ExitStatus showChecks(bool json)
{
    std::vector<Check> checks;
    check([&](const Check& check) {
        if (!json) {
            printLine(check);
        }
        checks.push_back(check);
    });
    if (json) {
        printJson(checks);
    }
    const bool isWell =
        std::all_of(checks.begin(), checks.end(), [](const Check& some) { return some.advice.empty(); });
    return isWell ? ALL_WELL : SOME_WIDGET_WRONG;
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
 * The words of the command line, last one first, as CLI11 takes them. CLI11 splits an identifier such as "[a,b]" into a
 * list unless something follows the bracket, so `status` gets a null character there; `unshielded` removes it.
 */
std::vector<std::string> reversedWords(int argc, const char* const* argv)
{
    std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && words.front() == "status") {
        for (std::string& word : words) {
            if (word.rfind('[', 0) == 0) {
                word += '\0';
            }
        }
    }
    std::reverse(words.begin(), words.end());
    return words;
}

std::string unshielded(const std::string& word)
{
    return word.substr(0, word.find('\0'));
}

/** Adds the options that plug, unplug and heal share. */
CLI::App* addChange(CLI::App& app, const std::string& name, const std::string& description, Request& request)
{
    CLI::App* const command = app.add_subcommand(name, description);
    command->add_flag("--dry-run", request.dryRun, "Only tell what would be done");
    command->add_flag("--json", request.json, "Print JSON");
    return command;
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

    CLI::App* const status = app.add_subcommand("status", "Show what is available, from where, and what is wrong");
    status->add_flag("--json", request.json, "Print JSON");
    status->add_option("IDENTIFIER", request.identifiers, "Only these widgets")->transform(unshielded);

    CLI::App* const plugging = addChange(app, "plug", "Make the widgets on a mounted stick available", request);
    plugging->add_option("MOUNT_POINT", request.mountPoint, "Where the stick is mounted")->required();

    CLI::App* const unplugging = addChange(
        app, "unplug", "Make the widgets from a stick unavailable, whether it is still mounted or not", request);
    unplugging->add_option("MOUNT_POINT", request.mountPoint, "Where the stick is or was mounted")->required();

    CLI::App* const healing = addChange(app, "heal", "Bring into order what 'status' finds wrong", request);

    CLI::App* const adding = app.add_subcommand("add", "Add a widget: its row in the database and its image directory");
    adding->add_option("IDENTIFIER", request.identifier, "Its package identifier")->required();
    adding->add_option("--app", request.application, "Its application identifier")
        ->required()
        ->type_name("APPLICATION");
    adding->add_flag("--on-device", request.onDevice, "Its content is on the television itself, not on USB");

    CLI::App* const removing = app.add_subcommand("remove", "Make a widget unavailable and remove what 'add' made");
    removing->add_option("IDENTIFIER", request.identifier, "Its package identifier")->required();

    CLI::App* const creating = app.add_subcommand("init", "Create the widget database, if there is none");
    creating->add_flag("--replace", request.replace, "Set the database that is there aside");

    CLI::App* const watching = app.add_subcommand("watch", "Tell each widget's state, then each change of it");
    watching->add_flag("--json", request.json, "Print JSON, one object a line");

    CLI::App* const checking = app.add_subcommand("check", "Look at what the programs need, and tell what to do");
    checking->add_flag("--json", request.json, "Print JSON");

    app.parse(reversedWords(argc, argv));
    if (status->parsed()) {
        return showStatus(request);
    }
    if (plugging->parsed()) {
        return bringAbout({Scope::Command::PLUG, stickToPlug(request.mountPoint)}, request);
    }
    if (unplugging->parsed()) {
        return bringAbout({Scope::Command::UNPLUG, stickToUnplug(request.mountPoint)}, request);
    }
    if (healing->parsed()) {
        return bringAbout({Scope::Command::HEAL, ""}, request);
    }
    if (checking->parsed()) {
        return showChecks(request.json);
    }
    if (watching->parsed()) {
        watch(request.json);
        return ALL_WELL;
    }
    if (adding->parsed()) {
        add(request.identifier, request.application, !request.onDevice);
        std::cout << "added " << printable(request.identifier) << '\n';
    } else if (removing->parsed()) {
        ZelmarWidgets::remove(request.identifier);
        std::cout << "removed " << printable(request.identifier) << '\n';
    } else if (creating->parsed()) {
        createDatabase(request.replace);
    } else {
        throw badCommandLine("no command", "see 'zelmar-widgets --help'");
    }
    return ALL_WELL;
}

/** Tells of the failure, as an object too if JSON was asked for. */
ExitStatus fail(const Failure& failure, bool json)
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
    // A reader that went away, and a file that may not grow, must show up as a failed write.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    // Everybody may read what root makes here, and nobody else may write to it.
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
                return fail(badCommandLine(e.what(), "see 'zelmar-widgets --help'"), request.json);
            }
            app.exit(e);  // prints the help or the version
        }
        finishOutput();
        return status;
    } catch (const Failure& e) {
        return fail(e, request.json);
    } catch (const ZelmarDB::RegistryError& e) {
        return fail(registryFailure(e), request.json);
    } catch (const std::exception& e) {
        return fail({COULD_NOT_WORK, Failure::Kind::SYSTEM, e.what(), "remove the cause, then call again"},
                    request.json);
    }
}
