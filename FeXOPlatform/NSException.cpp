#include <FeXOPlatform/NSException.hpp>

#include <mutex>
#include <utility>

namespace fexo {

namespace {

std::mutex& hookMutex()
{
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

NSException::RaiseHook& currentHook()
{
    static auto* hook = new NSException::RaiseHook();
    return *hook;
}

} // namespace

NSException::NSException(std::string name, std::string reason)
    : name_(std::move(name)), reason_(std::move(reason)), what_(name_ + ": " + reason_)
{
}

void NSException::raise() const
{
    RaiseHook hook;
    {
        std::lock_guard lock(hookMutex());
        hook = currentHook();
    }
    if (hook) {
        hook(*this);
        return;
    }
    throw *this;
}

NSException::RaiseHook NSException::setRaiseHook(RaiseHook hook)
{
    std::lock_guard lock(hookMutex());
    return std::exchange(currentHook(), std::move(hook));
}

} // namespace fexo
