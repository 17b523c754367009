#pragma once

#include <FeXOPlatform/Export.hpp>

#include <exception>
#include <functional>
#include <string>

namespace fexo {

// A named exception for integration mistakes of the embedding application (a missing
// configuration file or key). raise() hands the exception to the process-wide raise hook.
// The default hook throws the exception as a C++ exception: uncaught, the process ends with
// its name and reason. A hook that returns hands control back to the raiser, which then goes
// on with its documented fallback.
class FEXO_EXPORT NSException : public std::exception {
public:
    using RaiseHook = std::function<void(const NSException&)>;

    NSException(std::string name, std::string reason);

    const std::string& name() const { return name_; }
    const std::string& reason() const { return reason_; }
    const char* what() const noexcept override { return what_.c_str(); }

    void raise() const;

    // Replaces the hook (an empty function restores the default); returns the previous one.
    // Thread-safe; the hook runs on the raising thread.
    static RaiseHook setRaiseHook(RaiseHook hook);

private:
    std::string name_;
    std::string reason_;
    std::string what_;
};

} // namespace fexo
