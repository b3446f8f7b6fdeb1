// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

namespace ZelmarWidgets {

/** A link that makes a widget available: one of the four names in its image directory. */
struct Link {
    std::string name;
    std::string target;
    bool labelled;
};

/** /opt/usr/apps/P_img for the identifier P. */
std::string imageDirectory(const std::string& identifier);

/** Where the stick holds the widget's content. */
std::string contentDirectory(const std::string& stick, const std::string& identifier);

/** The reverse: the stick, or an empty string if `directory` is no content directory of this widget. */
std::string stickOf(const std::string& directory, const std::string& identifier);

/** Of the file on the stick, and of the link to it. */
std::string imageName(const std::string& identifier);

/** The image, then the metadata. */
std::vector<std::string> linkNames(const std::string& identifier);

/** The widget's links that exist, with target and label. */
std::vector<Link> linksOf(const std::string& identifier);

/** Links are followed. These throw Failure where permission to look is missing. */
bool isDirectory(const std::string& path);
bool isFile(const std::string& path);

/** Whether the stick holds the widget's folder; a link to a folder does not count. */
bool isOnStick(const std::string& stick, const std::string& identifier);

/** Whether that folder also holds the image, without which the widget cannot be launched. */
bool hasImageOnStick(const std::string& stick, const std::string& identifier);

}  // namespace ZelmarWidgets
