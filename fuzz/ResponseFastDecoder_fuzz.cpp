// The quick record reader against the full decoder: whatever bytes the quick reader accepts,
// the full decoder accepts too, with an equal record (dates bit for bit, the library-only
// fields included); and decoding through JSONDecoder ends every text as the full decoder alone
// does, with the same record or the same error (kind, path and description).

#include "FuzzCheck.hpp"

#include <FeXONotificationService/Response.hpp>
#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXONotificationService/ResponseFastDecoder.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>

#include <cmath>
#include <cstring>
#include <optional>
#include <string>

namespace {

bool sameDate(const std::optional<fexo::Date>& a, const std::optional<fexo::Date>& b)
{
    if (a.has_value() != b.has_value()) return false;
    if (!a) return true;
    const double x = a->timeIntervalSinceReferenceDate();
    const double y = b->timeIntervalSinceReferenceDate();
    return std::memcmp(&x, &y, sizeof x) == 0;
}

bool identical(const fexo::Response& a, const fexo::Response& b)
{
    return a == b && sameDate(fexo::ResponseAccess::createdAt(a), fexo::ResponseAccess::createdAt(b)) &&
           fexo::ResponseAccess::errorCode(a) == fexo::ResponseAccess::errorCode(b) &&
           fexo::ResponseAccess::errorMessage(a) == fexo::ResponseAccess::errorMessage(b);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(fexo::fuzz::bytes(data, size));
    std::optional<fexo::Response> full;
    std::string fullError;
    try {
        fexo::Response record;
        fexo::coding::decodeValue(fexo::JSONDecoder::parse(text), record);
        full = std::move(record);
    } catch (const fexo::DecodingError& error) {
        fullError = error.description();
    }

    fexo::Response quick;
    if (fexo::fastDecode(text, quick)) FUZZ_REQUIRE(full && identical(quick, *full));

    // Through JSONDecoder, quick reader first: the same record, or the same error and path.
    try {
        const auto through = fexo::JSONDecoder{}.decode<fexo::Response>(text);
        FUZZ_REQUIRE(full && identical(through, *full));
    } catch (const fexo::DecodingError& error) {
        FUZZ_REQUIRE(!full && error.description() == fullError);
    }
    return 0;
}
