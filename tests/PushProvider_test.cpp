#include <FeXONotificationService/PushProvider.hpp>

#include <gtest/gtest.h>

TEST(PushProvider, RawValuesAreOneToThree)
{
    using fexo::PushProvider;
    EXPECT_EQ(fexo::rawValue(PushProvider::FCM), 1);
    EXPECT_EQ(fexo::rawValue(PushProvider::APNS), 2);
    EXPECT_EQ(fexo::rawValue(PushProvider::pushWoosh), 3);
    for (std::int64_t raw : {0, -1, 4, 100}) EXPECT_FALSE(fexo::pushProviderFromRawValue(raw)) << raw;
    EXPECT_EQ(fexo::pushProviderFromRawValue(2), PushProvider::APNS);
}
