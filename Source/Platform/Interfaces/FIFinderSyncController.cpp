#include "Platform/Interfaces/FIFinderSyncController.h"

#include "Core/Base/Fatal.h"

#include <atomic>

namespace corvid {

namespace {
std::atomic<FIFinderSyncController*> defaultSlot{nullptr};
} // namespace

FIFinderSyncController& FIFinderSyncController::defaultController() {
    FIFinderSyncController* current = defaultSlot.load();
    if (current == nullptr) {
        fatal("no Finder Sync controller is installed");
    }
    return *current;
}

FIFinderSyncController*
FIFinderSyncController::setDefaultController(FIFinderSyncController* controller) {
    return defaultSlot.exchange(controller);
}

} // namespace corvid
