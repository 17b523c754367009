#include <FeXOPlatform/PropertyListStack.hpp>

#include <pthread.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <new>

namespace fexo {

namespace {

// Containers nested this deep or less are read on the caller's stack: a few kilobytes of it.
constexpr std::size_t inlineDepth = 64;

// An upper bound on how deep the containers of `bytes` can nest. A binary list (already checked)
// holds no more levels than objects, which its trailer counts; in a text form every container
// opens with one of "<[{(".
std::size_t nestingBound(std::string_view bytes, bool binary)
{
    if (!binary) {
        return static_cast<std::size_t>(std::count_if(
            bytes.begin(), bytes.end(), [](char c) { return c == '<' || c == '[' || c == '{' || c == '('; }));
    }
    constexpr std::size_t trailerSize = 32;
    if (bytes.size() < trailerSize) return bytes.size();
    std::uint64_t objects = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        objects = (objects << 8) | static_cast<unsigned char>(bytes[bytes.size() - trailerSize + 8 + i]);
    }
    return static_cast<std::size_t>(std::min<std::uint64_t>(objects, bytes.size()));
}

} // namespace

std::size_t propertyListStackSize(std::string_view bytes, bool binary)
{
    if (nestingBound(bytes, binary) <= inlineDepth) return 0;
    return (std::size_t{1} << 20) + 128 * bytes.size();
}

void runOnThreadWithStack(std::size_t stackSize, const std::function<void()>& work)
{
    struct Task {
        const std::function<void()>& work;
        std::exception_ptr error;
    } task{work, nullptr};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackSize);
    pthread_t thread;
    const auto run = [](void* argument) -> void* {
        auto& task = *static_cast<Task*>(argument);
        try {
            task.work();
        } catch (...) {
            task.error = std::current_exception();
        }
        return nullptr;
    };
    const bool started = pthread_create(&thread, &attributes, run, &task) == 0;
    pthread_attr_destroy(&attributes);
    if (!started) throw std::bad_alloc();
    pthread_join(thread, nullptr);
    if (task.error) std::rethrow_exception(task.error);
}

} // namespace fexo
