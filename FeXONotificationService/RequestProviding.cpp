#include <FeXONotificationService/RequestProviding.hpp>

namespace fexo {

RequestProviding::~RequestProviding() = default;

} // namespace fexo
