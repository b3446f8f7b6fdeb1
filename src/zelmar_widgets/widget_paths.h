// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <string>

// Where a widget's files belong. The functions only build names; they do not look at the disk.
namespace ZelmarWidgets {

/** The image and the three metadata files; the same names serve for the files on a stick and for the links to them. */
constexpr std::size_t FILE_COUNT = 4;
constexpr std::size_t IMAGE = 0;

std::array<std::string, FILE_COUNT> fileNames(const std::string& identifier);

/** /opt/usr/apps/P_img for the identifier P. */
std::string imageDirectory(const std::string& identifier);

/** Where the stick holds the widget's content. */
std::string contentDirectory(const std::string& stick, const std::string& identifier);

/** The reverse: the stick, or an empty string if `directory` is no content directory of this widget. */
std::string stickOf(const std::string& directory, const std::string& identifier);

/** Whether the database can hold the name: only if it is UTF-8. */
bool isText(const std::string& name);

/** Whether `path` is `folder` or lies below it. Neither has to exist. */
bool leadsInto(const std::string& path, const std::string& folder);

}  // namespace ZelmarWidgets
