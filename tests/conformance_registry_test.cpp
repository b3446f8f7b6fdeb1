// SPDX-License-Identifier: Apache-2.0

// Holds a platform folder against the contract in its optional header, platform/widget_registry.h.

#include <platform/privilege_control.h>
#include <platform/widget_registry.h>
#include <poll.h>
#include <boost/filesystem.hpp>

#include "conformance.h"
#include "told.h"

using namespace ZelmarDB;
namespace fs = boost::filesystem;

namespace {

constexpr const char* FAULTS[] = {"MISSING", "FORBIDDEN",     "READ_ONLY",     "HELD",    "EXHAUSTED", "INPUT_OUTPUT",
                                  "FULL",    "OLDER_VERSION", "NEWER_VERSION", "FOREIGN", "DAMAGED",   "TAKEN"};

template <typename Operation>
std::string faultOf(Operation operation)
{
    try {
        operation();
        return "done";
    } catch (const RegistryError& e) {
        return thrown(FAULTS[static_cast<int>(e.fault())], e.what());
    }
}

#define EXPECT_FAULT(fault, operation) EXPECT_TOLD(fault, faultOf([&] { operation; }))

/** All widgets, in the order told, with all that is told of each. */
std::string listed(RegistryAccess access)
{
    std::string lines;
    for (const RegisteredWidget& widget : registeredWidgets(access)) {
        lines += widget.identifier + ' ' + widget.application + (widget.installedOnUsb ? " USB" : "") +
                 (widget.available ? " available " : " ") + widget.storagePath + '\n';
    }
    return lines;
}

TEST(Registry, ListsAddsAndRemoves)
{
    Conformance::removeDatabase();
    EXPECT_FAULT("MISSING", listed(RegistryAccess::READ));
    EXPECT_FAULT("MISSING", registerWidget("a", "t.a", true));
    EXPECT_FAULT("MISSING", unregisterWidget("a"));
    EXPECT_TOLD("true", createRegistry(ExistingRegistry::KEEP).created);
    EXPECT_TOLD("", listed(RegistryAccess::CHANGE));

    Conformance::putWidget("t.none", "", true);
    EXPECT_TOLD("done", registerWidget("колобок \n", "t.2", true));
    EXPECT_TOLD("done", registerWidget("b", "t.b", true));
    mark("/registering");
    EXPECT_TOLD("done", registerWidget("a", "t.a", false));
    mark("/registered");
    EXPECT_FAULT("TAKEN", registerWidget("a", "t.x", true)) << "identifier a";
    EXPECT_FAULT("TAKEN", registerWidget("x", "t.a", true)) << "application t.a";
    EXPECT_TOLD("done", KxDatabase::attachToThreadRW());
    EXPECT_TOLD("done", KxWidgetDAO::setAvailable(L"t.b", true));
    EXPECT_TOLD("done", KxWidgetDAO::setExternalStoragePath(L"t.b", std::wstring(L"/b")));
    EXPECT_TOLD("t.a", KxWidgetDAO::getTizenAppIdFromKxAppId(L"a")) << "widget a, added by the registry";
    EXPECT_TOLD("done", KxDatabase::detachFromThread());
    EXPECT_TOLD("false", createRegistry(ExistingRegistry::KEEP).created);
    for (const RegistryAccess access : {RegistryAccess::READ, RegistryAccess::CHANGE}) {
        EXPECT_TOLD("a t.a \nb t.b USB available /b\nколобок \n t.2 USB \n", listed(access));
    }
    for (const char* identifier : {"a", "колобок \n", "nobody"}) {
        EXPECT_TOLD("done", unregisterWidget(identifier)) << identifier;
    }
    EXPECT_TOLD("b t.b USB available /b\n", listed(RegistryAccess::READ));
    Conformance::makeEmptyFile();
    EXPECT_FAULT("FOREIGN", listed(RegistryAccess::READ));
    EXPECT_FAULT("FOREIGN", createRegistry(ExistingRegistry::KEEP));
    const RegistryCreation creation = createRegistry(ExistingRegistry::REPLACE);
    EXPECT_TRUE(creation.created && fs::exists(creation.setAside.at(0))) << "createRegistry() in the place of another";
    EXPECT_TOLD("", listed(RegistryAccess::READ));
}

TEST(Registry, TellsOfEachChange)
{
    Conformance::makeDatabase();
    const auto watch = watchRegistry();
    if (!watch) {
        GTEST_SKIP() << "This platform cannot tell of changes.";
    }
    const auto tells = [&](int milliseconds) {
        pollfd descriptor{watch->descriptor(), POLLIN, 0};
        return poll(&descriptor, 1, milliseconds) == 1;
    };
    watch->reset();
    EXPECT_FALSE(tells(50)) << "nothing has changed";
    registerWidget("a", "t.a", true);
    EXPECT_TRUE(tells(5000)) << "registerWidget()";
    watch->reset();
    EXPECT_FALSE(tells(50)) << "nothing has changed since the reset";
    KxDatabase::attachToThreadRW();
    KxWidgetDAO::setAvailable(L"t.a", true);
    EXPECT_TRUE(tells(5000)) << "setAvailable()";
    KxDatabase::detachFromThread();
}

TEST(Registry, TellsLabelledLinks)
{
    const std::string folder = "/opt/usr/apps/conformance_img", link = folder + "/link", further = folder + "/further";
    fs::create_directories(folder);
    fs::create_symlink(folder, link);
    fs::create_symlink(link, further);
    for (const char* label : {"other", "__", "_"}) {
        EXPECT_EQ(0, perm_app_setup_path("a", link.c_str(), 0, label));
        EXPECT_EQ(label == std::string("_"), isLabelled(link)) << link << " labelled " << label;
    }
    for (const std::string& path : {further, folder, folder + "/missing"}) {
        EXPECT_FALSE(isLabelled(path)) << path;
    }
    fs::remove_all(folder);
}

}  // namespace
