#include "Platform/Interfaces/Platform.h"
#include "Platform/Interfaces/FIFinderSyncController.h"

#include "Platform/Fake/FakePlatform.h"

#include <gtest/gtest.h>

namespace corvid {
namespace {

TEST(Platform, IsTheOneThatWasInstalledLast) {
    const FakePlatform outer;
    const Platform* const installed = &platform();
    {
        const FakePlatform inner;
        EXPECT_NE(&platform(), installed);
        EXPECT_EQ(&platform().messagePorts, &inner.messagePorts);
    }
    EXPECT_EQ(&platform(), installed);
}

TEST(PlatformDeath, WithoutOneNothingCanRun) {
    EXPECT_DEATH(platform(), "fatal: no platform is installed");
}

TEST(PlatformDeath, WithoutAFileManagerThereIsNothingToServe) {
    EXPECT_DEATH(FIFinderSyncController::defaultController(),
                 "fatal: no Finder Sync controller is installed");
}

} // namespace
} // namespace corvid
