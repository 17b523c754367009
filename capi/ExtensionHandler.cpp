// fexo_extension_handler: the notification extension's handler behind a C handle.
#include <capi/Boundary.hpp>

#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>

struct fexo_extension_handler {
    fexo::FeXONotificationExtensionHandler handler;
};

using fexo::capi::guarded;

namespace {

// The push's user-info as the request's content; nothing when the text is JSON but no object.
// Throws CocoaError for text that is not JSON.
std::optional<fexo::UNNotificationRequest> requestFor(const char* userInfoJSON)
{
    fexo::AnyValue userInfo = fexo::JSONSerialization::jsonObject(userInfoJSON);
    if (!userInfo.dictionary()) return std::nullopt;
    return fexo::UNNotificationRequest("push",
                                       std::make_shared<fexo::UNNotificationContent>("", "", std::move(userInfo)));
}

fexo_status notAnObject(fexo_error** error)
{
    return fexo::capi::report(
        error, fexo::capi::describeLibraryError(FEXO_ERROR_DECODING, "The push's user-info is not a JSON object."));
}

} // namespace

extern "C" {

fexo_extension_handler* fexo_extension_handler_new(void)
{
    return new (std::nothrow) fexo_extension_handler();
}

void fexo_extension_handler_free(fexo_extension_handler* handler)
{
    delete handler;
}

fexo_status fexo_extension_handler_handle_notification(fexo_extension_handler* handler, const char* user_info_json,
                                                       fexo_content_callback callback, void* user, fexo_error** error)
{
    return guarded(error, [&] {
        if (handler == nullptr || user_info_json == nullptr || callback == nullptr) return FEXO_ERROR_INVALID_ARGUMENT;
        const auto request = requestFor(user_info_json);
        if (!request) return notAnObject(error);
        handler->handler.handleNotification(
            *request, [callback, user](std::shared_ptr<fexo::UNMutableNotificationContent> content) {
                // On the URL session's thread, inside the library's completion, which catches
                // nothing: a copy that fails for lack of memory drops the delivery, never the process.
                try {
                    const std::string title = content->title();
                    const std::string body = content->body();
                    callback(title.c_str(), body.c_str(), user);
                } catch (const std::bad_alloc&) {
                }
            });
        return FEXO_OK;
    });
}

fexo_status fexo_extension_handler_deliver(fexo_extension_handler* handler, const char* user_info_json,
                                           int64_t time_limit_ms, char** title, char** body, int32_t* rewritten,
                                           char** record_id, fexo_error** error)
{
    if (title != nullptr) *title = nullptr;
    if (body != nullptr) *body = nullptr;
    if (record_id != nullptr) *record_id = nullptr;
    return guarded(error, [&] {
        if (handler == nullptr || user_info_json == nullptr || title == nullptr || body == nullptr ||
            rewritten == nullptr || record_id == nullptr || time_limit_ms < 0)
            return FEXO_ERROR_INVALID_ARGUMENT;
        const auto request = requestFor(user_info_json);
        if (!request) return notAnObject(error);
        const auto delivery = handler->handler.deliver(*request, std::chrono::milliseconds(time_limit_ms));
        // All or nothing: a copy that fails for lack of memory frees the ones made before it.
        std::unique_ptr<char, decltype(&std::free)> titleCopy(fexo::capi::copyString(delivery.content->title()),
                                                              &std::free);
        std::unique_ptr<char, decltype(&std::free)> bodyCopy(fexo::capi::copyString(delivery.content->body()),
                                                             &std::free);
        std::unique_ptr<char, decltype(&std::free)> idCopy(
            delivery.recordId ? fexo::capi::copyString(*delivery.recordId) : nullptr, &std::free);
        *title = titleCopy.release();
        *body = bodyCopy.release();
        *record_id = idCopy.release();
        *rewritten = delivery.rewritten ? 1 : 0;
        return FEXO_OK;
    });
}

} // extern "C"
