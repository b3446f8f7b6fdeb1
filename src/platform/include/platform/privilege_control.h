// SPDX-License-Identifier: Apache-2.0

#pragma once

/**
 * Labels the symbolic link `path`, not what it leads to, for access by the widget `pkg_id`; refuses anything but a
 * link, also what is put in its place meanwhile. The label is the one variadic argument, a C string; 0 is the one
 * `app_path_type` known. Returns 0 if the link has the label, or else a number for perm_strerror.
 */
extern "C" int perm_app_setup_path(const char* pkg_id, const char* path, int app_path_type, ...);

/** Never null, whatever the number. The text belongs to the library and holds until the next call. */
extern "C" const char* perm_strerror(int result);
