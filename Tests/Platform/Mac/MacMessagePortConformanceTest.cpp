// The message ports of macOS as they are compiled there, over a Core Foundation that the tests
// make from the Unix ports.

#include "Platform/Mac/MacDispatch.h"
#include "Platform/Mac/MacMessagePortService.h"
#include "Tests/Conformance/MessagePortServiceConformance.h"
#include "Tests/Support/CoreFoundation/CoreFoundationDouble.h"
#include "Tests/Support/TemporaryFolder.h"

namespace corvid::test {

namespace {

class MacUnderTest final : public MessagePortServiceUnderTest {
public:
    MacUnderTest() { setCoreFoundationFolder(RuntimeFolder(folder_ / "corvid")); }
    MessagePortService& service() override { return service_; }
    Dispatch& dispatch() override { return dispatch_; }

private:
    TemporaryFolder folder_;
    MacMessagePortService service_;
    MacDispatch dispatch_;
};

} // namespace

TEST(MacMessagePortService, NamesThatAreNotUTF8AreAbsent) {
    MacUnderTest underTest;
    for (const std::string name : {"\xFF", "a\x80", "\xC3", "\xED\xA0\x80"}) {
        EXPECT_EQ(underTest.service().createLocal(name, {}), nullptr);
        EXPECT_EQ(underTest.service().createRemote(name), nullptr);
    }
    EXPECT_NE(underTest.service().createLocal("n\xC3\xA4me", {}), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Mac, MessagePortServiceConformance,
                         testing::Values(MessagePortServiceMaker{
                             "Mac", [] { return std::make_unique<MacUnderTest>(); }}),
                         [](const auto& maker) { return maker.param.name; });

} // namespace corvid::test
