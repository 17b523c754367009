#pragma once

#include <FeXONotificationService/Response.hpp>

#include <string_view>

namespace fexo {

// The quick reader of a Response that JSONDecoder tries first (RapidJSON, which checks the whole
// text): true, with `value` set exactly as the full decoder would set it (the library-only fields
// included), for a well-formed record; false for anything else (malformed text, a wrong type, a
// few numbers at the edges of their range), leaving `value` unspecified and the verdict, with its
// error and path, to the full decoder. It never decides a failure itself. Any thread.
bool fastDecode(std::string_view json, Response& value);

} // namespace fexo
