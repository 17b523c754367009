#include <FeXONotificationService/DataPersistenceProtocol.hpp>

namespace fexo {

DataPersistenceProtocol::~DataPersistenceProtocol() = default;

} // namespace fexo
