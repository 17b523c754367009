#include <fexo/CommandHandOff.hpp>
#include <fexo/Commands.hpp>

int main(int argc, char** argv)
{
    if (const auto* handedOver = fexo::tool::chosenHandedOverCommand(argc, argv)) {
        fexo::tool::handOver(*handedOver, argv);
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
    fexo::tool::addInboxCommands(app, options, exitCode);
    fexo::tool::addStoreMaintenanceCommand(app, options, exitCode);
    fexo::tool::addHandedOverCommands(app, argv, exitCode);
    return fexo::tool::parseAndRun(app, argc, argv, exitCode);
}
