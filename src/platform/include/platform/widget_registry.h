// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// The widget database as a whole, and the labels of links, for programs that administer them. Optional: the tool does
// without, `zelmar-widgets` does not.
namespace ZelmarDB {

/** Why the database cannot be used: what to do about it depends on this alone. */
enum class RegistryFault {
    MISSING,        // nothing is in the database's place
    FORBIDDEN,      // for this user
    READ_ONLY,      // for everybody
    HELD,           // by another process, for too long
    EXHAUSTED,      // no memory or no file descriptor left
    INPUT_OUTPUT,   // the disk does not read or write
    FULL,           // the disk has no room
    OLDER_VERSION,  // than this program's
    NEWER_VERSION,
    FOREIGN,  // no widget database
    DAMAGED,  // one, but it cannot be read any more
    TAKEN,    // another widget has the identifier or the application
};

/** Says for people what failed on what. */
class RegistryError : public std::runtime_error {
public:
    RegistryError(RegistryFault fault, const std::string& message) : std::runtime_error(message), m_fault(fault) {}

    RegistryFault fault() const noexcept { return m_fault; }

private:
    RegistryFault m_fault;
};

struct RegisteredWidget {
    std::string identifier;
    std::string application;
    bool installedOnUsb;
    bool available;
    std::string storagePath;  // empty: none
};

enum class RegistryAccess { READ, CHANGE };

/**
 * All widgets with an identifier that a command line can name, sorted by it. Whoever may read the database may ask for
 * READ; CHANGE fails where the database cannot be changed. Throws RegistryError, as all of these do.
 */
std::vector<RegisteredWidget> registeredWidgets(RegistryAccess access);

/** TAKEN: another widget has the identifier or the application. The widget is on the disk when this returns. */
void registerWidget(const std::string& identifier, const std::string& application, bool onUsb);

/** The widget is gone from the disk when this returns; an unknown one is no failure. */
void unregisterWidget(const std::string& identifier);

enum class ExistingRegistry { KEEP, REPLACE };

/** `created` is false if a database was there and is kept; `setAside` are the files moved away, whole paths. */
struct RegistryCreation {
    bool created;
    std::vector<std::string> setAside;
};

/**
 * Creates the database, whole or not at all. One that is there is set aside, or is kept and found to be sound.
 * What is left of one that is gone, and would spoil the new one, is always set aside.
 */
RegistryCreation createRegistry(ExistingRegistry existing);

/** Whether the link itself surely carries "_", the label that the tool gives to links. Throws nothing. */
bool isLabelled(const std::string& link);

/** Tells of changes to the database by whomever, without polling. */
class RegistryWatch {
public:
    virtual ~RegistryWatch() = default;
    /** Becomes readable when the database may have changed, appeared or been replaced since the last reset(). */
    virtual int descriptor() const = 0;
    /** To be called before the database is read: what changes from here on is told anew. */
    virtual void reset() = 0;
};

/** Null: this platform cannot tell of changes. */
std::unique_ptr<RegistryWatch> watchRegistry();

// For who has to find out what is wrong. None of these leaves anything changed.

struct RegistryHealth {
    std::string place;  // these two for people
    std::string engine;
    int schemaVersion;
};

/** Reads the database from end to end. Throws RegistryError if it is not sound. */
RegistryHealth inspectRegistry();

struct RegistryUser {
    int process;
    bool isChanging;  // whoever else wants to change something waits
};

/** Some other processes that have the database open, the one that changes it among them; as far as can be told. */
std::vector<RegistryUser> registryUsers();

/** Whether links in this directory can be labelled; nothing where that cannot be told. */
std::optional<bool> takesLabels(const std::string& directory);

/** Whether anybody keeps the lines of the log. */
bool isLogKept();

}  // namespace ZelmarDB
