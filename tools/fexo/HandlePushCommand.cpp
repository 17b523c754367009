#include <fexo/Commands.hpp>
#include <fexo/Input.hpp>
#include <fexo/PlainHTTPTransport.hpp>
#include <fexo/TimeLimit.hpp>

#include <common/ExtensionRoad.hpp>
#include <common/TerminalText.hpp>

#include <FeXONotificationService/FeXOConfigurationCheck.hpp>
#include <FeXOPlatform/CocoaError.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>
#include <FeXOPlatform/NSException.hpp>

#include <iostream>

namespace fexo::tool {

namespace {

int handlePush(const std::string& input, double timeLimitSeconds)
{
    const auto bytes = readInput(input, maximumPushBytes, "the push");
    if (!bytes) return 1;
    AnyValue userInfo;
    try {
        userInfo = JSONSerialization::jsonObject(*bytes);
    } catch (const CocoaError& error) {
        reportProblem("the push is not JSON: " + error.debugDescription());
        return 1;
    }
    if (userInfo.kind() != AnyValue::Kind::dictionary) {
        reportProblem("the push must be a JSON object (its user-info dictionary)");
        return 1;
    }
    try {
        startTransportForOrigin(FeXOConfigurationCheck::loaded().baseURL);
    } catch (const NSException&) {
        // The road below raises the same again, in its own place.
    }
    const DeliveredContent content = deliverPush(userInfo, timeLimitDuration(timeLimitSeconds));
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
        "Run the notification extension on one push: read its user-info JSON (at most 65536 bytes), fetch and "
        "store the content, print the content delivered as the last line (exit 0 rewritten, 3 original delivered)");
    command->add_option("FILE", *input, "The push's user-info JSON object; - for standard input")
        ->capture_default_str();
    addTimeLimitOption(*command, "--timeout", *timeLimit, "Seconds before the original content is delivered");
    command->callback([&options, &exitCode, input, timeLimit] {
        options.apply();
        exitCode = handlePush(*input, *timeLimit);
    });
}

} // namespace fexo::tool
