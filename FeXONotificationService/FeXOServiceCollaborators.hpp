#pragma once

#include <FeXONotificationService/DataRepository.hpp>
#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/PushNotificationProvider.hpp>

namespace fexo {

// The two fields of FeXOService, in their order: copied with it, so that a copy has its own
// provider and a repository that shares the one storage object.
struct FeXOService::Collaborators {
    PushNotificationProvider pushProvider;
    DataRepository dataPersistence;
};

} // namespace fexo
