#include <fexo/CommandHandOff.hpp>
#include <fexo/Commands.hpp>
#include <fexo/SQLiteForShortProcess.hpp>

#include <common/CommandTree.hpp>
#include <common/ToolName.hpp>
#include <common/ToolVersion.hpp>

int main(int argc, char** argv)
{
    fexo::tool::setToolName("fexo");
    fexo::tool::configureSQLiteForShortProcess();
    if (const auto* handedOver = fexo::tool::chosenHandedOverCommand(argc, argv)) {
        fexo::tool::handOver(*handedOver, argv);
        return 1;
    }

    CLI::App app;
    fexo::tool::ToolOptions options;
    fexo::tool::addToolOptions(app, options, "the FeXO notification service from the command line");
    fexo::tool::addVersionFlag(app, "fexo");

    // handle-push is the notification extension, started cold for every push: there only its own
    // command is built, not the parsers of all the others (about a third of a million
    // instructions and the pages of their code). What it parses, its errors and its help are the
    // same either way.
    const bool allCommands = fexo::tool::chosenCommandName(argc, argv) != "handle-push";
    int exitCode = 0;
    if (allCommands) {
        fexo::tool::addConfigCommand(app, options, exitCode);
        fexo::tool::addRegisterCommand(app, options, exitCode);
    }
    fexo::tool::addHandlePushCommand(app, options, exitCode);
    if (allCommands) {
        fexo::tool::addStoreCommands(app, options, exitCode);
        fexo::tool::addInboxCommands(app, options, exitCode);
        fexo::tool::addStoreMaintenanceCommand(app, options, exitCode);
        fexo::tool::addHandedOverCommands(app, argv, exitCode);
        fexo::tool::HandedOverTo handedOver;
        for (const auto& command : fexo::tool::handedOverCommands)
            handedOver.emplace_back(command.name, command.executable);
        fexo::tool::addCommandTreeFlag(app, std::move(handedOver));
    }
    return fexo::tool::parseAndRun(app, argc, argv, exitCode);
}
