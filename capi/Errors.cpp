#include <capi/Boundary.hpp>

#include <cstdlib>

extern "C" {

const char* fexo_status_name(fexo_status status)
{
    switch (status) {
    case FEXO_OK:
        return "FEXO_OK";
    case FEXO_ERROR_INVALID_ARGUMENT:
        return "FEXO_ERROR_INVALID_ARGUMENT";
    case FEXO_ERROR_NOT_FOUND:
        return "FEXO_ERROR_NOT_FOUND";
    case FEXO_ERROR_DECODING:
        return "FEXO_ERROR_DECODING";
    case FEXO_ERROR_ENCODING:
        return "FEXO_ERROR_ENCODING";
    case FEXO_ERROR_TRANSPORT:
        return "FEXO_ERROR_TRANSPORT";
    case FEXO_ERROR_CONFIGURATION:
        return "FEXO_ERROR_CONFIGURATION";
    case FEXO_ERROR_OUT_OF_MEMORY:
        return "FEXO_ERROR_OUT_OF_MEMORY";
    case FEXO_ERROR_INTERNAL:
        return "FEXO_ERROR_INTERNAL";
    case FEXO_ERROR_UNAVAILABLE:
        return "FEXO_ERROR_UNAVAILABLE";
    case FEXO_ERROR_STORE:
        return "FEXO_ERROR_STORE";
    }
    return "unknown status";
}

const char* fexo_error_description(const fexo_error* error)
{
    return error != nullptr ? error->description.c_str() : "";
}

const char* fexo_error_debug_description(const fexo_error* error)
{
    return error != nullptr ? error->debugDescription.c_str() : "";
}

const char* fexo_error_domain(const fexo_error* error)
{
    return error != nullptr ? error->domain.c_str() : "";
}

int64_t fexo_error_code(const fexo_error* error)
{
    return error != nullptr ? error->code : 0;
}

fexo_status fexo_error_status(const fexo_error* error)
{
    return error != nullptr ? error->status : FEXO_OK;
}

void fexo_error_free(fexo_error* error)
{
    delete error;
}

void fexo_free_string(char* string)
{
    std::free(string);
}

const char* fexo_version(void)
{
    return FEXO_VERSION_STRING;
}

} // extern "C"
