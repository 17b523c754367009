#include <fexo/AgentHandOff.hpp>
#include <fexo/Commands.hpp>
#include <fexo/DevelopmentServerHandOff.hpp>

int main(int argc, char** argv)
{
    if (fexo::tool::choosesDevelopmentServerCommand(argc, argv)) {
        fexo::tool::handOverToDevelopmentServer(argv);
        return 1;
    }
    if (fexo::tool::choosesAgentCommand(argc, argv)) {
        fexo::tool::handOverToAgent(argv);
        return 1;
    }

    CLI::App app;
    fexo::tool::ToolOptions options;
    fexo::tool::addToolOptions(app, options);

    int exitCode = 0;
    fexo::tool::addConfigCommand(app, options, exitCode);
    fexo::tool::addRegisterCommand(app, options, exitCode);
    fexo::tool::addHandlePushCommand(app, options, exitCode);
    fexo::tool::addStoreCommands(app, options, exitCode);
    fexo::tool::addStoreMaintenanceCommand(app, options, exitCode);
    fexo::tool::addDevelopmentServerCommands(app, argv, exitCode);
    fexo::tool::addAgentCommand(app, argv, exitCode);
    return fexo::tool::parseAndRun(app, argc, argv, exitCode);
}
