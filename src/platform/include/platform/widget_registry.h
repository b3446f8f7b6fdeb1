// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// The widget database as a whole, and the labels of links, for programs that administer them. Optional: the tool does
// not need this header, `zelmar-widgets` does.
namespace ZelmarDB {

/** Why the database cannot be used. The advice to the user depends on this alone. */
enum class RegistryFault {
    MISSING,        // there is no database
    FORBIDDEN,      // for this user
    READ_ONLY,      // for everybody
    HELD,           // by another process, for too long
    EXHAUSTED,      // no memory or no file descriptor left
    INPUT_OUTPUT,   // the disk does not read or write
    FULL,           // the disk has no room
    OLDER_VERSION,  // than this program's
    NEWER_VERSION,
    FOREIGN,  // the file is not a widget database
    DAMAGED,  // the file is a widget database, but it cannot be read
    TAKEN,    // another widget has the identifier or the application
};

/** The message says what failed on what, for people. */
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
 * All widgets whose identifier a command line can name, sorted by identifier. READ needs only the permission to read
 * the database; CHANGE also fails if the database cannot be changed. Throws RegistryError, as do all functions that
 * change or read the database.
 */
std::vector<RegisteredWidget> registeredWidgets(RegistryAccess access);

/** Adds a widget, which is on the disk when this returns. TAKEN: another has the identifier or the application. */
void registerWidget(const std::string& identifier, const std::string& application, bool onUsb);

/** Removes a widget, also from the disk when this returns. Removing an unknown widget is no failure. */
void unregisterWidget(const std::string& identifier);

enum class ExistingRegistry { KEEP, REPLACE };

/** `created` is false if an existing database is kept; `setAside` are the paths of the files that were set aside. */
struct RegistryCreation {
    bool created;
    std::vector<std::string> setAside;
};

/**
 * Creates the database, whole or not at all. KEEP: an existing database is checked and kept. REPLACE: it is set aside.
 * Files of a former database that would damage the new one are always set aside.
 */
RegistryCreation createRegistry(ExistingRegistry existing);

/** Whether the link itself has "_", the label that the tool gives to links; false if unknown. Throws nothing. */
bool isLabelled(const std::string& link);

/** Signals changes to the database by any process, without polling. */
class RegistryWatch {
public:
    virtual ~RegistryWatch() = default;
    /** Becomes readable when the database may have changed, appeared or been replaced since the last reset(). */
    virtual int descriptor() const = 0;
    /** Call it before you read the database: each change after the call makes the descriptor readable again. */
    virtual void reset() = 0;
};

/** Null: this platform cannot watch the database. */
std::unique_ptr<RegistryWatch> watchRegistry();

// For `zelmar-widgets check`. These functions leave everything as it was.

struct RegistryHealth {
    std::string place;   // where the database is, for people
    std::string engine;  // what it is kept in, for people
    int schemaVersion;
};

/** Reads the database from end to end. Throws RegistryError if it is not sound. */
RegistryHealth inspectRegistry();

struct RegistryUser {
    int process;
    bool isChanging;  // it holds a lock for which other processes that change something wait
};

/** Other processes that have the database open, not always all; if one is changing the database, it is among them. */
std::vector<RegistryUser> registryUsers();

/** Whether links in this directory can be labelled; empty if that cannot be found out. */
std::optional<bool> takesLabels(const std::string& directory);

/** Whether a logger keeps the lines of the log. */
bool isLogKept();

}  // namespace ZelmarDB
