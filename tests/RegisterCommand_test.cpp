// `fexo register` as the host app's process: what it sends, and how the outcome becomes its
// exit status (0 accepted, 2 refused by the server, 1 no usable answer).
#include <support/LoopbackServer.hpp>
#include <support/ToolSandbox.hpp>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace {

using fexo::test::LoopbackServer;
using fexo::test::ToolSandbox;
using nlohmann::json;

const std::vector<std::string> registration{
    "register", "--token", "token-1", "--device-id", "device-1",        "--provider", "apns",
    "--imei1",  "111",     "--imei2", "222",         "--mobile-number", "+15550100"};

TEST(RegisterCommand, TheDevelopmentServerAcceptsAndKeepsTheRegistration)
{
    ToolSandbox sandbox(FEXO_TOOL_PATH);
    sandbox.serve();

    const auto result = sandbox.run(registration);
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_EQ(result.standardOutput, "{}\n");

    const json kept = sandbox.registrations();
    ASSERT_EQ(kept.size(), 1u) << kept;
    const json expected{{"deviceId", "device-1"},
                        {"registrationId", "token-1"},
                        {"pushNotificationProvider", 2},
                        {"appId", sandbox.values().bundleId},
                        {"osType", "iOS"},
                        {"imeI1", "111"},
                        {"imeI2", "222"},
                        {"mobileNumber", "+15550100"},
                        {"data", ""}};
    for (const auto& [key, value] : expected.items()) EXPECT_EQ(kept[0][key], value) << key;
}

TEST(RegisterCommand, TheAnswersBodyDecidesNotItsStatus)
{
    const json refusal{{"errorMessage", "Validation failed"},
                       {"errors", {{{"field", "deviceId"}, {"errorMessage", "The deviceId field is required."}}}}};
    const struct {
        int status;
        std::string body;
        int exitCode;
        std::string standardOutput;
        std::string standardErrorStart;
    } cases[] = {
        {400, refusal.dump(), 2, refusal.dump() + "\n", ""},
        {200, R"({"errors":[]})", 0, "{\"errors\":[]}\n", ""},
        {500, "{}", 0, "{}\n", ""},
        {200, R"({"errorMessage":5})", 1, "", "fexo: The data couldn"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        ToolSandbox sandbox(FEXO_TOOL_PATH);
        LoopbackServer server;
        server.setHandler([&c](const httplib::Request&, httplib::Response& response) {
            response.status = c.status;
            response.set_content(c.body, "application/json");
        });
        sandbox.configure(server.baseURL());

        const auto result = sandbox.run(registration);
        EXPECT_EQ(result.exitCode, c.exitCode) << result.standardError;
        EXPECT_EQ(result.standardOutput, c.standardOutput);
        EXPECT_EQ(result.standardError.rfind(c.standardErrorStart, 0), 0u) << result.standardError;
        ASSERT_EQ(server.requests().size(), 1u);
        EXPECT_EQ(server.requests()[0].path, "/api/Registration/RegisterNewDevice");
    }
}

TEST(RegisterCommand, NoUsableAnswerExitsOneWithTheTransportsDescription)
{
    LoopbackServer drip; // a byte every 100 ms, never idle, never done
    drip.setHandler([](const httplib::Request&, httplib::Response& response) {
        response.set_chunked_content_provider("application/json", [](size_t, httplib::DataSink& sink) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            return sink.write(" ", 1);
        });
    });
    const struct {
        std::string baseURL;
        std::string standardError;
    } cases[] = {
        {"http://127.0.0.1:" + std::to_string(fexo::test::unusedLoopbackPort()),
         "fexo: Could not connect to the server.\n"},
        {drip.baseURL(), "fexo: The request timed out.\n"}, // the time limit ends the transfer itself
    };
    for (const auto& c : cases) {
        ToolSandbox sandbox(FEXO_TOOL_PATH);
        sandbox.configure(c.baseURL);
        auto arguments = registration;
        arguments.insert(arguments.end(), {"--time-limit", "1"});
        const auto result = sandbox.run(arguments);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.standardError, c.standardError);
        EXPECT_EQ(result.standardOutput, "");
    }
}

} // namespace
