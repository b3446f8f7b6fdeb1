// SPDX-License-Identifier: Apache-2.0

#include "plugging.h"

#include <platform/widget_registry.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <thread>

#include "failure.h"
#include "front_end.h"
#include "instance_lock.h"
#include "mounted_sticks.h"
#include "widget_files.h"
#include "widget_survey.h"

namespace fs = std::filesystem;

namespace ZelmarWidgets {

namespace {

// At most this many passes of one plug while mounts keep changing.
constexpr int MAX_PASSES = 10;

using ZelmarDB::RegisteredWidget;
using ZelmarDB::registeredWidgets;
using ZelmarDB::RegistryAccess;
using Identifiers = std::vector<std::string>;

/** By identifier; the last line for a widget counts. */
using Report = std::map<std::string, ReportLine>;

std::vector<ReportLine> inOrder(const Report& report)
{
    std::vector<ReportLine> list;
    for (const auto& [identifier, line] : report) {
        list.push_back(line);
    }
    return list;
}

/** Whether the widget has a link that make-available would not replace, or that leads to another stick. */
bool leadsElsewhere(const std::string& identifier, const std::string& stick)
{
    const std::vector<Link> links = linksOf(identifier);
    return std::any_of(links.begin(), links.end(), [&](const Link& link) {
        const std::string target = contentDirectory(stick, identifier) + "/" + link.name;
        return link.target != target || !isFile(target);
    });
}

void unplugAll(const Identifiers& identifiers, Report& report)
{
    for (const auto& [identifier, code] : makeUnavailable(identifiers)) {
        report[identifier] = {identifier, code.empty() ? "unavailable" : "failed",
                              causeOf(code, imageDirectory(identifier)), code};
    }
}

void plugAll(const std::string& stick, const Identifiers& identifiers, Report& report)
{
    // What another stick left goes first: no widget has its image from one stick and its metadata from another.
    Identifiers mixed;
    std::copy_if(identifiers.begin(), identifiers.end(), std::back_inserter(mixed),
                 [&](const std::string& identifier) { return leadsElsewhere(identifier, stick); });
    makeUnavailable(mixed);

    Identifiers failed;
    for (const auto& [identifier, code] : makeAvailable(stick, identifiers)) {
        if (!code.empty()) {
            report[identifier] = {identifier, "failed", causeOf(code, imageDirectory(identifier)), code};
            failed.push_back(identifier);
            continue;
        }
        report[identifier] = {identifier, "available", "", "", stick};
        if (!hasImageOnStick(stick, identifier)) {
            report[identifier].advice =
                contentDirectory(stick, identifier) + " holds no image; copy it there, then plug again";
        }
    }
    // The tool undid only its own changes: a widget that was available before is still marked so.
    makeUnavailable(failed);
}

/** The argument as the tool records it. It may lead to nothing any more. */
std::string canonical(const std::string& mountPoint)
{
    std::error_code error;
    fs::path path = fs::weakly_canonical(fs::absolute(mountPoint, error), error);
    if (error) {
        path = fs::absolute(mountPoint, error).lexically_normal();
    }
    if (error || path.empty()) {
        throw Failure(BAD_COMMAND_LINE, "no mount point: '" + mountPoint + "'; name a directory");
    }
    return path.has_filename() ? path : path.parent_path();
}

/** The database's widgets on USB that have their folder on the stick. */
Identifiers heldBy(const std::string& stick, RegistryAccess access)
{
    Identifiers held;
    for (const RegisteredWidget& row : registeredWidgets(access)) {
        if (row.installedOnUsb && isOnStick(stick, row.identifier)) {
            held.push_back(row.identifier);
        }
    }
    return held;
}

bool isMounted(const std::string& stick)
{
    const std::vector<std::string> sticks = mountedSticks();
    return std::find(sticks.begin(), sticks.end(), stick) != sticks.end();
}

/** Whether the widget's row or one of its links leads to the stick. */
bool leadsToStick(const RegisteredWidget& row, const std::string& stick)
{
    const std::vector<Link> links = linksOf(row.identifier);
    return (!row.storagePath.empty() && leadsInto(row.storagePath, stick)) ||
           std::any_of(links.begin(), links.end(), [&](const Link& link) { return leadsInto(link.target, stick); });
}

/** The first of the sticks that holds the widget's image; empty: none. */
std::string stickWithImage(const std::vector<std::string>& sticks, const std::string& identifier)
{
    const auto stick = std::find_if(sticks.begin(), sticks.end(),
                                    [&](const std::string& some) { return hasImageOnStick(some, identifier); });
    return stick == sticks.end() ? "" : *stick;
}

/**
 * Removes the links to sticks of a widget that the database does not know, or whose content is on the television. Not
 * through the tool: it refuses an unknown widget, and would remove the other's links to elsewhere, too.
 */
ReportLine clearLinks(const Widget& widget)
{
    for (const Link& link : widget.links) {
        const std::string path = imageDirectory(widget.identifier) + "/" + link.name;
        if (unlink(path.c_str()) != 0) {
            return {widget.identifier, "failed", systemFailure(errno, path).what()};
        }
    }
    return {widget.identifier, "cleared"};
}

}  // namespace

std::vector<ReportLine> plug(const std::string& mountPoint, bool dryRun)
{
    std::optional<InstanceLock> lock;
    if (!dryRun) {
        lock.emplace();
    }
    if (!isDirectory(mountPoint)) {
        throw Failure(BAD_COMMAND_LINE, "no directory: '" + mountPoint + "'; name the one where the stick is mounted");
    }
    const std::string stick = canonical(mountPoint);
    Report report;
    if (dryRun) {
        for (const std::string& identifier : heldBy(stick, RegistryAccess::READ)) {
            report[identifier] = {identifier, "planned"};
        }
        return inOrder(report);
    }
    // A loose contact may unmount and mount the stick again unseen: systemd looks at the mounts at most once a second.
    // So this repeats while mounts change. If systemd does see the stick gone, it ends this process.
    const MountWatch mounts;
    for (int pass = 1; pass <= MAX_PASSES; ++pass) {
        const Identifiers held = heldBy(stick, RegistryAccess::CHANGE);
        plugAll(stick, held, report);
        const bool cameTooLate = pass == 1 && held.empty() && !isMounted(stick);
        if (!mounts.changed() && !cameTooLate) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    return inOrder(report);
}

std::vector<ReportLine> unplug(const std::string& mountPoint)
{
    const InstanceLock lock;
    const std::string stick = canonical(mountPoint);
    std::vector<std::string> others;
    for (const std::string& mounted : mountedSticks()) {
        if (!leadsInto(mounted, stick)) {
            others.push_back(mounted);
        }
    }
    Identifiers leaving;
    std::map<std::string, Identifiers> toPlug;
    for (const RegisteredWidget& row : registeredWidgets(RegistryAccess::CHANGE)) {
        if (!leadsToStick(row, stick)) {
            continue;
        }
        leaving.push_back(row.identifier);
        const std::string other = row.installedOnUsb ? stickWithImage(others, row.identifier) : "";
        if (!other.empty()) {
            toPlug[other].push_back(row.identifier);
        }
    }
    Report report;
    unplugAll(leaving, report);
    for (const auto& [other, identifiers] : toPlug) {
        plugAll(other, identifiers, report);
    }
    return inOrder(report);
}

std::vector<ReportLine> heal()
{
    const InstanceLock lock;
    const std::vector<std::string> sticks = mountedSticks();
    Identifiers toUnplug;
    std::map<std::string, Identifiers> toPlug;
    Report report;
    for (const Widget& widget : lookAtWidgets(registeredWidgets(RegistryAccess::CHANGE))) {
        if (widget.wrong.empty()) {
            continue;
        }
        if (widget.state == State::UNKNOWN || widget.state == State::ON_DEVICE) {
            report[widget.identifier] = clearLinks(widget);
            continue;
        }
        // The image directory of a widget on USB holds nothing but links.
        const std::string directory = imageDirectory(widget.identifier);
        std::error_code error;
        fs::create_directories(directory, error);
        if (!isDirectory(directory)) {
            report[widget.identifier] = {widget.identifier, "failed", systemFailure(error.value(), directory).what()};
            continue;
        }
        const bool fromSame = !widget.stick.empty() && hasImageOnStick(widget.stick, widget.identifier);
        const std::string stick = fromSame ? widget.stick : stickWithImage(sticks, widget.identifier);
        (stick.empty() ? toUnplug : toPlug[stick]).push_back(widget.identifier);
    }
    unplugAll(toUnplug, report);
    for (const auto& [stick, identifiers] : toPlug) {
        plugAll(stick, identifiers, report);
    }

    for (const Widget& widget : lookAtWidgets(registeredWidgets(RegistryAccess::CHANGE))) {
        if (!widget.wrong.empty() && report[widget.identifier].advice.empty()) {
            report[widget.identifier] = {widget.identifier, "failed",
                                         "it is still " + joined(widget.wrong) + "; see what stands in " +
                                             imageDirectory(widget.identifier) + ", or install it again"};
        }
    }
    return inOrder(report);
}

}  // namespace ZelmarWidgets
