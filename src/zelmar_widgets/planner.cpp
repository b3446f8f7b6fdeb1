// SPDX-License-Identifier: Apache-2.0

#include "planner.h"

#include <algorithm>

namespace ZelmarWidgets {

namespace {

using Command = Scope::Command;
using Roots = std::vector<std::string>;
using Targets = std::array<std::string, FILE_COUNT>;  // by fileNames()

/** The widget's content on the stick that it belongs to, or null. */
const Content* contentFor(const WidgetFacts& widget)
{
    const auto found = std::find_if(widget.contents.begin(), widget.contents.end(),
                                    [](const Content& content) { return content.files[IMAGE]; });
    return found == widget.contents.end() ? nullptr : &*found;
}

/**
 * Whether the link leads to a stick: below a root, below the stick of the row, or, wherever the stick was mounted, into
 * a content directory of this widget. Any other link may be the widget's own.
 */
bool leadsToStick(const Link& link, const WidgetFacts& widget, const Roots& roots)
{
    const auto isBelow = [&](const std::string& folder) {
        return leadsInto(link.target, folder);
    };
    const std::string folder = link.target.substr(0, link.target.rfind('/'));
    return std::any_of(roots.begin(), roots.end(), isBelow) || isBelow(widget.rowStick) ||
           (widget.home == Home::STICK && !stickOf(folder, widget.identifier).empty());
}

/** Where each link should lead; empty: there should be none. */
Targets targetsFor(const WidgetFacts& widget, const Content* content)
{
    Targets targets;
    if (content != nullptr) {
        const std::string folder = contentDirectory(content->stick, widget.identifier) + "/";
        const auto names = fileNames(widget.identifier);
        for (std::size_t file = 0; file < FILE_COUNT; ++file) {
            targets[file] = content->files[file] ? folder + names[file] : "";
        }
    }
    return targets;
}

std::vector<std::string> staleLinks(const WidgetFacts& widget, const Targets& targets, const Roots& roots)
{
    std::vector<std::string> names;
    for (std::size_t file = 0; file < FILE_COUNT; ++file) {
        const auto& link = widget.links[file];
        if (link && link->target != targets[file] && leadsToStick(*link, widget, roots)) {
            names.push_back(fileNames(widget.identifier)[file]);
        }
    }
    return names;
}

void addOnce(std::vector<Fault>& faults, Fault fault)
{
    if (std::find(faults.begin(), faults.end(), fault) == faults.end()) {
        faults.push_back(fault);
    }
}

/** The faults of a widget that is available from the stick that it belongs to. */
std::vector<Fault> faultsOfLinks(const WidgetFacts& widget, const Targets& targets, bool hasStaleLinks)
{
    std::vector<Fault> faults;
    for (std::size_t file = 0; file < FILE_COUNT; ++file) {
        const auto& link = widget.links[file];
        if (targets[file].empty()) {
            continue;
        }
        if (!link) {
            addOnce(faults, Fault::LINK_MISSING);
        } else if (link->target != targets[file]) {
            addOnce(faults, Fault::LINK_ELSEWHERE);
        } else if (!link->labelled) {
            addOnce(faults, Fault::LINK_UNLABELLED);
        }
    }
    if (hasStaleLinks) {
        addOnce(faults, Fault::LINK_ELSEWHERE);
    }
    return faults;
}

/** The faults of a widget that is not available from the stick that it belongs to, or that belongs to none. */
std::vector<Fault> faultsOfState(const WidgetFacts& widget, const Scope& scope, const Content* content,
                                 bool hasStaleLinks)
{
    std::vector<Fault> faults;
    const bool isPlugged = content != nullptr && scope.command == Command::PLUG && content->stick == scope.argument;
    if (widget.available && !isPlugged) {
        const bool hasFolder = std::any_of(widget.contents.begin(), widget.contents.end(), [&](const Content& some) {
            return some.stick == widget.rowStick && some.folder;
        });
        faults.push_back(hasFolder ? Fault::NO_IMAGE : Fault::CONTENT_GONE);
    } else if (content != nullptr) {
        faults.push_back(Fault::NOT_PLUGGED);
    }
    if (!widget.available && hasStaleLinks) {
        faults.push_back(Fault::LINK_LEFT);
    }
    return faults;
}

std::vector<Fault> faultsOf(const WidgetFacts& widget, const Scope& scope, const Content* content,
                            const Targets& targets, bool hasStaleLinks)
{
    if (widget.home != Home::STICK) {
        const Fault fault = widget.home == Home::UNKNOWN ? Fault::UNKNOWN_WIDGET : Fault::LINK_LEFT;
        return hasStaleLinks ? std::vector{fault} : std::vector<Fault>();
    }
    if (!widget.hasImageDirectory && scope.command != Command::REMOVE) {
        return {Fault::DIRECTORY_MISSING};
    }
    const bool isAvailableFromIt = widget.available && content != nullptr && content->stick == widget.rowStick;
    return isAvailableFromIt ? faultsOfLinks(widget, targets, hasStaleLinks)
                             : faultsOfState(widget, scope, content, hasStaleLinks);
}

std::vector<Step> stepsFor(const WidgetFacts& widget, const Content* content, bool hasStaleLinks)
{
    if (widget.home != Home::STICK) {
        return {Step::CLEAR_LINKS};
    }
    std::vector<Step> steps;
    if (!widget.hasImageDirectory) {
        steps.push_back(Step::CREATE_DIRECTORY);
    }
    // The tool replaces only links to files that the stick holds. So links to another stick are removed first: no
    // widget may have its image from one stick and its metadata from another.
    if (hasStaleLinks || (widget.available && content == nullptr)) {
        steps.push_back(Step::MAKE_UNAVAILABLE);
    }
    if (content != nullptr) {
        steps.push_back(Step::MAKE_AVAILABLE);
    }
    return steps;
}

}  // namespace

std::string nameOf(Fault fault)
{
    switch (fault) {
        case Fault::LINK_MISSING:
            return "link-missing";
        case Fault::LINK_ELSEWHERE:
            return "link-elsewhere";
        case Fault::LINK_UNLABELLED:
            return "link-unlabelled";
        case Fault::LINK_LEFT:
            return "link-left";
        case Fault::CONTENT_GONE:
            return "content-gone";
        case Fault::NO_IMAGE:
            return "no-image";
        case Fault::NOT_PLUGGED:
            return "not-plugged";
        case Fault::DIRECTORY_MISSING:
            return "directory-missing";
        case Fault::UNKNOWN_WIDGET:
            break;
    }
    return "unknown-widget";
}

std::string namesOf(const std::vector<Fault>& faults)
{
    std::string names;
    for (const Fault fault : faults) {
        names += (names.empty() ? "" : ", ") + nameOf(fault);
    }
    return names;
}

bool isAbout(const Scope& scope, const WidgetFacts& widget)
{
    const auto leadsThere = [&](const std::string& path) {
        return leadsInto(path, scope.argument);
    };
    switch (scope.command) {
        case Command::HEAL:
            return true;
        case Command::REMOVE:
            return widget.identifier == scope.argument;
        case Command::PLUG:
        case Command::UNPLUG:
            break;
    }
    const auto holdsFolder = [&](const Content& content) {
        return content.stick == scope.argument && content.folder;
    };
    return leadsThere(widget.storagePath) || leadsThere(widget.rowStick) ||
           std::any_of(widget.links.begin(), widget.links.end(),
                       [&](const auto& link) { return link && leadsThere(link->target); }) ||
           std::any_of(widget.contents.begin(), widget.contents.end(), holdsFolder);
}

std::vector<std::string> candidateSticks(const WidgetFacts& widget, const Scope& scope,
                                         const std::vector<std::string>& mounted)
{
    std::vector<std::string> sticks;
    if (widget.home != Home::STICK || scope.command == Command::REMOVE) {
        return sticks;
    }
    const auto add = [&](const std::string& stick) {
        const bool isGone = scope.command == Command::UNPLUG && leadsInto(stick, scope.argument);
        if (!stick.empty() && !isGone && std::find(sticks.begin(), sticks.end(), stick) == sticks.end()) {
            sticks.push_back(stick);
        }
    };
    if (scope.command == Command::PLUG) {
        add(scope.argument);
    }
    add(widget.rowStick);
    std::for_each(mounted.begin(), mounted.end(), add);
    return sticks;
}

WidgetPlan planFor(const WidgetFacts& widget, const Scope& scope, const std::vector<std::string>& roots)
{
    const Content* const content = contentFor(widget);
    WidgetPlan plan{widget.identifier, content == nullptr ? "" : content->stick, {}, {}, {}};
    if (widget.hidden) {
        return plan;
    }
    const Targets targets = targetsFor(widget, content);
    plan.staleLinks = staleLinks(widget, targets, roots);
    const bool hasStaleLinks = !plan.staleLinks.empty();
    plan.faults = faultsOf(widget, scope, content, targets, hasStaleLinks);
    if (!plan.faults.empty()) {
        plan.steps = stepsFor(widget, content, hasStaleLinks);
    }
    return plan;
}

}  // namespace ZelmarWidgets
