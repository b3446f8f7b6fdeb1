// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <stdexcept>
#include <string>
#include <vector>

// The widget database as a whole, for programs that administer it. Optional: the tool does without, `zelmar-widgets`
// does not.
namespace ZelmarDB {

/** Says for people what failed on what. `error` is the system's number for it, or 0 if it has none. */
class RegistryError : public std::runtime_error {
public:
    RegistryError(const std::string& message, int error) : std::runtime_error(message), m_error(error) {}

    int error() const noexcept { return m_error; }

private:
    int m_error;
};

struct RegisteredWidget {
    std::string identifier;
    bool installedOnUsb;
    bool available;
    std::string storagePath;  // empty: none
};

enum class RegistryAccess { READ, CHANGE };

/**
 * All widgets with an identifier that a command line can name, sorted by it. Whoever may read the database may ask for
 * READ; CHANGE fails where the database cannot be changed. Throws RegistryError, as all of these do: ENOENT if there is
 * no database, EBUSY if another process has held it too long.
 */
std::vector<RegisteredWidget> registeredWidgets(RegistryAccess access);

/** EEXIST: another widget has the identifier or the application. The widget is on the disk when this returns. */
void registerWidget(const std::string& identifier, const std::string& application, bool onUsb);

/** The widget is gone from the disk when this returns; an unknown one is no failure. */
void unregisterWidget(const std::string& identifier);

/** Creates the database, whole or not at all; one that is there stays as it is. */
void createRegistry();

}  // namespace ZelmarDB
