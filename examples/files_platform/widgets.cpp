// SPDX-License-Identifier: Apache-2.0

// A widget is a folder; its handle is the name of the folder. Each of its fields is a symbolic link whose target is "="
// and the text of the field, and leads to no file. So a change is one rename. A power cut leaves the rename done or not
// done, without a sync, because of the file system's journal; other processes see it done or not done, without a lock.
// A lookup reads all widgets, which is quick for some hundreds. A text has at most 4,094 bytes.

#include <fcntl.h>
#include <platform/widget_registry.h>
#include <platform/zelmar_dao.h>
#include <unistd.h>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace ZelmarDB {

namespace {

using Failure = KxWidgetDAOReadOnly::Exception;
using Text = boost::optional<std::string>;

const fs::path WIDGETS = "/opt/usr/zelmar/widgets";
constexpr char APPLICATION[] = "application";  // every widget has one
constexpr char IDENTIFIER[] = "identifier";
constexpr char ON_USB[] = "on-usb";  // there or not, as the next
constexpr char AVAILABLE[] = "available";
constexpr char STORAGE_PATH[] = "storage-path";

void requireSuccess(int result, const std::string& what)
{
    if (result != 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void requireDatabase(int mode)
{
    requireSuccess(access((WIDGETS / ".").c_str(), mode), WIDGETS);
}

Text read(const fs::path& widget, const char* field)
{
    std::error_code error;
    const std::string target = fs::read_symlink(widget / field, error);
    if (error && error != std::errc::no_such_file_or_directory) {
        throw std::system_error(error, widget / field);
    }
    return error ? Text() : target.substr(1);
}

void write(const fs::path& widget, const char* field, const Text& text)
{
    if (!text) {
        fs::remove(widget / field);
        return;
    }
    const fs::path draft = widget / ("new." + std::to_string(getpid()));
    fs::remove(draft);
    fs::create_symlink('=' + *text, draft);
    fs::rename(draft, widget / field);
}

std::vector<fs::path> allWidgets()
{
    std::vector<fs::path> widgets;
    for (const fs::directory_entry& entry : fs::directory_iterator(WIDGETS)) {
        if (std::isdigit(entry.path().filename().native()[0])) {  // other folders are being added or removed
            widgets.push_back(entry.path());
        }
    }
    return widgets;
}

/** Empty: none. */
fs::path widgetWith(const char* field, const std::string& text)
{
    for (const fs::path& widget : allWidgets()) {
        if (read(widget, field) == text) {
            return widget;
        }
    }
    return {};
}

int handleOf(const fs::path& widget)
{
    return widget.empty() ? -1 : std::stoi(widget.filename());
}

fs::path folderOf(int handle)
{
    return WIDGETS / std::to_string(handle);
}

fs::path requireWidget(const fs::path& widget)
{
    if (widget.empty() || !read(widget, APPLICATION)) {
        throw Failure::WidgetNotExist("no such widget: " + widget.native());
    }
    return widget;
}

/** A folder, if it is there. Open it before the changes: a sync tells only of writes that failed since then. */
struct Folder {
    const int descriptor;
    explicit Folder(const char* path) : descriptor(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
    ~Folder() { close(descriptor); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    /** The whole file system: links cannot be synced one by one. */
    void sync() const { requireSuccess(descriptor < 0 ? 0 : syncfs(descriptor), "sync"); }
};

struct Attachment {
    Folder widgets{WIDGETS.c_str()};
    Folder links{"/opt/usr/apps"};
    bool changed = false;
};

thread_local std::unique_ptr<Attachment> t_attachment;

/** Every failure of the database leaves from here. */
template <typename Operation>
auto inDatabase(Operation operation)
{
    try {
        if (!t_attachment) {
            throw std::runtime_error("the thread is not attached");
        }
        requireDatabase(R_OK | W_OK | X_OK);
        return operation();
    } catch (const std::runtime_error& e) {
        throw Failure::DatabaseError(e.what());
    }
}

void change(const std::wstring& tizenAppId, const char* field, const boost::optional<std::wstring>& text)
{
    inDatabase([&] {
        t_attachment->changed = true;  // even if this fails: the links have changed
        write(requireWidget(widgetWith(APPLICATION, DPL::ToUTF8String(tizenAppId))), field,
              text.map(DPL::ToUTF8String));
    });
}

RegistryFault faultOf(int error)
{
    switch (error) {
        case ENOENT:
            return RegistryFault::MISSING;
        case EACCES:
        case EPERM:
            return RegistryFault::FORBIDDEN;
        case EROFS:
            return RegistryFault::READ_ONLY;
        case EMFILE:
        case ENFILE:
        case ENOMEM:
            return RegistryFault::EXHAUSTED;
        case ENOSPC:
            return RegistryFault::FULL;
        case ENOTDIR:
            return RegistryFault::FOREIGN;
        default:
            return RegistryFault::INPUT_OUTPUT;
    }
}

template <typename Operation>
auto inRegistry(Operation operation)
{
    try {
        return operation();
    } catch (const std::system_error& e) {
        throw RegistryError(faultOf(e.code().value()), e.what());
    }
}

}  // namespace

void KxDatabase::attachToThreadRW()
{
    try {
        if (!t_attachment) {
            requireDatabase(R_OK | W_OK | X_OK);
            t_attachment = std::make_unique<Attachment>();
        }
    } catch (const std::system_error& e) {
        throw DPL::DB::SqlConnection::Exception::Base(e.what());
    }
}

void KxDatabase::detachFromThread()
{
    const std::unique_ptr<Attachment> attachment = std::move(t_attachment);
    try {
        if (attachment && attachment->changed) {
            attachment->links.sync();
            attachment->widgets.sync();
        }
    } catch (const std::system_error& e) {
        throw Failure::DatabaseError(e.what());
    }
}

std::wstring KxWidgetDAOReadOnly::getTizenAppId() const
{
    return inDatabase([&] { return DPL::FromUTF8String(*read(requireWidget(folderOf(m_handle)), APPLICATION)); });
}

boost::optional<std::wstring> KxWidgetDAOReadOnly::getKxAppId() const
{
    return inDatabase([&] { return read(requireWidget(folderOf(m_handle)), IDENTIFIER).map(DPL::FromUTF8String); });
}

bool KxWidgetDAOReadOnly::isInstalledOnUSB() const
{
    return inDatabase([&] { return read(requireWidget(folderOf(m_handle)), ON_USB).has_value(); });
}

std::wstring KxWidgetDAOReadOnly::getTizenAppIdFromKxAppId(const std::wstring& kxAppId)
{
    return inDatabase([&] {
        const fs::path widget = widgetWith(IDENTIFIER, DPL::ToUTF8String(kxAppId));
        return DPL::FromUTF8String(widget.empty() ? "" : read(widget, APPLICATION).value_or(""));
    });
}

bool KxWidgetDAOReadOnly::isWidgetInstalled(const std::wstring& tizenAppId)
{
    return getHandleFromTizenAppId(tizenAppId) != -1;
}

int KxWidgetDAOReadOnly::getHandleFromTizenAppId(const std::wstring& tizenAppId)
{
    return inDatabase([&] { return handleOf(widgetWith(APPLICATION, DPL::ToUTF8String(tizenAppId))); });
}

std::list<std::shared_ptr<KxWidgetDAOReadOnly>> KxWidgetDAOReadOnly::getAvailableWidgets()
{
    return inDatabase([] {
        std::list<std::shared_ptr<KxWidgetDAOReadOnly>> available;
        for (const fs::path& widget : allWidgets()) {
            if (read(widget, AVAILABLE)) {
                available.push_back(std::make_shared<KxWidgetDAOReadOnly>(handleOf(widget)));
            }
        }
        return available;
    });
}

void KxWidgetDAO::setAvailable(const std::wstring& tizenAppId, bool available)
{
    change(tizenAppId, AVAILABLE, boost::make_optional(available, std::wstring()));
}

void KxWidgetDAO::setExternalStoragePath(const std::wstring& tizenAppId, const boost::optional<std::wstring>& path)
{
    change(tizenAppId, STORAGE_PATH, path);
}

KxPathBuilder& KxPathBuilder::Append(const std::string& component)
{
    m_path += (m_path.empty() || m_path.back() == '/' ? "" : "/") + component;
    return *this;
}

std::vector<RegisteredWidget> registeredWidgets(RegistryAccess access)
{
    return inRegistry([&] {
        requireDatabase(access == RegistryAccess::CHANGE ? R_OK | W_OK | X_OK : R_OK | X_OK);
        std::vector<RegisteredWidget> widgets;
        for (const fs::path& widget : allWidgets()) {
            const Text identifier = read(widget, IDENTIFIER), application = read(widget, APPLICATION);
            if (identifier && application) {
                widgets.push_back({*identifier, *application, read(widget, ON_USB).has_value(),
                                   read(widget, AVAILABLE).has_value(), read(widget, STORAGE_PATH).value_or("")});
            }
        }
        std::sort(widgets.begin(), widgets.end(),
                  [](const auto& one, const auto& other) { return one.identifier < other.identifier; });
        return widgets;
    });
}

void registerWidget(const std::string& identifier, const std::string& application, bool onUsb)
{
    inRegistry([&] {
        requireDatabase(R_OK | W_OK | X_OK);
        if (!widgetWith(IDENTIFIER, identifier).empty() || !widgetWith(APPLICATION, application).empty()) {
            throw RegistryError(RegistryFault::TAKEN, "another widget has " + identifier + " or " + application);
        }
        const fs::path draft = WIDGETS / "new";
        fs::remove_all(draft);
        fs::create_directory(draft);
        write(draft, IDENTIFIER, identifier);
        write(draft, APPLICATION, application);
        write(draft, ON_USB, boost::make_optional(onUsb, std::string()));
        int handle = 0;
        for (const fs::path& widget : allWidgets()) {
            handle = std::max(handle, handleOf(widget) + 1);
        }
        fs::rename(draft, folderOf(handle));
        Folder(WIDGETS.c_str()).sync();
    });
}

void unregisterWidget(const std::string& identifier)
{
    inRegistry([&] {
        requireDatabase(R_OK | W_OK | X_OK);
        const fs::path widget = widgetWith(IDENTIFIER, identifier);
        if (!widget.empty()) {
            fs::remove_all(WIDGETS / "old");
            fs::rename(widget, WIDGETS / "old");
            fs::remove_all(WIDGETS / "old");
            Folder(WIDGETS.c_str()).sync();
        }
    });
}

RegistryCreation createRegistry(ExistingRegistry existing)
{
    return inRegistry([&]() -> RegistryCreation {
        std::vector<std::string> setAside;
        if (fs::exists(fs::symlink_status(WIDGETS))) {
            if (existing == ExistingRegistry::KEEP) {
                requireDatabase(R_OK | X_OK);
                return {false, {}};
            }
            setAside.push_back(WIDGETS.native() + '.' + std::to_string(std::time(nullptr)));
            fs::rename(WIDGETS, setAside.front());
        }
        fs::create_directories(WIDGETS);
        Folder(WIDGETS.c_str()).sync();
        return {true, setAside};
    });
}

std::unique_ptr<RegistryWatch> watchRegistry()
{
    return nullptr;  // changes cannot be watched, as zelmar-widgets will say
}

RegistryHealth inspectRegistry()
{
    registeredWidgets(RegistryAccess::READ);
    return {WIDGETS, "folders and links", 1};
}

std::vector<RegistryUser> registryUsers()
{
    return {};  // nobody holds it
}

}  // namespace ZelmarDB
