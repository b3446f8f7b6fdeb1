// SPDX-License-Identifier: Apache-2.0

#include "widget_files.h"

#include <fcntl.h>
#include <platform/widget_registry.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zelmar_frontend_constants.h>
#include <cerrno>
#include <climits>
#include <optional>

#include "failure.h"

namespace ZelmarWidgets {

namespace {

/** To be called after a failed call: without root, what only permissions hide must not be reported as missing. */
void requirePermission(const std::string& path)
{
    if (errno == EACCES && geteuid() != 0) {
        throw systemFailure(errno, path);
    }
}

/** The file's type, or 0 if it cannot be read: a stick that was pulled but is still mounted fails with any error. */
mode_t typeOf(const std::string& path, int flags = 0)
{
    struct stat status = {};
    if (fstatat(AT_FDCWD, path.c_str(), &status, flags) == 0) {
        return status.st_mode & S_IFMT;
    }
    requirePermission(path);
    return 0;
}

std::optional<std::string> readLink(const std::string& path)
{
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    if (length >= 0) {
        return std::string(target, static_cast<std::size_t>(length));
    }
    requirePermission(path);
    return std::nullopt;
}

}  // namespace

std::string imageDirectory(const std::string& identifier)
{
    return ZelmarFrontend::INSTALLATION_ROOT + "/" + ZelmarFrontend::imageDirectoryName(identifier);
}

std::string contentDirectory(const std::string& stick, const std::string& identifier)
{
    return stick + (stick == "/" ? "" : "/") + ZelmarFrontend::imageDirectoryName(identifier);
}

std::string stickOf(const std::string& directory, const std::string& identifier)
{
    const std::string folder = contentDirectory("/", identifier);
    if (directory.size() < folder.size()) {
        return "";
    }
    const std::size_t length = directory.size() - folder.size();
    if (directory.compare(length, folder.size(), folder) != 0) {
        return "";
    }
    return length == 0 ? "/" : directory.substr(0, length);
}

std::string imageName(const std::string& identifier)
{
    return ZelmarFrontend::imageFileName(identifier);
}

std::vector<std::string> linkNames(const std::string& identifier)
{
    std::vector<std::string> names{imageName(identifier)};
    names.insert(names.end(), std::begin(ZelmarFrontend::LINKED_METADATA_FILES),
                 std::end(ZelmarFrontend::LINKED_METADATA_FILES));
    return names;
}

std::vector<Link> linksOf(const std::string& identifier)
{
    std::vector<Link> links;
    for (const std::string& name : linkNames(identifier)) {
        const std::string link = imageDirectory(identifier) + "/" + name;
        if (const auto target = readLink(link)) {
            links.push_back({name, *target, ZelmarDB::isLabelled(link)});
        }
    }
    return links;
}

bool isDirectory(const std::string& path)
{
    return S_ISDIR(typeOf(path));
}

bool isFile(const std::string& path)
{
    return S_ISREG(typeOf(path));
}

bool isOnStick(const std::string& stick, const std::string& identifier)
{
    return S_ISDIR(typeOf(contentDirectory(stick, identifier), AT_SYMLINK_NOFOLLOW));
}

bool hasImageOnStick(const std::string& stick, const std::string& identifier)
{
    return isOnStick(stick, identifier) && isFile(contentDirectory(stick, identifier) + "/" + imageName(identifier));
}

}  // namespace ZelmarWidgets
