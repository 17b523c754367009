#include <fexo/Commands.hpp>
#include <fexo/TimeLimit.hpp>

#include <common/TerminalText.hpp>

#include <FeXONotificationService/FeXOService.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <algorithm>
#include <cctype>
#include <future>
#include <iostream>
#include <map>
#include <sstream>

namespace fexo::tool {

namespace {

struct RegisterArguments {
    std::string token;
    std::string deviceId;
    PushProvider provider = PushProvider::FCM;
    std::string imeI1;
    std::string imeI2;
    std::string mobileNumber;
    double timeLimitSeconds = 120;
};

int registerDevice(const RegisterArguments& arguments)
{
    // The transfer itself ends at the time limit, however slowly the server drips its answer.
    URLSessionConfiguration configuration;
    configuration.timeoutIntervalForResource = arguments.timeLimitSeconds;
    URLSession::setSharedConfiguration(configuration);
    // Shared with the completion, which may still run after a time limit has passed.
    auto outcome = std::make_shared<std::promise<Result<RegisterDeviceModel>>>();
    auto answer = outcome->get_future();
    FeXOService().registerDevice(
        arguments.token, arguments.deviceId, arguments.imeI1, arguments.imeI2, arguments.mobileNumber,
        arguments.provider, [outcome](Result<RegisterDeviceModel> result) { outcome->set_value(std::move(result)); });
    // A moment beyond the limit, so that the transfer's own time-out is what is reported.
    if (answer.wait_for(timeLimitDuration(arguments.timeLimitSeconds) + std::chrono::seconds(1)) !=
        std::future_status::ready) {
        std::ostringstream seconds;
        seconds << arguments.timeLimitSeconds;
        reportProblem("no answer within " + seconds.str() + " seconds");
        return 1;
    }
    const auto result = answer.get();
    if (result.isFailure()) {
        reportProblem(result.error().localizedDescription());
        return 1;
    }
    const std::string json = JSONEncoder{}.encode(result.value());
    std::cout << json << std::endl;
    // The record's fields are opaque to host apps: judge it by its JSON, as they would.
    const auto fields = nlohmann::json::parse(json);
    const bool refused = fields.contains("errorMessage") || (fields.contains("errors") && !fields["errors"].empty());
    return refused ? 2 : 0;
}

} // namespace

void addRegisterCommand(CLI::App& app, const ToolOptions& options, int& exitCode)
{
    auto arguments = std::make_shared<RegisterArguments>();
    auto* command = app.add_subcommand("register", "Register this device with the server through FeXOService");
    command->add_option("--token", arguments->token, "The device's push token")->required();
    command->add_option("--device-id", arguments->deviceId, "The device's identifier")->required();
    // The name is turned into the provider's raw value, which the option then reads.
    const CLI::Validator provider(
        [](std::string& text) -> std::string {
            std::string name = text;
            std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
            const std::pair<const char*, PushProvider> names[] = {
                {"fcm", PushProvider::FCM}, {"apns", PushProvider::APNS}, {"pushwoosh", PushProvider::pushWoosh}};
            for (const auto& [known, value] : names) {
                if (name == known) {
                    text = std::to_string(static_cast<int>(value));
                    return {};
                }
            }
            return "the push provider is fcm, apns or pushwoosh, not " + text;
        },
        "fcm|apns|pushwoosh");
    command->add_option("--provider", arguments->provider, "The push provider")->required()->transform(provider);
    command->add_option("--imei1", arguments->imeI1, "First IMEI");
    command->add_option("--imei2", arguments->imeI2, "Second IMEI");
    command->add_option("--mobile-number", arguments->mobileNumber, "The device's mobile number");
    addTimeLimitOption(*command, "--time-limit", arguments->timeLimitSeconds, "Seconds to wait for the answer");
    command->callback([&options, &exitCode, arguments] {
        options.apply();
        exitCode = registerDevice(*arguments);
    });
}

} // namespace fexo::tool
