// SPDX-License-Identifier: Apache-2.0

#include "widget_paths.h"

#include <platform/dpl.h>
#include <zelmar_frontend_constants.h>
#include <algorithm>
#include <filesystem>
#include <iterator>

namespace fs = std::filesystem;

namespace ZelmarWidgets {

namespace {

/** Without ".", ".." and doubled slashes. Nearly all paths are like this already, and the library is slow. */
std::string normal(const std::string& path)
{
    const bool isNormal = path.find("//") == std::string::npos && path.find("/.") == std::string::npos;
    return isNormal ? path : fs::path(path).lexically_normal().string();
}

}  // namespace

std::array<std::string, FILE_COUNT> fileNames(const std::string& identifier)
{
    static_assert(std::size(ZelmarFrontend::LINKED_METADATA_FILES) == FILE_COUNT - 1);
    std::array<std::string, FILE_COUNT> names{ZelmarFrontend::imageFileName(identifier)};
    std::copy(std::begin(ZelmarFrontend::LINKED_METADATA_FILES), std::end(ZelmarFrontend::LINKED_METADATA_FILES),
              names.begin() + 1);
    return names;
}

std::string imageDirectory(const std::string& identifier)
{
    return contentDirectory(ZelmarFrontend::INSTALLATION_ROOT, identifier);
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

bool isText(const std::string& name)
{
    try {
        DPL::FromUTF8String(name);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool leadsInto(const std::string& path, const std::string& folder)
{
    const std::string inner = normal(path);
    const std::string outer = normal(folder);
    return !outer.empty() && inner.compare(0, outer.size(), outer) == 0 &&
           (inner.size() == outer.size() || inner[outer.size()] == '/' || outer.back() == '/');
}

}  // namespace ZelmarWidgets
