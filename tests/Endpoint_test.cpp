#include <FeXONotificationService/Endpoint.hpp>

#include <support/Configuration.hpp>
#include <support/TemporaryDirectory.hpp>

#include <FeXOPlatform/JSONDecoder.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::Endpoint;
using fexo::URLRequest;

fexo::DeviceInfo device()
{
    return {"device-1", "token-1", "+4912345", "com.example.host",      "iOS", "17.0",
            "imei-a",   "imei-b",  "",         fexo::PushProvider::APNS};
}

class EndpointTest : public testing::Test {
protected:
    void configure(const std::string& baseURL) { fexo::test::installConfiguration(directory.path(), baseURL); }

    fexo::test::TemporaryDirectory directory;
};

TEST_F(EndpointTest, BothEndpointsArePostsWithTheThreeHeadersDifferingOnlyInPathAndBody)
{
    configure("https://api.example.com");
    const fexo::NotificationRequestInfo info("recipient-7", "registration-9");
    const URLRequest content = Endpoint::notificationContent(info).urlRequest();
    const URLRequest registration = Endpoint::registerNewDevice(device()).urlRequest();

    EXPECT_EQ(content.url().absoluteString(), "https://api.example.com/api/Notification/GetNotificationContent");
    EXPECT_EQ(registration.url().absoluteString(), "https://api.example.com/api/Registration/RegisterNewDevice");
    const fexo::HTTPHeaderFields headers{{"Content-Type", "application/json"},
                                         {"client_secret", "test-client-secret-0123"},
                                         {"client_id", "test-client-id"}};
    for (const URLRequest* request : {&content, &registration}) {
        EXPECT_EQ(request->httpMethod(), "POST");
        EXPECT_EQ(request->allHTTPHeaderFields(), headers);
        EXPECT_EQ(request->cachePolicy(), URLRequest::CachePolicy::reloadIgnoringLocalAndRemoteCacheData);
        EXPECT_EQ(request->timeoutInterval(), 60.0);
    }
    EXPECT_EQ(content.httpBody(), info.payload());
    EXPECT_EQ(registration.httpBody(), device().payload());
    EXPECT_EQ(fexo::JSONDecoder::parse(content.httpBody().value_or("")),
              (nlohmann::json{{"recipientId", "recipient-7"}, {"registrationId", "registration-9"}}));
}

TEST_F(EndpointTest, BaseURLIsConcatenatedWithThePathAsItStands)
{
    const struct {
        const char* base;
        const char* expected;
    } cases[] = {
        {"https://api.example.com/", "https://api.example.com//api/Registration/RegisterNewDevice"},
        {"https://api.example.com/v2", "https://api.example.com/v2/api/Registration/RegisterNewDevice"},
        {"http://127.0.0.1:8080", "http://127.0.0.1:8080/api/Registration/RegisterNewDevice"},
    };
    for (const auto& c : cases) {
        configure(c.base);
        EXPECT_EQ(Endpoint::registerNewDevice(device()).urlRequest().url().absoluteString(), c.expected) << c.base;
    }
}

TEST_F(EndpointTest, PayloadThatCannotBeEncodedGivesARequestWithoutBody)
{
    configure("https://api.example.com");
    fexo::DeviceInfo broken = device();
    broken.deviceId = "\xc3("; // not UTF-8
    testing::internal::CaptureStdout();
    const URLRequest request = Endpoint::registerNewDevice(broken).urlRequest();
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(request.httpBody().has_value());
    EXPECT_EQ(request.httpMethod(), "POST");
}

using EndpointDeathTest = EndpointTest;

TEST_F(EndpointDeathTest, BaseURLThatFormsNoURLEndsTheProcess)
{
    for (const char* base : {"https://api.exa mple.com", "api.example.com", "https://api.example.com:99999"}) {
        configure(base);
        EXPECT_DEATH((void)Endpoint::notificationContent({"r", "g"}).urlRequest(), "Fatal error");
    }
}

} // namespace
