#include <FeXONotificationService/Networking.hpp>

namespace fexo {

Networking::~Networking() = default;

} // namespace fexo
