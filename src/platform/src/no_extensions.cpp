// SPDX-License-Identifier: Apache-2.0

/**
 * Stands in for dlopen in a static program, which could not load SQLite's extensions anyway; nothing here asks for one.
 * The linker would warn of each reference to the C library's own.
 */
extern "C" void* __wrap_dlopen(const char*, int)
{
    return nullptr;
}
