// fexo-devserver: the commands of fexo that carry an HTTP server (serve, demo). fexo hands them
// over to this executable with its own argument vector, so options, help and exit statuses are
// those of fexo.
#include <devserver/DevelopmentServerCommands.hpp>

#include <common/CommandTree.hpp>
#include <common/ToolName.hpp>
#include <common/ToolVersion.hpp>

int main(int argc, char** argv)
{
    fexo::tool::setToolName("fexo-devserver");
    CLI::App app;
    fexo::tool::ToolOptions options;
    fexo::tool::addToolOptions(app, options,
                               "the FeXO development server and the end-to-end demo (fexo serve, fexo demo)");
    fexo::tool::addVersionFlag(app, "fexo-devserver");

    int exitCode = 0;
    fexo::tool::addServeCommand(app, options, exitCode);
    fexo::tool::addDemoCommand(app, options, exitCode);
    fexo::tool::addCommandTreeFlag(app);
    return fexo::tool::parseAndRun(app, argc, argv, exitCode);
}
