#include <FeXONotificationService/Endpoint.hpp>

#include <support/Configuration.hpp>
#include <support/TemporaryDirectory.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::Endpoint;
using fexo::URLRequest;

const fexo::DeviceInfo device("device-1", "token-1", "", "", "", "", "", "", "", fexo::PushProvider::APNS);

class EndpointTest : public testing::Test {
protected:
    void configure(const std::string& baseURL)
    {
        fexo::test::installConfiguration(directory.path(), {.baseURL = baseURL});
    }
    fexo::test::TemporaryDirectory directory;
};

TEST_F(EndpointTest, BothEndpointsArePostsWithTheThreeHeadersDifferingOnlyInPathAndBody)
{
    configure("https://api.example.com/"); // joined with the path as it stands
    const fexo::NotificationRequestInfo info("recipient-7", "registration-9");
    const URLRequest content = Endpoint::notificationContent(info).urlRequest();
    const URLRequest registration = Endpoint::registerNewDevice(device).urlRequest();

    EXPECT_EQ(content.url().absoluteString(), "https://api.example.com//api/Notification/GetNotificationContent");
    EXPECT_EQ(registration.url().absoluteString(), "https://api.example.com//api/Registration/RegisterNewDevice");
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
    EXPECT_EQ(registration.httpBody(), device.payload());
    fexo::DeviceInfo broken = device;
    broken.deviceId = "\xc3("; // not UTF-8: still a POST, without a body, and the error printed
    testing::internal::CaptureStdout();
    const URLRequest bodiless = Endpoint::registerNewDevice(broken).urlRequest();
    EXPECT_NE(testing::internal::GetCapturedStdout().find("invalidValue"), std::string::npos);
    EXPECT_EQ(bodiless.httpMethod() + (bodiless.httpBody() ? " with a body" : ""), "POST");
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
