// The quick record reader against the full decoder: whatever bytes the quick reader accepts,
// the full decoder accepts too, with an equal record (dates bit for bit, the library-only
// fields included). Declining is always allowed and not checked.

#include "FuzzCheck.hpp"

#include <FeXONotificationService/Response.hpp>
#include <FeXONotificationService/ResponseAccess.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>

#include <cmath>
#include <cstring>
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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(fexo::fuzz::bytes(data, size));
    fexo::Response quick;
    if (!fexo::fastDecode(text, quick)) return 0;

    fexo::Response full;
    try {
        fexo::coding::decodeValue(fexo::JSONDecoder::parse(text), full);
    } catch (const fexo::DecodingError&) {
        FUZZ_REQUIRE(!"the quick reader accepted what the full decoder refuses");
    }
    FUZZ_REQUIRE(quick == full);
    FUZZ_REQUIRE(sameDate(fexo::ResponseAccess::createdAt(quick), fexo::ResponseAccess::createdAt(full)));
    FUZZ_REQUIRE(fexo::ResponseAccess::errorCode(quick) == fexo::ResponseAccess::errorCode(full));
    FUZZ_REQUIRE(fexo::ResponseAccess::errorMessage(quick) == fexo::ResponseAccess::errorMessage(full));
    return 0;
}
