// The configuration loader, driven from the bytes of "FeXOService-Info.plist". The raise hook
// returns, so every failure ends in the fallback record. Whatever the bytes, the record is
// either five non-empty strings, exactly the file's values, with nothing raised, or five empty
// strings after exactly one raise; the file exception is raised exactly when the bytes are
// not a dictionary.

#include "FuzzCheck.hpp"

#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/Bundle.hpp>
#include <FeXOPlatform/NSException.hpp>
#include <FeXOPlatform/PropertyList.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

std::filesystem::path& directory()
{
    static std::filesystem::path path;
    return path;
}

std::vector<std::string>& raisedNames()
{
    static std::vector<std::string> names;
    return names;
}

void removeDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(directory(), ignored);
}

const std::string* stringAt(const fexo::PropertyListValue::Dictionary& dictionary, const char* key)
{
    const auto it = dictionary.find(key);
    return it == dictionary.end() ? nullptr : it->second.string();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::string pattern = (std::filesystem::temp_directory_path() / "fexo-fuzz-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    directory() = pattern;
    std::atexit(removeDirectory);
    fexo::Bundle::main().setResourcesDirectory(directory());
    fexo::NSException::setRaiseHook(
        [](const fexo::NSException& exception) { raisedNames().push_back(exception.name()); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto bytes = fexo::fuzz::bytes(data, size);
    {
        std::ofstream file(directory() / "FeXOService-Info.plist", std::ios::binary | std::ios::trunc);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        FUZZ_REQUIRE(file.flush());
    }
    raisedNames().clear();
    fexo::resetSharedConfigurationForTesting();
    const fexo::ServiceConfiguration& configuration = fexo::sharedConfiguration();
    FUZZ_REQUIRE(&fexo::sharedConfiguration() == &configuration);

    const std::string* fields[] = {&configuration.baseURL, &configuration.clientSecret, &configuration.clientId,
                                   &configuration.appGroup, &configuration.bundleId};
    const auto parsed = fexo::PropertyList::parse(bytes);
    const auto* dictionary = parsed ? parsed->dictionary() : nullptr;

    if (raisedNames().empty()) {
        FUZZ_REQUIRE(dictionary != nullptr);
        const char* keys[] = {"FEXO_BASE_URL", "CLIENT_SECRET", "CLIENT_ID", "APP_GROUP", "BUNDLE_ID"};
        for (std::size_t i = 0; i < 5; ++i) {
            const std::string* value = stringAt(*dictionary, keys[i]);
            FUZZ_REQUIRE(!fields[i]->empty());
            FUZZ_REQUIRE(value != nullptr && *value == *fields[i]);
        }
        return 0;
    }
    FUZZ_REQUIRE(raisedNames().size() == 1);
    for (const std::string* field : fields) FUZZ_REQUIRE(field->empty());
    FUZZ_REQUIRE((raisedNames().front() == "NSGenericException") == (dictionary == nullptr));
    return 0;
}
