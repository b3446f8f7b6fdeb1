// SPDX-License-Identifier: Apache-2.0

#include "zelmar_frontend_common.h"

#include <platform/dpl.h>
#include <platform/zelmar_dao.h>
#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>

#include "log.h"
#include "zelmar_frontend_constants.h"

namespace fs = boost::filesystem;

namespace ZelmarFrontend {

namespace {

/** The identifier as the database's strings carry it: unchanged, or an exception if it is not UTF-8. */
std::string throughDatabaseStrings(const std::string& pkgId)
{
    return DPL::ToUTF8String(DPL::FromUTF8String(pkgId));
}

}  // namespace

std::string imageDirectory(const std::string& pkgId)
{
    return ZelmarDB::KxPathBuilder()
        .Append(INSTALLATION_ROOT)
        .Append(imageDirectoryName(throughDatabaseStrings(pkgId)))
        .GetFullPath();
}

std::string imageFileLink(const std::string& imageDir, const std::string& pkgId)
{
    return ZelmarDB::KxPathBuilder(imageDir).Append(imageFileName(throughDatabaseStrings(pkgId))).GetFullPath();
}

bool canonicalizePath(fs::path& path, const fs::path& base)
{
    ZELMAR_DEBUG("Path to check: %s", path.c_str());
    boost::system::error_code error;
    path = fs::canonical(path, base, error);
    if (error) {
        ZELMAR_DEBUG("Cannot canonicalize current path. Error: %s", error.message().c_str());
        return false;
    }
    return true;
}

void removeSymlink(const fs::path& path)
{
    boost::system::error_code error;
    if (!fs::is_symlink(fs::symlink_status(path, error))) {
        return;
    }
    if (fs::remove(path, error)) {
        ZELMAR_DEBUG("Symlink has been removed: %s", path.c_str());
    } else {
        ZELMAR_DEBUG("Cannot remove symlink: %s, error: %s", path.c_str(), error.message().c_str());
    }
}

void removeSymlinks(const std::string& pkgId)
{
    ZELMAR_DEBUG("Removing symlinks");
    const fs::path imageDir = imageDirectory(pkgId);
    removeSymlink(imageFileLink(imageDirectory(pkgId), pkgId));
    for (const std::string& name : LINKED_METADATA_FILES) {
        removeSymlink(fs::path(imageDir) /= name);
    }
}

}  // namespace ZelmarFrontend
