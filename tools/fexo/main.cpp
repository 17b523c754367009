#include <fexo/Commands.hpp>

#include <iostream>

int main(int argc, char** argv)
{
    CLI::App app{"fexo: the FeXO notification service from the command line"};
    app.require_subcommand(1);
    app.fallthrough();
    fexo::tool::ToolOptions options;
    app.add_option("--resources", options.resources,
                   "Directory holding FeXOService-Info.plist (default: $FEXO_RESOURCES_DIR, else the tool's own)");
    app.add_option("--app-groups", options.appGroups,
                   "Root of the app-group stores (default: $FEXO_APP_GROUPS_DIR, else under $XDG_DATA_HOME)");

    int exitCode = 0;
    fexo::tool::addConfigCommand(app, options, exitCode);
    fexo::tool::addRegisterCommand(app, options, exitCode);
    fexo::tool::addHandlePushCommand(app, options, exitCode);
    fexo::tool::addStoreCommands(app, options, exitCode);
    fexo::tool::addServeCommand(app, options, exitCode);
    fexo::tool::addDemoCommand(app, options, exitCode);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error);
        return status == 0 ? 0 : 1;
    }
    return exitCode;
}
