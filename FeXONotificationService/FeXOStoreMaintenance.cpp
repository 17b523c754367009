#include <FeXONotificationService/FeXOStoreMaintenance.hpp>

#include <FeXONotificationService/ServiceConfiguration.hpp>
#include <FeXOPlatform/UserDefaultsRepair.hpp>

namespace fexo {

FeXOStoreMaintenance::Check FeXOStoreMaintenance::check()
{
    auto checked = UserDefaultsRepair::check(sharedConfiguration().appGroup);
    return {std::move(checked.databasePath), std::move(checked.problems)};
}

FeXOStoreMaintenance::Repair FeXOStoreMaintenance::repair()
{
    auto repaired = UserDefaultsRepair::repair(sharedConfiguration().appGroup);
    return {std::move(repaired.databasePath), std::move(repaired.damagedPath), repaired.saved, repaired.lost,
            repaired.unlistedKeysLost,        std::move(repaired.failure)};
}

} // namespace fexo
