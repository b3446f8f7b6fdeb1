// SPDX-License-Identifier: Apache-2.0

#include "widget_survey.h"

#include <zelmar_frontend_constants.h>
#include <algorithm>
#include <filesystem>
#include <unordered_set>

#include "failure.h"
#include "mounted_sticks.h"

namespace fs = std::filesystem;

namespace ZelmarWidgets {

namespace {

using ZelmarDB::RegisteredWidget;
using ZelmarFrontend::EXTERNAL_STORAGE_ROOT;
using ZelmarFrontend::INSTALLATION_ROOT;

void addOnce(std::vector<std::string>& words, const std::string& word)
{
    if (std::find(words.begin(), words.end(), word) == words.end()) {
        words.push_back(word);
    }
}

/** For a widget that is not on USB, or not in the database: its links to sticks only. Any other may be its own. */
std::vector<Link> linksToSticks(const std::string& identifier)
{
    std::vector<Link> links = linksOf(identifier);
    links.erase(std::remove_if(links.begin(), links.end(),
                               [](const Link& link) { return !leadsInto(link.target, EXTERNAL_STORAGE_ROOT); }),
                links.end());
    return links;
}

std::string stickOfLinks(const Widget& widget)
{
    return widget.links.empty() ? "" : stickOf(fs::path(widget.links.front().target).parent_path(), widget.identifier);
}

/** Compares the links of an available widget with its content. */
std::vector<std::string> faultsOfLinks(const Widget& widget, const std::string& content)
{
    std::vector<std::string> faults;
    if (!isDirectory(content)) {
        return {CONTENT_GONE};
    }
    const bool hasImage = isFile(content + "/" + imageName(widget.identifier));
    if (!hasImage) {
        faults.push_back(NO_IMAGE);
    }
    for (const std::string& name : linkNames(widget.identifier)) {
        const std::string target = fs::path(content) / name;
        const bool needed = hasImage && isFile(target);
        const auto link = std::find_if(widget.links.begin(), widget.links.end(),
                                       [&](const Link& candidate) { return candidate.name == name; });
        if (link == widget.links.end()) {
            if (needed) {
                addOnce(faults, LINK_MISSING);
            }
            continue;
        }
        if (!needed || link->target != target) {
            addOnce(faults, LINK_ELSEWHERE);
        }
        if (!link->labelled) {
            addOnce(faults, LINK_UNLABELLED);
        }
    }
    return faults;
}

Widget lookAt(const RegisteredWidget& row)
{
    Widget widget{row.identifier, State::ON_DEVICE, "", {}, {}};
    if (row.installedOnUsb) {
        widget.state = row.available ? State::AVAILABLE : State::UNAVAILABLE;
        widget.links = linksOf(row.identifier);
    } else {
        widget.links = linksToSticks(row.identifier);
    }
    widget.stick = stickOf(row.storagePath, row.identifier);
    if (widget.stick.empty()) {
        widget.stick = stickOfLinks(widget);
    }

    if (!isDirectory(imageDirectory(row.identifier))) {
        widget.wrong = {DIRECTORY_MISSING};
    } else if (widget.state == State::AVAILABLE) {
        widget.wrong = faultsOfLinks(widget, row.storagePath);
    } else if (!widget.links.empty()) {
        widget.wrong = {LINK_LEFT};
    }
    return widget;
}

/** The identifiers P of the directories P_img that have no row in the database. */
std::vector<std::string> strangers(const std::vector<RegisteredWidget>& rows)
{
    std::unordered_set<std::string> known;
    for (const RegisteredWidget& row : rows) {
        known.insert(row.identifier);
    }
    std::vector<std::string> identifiers;
    std::error_code error;
    for (fs::directory_iterator entry(INSTALLATION_ROOT, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        const std::string identifier = name.substr(0, name.rfind("_img"));
        std::error_code unreadable;
        if (imageDirectory(identifier) == entry->path() && known.count(identifier) == 0 &&
            fs::is_directory(entry->symlink_status(unreadable))) {
            identifiers.push_back(identifier);
        }
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        throw systemFailure(error.value(), INSTALLATION_ROOT);
    }
    std::sort(identifiers.begin(), identifiers.end());
    return identifiers;
}

}  // namespace

std::vector<Widget> lookAtWidgets(const std::vector<RegisteredWidget>& rows)
{
    std::vector<Widget> widgets;
    widgets.reserve(rows.size());
    for (const RegisteredWidget& row : rows) {
        widgets.push_back(lookAt(row));
    }
    for (const std::string& identifier : strangers(rows)) {
        Widget widget{identifier, State::UNKNOWN, "", linksToSticks(identifier), {UNKNOWN_WIDGET}};
        if (!widget.links.empty()) {
            widget.stick = stickOfLinks(widget);
            widgets.push_back(widget);
        }
    }
    return widgets;
}

std::string joined(const std::vector<std::string>& words)
{
    std::string list;
    for (const std::string& word : words) {
        list += (list.empty() ? "" : ", ") + word;
    }
    return list;
}

}  // namespace ZelmarWidgets
