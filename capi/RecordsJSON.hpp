#pragma once

#include <FeXONotificationService/Response.hpp>

#include <string>
#include <vector>

namespace fexo::capi {

// The records as one JSON array, each in its stored form. Throws EncodingError.
std::string recordsJSON(const std::vector<Response>& records);

} // namespace fexo::capi
