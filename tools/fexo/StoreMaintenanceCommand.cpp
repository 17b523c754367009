#include <fexo/Commands.hpp>

#include <common/TerminalText.hpp>
#include <common/ToolName.hpp>

#include <FeXONotificationService/FeXOConfigurationCheck.hpp>
#include <FeXONotificationService/FeXOStoreMaintenance.hpp>
#include <FeXOPlatform/NSException.hpp>

#include <iostream>
#include <optional>

namespace fexo::tool {

namespace {

// The maintenance call's result, or nothing after printing the configuration's exception.
template <class Call>
auto maintain(const ToolOptions& options, Call call) -> std::optional<decltype(call())>
{
    options.apply();
    try {
        return call();
    } catch (const NSException& exception) {
        reportProblem(FeXOConfigurationCheck::raised(exception.name(), exception.reason()).problem());
        return std::nullopt;
    }
}

int check(const ToolOptions& options)
{
    const auto checked = maintain(options, &FeXOStoreMaintenance::check);
    if (!checked) return 1;
    const auto& result = *checked;
    if (result.isSound()) {
        std::cout << result.databasePath.string() << ": ok" << std::endl;
        return 0;
    }
    std::cerr << toolName() << ": the store " << result.databasePath.string() << " is damaged:\n";
    for (const auto& problem : result.problems) std::cerr << "  " << problem << '\n';
    std::cerr << "Run `fexo store repair` to save what can still be read." << std::endl;
    return 1;
}

int repair(const ToolOptions& options)
{
    const auto repaired = maintain(options, &FeXOStoreMaintenance::repair);
    if (!repaired) return 1;
    const auto& outcome = *repaired;
    if (!outcome.succeeded()) {
        reportProblem("could not repair " + outcome.databasePath.string() + ": " + outcome.failure);
        return 1;
    }
    std::cout << "Saved " << outcome.saved << (outcome.saved == 1 ? " key" : " keys") << ", lost ";
    if (!outcome.unlistedKeysLost) {
        std::cout << outcome.lost;
    } else if (outcome.lost == 0) {
        std::cout << "an unknown number";
    } else {
        std::cout << outcome.lost << " and an unknown number more";
    }
    std::cout << ".\n"
              << "The damaged files are kept as " << outcome.damagedPath.string() << std::endl;
    return outcome.mayHaveLostKeys() ? 1 : 0;
}

} // namespace

void addStoreMaintenanceCommand(CLI::App& app, const ToolOptions& options, int& exitCode)
{
    auto* store = app.add_subcommand("store", "Check or repair the app group's store");
    store->require_subcommand(1);
    store->add_subcommand("check", "Run an integrity check of the store; exit 1 with what is wrong")
        ->callback([&options, &exitCode] { exitCode = check(options); });
    store
        ->add_subcommand("repair",
                         "Copy every key that can still be read into a fresh store, keeping the damaged files aside; "
                         "exit 1 when keys were or may have been lost")
        ->callback([&options, &exitCode] { exitCode = repair(options); });
}

} // namespace fexo::tool
