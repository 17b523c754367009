#pragma once

#include <FeXONotificationService/FeXOService.hpp>
#include <FeXONotificationService/fexo.h>

// What a fexo_service handle holds.
struct fexo_service {
    fexo::FeXOService service;
};
