#include <FeXOPlatform/PropertyListStack.hpp>

#include <gtest/gtest.h>

#include <pthread.h>

#include <new>
#include <string>

namespace {

using fexo::propertyListStackSize;

std::string nestedArrays(int levels)
{
    std::string open, close;
    for (int i = 0; i < levels; ++i) open += "<array>", close += "</array>";
    return "<plist version=\"1.0\">" + open + close + "</plist>";
}

// A binary list's nesting is bounded by its object count (the trailer's second field), whatever
// bytes its strings hold.
TEST(PropertyListStack, OnlyInputThatCanNestDeepNeedsAStackOfItsOwn)
{
    EXPECT_EQ(propertyListStackSize(nestedArrays(8), false), 0u);
    EXPECT_GT(propertyListStackSize(nestedArrays(500), false), 500u * 100);
    const std::string manyBrackets = "bplist00\x5f\x10\x64" + std::string(100, '<') + std::string(1, '\x08') +
                                     std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + "\x01" +
                                     std::string(8, '\0') + std::string(7, '\0') + "\x6f";
    EXPECT_EQ(propertyListStackSize(manyBrackets, true), 0u);
}

TEST(PropertyListStack, TheWorkRunsOnAThreadWithThatStackAndItsExceptionReachesTheCaller)
{
    const pthread_t caller = pthread_self();
    std::size_t stackSize = 0;
    bool elsewhere = false;
    fexo::runOnThreadWithStack(std::size_t{4} << 20, [&] {
        elsewhere = !pthread_equal(pthread_self(), caller);
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &stackSize);
        pthread_attr_destroy(&attributes);
    });
    EXPECT_TRUE(elsewhere);
    EXPECT_GE(stackSize, std::size_t{4} << 20);
    EXPECT_THROW(fexo::runOnThreadWithStack(1 << 20, [] { throw std::bad_alloc(); }), std::bad_alloc);
}

} // namespace
