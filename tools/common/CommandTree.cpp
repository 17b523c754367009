#include <common/CommandTree.hpp>

#include <nlohmann/json.hpp>

#include <iostream>

namespace fexo::tool {

namespace {

// The members of a set that a validator or transformer names in the value's type, as CLI11
// writes it: the words of the first braces without what they map to ("TEXT:value in
// {apns->1,fcm->0} OR {1,0}"), or the words after the colon joined by '|' ("ENUM:fcm|apns").
nlohmann::json choicesOf(const std::string& type)
{
    auto choices = nlohmann::json::array();
    const auto open = type.find('{');
    const auto close = type.find('}', open);
    const auto colon = type.find(':');
    std::string list;
    char separator = ',';
    if (open != std::string::npos && close != std::string::npos) {
        list = type.substr(open + 1, close - open - 1);
    } else if (colon != std::string::npos && type.find('|', colon) != std::string::npos &&
               type.find(' ', colon) == std::string::npos) {
        list = type.substr(colon + 1);
        separator = '|';
    } else {
        return choices;
    }
    std::string item;
    for (const char c : list + separator) {
        if (c != separator) {
            item += c;
            continue;
        }
        if (const auto arrow = item.find("->"); arrow != std::string::npos) item.erase(arrow);
        if (!item.empty()) choices.push_back(item);
        item.clear();
    }
    return choices;
}

nlohmann::json optionOf(const CLI::Option& option)
{
    nlohmann::json names = nlohmann::json::array();
    for (const auto& name : option.get_snames()) names.push_back("-" + name);
    for (const auto& name : option.get_lnames()) names.push_back("--" + name);
    const bool takesValue = option.get_expected_max() > 0;
    nlohmann::json result{{"names", names},
                          {"value", takesValue ? nlohmann::json(option.get_type_name()) : nlohmann::json()},
                          {"description", option.get_description()}};
    if (takesValue) {
        if (auto choices = choicesOf(option.get_type_name()); !choices.empty()) result["choices"] = choices;
    }
    return result;
}

} // namespace

nlohmann::json commandTree(const CLI::App& app, const HandedOverTo& handedOver)
{
    nlohmann::json tree{{"name", app.get_name()},
                        {"description", app.get_description()},
                        {"options", nlohmann::json::array()},
                        {"arguments", nlohmann::json::array()},
                        {"commands", nlohmann::json::array()}};
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_group().empty()) continue; // hidden
        if (option->nonpositional()) {
            tree["options"].push_back(optionOf(*option));
        } else {
            tree["arguments"].push_back({{"name", option->get_name()},
                                         {"value", option->get_type_name()},
                                         {"description", option->get_description()},
                                         {"required", option->get_required()}});
        }
    }
    for (const CLI::App* command : app.get_subcommands({})) {
        if (command->get_group().empty()) continue; // hidden
        auto subtree = commandTree(*command, handedOver);
        for (const auto& [name, executable] : handedOver) {
            if (command->get_prefix_command() && name == command->get_name()) subtree["handed_over_to"] = executable;
        }
        tree["commands"].push_back(std::move(subtree));
    }
    return tree;
}

void addCommandTreeFlag(CLI::App& app, HandedOverTo handedOver)
{
    app.add_flag_callback(
           "--command-tree",
           [&app, handedOver = std::move(handedOver)] {
               std::cout << commandTree(app, handedOver).dump(2) << std::endl;
               throw CLI::Success();
           },
           "Print the command line's commands and options as JSON (for the build)")
        ->group("")
        ->configurable(false);
}

} // namespace fexo::tool
