// `fexo register` as the host app's process: what it sends, and how the outcome becomes its
// exit status (0 accepted, 2 refused by the server, 1 no usable answer).
#include <support/LoopbackServer.hpp>
#include <support/ToolSandbox.hpp>

#include <gtest/gtest.h>

namespace {

using nlohmann::json;

TEST(RegisterCommand, SendsEveryFlagAndTheAnswersBodyNotItsStatusDecidesTheExitStatus)
{
    fexo::test::LoopbackServer server;
    const json refusal{{"errorMessage", "Validation failed"}, {"errors", {{{"field", "deviceId"}}}}};
    const struct {
        std::string baseURL;
        int status;
        std::string body;
        int exitCode;
        std::string standardOutput;
        std::string standardErrorStart;
    } cases[] = {
        {server.baseURL(), 400, refusal.dump(), 2, refusal.dump() + "\n", ""},
        {server.baseURL(), 200, R"({"errors":[]})", 0, "{\"errors\":[]}\n", ""},
        {server.baseURL(), 500, "{}", 0, "{}\n", ""},
        {server.baseURL(), 200, R"({"errorMessage":5})", 1, "", "fexo: The data couldn"},
        {"http://127.0.0.1:" + std::to_string(fexo::test::unusedLoopbackPort()), 0, "", 1, "",
         "fexo: Could not connect to the server.\n"},
    };
    fexo::test::ToolSandbox sandbox(FEXO_TOOL_PATH);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.standardErrorStart + c.body);
        server.setHandler([status = c.status, body = c.body](const httplib::Request&, httplib::Response& response) {
            response.status = status;
            response.set_content(body, "application/json");
        });
        sandbox.configure(c.baseURL);
        std::vector<std::string> arguments{
            "register", "--token", "token-1", "--device-id", "device-1",        "--provider", "apns",
            "--imei1",  "111",     "--imei2", "222",         "--mobile-number", "+15550100"};
        const auto result = sandbox.run(arguments);
        EXPECT_EQ(result.exitCode, c.exitCode) << result.standardError;
        EXPECT_EQ(result.standardOutput, c.standardOutput);
        EXPECT_EQ(result.standardError.rfind(c.standardErrorStart, 0), 0u) << result.standardError;
    }
    ASSERT_EQ(server.requests().size(), 4u);
    EXPECT_EQ(server.requests()[0].path, "/api/Registration/RegisterNewDevice");
    json sent = json::parse(server.requests()[0].body);
    EXPECT_EQ(sent["appId"], sandbox.values().bundleId);
    sent.erase("osVersion"), sent.erase("appId"); // the host's, and the bundle's
    EXPECT_EQ(sent, json::parse(R"({"deviceId":"device-1","registrationId":"token-1","pushNotificationProvider":2,)"
                                R"("osType":"iOS","imeI1":"111","imeI2":"222","mobileNumber":"+15550100","data":""})"));
}

} // namespace
