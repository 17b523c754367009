#pragma once

#include <FeXONotificationService/Response.hpp>

namespace fexo {

// The library's own access to the fields of Response that host apps cannot read.
struct ResponseAccess {
    static std::optional<Date>& createdAt(Response& r) { return r.createdAt_; }
    static const std::optional<Date>& createdAt(const Response& r) { return r.createdAt_; }
    static std::optional<std::int64_t>& errorCode(Response& r) { return r.errorCode_; }
    static const std::optional<std::int64_t>& errorCode(const Response& r) { return r.errorCode_; }
    static std::optional<std::string>& errorMessage(Response& r) { return r.errorMessage_; }
    static const std::optional<std::string>& errorMessage(const Response& r) { return r.errorMessage_; }
};

} // namespace fexo
