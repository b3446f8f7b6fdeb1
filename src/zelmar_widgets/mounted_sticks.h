#pragma once

#include <string>
#include <vector>

namespace ZelmarWidgets {

/** What is mounted below /opt/storage/usb, the latest first. */
std::vector<std::string> mountedSticks();

/** Whether `path` is `folder` or lies below it, by their components alone: neither has to exist. */
bool leadsInto(const std::string& path, const std::string& folder);

}  // namespace ZelmarWidgets
