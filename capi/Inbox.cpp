// The inbox of fexo_service (pages, counts, read state) and fexo_observation.
#include <capi/Boundary.hpp>
#include <capi/RecordsJSON.hpp>
#include <capi/ServiceHandle.hpp>

#include <FeXONotificationService/FeXOStoreChanges.hpp>
#include <FeXONotificationService/NotificationObservation.hpp>

#include <utility>

struct fexo_observation {
    fexo::NotificationObservation observation;
};

using fexo::capi::copyString;
using fexo::capi::guarded;

extern "C" {

fexo_status fexo_service_fetch_page(fexo_service* service, size_t limit, const char* after, char** records_json,
                                    char** next_cursor, fexo_error** error)
{
    if (records_json != nullptr) *records_json = nullptr;
    if (next_cursor != nullptr) *next_cursor = nullptr;
    return guarded(error, [&] {
        if (service == nullptr || records_json == nullptr || next_cursor == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        auto page = service->service.fetchNotifications(limit, after != nullptr ? after : "");
        if (!page.isSuccess()) return fexo::capi::report(error, fexo::capi::describe(page.error()));
        char* records = copyString(fexo::capi::recordsJSON(page.value().records));
        try {
            *next_cursor = copyString(page.value().next);
        } catch (...) {
            fexo_free_string(records);
            throw;
        }
        *records_json = records;
        return FEXO_OK;
    });
}

fexo_status fexo_service_unread_count(fexo_service* service, uint64_t* unread, fexo_error** error)
{
    return guarded(error, [&] {
        if (service == nullptr || unread == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        *unread = service->service.unreadCount();
        return FEXO_OK;
    });
}

fexo_status fexo_service_mark_all_read(fexo_service* service, fexo_error** error)
{
    return guarded(error, [&] {
        if (service == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        return fexo::capi::kept(error, fexo::FeXOStoreChanges(service->service).markAllNotificationsAsRead());
    });
}

fexo_status fexo_service_observe(fexo_service* service, fexo_counts_callback callback, void* user,
                                 fexo_observation** observation, fexo_error** error)
{
    if (observation != nullptr) *observation = nullptr;
    return guarded(error, [&] {
        if (service == nullptr || callback == nullptr || observation == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        auto started = service->service.observeNotifications(
            [callback, user](fexo::NotificationCounts counts) { callback(counts.total, counts.unread, user); });
        if (!started)
            return fexo::capi::report(
                error, fexo::capi::describeLibraryError(FEXO_ERROR_UNAVAILABLE,
                                                        "The store's files cannot be watched: " + started.failure()));
        auto* made = new fexo_observation{std::move(started)};
        *observation = made;
        return FEXO_OK;
    });
}

void fexo_observation_free(fexo_observation* observation)
{
    delete observation;
}

} // extern "C"
