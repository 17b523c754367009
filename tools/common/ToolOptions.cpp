#include <common/ToolOptions.hpp>

#include <common/TerminalText.hpp>
#include <common/ToolName.hpp>

#include <FeXONotificationService/FeXOConfigurationCheck.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/NSException.hpp>

#include <cstdlib>
#include <filesystem>

namespace fexo::tool {

void ToolOptions::apply() const
{
    if (resources) Bundle::main().setResourcesDirectory(*resources);
    if (appGroups) ::setenv("FEXO_APP_GROUPS_DIR", appGroups->c_str(), 1);
}

void addToolOptions(CLI::App& app, ToolOptions& options, const std::string& description)
{
    app.description(toolName() + ": " + description);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option("--resources", options.resources,
                   "Directory holding FeXOService-Info.plist (default: $FEXO_RESOURCES_DIR, else the tool's own)");
    app.add_option("--app-groups", options.appGroups,
                   "Root of the app-group stores (default: $FEXO_APP_GROUPS_DIR, else under $XDG_DATA_HOME)");
}

int parseAndRun(CLI::App& app, int argc, char** argv, const int& exitCode)
{
    // Usage lines name the command as typed, without the folder it was found in: "fexo serve",
    // also where fexo handed the command over to a sibling with its own argument vector.
    if (argc > 0 && argv[0] != nullptr) app.name(std::filesystem::path(argv[0]).filename().string());
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error);
        return status == 0 ? 0 : 1;
    } catch (const NSException& exception) {
        // The library raises on a missing or broken configuration: one line, not an abort.
        reportProblem(FeXOConfigurationCheck::raised(exception.name(), exception.reason()).problem());
        return 1;
    }
    return exitCode;
}

} // namespace fexo::tool
