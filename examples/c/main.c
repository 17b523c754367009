/* A C program on the library's C interface, built with a C compiler alone:
 *   c-example register TOKEN DEVICE   registers the device and prints the server's answer
 *   c-example handle                  handles the push whose user-info (JSON) is on standard input
 *   c-example list                    prints the stored records as a JSON array
 * FeXOService-Info.plist is read from $FEXO_RESOURCES_DIR, else beside the executable. Exit
 * status: 0 done, 1 failed, 2 the configuration is wrong, 3 the push's own alert was shown. */
#include <FeXONotificationService/fexo.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Written on the library's network thread; read after fexo_session_wait_until_idle, which
 * returns only once the callback has returned. */
struct outcome {
    int done;
    char text[1024];
};

static void registered(fexo_status status, const char* answer_json, const fexo_error* error, void* user)
{
    struct outcome* outcome = user;
    outcome->done = status == FEXO_OK;
    if (status == FEXO_OK)
        snprintf(outcome->text, sizeof outcome->text, "registered: %s", answer_json);
    else
        snprintf(outcome->text, sizeof outcome->text, "registration failed: %s %lld: %s", fexo_error_domain(error),
                 (long long)fexo_error_code(error), fexo_error_description(error));
}

static int fail(const char* what, fexo_status status, fexo_error* error)
{
    fprintf(stderr, "c-example: %s: %s: %s\n", what, fexo_status_name(status), fexo_error_description(error));
    fexo_error_free(error);
    return 1;
}

static char* read_all(FILE* file)
{
    size_t size = 0, capacity = 4096;
    char* text = malloc(capacity);
    size_t got;
    while (text != NULL && (got = fread(text + size, 1, capacity - size - 1, file)) > 0) {
        size += got;
        if (capacity - size < 2) {
            char* larger = capacity < (64u << 10) ? realloc(text, capacity * 2) : NULL;
            if (larger == NULL) free(text);
            text = larger;
            capacity *= 2;
        }
    }
    if (text != NULL) text[size] = '\0';
    return text;
}

int main(int argc, char** argv)
{
    struct outcome outcome = {0, ""};
    fexo_error* error = NULL;
    fexo_status status;
    char *name = NULL, *reason = NULL;

    if (argc < 2) {
        fprintf(stderr, "usage: c-example register TOKEN DEVICE | handle | list (library %s)\n", fexo_version());
        return 1;
    }
    if (fexo_check_configuration(&name, &reason) != FEXO_OK) {
        printf("configuration: %s: %s\n", name, reason);
        fexo_free_string(name);
        fexo_free_string(reason);
        return 2;
    }

    if (strcmp(argv[1], "register") == 0 && argc == 4) {
        fexo_service* service = fexo_service_new();
        status = fexo_service_register_device(service, argv[2], argv[3], "", "", "", FEXO_PUSH_PROVIDER_FCM, registered,
                                              &outcome, &error);
        fexo_service_free(service);
        if (status != FEXO_OK) return fail("register", status, error);
        fexo_session_wait_until_idle(30000);
        puts(outcome.text);
        return outcome.done ? 0 : 1;
    }
    if (strcmp(argv[1], "handle") == 0) {
        char* push = read_all(stdin);
        char *title = NULL, *body = NULL, *id = NULL;
        int32_t rewritten = 0;
        fexo_extension_handler* handler = fexo_extension_handler_new();
        /* Waits for this push's request only, at most 25 s; the push's own alert otherwise. */
        status = push ? fexo_extension_handler_deliver(handler, push, 25000, &title, &body, &rewritten, &id, &error)
                      : FEXO_ERROR_OUT_OF_MEMORY;
        fexo_extension_handler_free(handler);
        free(push);
        if (status != FEXO_OK) return fail("handle", status, error);
        printf("%s: %s: %s\n", rewritten ? "rewritten" : "original", title, body);
        fexo_free_string(title);
        fexo_free_string(body);
        fexo_free_string(id);
        return rewritten ? 0 : 3;
    }
    if (strcmp(argv[1], "list") == 0) {
        char* records = NULL;
        fexo_service* service = fexo_service_new();
        status = fexo_service_fetch_all(service, &records, &error);
        fexo_service_free(service);
        if (status != FEXO_OK) return fail("list", status, error);
        puts(records);
        fexo_free_string(records);
        return 0;
    }
    fprintf(stderr, "c-example: unknown command %s\n", argv[1]);
    return 1;
}
