#include <common/SecretMask.hpp>

namespace fexo::tool {

std::string maskedSecret(const std::string& secret)
{
    if (secret.size() < 12) return "****";
    return "****" + secret.substr(secret.size() - 4);
}

} // namespace fexo::tool
