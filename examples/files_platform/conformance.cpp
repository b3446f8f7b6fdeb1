// SPDX-License-Identifier: Apache-2.0

#include "conformance.h"

#include <sys/xattr.h>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace Conformance {

namespace {

const fs::path WIDGETS = "/opt/usr/zelmar/widgets";

fs::path widgetOf(const std::string& tizenAppId)
{
    for (const fs::directory_entry& widget : fs::directory_iterator(WIDGETS)) {
        if (fs::read_symlink(widget.path() / "application") == '=' + tizenAppId) {
            return widget;
        }
    }
    throw std::runtime_error("no widget has the application " + tizenAppId);
}

}  // namespace

void makeDatabase()
{
    fs::remove_all(WIDGETS);
    fs::create_directories(WIDGETS);
}

bool removeDatabase()
{
    return fs::remove_all(WIDGETS) > 0;
}

void makeEmptyFile()
{
    fs::remove_all(WIDGETS);
    std::ofstream{WIDGETS};
}

void breakDatabase()
{
    fs::rename(WIDGETS, "/opt/usr/zelmar/elsewhere");
}

std::shared_ptr<void> lockDatabase()
{
    return nullptr;
}

void putWidget(const std::string& tizenAppId, const std::string& kxAppId, bool installedOnUsb)
{
    static int handle = 0;
    const fs::path widget = WIDGETS / std::to_string(handle++);
    fs::create_directory(widget);
    fs::create_symlink('=' + tizenAppId, widget / "application");
    if (!kxAppId.empty()) {
        fs::create_symlink('=' + kxAppId, widget / "identifier");
    }
    if (installedOnUsb) {
        fs::create_symlink("=", widget / "on-usb");
    }
}

State readWidget(const std::string& tizenAppId)
{
    const fs::path widget = widgetOf(tizenAppId), path = widget / "storage-path";
    const bool available = fs::is_symlink(widget / "available");
    return {available,
            fs::is_symlink(path) ? boost::make_optional(fs::read_symlink(path).native().substr(1)) : boost::none};
}

std::string labelOf(const std::string& path)
{
    char label[100];
    const ssize_t size = lgetxattr(path.c_str(), "security.zelmar", label, sizeof label);
    return std::string(label, size < 0 ? 0 : static_cast<size_t>(size));
}

std::string takeLog()
{
    static std::streamoff taken = 0;
    std::ifstream log("/run/zelmar.log");
    log.seekg(taken);
    std::string lines(std::istreambuf_iterator<char>(log), {});
    taken += static_cast<std::streamoff>(lines.size());
    return lines;
}

}  // namespace Conformance
