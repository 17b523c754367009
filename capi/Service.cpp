// fexo_service: the host app's FeXOService behind a C handle.
#include <capi/Boundary.hpp>
#include <capi/RecordsJSON.hpp>
#include <capi/ServiceHandle.hpp>

#include <FeXONotificationService/FeXOStoreChanges.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <memory>
#include <string>

using fexo::capi::copyString;
using fexo::capi::guarded;
using fexo::capi::kept;
using fexo::capi::recordsJSON;

namespace {

// Runs on the URL session's thread: nothing may escape into it.
void complete(fexo_registration_callback callback, void* user, const fexo::Result<fexo::RegisterDeviceModel>& result)
{
    fexo_error* error = nullptr;
    std::string answer;
    const fexo_status status = guarded(&error, [&] {
        if (!result.isSuccess()) return fexo::capi::report(&error, fexo::capi::describe(result.error()));
        answer = fexo::JSONEncoder().encode(result.value());
        return FEXO_OK;
    });
    std::unique_ptr<fexo_error, decltype(&fexo_error_free)> owned(error, &fexo_error_free);
    callback(status, status == FEXO_OK ? answer.c_str() : nullptr, error, user);
}

} // namespace

extern "C" {

fexo_service* fexo_service_new(void)
{
    return new (std::nothrow) fexo_service();
}

void fexo_service_free(fexo_service* service)
{
    delete service;
}

fexo_status fexo_service_register_device(fexo_service* service, const char* token, const char* device_id,
                                         const char* imei1, const char* imei2, const char* mobile_number,
                                         fexo_push_provider provider, fexo_registration_callback callback, void* user,
                                         fexo_error** error)
{
    return guarded(error, [&] {
        const auto known = fexo::pushProviderFromRawValue(static_cast<std::int64_t>(provider));
        if (service == nullptr || token == nullptr || device_id == nullptr || imei1 == nullptr || imei2 == nullptr ||
            mobile_number == nullptr || callback == nullptr || !known)
            return FEXO_ERROR_INVALID_ARGUMENT;
        service->service.registerDevice(
            token, device_id, imei1, imei2, mobile_number, *known,
            [callback, user](fexo::Result<fexo::RegisterDeviceModel> result) { complete(callback, user, result); });
        return FEXO_OK;
    });
}

fexo_status fexo_service_fetch_all(fexo_service* service, char** records_json, fexo_error** error)
{
    if (records_json != nullptr) *records_json = nullptr;
    return guarded(error, [&] {
        if (service == nullptr || records_json == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        const auto records = service->service.fetchAllNotifications();
        *records_json = copyString(recordsJSON(records ? *records : std::vector<fexo::Response>{}));
        return FEXO_OK;
    });
}

fexo_status fexo_service_fetch(fexo_service* service, const char* id, char** record_json, fexo_error** error)
{
    if (record_json != nullptr) *record_json = nullptr;
    return guarded(error, [&] {
        if (service == nullptr || id == nullptr || record_json == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        const auto record = service->service.fetchNotification(id);
        if (!record) return FEXO_ERROR_NOT_FOUND;
        *record_json = copyString(fexo::JSONEncoder().encode(*record));
        return FEXO_OK;
    });
}

fexo_status fexo_service_mark_as_read(fexo_service* service, const char* id, fexo_error** error)
{
    return guarded(error, [&] {
        if (service == nullptr || id == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        return kept(error, fexo::FeXOStoreChanges(service->service).markNotificationAsRead(id));
    });
}

fexo_status fexo_service_delete(fexo_service* service, const char* id, fexo_error** error)
{
    return guarded(error, [&] {
        if (service == nullptr || id == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        return kept(error, fexo::FeXOStoreChanges(service->service).deleteNotification(id));
    });
}

fexo_status fexo_service_delete_all(fexo_service* service, fexo_error** error)
{
    return guarded(error, [&] {
        if (service == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        return kept(error, fexo::FeXOStoreChanges(service->service).deleteAllNotifications());
    });
}

fexo_status fexo_service_write(fexo_service* service, const char* record_json, fexo_error** error)
{
    return guarded(error, [&] {
        if (service == nullptr || record_json == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        const auto record = fexo::JSONDecoder().decode<fexo::Response>(record_json);
        return kept(error, fexo::FeXOStoreChanges(service->service).write(record));
    });
}

fexo_status fexo_service_logout(fexo_service* service, fexo_error** error)
{
    return guarded(error, [&] {
        if (service == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        return kept(error, fexo::FeXOStoreChanges(service->service).logout());
    });
}

} // extern "C"
