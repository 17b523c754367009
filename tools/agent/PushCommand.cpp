#include <agent/AgentCommands.hpp>
#include <agent/NotificationAgent.hpp>
#include <agent/RunOptions.hpp>
#include <common/DeliveredContent.hpp>

#include <sdbus-c++/sdbus-c++.h>

#include <poll.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>

namespace fexo::agent {

namespace {

// At most one byte over the limit is read, so that the agent can refuse the push as too large.
std::optional<std::string> readPush(const std::string& name)
{
    std::ifstream file;
    std::istream* input = &std::cin;
    if (!name.empty() && name != "-") {
        file.open(name, std::ios::binary);
        if (!file) {
            std::cerr << "fexo-agent: cannot read " << name << ": " << std::strerror(errno) << std::endl;
            return std::nullopt;
        }
        input = &file;
    }
    std::string push(maximumPushBytes + 1, '\0');
    input->read(push.data(), static_cast<std::streamsize>(push.size()));
    push.resize(static_cast<std::size_t>(input->gcount()));
    return push;
}

int push(const std::string& inputName, double waitSeconds)
{
    const auto userInfoJSON = readPush(inputName);
    if (!userInfoJSON) return 1;
    std::unique_ptr<sdbus::IConnection> connection;
    try {
        connection = sdbus::createSessionBusConnection();
    } catch (const sdbus::Error& error) {
        std::cerr << "fexo-agent: no session bus: " << error.getMessage() << std::endl;
        return 1;
    }
    try {
        auto agent = sdbus::createProxy(*connection, agentBusName, agentObjectPath);
        // Delivered may arrive before Push's answer is read: keep every one until the id is known.
        std::map<std::string, DeliveredContent> delivered;
        agent->uponSignal("Delivered")
            .onInterface(agentInterface)
            .call(
                [&delivered](const std::string& id, const std::string& title, const std::string& body, bool rewritten) {
                    delivered[id] = {title, body, rewritten, std::nullopt};
                });
        agent->finishRegistration();

        std::string requestId;
        agent->callMethod("Push").onInterface(agentInterface).withArguments(*userInfoJSON).storeResultsTo(requestId);
        const auto deadline = std::chrono::steady_clock::now() + durationOf(waitSeconds);
        while (delivered.find(requestId) == delivered.end()) {
            if (connection->processPendingRequest()) continue;
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                std::cerr << "fexo-agent: no Delivered for push " << requestId << " within " << waitSeconds << " s"
                          << std::endl;
                return 1;
            }
            const auto bus = connection->getEventLoopPollData();
            pollfd watched{bus.fd, bus.events, 0};
            ::poll(&watched, 1, static_cast<int>(std::min<long long>(left.count(), 1000)));
        }
        const DeliveredContent& content = delivered[requestId];
        std::cout << deliveredContentJSON(content) << std::endl;
        return content.rewritten ? 0 : 3;
    } catch (const sdbus::Error& error) {
        std::cerr << "fexo-agent: " << error.getName() << ": " << error.getMessage() << std::endl;
        return 1;
    }
}

} // namespace

void addPushCommand(CLI::App& app, int& exitCode)
{
    auto input = std::make_shared<std::string>("-");
    auto wait = std::make_shared<double>(120.0);
    auto* command = app.add_subcommand("push", "Hand one push to the agent on the session bus, wait for its "
                                               "delivery and print the content delivered (exit 0 rewritten, "
                                               "3 original)");
    command->add_option("FILE", *input, "The push's user-info JSON object; - for standard input")
        ->capture_default_str();
    command->add_option("--wait", *wait, "Seconds to wait for the delivery")
        ->capture_default_str()
        ->check(finitePositive("seconds"));
    command->callback([input, wait, &exitCode] { exitCode = push(*input, *wait); });
}

} // namespace fexo::agent
