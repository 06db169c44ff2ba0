#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Tests/Conformance/MessagePortServiceConformance.h"
#include "Tests/Support/TemporaryFolder.h"

namespace corvid::test {

namespace {

class UnixUnderTest final : public MessagePortServiceUnderTest {
public:
    MessagePortService& service() override { return service_; }
    Dispatch& dispatch() override { return dispatch_; }

private:
    TemporaryFolder folder_;
    UnixMessagePortService service_{RuntimeFolder(folder_ / "corvid")};
    UnixDispatch dispatch_;
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Unix, MessagePortServiceConformance,
                         testing::Values(MessagePortServiceMaker{
                             "Unix", [] { return std::make_unique<UnixUnderTest>(); }}),
                         [](const auto& maker) { return maker.param.name; });

} // namespace corvid::test
