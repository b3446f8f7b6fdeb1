// SPDX-License-Identifier: Apache-2.0

#pragma once

// Every source file of the tool includes this header.

#include <string>

namespace ZelmarFrontend {

// Error codes of failed widgets, as the result line carries them.
const std::string ERROR_INSTALL_DIR_NOT_FOUND("Install_Dir_Not_Found");
const std::string ERROR_LOCAL_STORAGE_USED("Local_Storage_Used");
// Misspelt, and kept: programs that read the result line compare it literally.
const std::string ERROR_SYMLINKS_CREATE("Synlinks_Create_Error");
const std::string ERROR_UNKNOWN("Unknown_Error");
const std::string ERROR_WIDGET_IS_NOT_INSTALLED("Widget_Is_Not_Installed");

const std::string INSTALLATION_ROOT("/opt/usr/apps");
const std::string EXTERNAL_STORAGE_ROOT("/opt/storage/usb");

/** The name of a widget's image directory, and of its content directory on the stick. */
inline std::string imageDirectoryName(const std::string& pkgId)
{
    return pkgId + "_img";
}

/** The name of a widget's image file on the stick, and of the link to it. */
inline std::string imageFileName(const std::string& pkgId)
{
    return pkgId + ".img";
}

/** Linked beside a widget's image file, in this order; the links are made and removed by this table alone. */
const std::string LINKED_METADATA_FILES[] = {"widget.info", "config.xml", "config.xml.spm"};

}  // namespace ZelmarFrontend
