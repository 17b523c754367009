// The process-wide parts reached from C: the resources directory, the configuration check and
// the URL session's idle wait.
#include <capi/Boundary.hpp>

#include <FeXONotificationService/FeXOConfigurationCheck.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/URLSession.hpp>

#include <chrono>

using fexo::capi::copyString;
using fexo::capi::guarded;

extern "C" {

char* fexo_resources_directory(void)
{
    char* directory = nullptr;
    guarded(nullptr, [&] {
        directory = copyString(fexo::Bundle::main().resourcesDirectory().string());
        return FEXO_OK;
    });
    return directory;
}

fexo_status fexo_set_resources_directory(const char* path)
{
    return guarded(nullptr, [&] {
        if (path == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        fexo::Bundle::main().setResourcesDirectory(path);
        return FEXO_OK;
    });
}

fexo_status fexo_check_configuration(char** exception_name, char** exception_reason)
{
    return fexo_check_configuration_for(FEXO_CHECK_EVERYTHING, exception_name, exception_reason);
}

fexo_status fexo_check_configuration_for(uint32_t parts, char** exception_name, char** exception_reason)
{
    if (exception_name != nullptr) *exception_name = nullptr;
    if (exception_reason != nullptr) *exception_reason = nullptr;
    return guarded(nullptr, [&] {
        if ((parts & ~static_cast<uint32_t>(FEXO_CHECK_EVERYTHING)) != 0) return FEXO_ERROR_INVALID_ARGUMENT;
        unsigned checked = 0;
        if ((parts & FEXO_CHECK_SERVER) != 0) checked |= fexo::FeXOConfigurationCheck::server;
        if ((parts & FEXO_CHECK_STORE) != 0) checked |= fexo::FeXOConfigurationCheck::store;
        const auto check = fexo::FeXOConfigurationCheck::run(checked);
        if (check.isValid()) return FEXO_OK;
        // Both or neither: a caller never holds one string and loses the other.
        char* name = copyString(check.exceptionName);
        char* reason = nullptr;
        try {
            reason = copyString(check.exceptionReason + check.searchNote());
        } catch (...) {
            fexo_free_string(name);
            throw;
        }
        if (exception_name != nullptr)
            *exception_name = name;
        else
            fexo_free_string(name);
        if (exception_reason != nullptr)
            *exception_reason = reason;
        else
            fexo_free_string(reason);
        return check.storeUnavailable ? FEXO_ERROR_STORE : FEXO_ERROR_CONFIGURATION;
    });
}

int32_t fexo_session_wait_until_idle(int64_t timeout_ms)
{
    int32_t idle = 0;
    guarded(nullptr, [&] {
        idle = fexo::URLSession::shared().waitUntilIdle(std::chrono::milliseconds(timeout_ms < 0 ? 0 : timeout_ms)) ? 1
                                                                                                                    : 0;
        return FEXO_OK;
    });
    return idle;
}

} // extern "C"
