// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace ZelmarFrontend {

class CleanFunctionsHandlerBase {
public:
    virtual ~CleanFunctionsHandlerBase() = default;
    virtual void execute() = 0;
};

/** An undo call with its arguments; what the called function returns is dropped. */
template <typename Function>
class CleanFunctionsHandlerImpl : public CleanFunctionsHandlerBase {
public:
    explicit CleanFunctionsHandlerImpl(Function function) : m_function(std::move(function)) {}

    void execute() override { m_function(); }

private:
    Function m_function;
};

class CleanFunctionsContainer {
public:
    virtual ~CleanFunctionsContainer() = default;

    std::vector<std::shared_ptr<CleanFunctionsHandlerBase>> m_handlers;
};

/**
 * Undo calls, grouped by package identifier. A call may hold a plain pointer to a record: the records must not move
 * from the first registration until the registry is destroyed. Its destruction runs no call.
 */
class ActionSupport {
public:
    virtual ~ActionSupport() = default;

    /** Appends the call function(arguments...) to those of `key`; the arguments are kept by value. */
    template <typename Function, typename... Arguments>
    void addCleanFunction(std::string key, Function function, Arguments... arguments)
    {
        auto call = std::bind<void>(function, std::move(arguments)...);
        auto handler = std::make_shared<CleanFunctionsHandlerImpl<decltype(call)>>(std::move(call));
        m_cleanFunctions[std::move(key)].m_handlers.push_back(std::move(handler));
    }

    /**
     * Runs the calls of `key` in the order of their registration: a widget's links are removed before its row is marked
     * unavailable. They stay registered, and run again with the next call. An exception of a call ends the run and
     * passes through.
     */
    void runCleanFunctions(const std::string& key);

private:
    std::unordered_map<std::string, CleanFunctionsContainer> m_cleanFunctions;
};

}  // namespace ZelmarFrontend
