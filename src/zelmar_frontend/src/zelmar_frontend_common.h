// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

namespace ZelmarFrontend {

/** The widget's image directory, where its links are. Throws std::exception if the identifier is not UTF-8. */
std::string imageDirectory(const std::string& pkgId);

/** Where the link to the image file is. Throws as imageDirectory does. */
std::string imageFileLink(const std::string& imageDir, const std::string& pkgId);

/**
 * Replaces `path` by its canonical form; a relative path is resolved from `base`. If nothing exists there, returns
 * false and makes `path` empty.
 */
bool canonicalizePath(boost::filesystem::path& path, const boost::filesystem::path& base);

/** Removes `path` if it is a symbolic link, dangling or not. A failure is only logged. */
void removeSymlink(const boost::filesystem::path& path);

/** Removes the links that make a widget available, and nothing else from its image directory. */
void removeSymlinks(const std::string& pkgId);

}  // namespace ZelmarFrontend
