#include <fexo/Commands.hpp>
#include <fexo/Input.hpp>
#include <fexo/PlainHTTPTransport.hpp>
#include <fexo/TimeLimit.hpp>

#include <common/ExtensionRoad.hpp>
#include <common/TerminalText.hpp>

#include <FeXONotificationService/FeXOConfigurationCheck.hpp>
#include <FeXONotificationService/FeXOService.hpp>
#include <FeXOPlatform/CocoaError.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>
#include <FeXOPlatform/NSException.hpp>

#include <nlohmann/json.hpp>

#include <iostream>

namespace fexo::tool {

namespace {

// The server answered with a record that carries no notification: its error, as the store keeps
// it, on standard error. Those fields stay internal to Response, so they are read from its JSON.
void reportRefusal(const std::string& recordId)
{
    const auto record = FeXOService().fetchNotification(recordId);
    if (!record) return;
    const auto form = nlohmann::json::parse(JSONEncoder{}.encode(*record));
    reportProblem("the server sent no notification: error " +
                  (form.contains("errorCode") ? form["errorCode"].dump() : std::string("-")) + ": " +
                  (form.contains("errorMessage") && form["errorMessage"].is_string()
                       ? form["errorMessage"].get<std::string>()
                       : std::string("-")));
}

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
    const auto delivery = deliverPush(userInfo, timeLimitDuration(timeLimitSeconds));
    if (!delivery.rewritten && delivery.recordId) reportRefusal(*delivery.recordId);
    std::cout << deliveredContentJSON(shownContent(delivery)) << std::endl;
    return delivery.rewritten ? 0 : 3;
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
