// SPDX-License-Identifier: Apache-2.0

#include "widget_survey.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zelmar_frontend_constants.h>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <map>
#include <unordered_set>

#include "failure.h"
#include "mounted_sticks.h"

namespace fs = std::filesystem;

namespace ZelmarWidgets {

namespace {

using ZelmarDB::RegisteredWidget;
using ZelmarFrontend::INSTALLATION_ROOT;

/** The stick that the path leads to, with links resolved as far as it still exists. */
std::string resolved(const std::string& stick)
{
    std::error_code error;
    const fs::path path = fs::weakly_canonical(stick, error);
    return error ? stick : path.string();
}

class Surveyor {
public:
    Surveyor(const Scope& scope, const std::set<std::string>& also, Sticks sticks);

    void lookAtRow(const RegisteredWidget& row);
    void lookAtUnknown(const std::vector<RegisteredWidget>& rows);
    Situation situation();

private:
    bool isWanted(const WidgetFacts& widget) const;
    void lookAtLinks(WidgetFacts& widget);
    void lookAtSticks(WidgetFacts& widget);
    Content contentOn(const std::string& stick, WidgetFacts& widget);
    const std::string& rowStick(const std::string& stick);
    bool isPulled(const std::string& stick);
    mode_t typeOf(const std::string& path, int flags, const std::string& where, WidgetFacts& widget);
    void noteFailure(const std::string& path, const std::string& where, WidgetFacts& widget);

    const Scope& m_scope;
    const std::set<std::string>& m_also;
    const Sticks m_sticks;
    const MountedSticks m_mounts;
    std::vector<std::string> m_mounted;
    std::map<std::string, std::string> m_rowSticks;  // by the path of the row
    std::map<std::string, bool> m_pulled;            // by stick
    std::map<std::string, std::string> m_troubles;   // by stick or image directory, the first of each
    std::vector<WidgetFacts> m_widgets;
};

Surveyor::Surveyor(const Scope& scope, const std::set<std::string>& also, Sticks sticks)
    : m_scope(scope), m_also(also), m_sticks(sticks)
{
    for (const std::string& stick : m_mounts.mounted()) {
        if (isText(stick)) {
            m_mounted.push_back(stick);
        } else {
            m_troubles[stick] = stick + " is not UTF-8, so the database cannot hold it; mount the stick elsewhere";
        }
    }
}

bool Surveyor::isWanted(const WidgetFacts& widget) const
{
    return isAbout(m_scope, widget) || m_also.count(widget.identifier) != 0;
}

/** To be called after a failed call. What only permissions hide must not be told as missing. */
void Surveyor::noteFailure(const std::string& path, const std::string& where, WidgetFacts& widget)
{
    switch (errno) {
        case ENOENT:
        case ENOTDIR:
        case ELOOP:
        case ENAMETOOLONG:
        case EINVAL:  // what readlink says of anything but a link
            return;
        case EACCES:
            widget.hidden |= geteuid() != 0;
            break;
    }
    m_troubles.emplace(where, systemFailure(errno, path).text());
}

/** The file's type, or 0 if it cannot be read: a stick that was pulled but is still mounted fails with any error. */
mode_t Surveyor::typeOf(const std::string& path, int flags, const std::string& where, WidgetFacts& widget)
{
    struct stat status = {};
    if (fstatat(AT_FDCWD, path.c_str(), &status, flags) == 0) {
        return status.st_mode & S_IFMT;
    }
    noteFailure(path, where, widget);
    return 0;
}

void Surveyor::lookAtLinks(WidgetFacts& widget)
{
    const std::string directory = imageDirectory(widget.identifier);
    const auto names = fileNames(widget.identifier);
    bool hasLink = false;
    for (std::size_t file = 0; file < FILE_COUNT; ++file) {
        const std::string link = directory + "/" + names[file];
        char target[PATH_MAX];
        const ssize_t length = readlink(link.c_str(), target, sizeof target);
        if (length >= 0) {
            widget.links[file] = {std::string(target, static_cast<std::size_t>(length)), ZelmarDB::isLabelled(link)};
            hasLink = true;
        } else {
            noteFailure(link, directory, widget);
        }
    }
    widget.hasImageDirectory = hasLink || S_ISDIR(typeOf(directory, 0, directory, widget));
}

Content Surveyor::contentOn(const std::string& stick, WidgetFacts& widget)
{
    Content content{stick};
    if (isPulled(stick)) {
        return content;
    }
    const std::string folder = contentDirectory(stick, widget.identifier);
    // A link to a folder does not count: it may lead out of the stick.
    content.folder = S_ISDIR(typeOf(folder, AT_SYMLINK_NOFOLLOW, stick, widget));
    if (content.folder) {
        const auto names = fileNames(widget.identifier);
        for (std::size_t file = 0; file < FILE_COUNT; ++file) {
            content.files[file] = S_ISREG(typeOf(folder + "/" + names[file], 0, stick, widget));
        }
    }
    return content;
}

void Surveyor::lookAtSticks(WidgetFacts& widget)
{
    for (const std::string& stick : candidates(widget, m_scope, m_mounted)) {
        widget.contents.push_back(contentOn(stick, widget));
        // Whether a plug is about the widget, its own stick says, which is the first. No other is asked for nothing.
        if (widget.contents.back().files[IMAGE] || !isWanted(widget)) {
            return;
        }
    }
}

const std::string& Surveyor::rowStick(const std::string& stick)
{
    const auto [place, isNew] = m_rowSticks.try_emplace(stick);
    if (isNew && !stick.empty()) {
        place->second = m_sticks == Sticks::LOOK_AT ? resolved(stick) : stick;
    }
    return place->second;
}

bool Surveyor::isPulled(const std::string& stick)
{
    const auto [place, isNew] = m_pulled.try_emplace(stick);
    if (isNew) {
        place->second = m_mounts.isPulled(stick);
    }
    return place->second;
}

void Surveyor::lookAtRow(const RegisteredWidget& row)
{
    WidgetFacts widget;
    widget.identifier = row.identifier;
    widget.application = row.application;
    widget.home = row.installedOnUsb ? Home::STICK : Home::TELEVISION;
    widget.available = row.available;
    widget.storagePath = row.storagePath;
    widget.rowStick = rowStick(stickOf(row.storagePath, row.identifier));
    lookAtLinks(widget);
    if (m_sticks == Sticks::LOOK_AT && (m_scope.command == Scope::Command::PLUG || isWanted(widget))) {
        lookAtSticks(widget);
    }
    if (isWanted(widget)) {
        m_widgets.push_back(std::move(widget));
    }
}

/** The directories P_img whose P has no row in the database. */
void Surveyor::lookAtUnknown(const std::vector<RegisteredWidget>& rows)
{
    std::unordered_set<std::string> known;
    for (const RegisteredWidget& row : rows) {
        known.insert(row.identifier);
    }
    std::set<std::string> identifiers;
    std::error_code error;
    for (fs::directory_iterator entry(INSTALLATION_ROOT, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        const std::string stem = name.substr(0, name.rfind(ZelmarFrontend::imageDirectoryName("")));
        std::error_code unreadable;
        if (imageDirectory(stem) == entry->path() && known.count(stem) == 0 &&
            fs::is_directory(entry->symlink_status(unreadable))) {
            identifiers.insert(stem);
        }
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        m_troubles.emplace(INSTALLATION_ROOT, systemFailure(error.value(), INSTALLATION_ROOT).text());
    }
    for (const std::string& identifier : identifiers) {
        WidgetFacts widget;
        widget.identifier = identifier;
        widget.home = Home::UNKNOWN;
        lookAtLinks(widget);
        if (isWanted(widget)) {
            m_widgets.push_back(std::move(widget));
        }
    }
}

Situation Surveyor::situation()
{
    Situation situation{std::move(m_widgets), m_mounts.roots(), {}};
    for (const auto& [where, trouble] : m_troubles) {
        situation.troubles.push_back(trouble);
    }
    return situation;
}

}  // namespace

Situation survey(const Scope& scope, const std::set<std::string>& also, ZelmarDB::RegistryAccess access, Sticks sticks)
{
    const std::vector<RegisteredWidget> rows = ZelmarDB::registeredWidgets(access);
    Surveyor surveyor(scope, also, sticks);
    std::for_each(rows.begin(), rows.end(), [&](const RegisteredWidget& row) { surveyor.lookAtRow(row); });
    if (scope.command != Scope::Command::PLUG && scope.command != Scope::Command::REMOVE) {
        surveyor.lookAtUnknown(rows);
    }
    return surveyor.situation();
}

}  // namespace ZelmarWidgets
