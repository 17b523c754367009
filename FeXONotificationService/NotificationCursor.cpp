#include <FeXONotificationService/NotificationCursor.hpp>

#include <cstdint>
#include <cstring>

namespace fexo {

namespace {

constexpr std::string_view version = "c1.";
constexpr char digits[] = "0123456789abcdef";
// Keys longer than this are no record's key; the bound keeps a hostile cursor small.
constexpr std::size_t maximumKeyBytes = 64 * 1024;

std::string hex(std::string_view bytes)
{
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

std::optional<std::string> unhex(std::string_view text)
{
    if (text.size() % 2 != 0) return std::nullopt;
    std::string bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        int value = 0;
        for (const char c : text.substr(i, 2)) {
            const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
            if (digit < 0) return std::nullopt;
            value = value * 16 + digit;
        }
        bytes += static_cast<char>(value);
    }
    return bytes;
}

// FNV-1a, 32 bits: catches a cut or edited text, not a forger (a cursor grants nothing).
std::string check(std::string_view body)
{
    std::uint32_t hash = 2166136261u;
    for (const unsigned char byte : body) hash = (hash ^ byte) * 16777619u;
    std::string text(8, '0');
    for (int i = 7; i >= 0; --i, hash >>= 4) text[static_cast<std::size_t>(i)] = digits[hash & 0xF];
    return text;
}

} // namespace

std::string NotificationCursor::encode(const StoreRecordIndex::Position& position)
{
    std::string body(version);
    if (position.order) {
        body += hex(std::string_view(reinterpret_cast<const char*>(&*position.order), sizeof(double)));
    } else {
        body += 'n';
    }
    body += '.' + hex(position.key) + '.';
    return body + check(body);
}

std::optional<StoreRecordIndex::Position> NotificationCursor::decode(std::string_view text)
{
    if (!text.starts_with(version) || text.size() < version.size() + 11 ||
        text.size() > version.size() + 2 * maximumKeyBytes + 32) {
        return std::nullopt;
    }
    const auto body = text.substr(0, text.size() - 8);
    if (check(body) != text.substr(body.size())) return std::nullopt;
    const auto fields = body.substr(version.size(), body.size() - version.size() - 1); // without the last '.'
    const auto dot = fields.find('.');
    if (dot == std::string_view::npos || body.back() != '.') return std::nullopt;
    StoreRecordIndex::Position position;
    const auto order = fields.substr(0, dot);
    if (order != "n") {
        const auto bits = unhex(order);
        if (!bits || bits->size() != sizeof(double)) return std::nullopt;
        double value = 0;
        std::memcpy(&value, bits->data(), sizeof value);
        position.order = value;
    }
    auto key = unhex(fields.substr(dot + 1));
    if (!key) return std::nullopt;
    position.key = std::move(*key);
    return position;
}

} // namespace fexo
