#pragma once

// The contract shared by the request-body targets: any bytes either decode to the record or
// throw DecodingError; a decoded record encodes and decodes back equal, and its payload() is
// present and decodes back equal as well.

#include "FuzzCheck.hpp"

#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <optional>
#include <string>

namespace fexo::fuzz {

template <class Body>
void checkRequestBody(std::string_view input)
{
    Body body;
    try {
        body = JSONDecoder{}.decode<Body>(input);
    } catch (const DecodingError&) {
        return;
    }
    const std::string encoded = JSONEncoder{}.encode(body);
    FUZZ_REQUIRE(JSONDecoder{}.decode<Body>(encoded) == body);

    const std::optional<std::string> payload = body.payload();
    FUZZ_REQUIRE(payload.has_value());
    FUZZ_REQUIRE(JSONDecoder{}.decode<Body>(*payload) == body);
}

} // namespace fexo::fuzz
