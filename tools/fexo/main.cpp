#include <fexo/Commands.hpp>
#include <fexo/DevelopmentServerHandOff.hpp>

int main(int argc, char** argv)
{
    if (fexo::tool::choosesDevelopmentServerCommand(argc, argv)) {
        fexo::tool::handOverToDevelopmentServer(argv);
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
    fexo::tool::addDevelopmentServerCommands(app, argv, exitCode);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error);
        return status == 0 ? 0 : 1;
    }
    return exitCode;
}
