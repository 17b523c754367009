/*
 * The C interface of the FeXO notification service: C99, usable from C and C++, with a stable
 * ABI. It holds opaque handles, UTF-8 strings, fixed-width integers and sizes, enumerations with
 * explicit values and callbacks with a user pointer, nothing else.
 *
 * Ownership: a `char *` handed out by the library is the caller's, freed with fexo_free_string;
 * a `fexo_error *` handed out through an `error` out-parameter is the caller's, freed with
 * fexo_error_free; pointers passed to a callback are borrowed for the length of the call. Every
 * `error` out-parameter may be NULL; it is set to NULL first, and receives an error object only
 * with the statuses that carry one (decoding, encoding, transport, store, internal), never with
 * FEXO_ERROR_INVALID_ARGUMENT, FEXO_ERROR_NOT_FOUND or FEXO_ERROR_OUT_OF_MEMORY.
 *
 * Records cross as their JSON text, the store's own form: an object with the optional keys
 * "createdAt", "data" ({"text", "sender"}), "errorCode", "errorMessage", "id" and "isRead".
 *
 * Integration mistakes of the embedding application (no configuration file, a missing key, an
 * app group that cannot be opened, a stored record that cannot be read back) end the process as
 * they do for a C++ host, with the same texts; fexo_check_configuration finds the configuration
 * mistakes beforehand. Any other failure inside the library is a status, never an unwinding:
 * FEXO_ERROR_OUT_OF_MEMORY, or FEXO_ERROR_INTERNAL with the failure's text as the description.
 *
 * Unless a function says otherwise, it may be called from any thread; handles may be used from
 * several threads at once, but must not be freed while a call on them runs.
 */
#ifndef FEXO_NOTIFICATION_SERVICE_FEXO_H
#define FEXO_NOTIFICATION_SERVICE_FEXO_H

#include <FeXONotificationService/fexo_version.h>

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define FEXO_C_API __attribute__((visibility("default")))
#else
#define FEXO_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- status, errors, strings, version ---------------------------------------------------- */

typedef enum fexo_status {
    FEXO_OK = 0,
    FEXO_ERROR_INVALID_ARGUMENT = 1, /* NULL where a value is due, an unknown push provider */
    FEXO_ERROR_NOT_FOUND = 2,        /* no record stored under the id */
    FEXO_ERROR_DECODING = 3,         /* text that is not the JSON asked for; a bad page cursor */
    FEXO_ERROR_ENCODING = 4,         /* a value that JSON cannot hold */
    FEXO_ERROR_TRANSPORT = 5,        /* the request failed: the error's domain is NSURLErrorDomain */
    FEXO_ERROR_CONFIGURATION = 6,    /* fexo_check_configuration found a mistake */
    FEXO_ERROR_OUT_OF_MEMORY = 7,
    FEXO_ERROR_INTERNAL = 8,    /* any other failure inside the library */
    FEXO_ERROR_UNAVAILABLE = 9, /* the system refused a resource: the store cannot be watched */
    FEXO_ERROR_STORE = 10       /* the store refused a change (no space, no permission, ...): it was not kept */
} fexo_status;

/** A constant English name of the status ("FEXO_ERROR_NOT_FOUND"); "unknown status" otherwise. */
FEXO_C_API const char* fexo_status_name(fexo_status status);

typedef struct fexo_error fexo_error;

/** The English sentence a user may see. Valid while the error lives. */
FEXO_C_API const char* fexo_error_description(const fexo_error* error);
/** The form printed for developers: type, code and details. Valid while the error lives. */
FEXO_C_API const char* fexo_error_debug_description(const fexo_error* error);
/** "NSURLErrorDomain" (transport), "NSCocoaErrorDomain" (decoding, encoding, JSON text),
 * "FeXOStoreErrorDomain" (a change the store refused), or "FeXOErrorDomain" (the library's other
 * statuses). Valid while the error lives. */
FEXO_C_API const char* fexo_error_domain(const fexo_error* error);
/** The code within the domain: a transport error's platform code (-1001 for a time-out, ...);
 * 4864 for a record that cannot be read, 4865 for a missing value, 4866 for a value JSON cannot
 * hold, 3840 for a user-info that is not JSON; 1 in FeXOStoreErrorDomain; the fexo_status in
 * FeXOErrorDomain. */
FEXO_C_API int64_t fexo_error_code(const fexo_error* error);
FEXO_C_API fexo_status fexo_error_status(const fexo_error* error);
/** NULL is ignored. */
FEXO_C_API void fexo_error_free(fexo_error* error);

/** Frees a string the library handed out; NULL is ignored. */
FEXO_C_API void fexo_free_string(char* string);

/** The library's version, "MAJOR.MINOR.PATCH", of the library loaded at run time (FEXO_VERSION_STRING
 * is that of the headers); a constant string. */
FEXO_C_API const char* fexo_version(void);

/* ---- resources, configuration check, the URL session ------------------------------------ */

/** The directory FeXOService-Info.plist is looked up in: the one set with
 * fexo_set_resources_directory, else $FEXO_RESOURCES_DIR, else the running executable's
 * directory. Returns a string to free; empty when none can be found; NULL only without memory. */
FEXO_C_API char* fexo_resources_directory(void);
FEXO_C_API fexo_status fexo_set_resources_directory(const char* path);

/** Loads FeXOService-Info.plist from the resources directory exactly as the library will, and
 * checks what would end the process later (a base URL that does not form an http or https URL,
 * an unusable app group name, a store that cannot be opened or made), but never ends the
 * process, keeps nothing and creates or changes nothing (an existing store is opened read-only).
 * FEXO_OK when all is well; otherwise the name and reason of the exception the library would
 * raise in *exception_name and *exception_reason (strings to free), where the reason for a file
 * that is missing or unreadable ends with the folder it was looked for in; for one of the later
 * checks the name is empty and the reason is the check's own. The status is then
 * FEXO_ERROR_STORE when what fails is the store itself, else FEXO_ERROR_CONFIGURATION. Both
 * out-parameters may be NULL and are set to NULL on FEXO_OK. Reads the file again on every call. */
FEXO_C_API fexo_status fexo_check_configuration(char** exception_name, char** exception_reason);

/** What fexo_check_configuration_for checks beyond the file and its five keys, which it always
 * reads: a bitwise or of these. */
typedef enum fexo_check {
    FEXO_CHECK_SERVER = 1,    /* the base URL: what a registration or a push's request needs */
    FEXO_CHECK_STORE = 2,     /* the app group's name and store: what every store operation needs */
    FEXO_CHECK_EVERYTHING = 3 /* both: what fexo_check_configuration checks */
} fexo_check;

/** fexo_check_configuration, limited to the `parts` a kind of call needs (a bitwise or of
 * fexo_check values); FEXO_ERROR_INVALID_ARGUMENT for any other bit. */
FEXO_C_API fexo_status fexo_check_configuration_for(uint32_t parts, char** exception_name, char** exception_reason);

/** Waits until no request of the process-wide URL session is in flight (its callback has
 * returned), at most timeout_ms milliseconds. Returns 1 when the session is idle, else 0.
 * Called from a library callback it returns 0 at once. */
FEXO_C_API int32_t fexo_session_wait_until_idle(int64_t timeout_ms);

/* ---- the host app's service ------------------------------------------------------------ */

typedef struct fexo_service fexo_service;

typedef enum fexo_push_provider {
    FEXO_PUSH_PROVIDER_FCM = 1,
    FEXO_PUSH_PROVIDER_APNS = 2,
    FEXO_PUSH_PROVIDER_PUSHWOOSH = 3
} fexo_push_provider;

/** Reads no file and opens nothing: the configuration is read on the first registration or store
 * access, the shared store opened on the first local operation. NULL only without memory. */
FEXO_C_API fexo_service* fexo_service_new(void);
/** NULL is ignored. Registrations already started still complete. */
FEXO_C_API void fexo_service_free(fexo_service* service);

/** Called exactly once per registration that fexo_service_register_device started (FEXO_OK),
 * on the URL session's thread, never inside the call that started it. On success `status` is
 * FEXO_OK, `answer_json` the server's decoded answer as JSON and `error` NULL; otherwise
 * `answer_json` is NULL and `error` the transport (FEXO_ERROR_TRANSPORT) or decoding
 * (FEXO_ERROR_DECODING) error. Both pointers are borrowed for the call. The HTTP status is not
 * consulted: the answer's "errorMessage" and "errors" tell whether the server accepted it.
 * The callback must not block: every request of the process waits for it. */
typedef void (*fexo_registration_callback)(fexo_status status, const char* answer_json, const fexo_error* error,
                                           void* user);

/** Registers the device (strings may be empty, not NULL). On any status but FEXO_OK the
 * callback is never called. */
FEXO_C_API fexo_status fexo_service_register_device(fexo_service* service, const char* token, const char* device_id,
                                                    const char* imei1, const char* imei2, const char* mobile_number,
                                                    fexo_push_provider provider, fexo_registration_callback callback,
                                                    void* user, fexo_error** error);

/** Every stored record, as a JSON array of records in no promised order, into *records_json
 * (a string to free). */
FEXO_C_API fexo_status fexo_service_fetch_all(fexo_service* service, char** records_json, fexo_error** error);
/** The record stored under `id` into *record_json (a string to free); FEXO_ERROR_NOT_FOUND and
 * NULL when there is none. */
FEXO_C_API fexo_status fexo_service_fetch(fexo_service* service, const char* id, char** record_json,
                                          fexo_error** error);
/* The changes below (mark as read, delete, delete all, write, log out, mark all read) return
 * FEXO_ERROR_STORE, with the store's reason in the error, when the store refused the change (no
 * space, no permission, a read-only file system, a lock held past every wait): nothing of it was
 * kept, and the library has also said so in one line on standard error. */

/** Stores the record with "isRead" true; prints "Item Not Found!" and returns FEXO_OK when there
 * is none. */
FEXO_C_API fexo_status fexo_service_mark_as_read(fexo_service* service, const char* id, fexo_error** error);
/** Removing a record that is not there is FEXO_OK. */
FEXO_C_API fexo_status fexo_service_delete(fexo_service* service, const char* id, fexo_error** error);
FEXO_C_API fexo_status fexo_service_delete_all(fexo_service* service, fexo_error** error);
/** Stores the record (JSON text) under its "id", replacing the one stored there;
 * FEXO_ERROR_DECODING when the text is not a record. */
FEXO_C_API fexo_status fexo_service_write(fexo_service* service, const char* record_json, fexo_error** error);
/** Deletes every stored record and nothing else, in one transaction (all or none): no server
 * call, the device stays registered. */
FEXO_C_API fexo_status fexo_service_logout(fexo_service* service, fexo_error** error);

/* ---- the inbox ------------------------------------------------------------------------- */

/** One page of at most `limit` stored records into *records_json (a JSON array, a string to free):
 * newest "createdAt" first, ties by id ascending, records without "createdAt" after all others;
 * and the cursor of the next page into *next_cursor (a string to free; empty after the last
 * page). `after` is NULL or empty for the first page, else the cursor of the previous page;
 * paging is by position, so a record written or deleted between two pages neither repeats nor
 * shifts a later one. A `limit` of 0 gives an empty page whose cursor is `after` itself. A
 * cursor this library did not produce is FEXO_ERROR_DECODING. */
FEXO_C_API fexo_status fexo_service_fetch_page(fexo_service* service, size_t limit, const char* after,
                                               char** records_json, char** next_cursor, fexo_error** error);
/** The number of stored records whose "isRead" is not true, into *unread. */
FEXO_C_API fexo_status fexo_service_unread_count(fexo_service* service, uint64_t* unread, fexo_error** error);
/** Stores every record whose "isRead" is not true with "isRead" true, in one transaction. */
FEXO_C_API fexo_status fexo_service_mark_all_read(fexo_service* service, fexo_error** error);

typedef struct fexo_observation fexo_observation;

/** Receives the store's counts (all records, and those whose "isRead" is not true) after the set
 * of records changed in any process sharing the store: a push stored by an extension, a mark, a
 * delete, a logout. On the store observer's thread (one per process), one call at a time over
 * all observations, never on the URL session's thread and never inside a call of this process
 * that changed the store; changes that arrive while a callback runs are folded into one call. */
typedef void (*fexo_counts_callback)(uint64_t total, uint64_t unread, void* user);

/** Starts observing the store (opening it now); the observation is in place when this returns,
 * and lives until fexo_observation_free. FEXO_ERROR_UNAVAILABLE when the store's files cannot
 * be watched (no inotify instance or watch left for this user). */
FEXO_C_API fexo_status fexo_service_observe(fexo_service* service, fexo_counts_callback callback, void* user,
                                            fexo_observation** observation, fexo_error** error);
/** Stops the callbacks and frees the observation. No call starts after it returns, and one that
 * is running is waited for, except when called from inside that callback, where it returns at
 * once and the callback finishes normally: never wait in a callback for a thread that is freeing
 * its observation. NULL is ignored. */
FEXO_C_API void fexo_observation_free(fexo_observation* observation);

/* ---- the notification extension -------------------------------------------------------- */

typedef struct fexo_extension_handler fexo_extension_handler;

/** Reads no file and opens nothing. NULL only without memory. */
FEXO_C_API fexo_extension_handler* fexo_extension_handler_new(void);
/** NULL is ignored; notifications already being handled go on to their end. */
FEXO_C_API void fexo_extension_handler_free(fexo_extension_handler* handler);

/** Receives the rewritten content: at most once per handled push, only when the server's answer
 * decoded and the record was stored (whether or not it carries a notification), on the URL
 * session's thread, never inside the call that started it. Both strings are borrowed for the
 * call. */
typedef void (*fexo_content_callback)(const char* title, const char* body, void* user);

/** Handles one push whose user-info dictionary is `user_info_json` (a JSON object): asks the
 * server for the notification's content, stores the record, and returns at once. When the
 * request fails, the error is printed and the callback is never called. An extension that needs
 * to know what to show calls fexo_extension_handler_deliver instead.
 * FEXO_ERROR_DECODING when the text is not a JSON object (nothing is started). */
FEXO_C_API fexo_status fexo_extension_handler_handle_notification(fexo_extension_handler* handler,
                                                                  const char* user_info_json,
                                                                  fexo_content_callback callback, void* user,
                                                                  fexo_error** error);

/** What every extension needs: handles the push exactly as fexo_extension_handler_handle_notification
 * does and waits, on the calling thread, until this push's own request has finished or
 * `time_limit_ms` milliseconds have passed, however many other requests are in flight. Then:
 * *title and *body (strings to free) are the content to show; *rewritten is 1 when that is the
 * server's record, which arrived in time and carries a notification (a non-empty "data"."text"
 * or "data"."sender"), else 0 and the content is the push's own alert ("aps"."alert"'s "title"
 * and "body", or a text alert as the body; empty where absent); *record_id (a string to free) is
 * the id of the record stored for this push within the limit, whether or not it carries a
 * notification, else NULL. A late answer is still stored, after this returns. Called from a
 * library callback it returns the alert at once. FEXO_ERROR_DECODING when the text is not a
 * JSON object; FEXO_ERROR_INVALID_ARGUMENT for a NULL argument or a negative limit. On any status
 * but FEXO_OK the three strings are NULL. */
FEXO_C_API fexo_status fexo_extension_handler_deliver(fexo_extension_handler* handler, const char* user_info_json,
                                                      int64_t time_limit_ms, char** title, char** body,
                                                      int32_t* rewritten, char** record_id, fexo_error** error);

#ifdef __cplusplus
}
#endif

#endif
