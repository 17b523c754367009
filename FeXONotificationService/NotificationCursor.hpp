#pragma once

#include <FeXOPlatform/StoreRecordIndex.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace fexo {

// The cursor text of a page: the position of the page's last record, in characters that need no
// quoting in a URL or a shell ("c1.", the createdAt's bits or "n", ".", the key in hex, ".", a
// check). Only texts that encode() produced decode; a changed or cut text is refused by the check.
struct NotificationCursor {
    static std::string encode(const StoreRecordIndex::Position& position);
    // Nothing for a text that encode() did not produce.
    static std::optional<StoreRecordIndex::Position> decode(std::string_view text);
};

} // namespace fexo
