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

/** The name of the image file and link, then those of the metadata. */
std::vector<std::string> linkNames(const std::string& identifier);

/** Those that stand. */
std::vector<Link> linksOf(const std::string& identifier);

/** Links are followed. These throw Failure where permission to look is missing. */
bool isDirectory(const std::string& path);
bool isFile(const std::string& path);

/** A folder of the widget on the stick; a link is none, wherever it leads. */
bool isOnStick(const std::string& stick, const std::string& identifier);

/** And with an image in it, without which the widget cannot be launched. */
bool hasImageOnStick(const std::string& stick, const std::string& identifier);

}  // namespace ZelmarWidgets
