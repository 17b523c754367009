// `fexo config check`: the configuration as the library loads it, told without raising, and
// shown so that neither the secret nor a value's control characters reach the terminal.
#include <support/SmallFileSystem.hpp>
#include <support/ToolSandbox.hpp>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

// Both forms of the file are the property-list reader's; the binary one can carry controls. The
// messages of a broken file are the library's; the command tells them on one line and exits 1.
TEST(ConfigCommand, PrintsTheSettingsWithTheSecretMaskedAndControlsEscapedOrTheLibrarysException)
{
    fexo::test::ToolSandbox sandbox(FEXO_TOOL_PATH);
    const std::tuple<std::string, int, std::string, std::string> cases[] = {
        {"{'FEXO_BASE_URL': 'http://127.0.0.1:8080/', 'CLIENT_SECRET': 'very-secret-value-9876', "
         "'CLIENT_ID': 'app\\nCLIENT_ID=forged', 'APP_GROUP': 'g\\x1b]0;title\\x07', 'BUNDLE_ID': 'com.\\u00e9'}",
         0,
         "FEXO_BASE_URL=http://127.0.0.1:8080/\nCLIENT_SECRET=****9876\nCLIENT_ID=app\\nCLIENT_"
         "ID=forged\nAPP_GROUP=g\\x1B]0;title\\x07\nBUNDLE_ID=com.\u00e9\n",
         ""},
        {"{'FEXO_BASE_URL': 'u', 'CLIENT_ID': 5}", 1, "",
         "fexo: NSObjectNotAvailableException: CLIENT_SECRET is not found in FeXOService-Info.plist\n"},
    };
    for (const auto& [dictionary, exitCode, printed, error] : cases) {
        fexo::test::writeConfigurationWithPython(sandbox.resources(), dictionary, true);
        const auto result = sandbox.run({"--resources", sandbox.resources(), "config", "check"});
        EXPECT_EQ(std::tie(result.exitCode, result.standardOutput, result.standardError),
                  std::tie(exitCode, printed, error));
    }
}

TEST(ConfigCommand, WarnsWhenTheSecretWouldTravelInClear)
{
    fexo::test::ToolSandbox sandbox(FEXO_TOOL_PATH);
    const std::pair<const char*, bool> cases[] = {
        {"HTTP://10.0.0.1:8080", true}, {"http://[::ffff:10.0.0.1]", true}, {"http://127.0.0.2:8080/", false},
        {"http://localhost", false},    {"http://[::1]:80", false},         {"https://example.com", false},
    };
    for (const auto& [baseURL, warned] : cases) {
        sandbox.configure(baseURL);
        const auto result = sandbox.run({"config", "check"});
        EXPECT_EQ(result.exitCode, 0) << baseURL;
        EXPECT_EQ(result.standardError.find("not a loopback address: the client secret would travel in clear") !=
                      std::string::npos,
                  warned)
            << baseURL << result.standardError;
    }
}

// What would end a process later is found now, and nothing is made to find it.
TEST(ConfigCommand, RefusesWhatWouldEndAProcessLaterAndCreatesNothing)
{
    fexo::test::ToolSandbox sandbox(FEXO_TOOL_PATH);
    const auto groups = std::filesystem::path(std::getenv("FEXO_APP_GROUPS_DIR"));
    const std::string unusable =
        "is not a usable app group name: it is empty, \".\" or \"..\", or holds \"/\" or NUL\n";
    const std::pair<std::string, std::string> cases[] = {
        {"'FEXO_BASE_URL': 'not a url'",
         "fexo: FEXO_BASE_URL \"not a url\" does not form a URL with the path /api/Notification/GetNotificationContent\n"},
        {"'FEXO_BASE_URL': 'file:///tmp'", "fexo: FEXO_BASE_URL \"file:///tmp\" is not an http or https URL\n"},
        {"'APP_GROUP': '../../../tmp/escape'",
         "fexo: APP_GROUP: the app group's store cannot be opened or made: \"../../../tmp/escape\" " + unusable},
        {"'APP_GROUP': '..'", "fexo: APP_GROUP: the app group's store cannot be opened or made: \"..\" " + unusable},
    };
    for (const auto& [value, error] : cases) {
        fexo::test::writeConfigurationWithPython(
            sandbox.resources(),
            "{'FEXO_BASE_URL': 'http://127.0.0.1:9', 'CLIENT_SECRET': 's', 'CLIENT_ID': 'c', 'APP_GROUP': 'g', "
            "'BUNDLE_ID': 'b', " +
                value + "}",
            false);
        const auto result = sandbox.run({"config", "check"});
        EXPECT_EQ(result.exitCode, 1) << value;
        EXPECT_EQ(result.standardOutput, "") << value;
        EXPECT_EQ(result.standardError, error);
    }
    EXPECT_TRUE(std::filesystem::is_empty(groups)); // the checks made no store, no folder

    std::filesystem::remove(sandbox.resources() / "FeXOService-Info.plist");
    const auto missing = sandbox.run({"--resources", "/nonexistent/folder", "config", "check"});
    EXPECT_EQ(missing.standardError,
              "fexo: NSGenericException:  FeXO notifications framework could not find a valid FeXOService-Info.plist "
              "in your project. (FeXOService-Info.plist was looked for in /nonexistent/folder; set "
              "FEXO_RESOURCES_DIR to look elsewhere)\n");
}

// A store the tool cannot open: the check says why and exits 1; a command that needs the store
// ends with the system's reason and path first, the fixed message last.
TEST(ConfigCommand, AStoreThatCannotBeOpenedIsFoundByTheCheckAndNamedBeforeTheFatalMessage)
{
    std::string whyNot;
    const auto disk = fexo::test::SmallFileSystem::mount(1 << 20, whyNot);
    if (!disk) GTEST_SKIP() << whyNot;
    fexo::test::ToolSandbox sandbox(FEXO_TOOL_PATH);
    const std::string group = sandbox.values().appGroup;
    const auto root = disk->path() / "groups";
    ::setenv("FEXO_APP_GROUPS_DIR", root.c_str(), 1);
    const std::string fatal = "Fatal error: App Group Not Found " + group + "\n";

    disk->remount(true); // nothing there yet, and nothing can be made
    const auto refused = sandbox.run({"config", "check"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.standardError, "fexo: APP_GROUP: the app group's store cannot be opened or made: " +
                                         disk->path().string() + ": Read-only file system\n");
    const auto ended = sandbox.run({"list"});
    EXPECT_EQ(ended.signal, SIGABRT);
    EXPECT_EQ(ended.standardError, root.string() + ": Read-only file system\n" + fatal);
    disk->remount(false);

    ASSERT_EQ(sandbox.run({"write"}, R"({"id":"1","data":{"text":"t"}})").exitCode, 0);
    const auto signal = root / group / "defaults.sqlite-changed";
    std::filesystem::remove(signal);
    disk->remount(true); // an existing store reads on a read-only file system
    EXPECT_EQ(sandbox.run({"config", "check"}).exitCode, 0);
    // ...but cannot be watched without the file its writers touch, which cannot be made there.
    const auto unwatched = sandbox.run({"watch"});
    EXPECT_EQ(unwatched.exitCode, 1);
    EXPECT_EQ(unwatched.standardError,
              "fexo: the store cannot be watched: " + signal.string() + ": Read-only file system\n");
    disk->remount(false);

    // Another user, who may read the configuration but not the store.
    for (const auto& path : {sandbox.resources().parent_path(), sandbox.resources(), disk->path(), root})
        ::chmod(path.c_str(), 0755);
    ::chmod((sandbox.resources() / "FeXOService-Info.plist").c_str(), 0644);
    const std::string store = (root / group / "defaults.sqlite").string();
    // An instrumented build's counters are written where that user may write (env, so that this
    // process keeps its own).
    fexo::test::TemporaryDirectory counters;
    ::chmod(counters.path().c_str(), 0777);
    const auto asNobody = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"GCOV_PREFIX=" + counters.path().string(), "/usr/bin/setpriv",
                                             "--reuid=65534", "--regid=65534", "--clear-groups", FEXO_TOOL_PATH});
        return fexo::test::ChildProcess::run("/usr/bin/env", arguments);
    };
    const auto foreign = asNobody({"config", "check"});
    EXPECT_EQ(foreign.exitCode, 1) << foreign.standardError;
    EXPECT_EQ(foreign.standardError,
              "fexo: APP_GROUP: the app group's store cannot be opened or made: " + store + ": Permission denied\n");
    const auto foreignEnded = asNobody({"list"});
    EXPECT_EQ(foreignEnded.signal, SIGABRT);
    EXPECT_EQ(foreignEnded.standardError, store + ": Permission denied\n" + fatal);
}

} // namespace
