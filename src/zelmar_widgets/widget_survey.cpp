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
    Surveyor(const Scope& scope, const std::set<std::string>& alsoWanted, Sticks sticks);

    void surveyRow(const RegisteredWidget& row);
    void surveyUnknown(const std::vector<RegisteredWidget>& rows);
    Situation situation();

private:
    bool isWanted(const WidgetFacts& widget) const;
    void surveyLinks(WidgetFacts& widget);
    void surveySticks(WidgetFacts& widget);
    Content contentOn(const std::string& stick, WidgetFacts& widget);
    const std::string& rowStick(const std::string& stick);
    bool isPulled(const std::string& stick);
    mode_t typeOf(const std::string& path, int flags, const std::string& where, WidgetFacts& widget);
    void noteFailure(const std::string& path, const std::string& where, WidgetFacts& widget);

    const Scope& m_scope;
    const std::set<std::string>& m_alsoWanted;
    const Sticks m_sticks;
    const MountedSticks m_mounts;
    std::vector<std::string> m_mounted;
    std::map<std::string, std::string> m_rowSticks;  // by the path of the row
    std::map<std::string, bool> m_pulled;            // by stick
    std::map<std::string, std::string> m_troubles;   // by stick or image directory, the first of each
    std::vector<WidgetFacts> m_widgets;
};

Surveyor::Surveyor(const Scope& scope, const std::set<std::string>& alsoWanted, Sticks sticks)
    : m_scope(scope), m_alsoWanted(alsoWanted), m_sticks(sticks)
{
    for (const std::string& stick : m_mounts.mountPoints()) {
        if (isText(stick)) {
            m_mounted.push_back(stick);
        } else {
            m_troubles[stick] = stick + " is not UTF-8, so the database cannot hold it; mount the stick elsewhere";
        }
    }
}

bool Surveyor::isWanted(const WidgetFacts& widget) const
{
    return isAbout(m_scope, widget) || m_alsoWanted.count(widget.identifier) != 0;
}

/**
 * Records the failure of the system call before it, unless the file is just not there. A file that this user may not
 * read must not count as missing, so the widget is then marked as hidden.
 */
void Surveyor::noteFailure(const std::string& path, const std::string& where, WidgetFacts& widget)
{
    switch (errno) {
        case ENOENT:
        case ENOTDIR:
        case ELOOP:
        case ENAMETOOLONG:
        case EINVAL:  // readlink: it is no link
            return;
        case EACCES:
            widget.hidden |= geteuid() != 0;
            break;
    }
    m_troubles.emplace(where, systemFailure(errno, path).text());
}

/** The file's type, or 0 with a noted failure. A stick that was pulled but is still mounted may fail with any error. */
mode_t Surveyor::typeOf(const std::string& path, int flags, const std::string& where, WidgetFacts& widget)
{
    struct stat status = {};
    if (fstatat(AT_FDCWD, path.c_str(), &status, flags) == 0) {
        return status.st_mode & S_IFMT;
    }
    noteFailure(path, where, widget);
    return 0;
}

void Surveyor::surveyLinks(WidgetFacts& widget)
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

void Surveyor::surveySticks(WidgetFacts& widget)
{
    for (const std::string& stick : candidateSticks(widget, m_scope, m_mounted)) {
        widget.contents.push_back(contentOn(stick, widget));
        // The first stick decides whether a plug is about the widget. If it is not, the others are not looked at.
        if (widget.contents.back().files[IMAGE] || !isWanted(widget)) {
            return;
        }
    }
}

const std::string& Surveyor::rowStick(const std::string& stick)
{
    const auto [entry, isNew] = m_rowSticks.try_emplace(stick);
    if (isNew && !stick.empty()) {
        entry->second = m_sticks == Sticks::LOOK_AT ? resolved(stick) : stick;
    }
    return entry->second;
}

bool Surveyor::isPulled(const std::string& stick)
{
    const auto [entry, isNew] = m_pulled.try_emplace(stick);
    if (isNew) {
        entry->second = m_mounts.isPulled(stick);
    }
    return entry->second;
}

void Surveyor::surveyRow(const RegisteredWidget& row)
{
    WidgetFacts widget;
    widget.identifier = row.identifier;
    widget.application = row.application;
    widget.home = row.installedOnUsb ? Home::STICK : Home::TELEVISION;
    widget.available = row.available;
    widget.storagePath = row.storagePath;
    widget.rowStick = rowStick(stickOf(row.storagePath, row.identifier));
    surveyLinks(widget);
    if (m_sticks == Sticks::LOOK_AT && (m_scope.command == Scope::Command::PLUG || isWanted(widget))) {
        surveySticks(widget);
    }
    if (isWanted(widget)) {
        m_widgets.push_back(std::move(widget));
    }
}

/** Surveys the directories P_img for which no widget P is in the database. */
void Surveyor::surveyUnknown(const std::vector<RegisteredWidget>& rows)
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
        surveyLinks(widget);
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

Situation survey(const Scope& scope, const std::set<std::string>& alsoWanted, ZelmarDB::RegistryAccess access,
                 Sticks sticks)
{
    const std::vector<RegisteredWidget> rows = ZelmarDB::registeredWidgets(access);
    Surveyor surveyor(scope, alsoWanted, sticks);
    std::for_each(rows.begin(), rows.end(), [&](const RegisteredWidget& row) { surveyor.surveyRow(row); });
    if (scope.command != Scope::Command::PLUG && scope.command != Scope::Command::REMOVE) {
        surveyor.surveyUnknown(rows);
    }
    return surveyor.situation();
}

}  // namespace ZelmarWidgets
