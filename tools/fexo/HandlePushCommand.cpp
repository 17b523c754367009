#include <fexo/Commands.hpp>
#include <fexo/ExtensionRoad.hpp>
#include <fexo/Input.hpp>

#include <FeXOPlatform/JSONSerialization.hpp>

#include <iostream>

namespace fexo::tool {

namespace {

int handlePush(const std::string& input, double timeLimitSeconds)
{
    const auto bytes = readInput(input);
    if (!bytes) return 1;
    AnyValue userInfo;
    try {
        userInfo = JSONSerialization::jsonObject(*bytes);
    } catch (const CocoaError& error) {
        std::cerr << "fexo: the push is not JSON: " << error.debugDescription() << std::endl;
        return 1;
    }
    if (userInfo.kind() != AnyValue::Kind::dictionary) {
        std::cerr << "fexo: the push must be a JSON object (its user-info dictionary)" << std::endl;
        return 1;
    }
    const auto limit = std::chrono::milliseconds(static_cast<long long>(timeLimitSeconds * 1000));
    const DeliveredContent content = runExtensionRoad(userInfo, limit);
    std::cout << deliveredContentJSON(content) << std::endl;
    return content.rewritten ? 0 : 3;
}

} // namespace

void addHandlePushCommand(CLI::App& app, const ToolOptions& options, int& exitCode)
{
    auto input = std::make_shared<std::string>("-");
    auto timeLimit = std::make_shared<double>(30.0);
    auto* command = app.add_subcommand(
        "handle-push",
        "Run the notification extension on one push: read its user-info JSON, fetch and store the content, print "
        "the content delivered as the last line (exit 0 rewritten, 3 original delivered)");
    command->add_option("FILE", *input, "The push's user-info JSON object; - for standard input")->capture_default_str();
    command->add_option("--timeout", *timeLimit, "Seconds before the original content is delivered")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    command->callback([&options, &exitCode, input, timeLimit] {
        options.apply();
        exitCode = handlePush(*input, *timeLimit);
    });
}

} // namespace fexo::tool
