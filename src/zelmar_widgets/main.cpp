// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <platform/widget_registry.h>
#include <unistd.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "failure.h"
#include "installing.h"
#include "plugging.h"
#include "report.h"
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
std::vector<Widget> pick(const std::vector<Widget>& widgets, const std::vector<std::string>& identifiers)
{
    std::vector<Widget> picked;
    for (const std::string& identifier : identifiers) {
        const auto widget = std::find_if(widgets.begin(), widgets.end(),
                                         [&](const Widget& some) { return some.identifier == identifier; });
        if (widget == widgets.end()) {
            throw unknownWidget(identifier);
        }
        picked.push_back(*widget);
    }
    return picked;
}

ExitStatus showStatus(const Request& request)
{
    std::vector<Widget> widgets = lookAtWidgets(ZelmarDB::registeredWidgets(ZelmarDB::RegistryAccess::READ));
    if (!request.identifiers.empty()) {
        widgets = pick(widgets, request.identifiers);
    }
    if (request.json) {
        printJson(widgets);
    } else {
        printTable(widgets);
    }
    return std::all_of(widgets.begin(), widgets.end(), [](const Widget& widget) { return widget.wrong.empty(); })
               ? ALL_WELL
               : SOME_WIDGET_WRONG;
}

ExitStatus tell(const std::vector<ReportLine>& lines, bool json)
{
    if (json) {
        printJson(lines);
    } else {
        printLines(lines);
    }
    return std::all_of(lines.begin(), lines.end(), [](const ReportLine& line) { return line.advice.empty(); })
               ? ALL_WELL
               : SOME_WIDGET_WRONG;
}

void createDatabase(bool replace)
{
    using ZelmarDB::ExistingRegistry;
    const auto [created, setAside] = init(replace ? ExistingRegistry::REPLACE : ExistingRegistry::KEEP);
    for (const std::string& path : setAside) {
        std::cout << "set aside " << path << '\n';
    }
    std::cout << (created ? "created" : "kept") << " the widget database\n";
}

/** Fills closed standard descriptors, so that no file opened later takes the place of one. */
void fillStandardDescriptors()
{
    int file = 0;
    do {
        file = open("/dev/null", O_RDONLY);
    } while (file >= 0 && file <= STDERR_FILENO);
    close(file);
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

/** Parses the command line and runs its command. Throws what the command throws, and CLI::ParseError. */
ExitStatus run(CLI::App& app, int argc, const char* const* argv)
{
    Request request;
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

    CLI::App* const plugging = app.add_subcommand("plug", "Make the widgets on a mounted stick available");
    plugging->add_flag("--dry-run", request.dryRun, "Only tell which these are");
    plugging->add_flag("--json", request.json, "Print JSON");
    plugging->add_option("MOUNT_POINT", request.mountPoint, "Where the stick is mounted")->required();

    CLI::App* const unplugging =
        app.add_subcommand("unplug", "Make the widgets from a stick unavailable, whether it is still mounted or not");
    unplugging->add_option("MOUNT_POINT", request.mountPoint, "Where the stick is or was mounted")->required();

    CLI::App* const healing = app.add_subcommand("heal", "Bring into order what 'status' finds wrong");

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

    app.parse(reversedWords(argc, argv));
    if (status->parsed()) {
        return showStatus(request);
    }
    if (plugging->parsed()) {
        return tell(plug(request.mountPoint, request.dryRun), request.json);
    }
    if (unplugging->parsed()) {
        return tell(unplug(request.mountPoint), false);
    }
    if (healing->parsed()) {
        return tell(heal(), false);
    }
    if (adding->parsed()) {
        add(request.identifier, request.application, !request.onDevice);
    } else if (removing->parsed()) {
        ZelmarWidgets::remove(request.identifier);
    } else if (creating->parsed()) {
        createDatabase(request.replace);
    } else {
        throw Failure(BAD_COMMAND_LINE, "no command; see 'zelmar-widgets --help'");
    }
    return ALL_WELL;
}

ExitStatus fail(ExitStatus status, const std::string& message)
{
    std::cerr << "zelmar-widgets: " << printable(message) << '\n';
    return status;
}

}  // namespace

int main(int argc, char** argv)
{
    // A reader that went away must show up as a failed write.
    std::signal(SIGPIPE, SIG_IGN);
    fillStandardDescriptors();
    std::ios::sync_with_stdio(false);
    try {
        CLI::App app("Looks after the widgets on USB sticks: what is available, from where, and what is wrong.",
                     "zelmar-widgets");
        ExitStatus status = ALL_WELL;
        try {
            status = run(app, argc, argv);
        } catch (const CLI::ParseError& e) {
            if (e.get_exit_code() != 0) {
                return fail(BAD_COMMAND_LINE, e.what() + std::string("; see 'zelmar-widgets --help'"));
            }
            app.exit(e);  // prints the help or the version
        }
        finishOutput();
        return status;
    } catch (const Failure& e) {
        return fail(e.status(), e.what());
    } catch (const ZelmarDB::RegistryError& e) {
        const Failure failure = registryFailure(e);
        return fail(failure.status(), failure.what());
    } catch (const std::exception& e) {
        return fail(COULD_NOT_WORK, e.what());
    }
}
