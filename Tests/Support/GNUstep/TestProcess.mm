#import <Foundation/Foundation.h>

#include "Tests/Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

// What every test program that links these doubles gets: message ports of its own, and for each
// test an autorelease pool, as the event loop gives each event, drained behind the fixture.

namespace {

class TestProcess final : public testing::EmptyTestEventListener {
    void OnTestProgramStart(const testing::UnitTest& /*program*/) override {
        runtimeFolder_.emplace();
        setenv("XDG_RUNTIME_DIR", runtimeFolder_->path().c_str(), 1);
    }
    void OnTestStart(const testing::TestInfo& /*test*/) override {
        pool_ = [NSAutoreleasePool new];
    }
    void OnTestEnd(const testing::TestInfo& /*test*/) override { [pool_ drain]; }
    void OnTestProgramEnd(const testing::UnitTest& /*program*/) override { runtimeFolder_.reset(); }

    std::optional<corvid::TemporaryFolder> runtimeFolder_;
    NSAutoreleasePool* pool_ = nil;
};

[[maybe_unused]] const bool installed = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new TestProcess);
    return true;
}();

} // namespace

// The runtime keeps what it makes when it loads and initialises classes. Whole stacks tell that
// from an object that a test made and lost. The sanitizers look for these names.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}
// And it takes its own locks in any order while it initialises classes.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "detect_deadlocks=0";
}
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libobjc.so\n";
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
