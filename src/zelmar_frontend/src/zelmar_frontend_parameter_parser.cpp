#include "zelmar_frontend_parameter_parser.h"

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem/path.hpp>
#include <boost/program_options.hpp>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "log.h"
#include "zelmar_frontend_constants.h"

namespace po = boost::program_options;

namespace ZelmarFrontend {

namespace {

// The option library fills words into its message in place of %these%, for as long as it finds one: a word that brings
// its own along would keep it at that forever.
bool bringsPlaceholder(const std::string& option)
{
    const auto placeholders = {"%canonical_option%", "%option%", "%original_token%"};
    return std::any_of(placeholders.begin(), placeholders.end(),
                       [&option](const char* placeholder) { return boost::contains(option, placeholder); });
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
        po::store(po::command_line_parser(argc, argv).options(all).positional(positional).run(), m_parametersMap);
    } catch (po::error_with_option_name& e) {
        if (bringsPlaceholder(e.get_option_name())) {
            throw std::runtime_error("Unknown or malformed option: " + e.get_option_name());
        }
        if (std::any_of(argv, argv + argc, [](const char* word) { return boost::contains(word, "%value%"); })) {
            e.set_substitute("value", "");
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

    // Odd: a function object, for its name in the log.
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
