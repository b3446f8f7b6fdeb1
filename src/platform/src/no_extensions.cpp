// SPDX-License-Identifier: Apache-2.0

/**
 * Replaces dlopen in a static program, which could not load SQLite's extensions anyway; no code here loads one. Without
 * this, the linker would warn of each reference to dlopen in the C library.
 */
extern "C" void* __wrap_dlopen(const char*, int)
{
    return nullptr;
}
