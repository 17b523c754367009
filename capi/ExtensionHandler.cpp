// fexo_extension_handler: the notification extension's handler behind a C handle.
#include <capi/Boundary.hpp>

#include <FeXONotificationService/FeXONotificationExtensionHandler.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>

#include <memory>

struct fexo_extension_handler {
    fexo::FeXONotificationExtensionHandler handler;
};

using fexo::capi::guarded;

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
        fexo::AnyValue userInfo = fexo::JSONSerialization::jsonObject(user_info_json);
        if (!userInfo.dictionary())
            return fexo::capi::report(error, fexo::capi::describeLibraryError(
                                                 FEXO_ERROR_DECODING, "The push's user-info is not a JSON object."));
        const fexo::UNNotificationRequest request(
            "push", std::make_shared<fexo::UNNotificationContent>("", "", std::move(userInfo)));
        handler->handler.handleNotification(
            request, [callback, user](std::shared_ptr<fexo::UNMutableNotificationContent> content) {
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

} // extern "C"
