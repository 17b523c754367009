// The client secret must never leave the tool in clear: not on standard output, not on standard
// error, not in a diagnostic of a failure. Only its masked form ("****" and the last four
// characters) may appear.

#include <support/ChildProcess.hpp>
#include <support/Configuration.hpp>
#include <support/LoopbackServer.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <fstream>
#include <random>
#include <sstream>

namespace {

using fexo::test::ProcessResult;
using fexo::test::TemporaryDirectory;

std::string uniqueSecret()
{
    std::random_device device;
    std::string secret = "Sekr1t-";
    const char* digits = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (int i = 0; i < 48; ++i) secret += digits[device() % 62];
    return secret;
}

// The first window of eight characters of `secret` found in `text`, if any. The last four
// characters alone (the masked form) are shorter than any window.
std::optional<std::string> leak(const std::string& text, const std::string& secret)
{
    for (std::size_t at = 0; at + 8 <= secret.size(); ++at)
        if (text.find(secret.substr(at, 8)) != std::string::npos) return secret.substr(at, 8);
    return std::nullopt;
}

class SecretsTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(groups);
        for (auto* directory : {&serverResources, &resources, &offline, &refused})
            std::filesystem::create_directories(*directory);
    }

    void configure(const std::filesystem::path& directory, const std::string& baseURL)
    {
        fexo::test::ConfigurationValues values;
        values.baseURL = baseURL;
        values.clientSecret = secret;
        values.clientId = "secrets-test-client";
        fexo::test::installConfiguration(directory, values);
    }

    // Runs the tool with `arguments`, expects `exitCode` (any when empty) and checks both outputs.
    ProcessResult run(const std::vector<std::string>& arguments, std::optional<int> exitCode,
                      const std::filesystem::path& configuration, const std::string& input = "")
    {
        fexo::test::ProcessOptions options;
        options.environment["FEXO_RESOURCES_DIR"] = configuration.string();
        options.environment["FEXO_APP_GROUPS_DIR"] = groups.string();
        options.standardInput = input;
        options.timeLimit = std::chrono::seconds(60);
        ProcessResult result = fexo::test::ChildProcess::run(FEXO_TOOL_PATH, arguments, options);
        std::string command;
        for (const auto& argument : arguments) command += " " + argument;
        ++commandsRun;
        if (exitCode) {
            EXPECT_EQ(result.exitCode, *exitCode) << "fexo" << command << "\n" << result.standardError;
        }
        expectNoLeak(result.standardOutput + "\n" + result.standardError, "fexo" + command);
        return result;
    }

    void expectNoLeak(const std::string& text, const std::string& what)
    {
        if (auto found = leak(text, secret)) {
            ADD_FAILURE() << what << " printed part of the secret (" << *found << "):\n" << text;
        }
    }

    // A `fexo serve` child with its standard error in a file; returns the base URL it prints.
    std::unique_ptr<fexo::test::ChildProcess> serve(const std::filesystem::path& errors, std::vector<std::string> extra = {})
    {
        std::vector<std::string> arguments{"-c", "exec \"$0\" \"$@\" 2>\"$FEXO_SERVE_ERRORS\"", FEXO_TOOL_PATH,
                                           "--resources", serverResources.string(), "serve", "--port", "0"};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        fexo::test::ProcessOptions options;
        options.environment["FEXO_SERVE_ERRORS"] = errors.string();
        return std::make_unique<fexo::test::ChildProcess>("/bin/sh", arguments, options);
    }

    std::string contents(const std::filesystem::path& file)
    {
        std::ifstream stream(file);
        std::stringstream text;
        text << stream.rdbuf();
        return text.str();
    }

    const std::string secret = uniqueSecret();
    TemporaryDirectory directory;
    std::filesystem::path groups = directory.path() / "groups";
    std::filesystem::path serverResources = directory.path() / "server";
    std::filesystem::path resources = directory.path() / "online";
    std::filesystem::path offline = directory.path() / "offline";
    std::filesystem::path refused = directory.path() / "refused";
    int commandsRun = 0;
};

TEST_F(SecretsTest, NoCommandPrintsTheClientSecretOnAnyPath)
{
    configure(serverResources, "http://127.0.0.1:9");
    const auto serverErrors = directory.path() / "serve.err";
    auto server = serve(serverErrors);
    const std::string baseURL = server->readLine();
    ASSERT_TRUE(baseURL.starts_with("http://127.0.0.1:")) << baseURL;
    expectNoLeak(baseURL, "fexo serve");
    configure(resources, baseURL);
    configure(offline, "http://127.0.0.1:" + std::to_string(fexo::test::unusedLoopbackPort()));

    // A second server that accepts other credentials only: it refuses every request with 401.
    const auto refusingErrors = directory.path() / "refusing.err";
    auto refusing = serve(refusingErrors, {"--client-id", "someone-else", "--client-secret", "another-secret-entirely"});
    const std::string refusingURL = refusing->readLine();
    ASSERT_TRUE(refusingURL.starts_with("http://127.0.0.1:")) << refusingURL;
    configure(refused, refusingURL);

    // Help of the tool and of every command.
    run({"--help"}, 0, resources);
    for (const char* command : {"config", "register", "handle-push", "list", "show", "mark-read", "delete",
                                "delete-all", "logout", "write", "serve", "demo"})
        run({command, "--help"}, 0, resources);
    run({"config", "check", "--help"}, 0, resources);

    // The configuration, in full and with a key missing beside the secret.
    const auto shown = run({"config", "check"}, 0, resources);
    EXPECT_NE(shown.standardOutput.find("CLIENT_SECRET=****" + secret.substr(secret.size() - 4)), std::string::npos)
        << shown.standardOutput;
    {
        const auto broken = directory.path() / "broken";
        std::filesystem::create_directories(broken);
        fexo::PropertyListValue::Dictionary values{{"CLIENT_SECRET", fexo::PropertyListValue(secret)},
                                                    {"CLIENT_ID", fexo::PropertyListValue(std::string("c"))}};
        ASSERT_TRUE(fexo::PropertyList::writeFile(fexo::PropertyListValue(values), broken / "FeXOService-Info.plist",
                                                  fexo::PropertyList::Format::xml));
        run({"config", "check"}, 1, broken);
        run({"list"}, std::nullopt, broken);
    }

    // Registration: accepted, refused by the server, nothing listening, and invalid (400).
    run({"register", "--token", "tok", "--device-id", "dev", "--provider", "apns", "--time-limit", "20"}, 0, resources);
    run({"register", "--token", "tok", "--device-id", "dev", "--provider", "apns", "--time-limit", "20"}, std::nullopt,
        refused);
    run({"register", "--token", "tok", "--device-id", "dev", "--provider", "fcm", "--time-limit", "20"}, 1, offline);
    run({"register", "--token", "", "--device-id", "", "--provider", "fcm", "--time-limit", "20"}, std::nullopt,
        resources);

    // A push queued on the development server, handled, then every store command on its record.
    httplib::Client client(baseURL);
    client.set_connection_timeout(10);
    client.set_read_timeout(10);
    const httplib::Headers headers{{"client_id", "secrets-test-client"}, {"client_secret", secret}};
    auto queued = client.Post("/dev/notifications", headers,
                              R"({"recipientId":"dev","text":"hello","sender":"tester"})", "application/json");
    ASSERT_TRUE(queued);
    ASSERT_EQ(queued->status, 200) << queued->body;
    const std::string push = queued->body;
    run({"handle-push", "--timeout", "20"}, 0, resources, push);
    // Nothing queued any more, and refused credentials: the server says so in a record, which
    // the extension stores like any other.
    run({"handle-push", "--timeout", "20"}, 0, resources, push);
    run({"handle-push", "--timeout", "20"}, 0, refused, push);
    run({"handle-push", "--timeout", "20"}, 3, offline, push);
    run({"handle-push", "--timeout", "20"}, 1, resources, "not json");

    const auto listed = run({"list", "--json"}, 0, resources);
    const auto records = nlohmann::json::parse(listed.standardOutput, nullptr, false);
    ASSERT_TRUE(records.is_array() && records.size() == 3) << listed.standardOutput;
    std::string id;
    for (const auto& record : records)
        if (record.contains("data")) id = record.value("id", "");
    ASSERT_FALSE(id.empty()) << listed.standardOutput;
    run({"list"}, 0, resources);
    run({"show", id}, 0, resources);
    run({"show", "no-such-id"}, std::nullopt, resources);
    run({"mark-read", id}, 0, resources);
    run({"mark-read", "no-such-id"}, std::nullopt, resources);
    run({"write"}, 0, resources, R"({"id":"written","data":{"text":"t","sender":"s"}})");
    run({"write"}, std::nullopt, resources, "{\"id\":");
    run({"delete", id}, 0, resources);
    run({"delete", "no-such-id"}, std::nullopt, resources);
    run({"delete-all"}, 0, resources);
    run({"logout"}, 0, resources);

    // Every command where nothing answers, and against the refusing server.
    for (const auto* configuration : {&offline, &refused})
        for (const char* command : {"list", "delete-all", "logout"}) run({command}, 0, *configuration);

    run({"demo"}, 0, resources);

    EXPECT_EQ(server->stop(SIGTERM), 0);
    EXPECT_EQ(refusing->stop(SIGTERM), 0);
    const std::string served = contents(serverErrors);
    EXPECT_NE(served.find("RegisterNewDevice -> 200"), std::string::npos) << served;
    expectNoLeak(served, "fexo serve");
    const std::string refusals = contents(refusingErrors);
    EXPECT_NE(refusals.find("-> 401"), std::string::npos) << refusals;
    expectNoLeak(refusals, "fexo serve (refusing)");
    std::printf("%d commands run, 2 servers\n", commandsRun);
}

} // namespace
