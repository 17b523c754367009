#include <FeXOPlatform/UIDevice.hpp>

#include <fstream>
#include <sys/utsname.h>

namespace fexo {

namespace {

std::string versionFromOsRelease(const char* path)
{
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        if (line.rfind("VERSION_ID=", 0) != 0) continue;
        std::string value = line.substr(11);
        if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front()) {
            value = value.substr(1, value.size() - 2);
        }
        return value;
    }
    return {};
}

std::string readSystemVersion()
{
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        if (auto version = versionFromOsRelease(path); !version.empty()) return version;
    }
    struct utsname name { };
    if (::uname(&name) == 0) return name.release;
    return {};
}

} // namespace

const UIDevice& UIDevice::current()
{
    static const UIDevice device;
    return device;
}

const std::string& UIDevice::systemVersion() const
{
    static const std::string version = readSystemVersion();
    return version;
}

} // namespace fexo
