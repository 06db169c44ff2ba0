// The message ports of macOS as they are compiled there, over a Core Foundation that the tests
// make from the Unix ports.

#include "Platform/Mac/MacDispatch.h"
#include "Platform/Mac/MacMessagePortService.h"
#include "Tests/Conformance/MessagePortServiceConformance.h"
#include "Tests/Support/CoreFoundation/CoreFoundationDouble.h"
#include "Tests/Support/TemporaryFolder.h"

#include <chrono>
#include <future>

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

TEST(MacMessagePortService, HandsOnBothTimeOutsInSecondsAndTheReplyMode) {
    MacUnderTest underTest;
    MessagePortService& service = underTest.service();
    const auto local = service.createLocal(
        "name", [](MessagePort&, std::int32_t, std::optional<ByteView>) { return std::nullopt; });
    ASSERT_NE(local, nullptr);
    service.setDispatchQueue(*local, underTest.dispatch().serialQueue("queue"));
    const auto send = [&service](std::chrono::milliseconds sendTimeout,
                                 std::chrono::milliseconds receiveTimeout,
                                 std::optional<std::string_view> replyMode) {
        const MessagePortRef remote = service.createRemote("name");
        EXPECT_NE(remote, nullptr);
        if (remote != nullptr) {
            EXPECT_EQ(service.sendRequest(*remote, 1, ByteView(), sendTimeout, receiveTimeout,
                                          replyMode, nullptr),
                      SendStatus::success);
        }
        return lastCoreFoundationRequest();
    };
    const CoreFoundationRequest withReply =
        send(std::chrono::milliseconds(11'000), std::chrono::milliseconds(12'500), "a mode");
    EXPECT_EQ(withReply.sendTimeout, 11.0);
    EXPECT_EQ(withReply.receiveTimeout, 12.5);
    EXPECT_EQ(withReply.replyMode, "a mode");
    const CoreFoundationRequest oneWay =
        send(std::chrono::milliseconds(13'000), std::chrono::milliseconds(14'000), std::nullopt);
    EXPECT_EQ(oneWay.sendTimeout, 13.0);
    EXPECT_EQ(oneWay.receiveTimeout, 14.0);
    EXPECT_FALSE(oneWay.replyMode);
}

TEST(MacMessagePortService, WaitsForAReplyNoLongerThanTheReceiveTimeOut) {
    MacUnderTest underTest;
    MessagePortService& service = underTest.service();
    std::promise<void> mayAnswer;
    const auto local = service.createLocal(
        "slow", [&mayAnswer](MessagePort&, std::int32_t, std::optional<ByteView>) {
            mayAnswer.get_future().wait();
            return std::nullopt;
        });
    ASSERT_NE(local, nullptr);
    service.setDispatchQueue(*local, underTest.dispatch().serialQueue("queue"));
    const MessagePortRef remote = service.createRemote("slow");
    ASSERT_NE(remote, nullptr);
    constexpr std::chrono::seconds kReceiveTimeout{1};
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(service.sendRequest(*remote, 1, ByteView(), std::chrono::seconds(60), kReceiveTimeout,
                                  "mode", nullptr),
              SendStatus::receiveTimeout);
    const auto waited = std::chrono::steady_clock::now() - before;
    mayAnswer.set_value();
    EXPECT_GE(waited, kReceiveTimeout);
    EXPECT_LT(waited, 10 * kReceiveTimeout);
}

INSTANTIATE_TEST_SUITE_P(Mac, MessagePortServiceConformance,
                         testing::Values(MessagePortServiceMaker{
                             "Mac", [] { return std::make_unique<MacUnderTest>(); }}),
                         [](const auto& maker) { return maker.param.name; });

} // namespace corvid::test
