#pragma once

#include "Platform/Fake/CallLog.h"
#include "Platform/Fake/FakeBundle.h"
#include "Platform/Fake/FakeClock.h"
#include "Platform/Fake/FakeDispatch.h"
#include "Platform/Fake/FakeFileManager.h"
#include "Platform/Fake/FakeMessagePortService.h"
#include "Platform/Fake/FakePasteboard.h"
#include "Platform/Fake/FakeProcessInfo.h"
#include "Platform/Fake/FakeSystemLog.h"
#include "Platform/Interfaces/Platform.h"

namespace corvid {

/// A whole platform of fakes with one list of calls, installed while it lives.
class FakePlatform {
public:
    FakePlatform() : previous_(setPlatform(&platform_)) {}
    ~FakePlatform() { setPlatform(previous_); }
    FakePlatform(const FakePlatform&) = delete;
    FakePlatform& operator=(const FakePlatform&) = delete;

    CallLog calls;
    FakeProcessInfo processInfo;
    FakeClock clock;
    FakeFileManager fileManager{calls, clock};
    FakeBundle bundle;
    FakeDispatch dispatch{calls};
    FakeMessagePortService messagePorts{calls};
    FakeSystemLog systemLog{calls};
    FakePasteboard pasteboard{calls};

private:
    const Platform platform_{processInfo, fileManager,  clock,     bundle,
                             dispatch,    messagePorts, systemLog, &pasteboard};
    const Platform* previous_;
};

} // namespace corvid
