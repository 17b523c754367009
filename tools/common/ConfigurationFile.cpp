#include <common/ConfigurationFile.hpp>

#include <FeXOPlatform/UTF8.hpp>

#include <algorithm>
#include <fstream>
#include <string_view>
#include <utility>

namespace fexo::tool {

namespace {

bool writable(std::string_view text)
{
    return isValidUTF8(text) &&
           std::none_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

std::string escaped(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        out += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    }
    return out;
}

} // namespace

bool writeConfigurationFile(const std::filesystem::path& directory, const ConfigurationSettings& settings)
{
    const std::pair<const char*, const std::string&> entries[] = {
        {"FEXO_BASE_URL", settings.baseURL}, {"CLIENT_SECRET", settings.clientSecret}, {"CLIENT_ID", settings.clientId},
        {"APP_GROUP", settings.appGroup},    {"BUNDLE_ID", settings.bundleId},
    };
    if (!std::all_of(std::begin(entries), std::end(entries), [](const auto& entry) { return writable(entry.second); }))
        return false;
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    std::ofstream out(directory / "FeXOService-Info.plist", std::ios::binary | std::ios::trunc);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n<dict>\n";
    for (const auto& [key, value] : entries) {
        out << "  <key>" << key << "</key>\n  <string>" << escaped(value) << "</string>\n";
    }
    out << "</dict>\n</plist>\n";
    out.close();
    return static_cast<bool>(out);
}

} // namespace fexo::tool
