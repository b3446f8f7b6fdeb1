#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

namespace ZelmarFrontend {

/** The widget's image directory on the device, the place of its links: /opt/usr/apps/P_img for the identifier P. */
std::string imageDirectory(const std::string& pkgId);

/** The place of the link to the widget's image file: /opt/usr/apps/P_img/P.img for the identifier P. */
std::string imageFileLink(const std::string& pkgId);

/**
 * Replaces `path` by its canonical form, a relative one taken from `base`. False if it leads to nothing that exists;
 * `path` is then empty, not what it was.
 */
bool canonicalizePath(boost::filesystem::path& path, const boost::filesystem::path& base);

/** Removes `path` if it is a symbolic link, dangling or not, and nothing else; a failure is only logged. */
void removeSymlink(const boost::filesystem::path& path);

/** Removes the links that make a widget available, and nothing else from its image directory. */
void removeSymlinks(const std::string& pkgId);

}  // namespace ZelmarFrontend
