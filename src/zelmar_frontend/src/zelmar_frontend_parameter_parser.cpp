// SPDX-License-Identifier: Apache-2.0

#include "zelmar_frontend_parameter_parser.h"

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem/path.hpp>
#include <boost/program_options.hpp>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "log.h"
#include "zelmar_frontend_constants.h"

namespace po = boost::program_options;

namespace ZelmarFrontend {

namespace {

// The option library replaces %name% by its value in a message until no %name% is left. A value that contains its own
// %name% makes that an endless loop.
class LibraryMessage : public po::error_with_option_name {
public:
    explicit LibraryMessage(const po::error_with_option_name& thrown) : po::error_with_option_name(thrown) {}

    /** The name of such a word, found by replacing in the library's order; empty if there is none. */
    std::string getEndlessWord() const
    {
        std::map<std::string, std::string> words = m_substitutions;
        words["canonical_option"] = get_canonical_option_name();
        words["prefix"] = get_canonical_option_prefix();
        m_message = m_error_template;
        for (const auto& [name, word] : words) {
            const std::string place = "%" + name + "%";
            if (boost::contains(m_message, place) && boost::contains(word, place)) {
                return name;
            }
            replace_token(place, word);
        }
        return "";
    }
};

// Takes all plain words at the head of `words` at once. The library would move the rest for each: quadratic time.
std::vector<po::option> takePlainWords(std::vector<std::string>& words)
{
    std::vector<po::option> taken;
    if (words.size() == 1) {
        return taken;  // the library also calls this to ask whether the word after an option is an option
    }
    const auto end = std::find_if(words.begin(), words.end(),
                                  [](const std::string& word) { return word.size() > 1 && word[0] == '-'; });
    for (auto word = words.begin(); word != end; ++word) {
        po::option& plain = taken.emplace_back();
        plain.value = {*word};
        plain.original_tokens = {*word};
    }
    words.erase(words.begin(), end);
    return taken;
}

}  // namespace

KxWrtFrontendParameterParser::KxWrtFrontendParameterParser(
    int argc, const char* const argv[], const std::list<std::unique_ptr<IKxWrtFrontendAction>>& actions)
{
    ZELMAR_DEBUG_AT(47, "Parsing command line arguments");

    po::options_description allowed("Allowed options");
    allowed.add_options()("help", "Produce_help_message.");
    for (const auto& action : actions) {
        allowed.add_options()(action->getActionName().c_str(), action->getActionDescription().c_str());
    }

    // Only a caption: whether "path" is needed is for the chosen action to say.
    po::options_description required("Required options");
    required.add_options()("path", po::value<boost::filesystem::path>(), "Widget's external path.");

    po::options_description hidden("Hidden options");
    hidden.add_options()("kxAppId", po::value<std::vector<std::string>>(), "KxAppId");

    po::positional_options_description positional;
    positional.add("kxAppId", -1);

    po::options_description all;
    all.add(allowed).add(required).add(hidden);

    try {
        po::store(po::command_line_parser(argc, argv)
                      .options(all)
                      .positional(positional)
                      .extra_style_parser(takePlainWords)
                      .run(),
                  m_parametersMap);
    } catch (po::error_with_option_name& e) {
        const std::string endless = LibraryMessage(e).getEndlessWord();
        if (endless == "value") {
            e.set_substitute("value", "");  // an empty one is left out of the message
        } else if (!endless.empty()) {
            throw std::runtime_error("Unknown or malformed option: " + e.get_option_name());
        }
        throw;
    }
    po::notify(m_parametersMap);

    std::ostringstream allowedOptions;
    allowedOptions << allowed;
    m_allowedOptions = allowedOptions.str();

    if (m_parametersMap.count("help") != 0) {
        std::cerr << "Usage: zelmar-frontend [allowed options] [--path path] [pkgId (...)]" << std::endl;
    }

    // Odd: a lambda, so that the log names the function "operator()".
    std::for_each(actions.begin(), actions.end(), [this](const auto& action) {
        const std::string name = action->getActionName();
        if (m_parametersMap.count(name) == 0) {
            return;
        }
        if (!m_chosenAction.empty()) {
            throw std::runtime_error("Multiple actions selected");
        }
        ZELMAR_DEBUG_AT(95, "Selected action name: %s", name.c_str());
        m_chosenAction = name;
    });
}

}  // namespace ZelmarFrontend
