// SPDX-License-Identifier: Apache-2.0

#pragma once

/**
 * Labels the symbolic link `path` itself, not its target, for access by the widget `pkg_id`. Refuses anything but a
 * link, also a file that takes the place of the link during the call. The label is the one variadic argument, a C
 * string. The only `app_path_type` known is 0. Returns 0 if the link has the label, else a number for perm_strerror.
 */
extern "C" int perm_app_setup_path(const char* pkg_id, const char* path, int app_path_type, ...);

/** A text for any number, never null. It belongs to the library and is valid until the next call. */
extern "C" const char* perm_strerror(int result);
