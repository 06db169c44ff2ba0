#include "Platform/Fake/FakeDispatch.h"
#include "Platform/Fake/FakeMessagePortService.h"
#include "Tests/Conformance/MessagePortServiceConformance.h"
#include "Tests/Support/BytesOf.h"

#include <gmock/gmock.h>

namespace corvid::test {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class FakeUnderTest final : public MessagePortServiceUnderTest {
public:
    MessagePortService& service() override { return service_; }
    Dispatch& dispatch() override { return dispatch_; }

private:
    CallLog calls_;
    FakeMessagePortService service_{calls_};
    FakeDispatch dispatch_{calls_};
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Fake, MessagePortServiceConformance,
                         testing::Values(MessagePortServiceMaker{
                             "Fake", [] { return std::make_unique<FakeUnderTest>(); }}),
                         [](const auto& maker) { return maker.param.name; });

TEST(FakeMessagePortService, recordsEveryCallOnALine) {
    CallLog calls;
    FakeMessagePortService service(calls);
    FakeDispatch dispatch(calls);
    service.serve("host", [](std::int32_t, std::optional<ByteView>) {
        return FakeMessagePortService::Answer{SendStatus::success, bytesOf("reply")};
    });
    EXPECT_EQ(service.createRemote("nobody"), nullptr);
    {
        const auto remote = service.createRemote("host");
        std::optional<Bytes> reply;
        EXPECT_EQ(service.sendRequest(*remote, 4, bytesOf("four"), 1000ms, 500ms, "host.replymode",
                                      &reply),
                  SendStatus::success);
        EXPECT_EQ(reply, bytesOf("reply"));
        EXPECT_EQ(service.sendRequest(*remote, 5, {}, 1000ms, 500ms, std::nullopt, &reply),
                  SendStatus::success);
    }
    auto local =
        service.createLocal("extension", [](MessagePort&, std::int32_t, std::optional<ByteView>) {
            return std::optional<Bytes>();
        });
    service.setDispatchQueue(*local, dispatch.serialQueue("pushes"));
    service.invalidate(*local);
    local.reset();
    service.failNextCreateLocal();
    EXPECT_EQ(service.createLocal("extension", {}), nullptr);
    EXPECT_THAT(calls.lines(),
                ElementsAre("createRemote nobody -> absent", "createRemote host",
                            "sendRequest host id=4 bytes=4 send=1000ms receive=500ms "
                            "replyMode=host.replymode",
                            "sendRequest host id=5 bytes=none send=1000ms receive=500ms "
                            "replyMode=none",
                            "releaseRemote host", "createLocal extension", "serialQueue pushes",
                            "setDispatchQueue extension pushes", "invalidate extension",
                            "releaseLocal extension", "createLocal extension -> failed"));
}

TEST(FakeMessagePortService, failsAsTheTestSays) {
    CallLog calls;
    FakeMessagePortService service(calls);
    service.serve("host", [](std::int32_t messageID, std::optional<ByteView>) {
        return FakeMessagePortService::Answer{messageID == 1 ? SendStatus::sendTimeout
                                                             : SendStatus::receiveTimeout,
                                              bytesOf("never")};
    });
    const auto remote = service.createRemote("host");
    std::optional<Bytes> reply;
    EXPECT_EQ(service.sendRequest(*remote, 1, {}, 1000ms, 1000ms, "mode", &reply),
              SendStatus::sendTimeout);
    EXPECT_EQ(service.sendRequest(*remote, 2, {}, 1000ms, 1000ms, "mode", &reply),
              SendStatus::receiveTimeout);
    EXPECT_FALSE(reply);
    service.stopServing("host");
    EXPECT_EQ(service.sendRequest(*remote, 3, {}, 1000ms, 1000ms, "mode", &reply),
              SendStatus::isInvalid);
}

TEST(FakeMessagePortService, deliversToALocalPort) {
    CallLog calls;
    FakeMessagePortService service(calls);
    FakeDispatch dispatch(calls);
    std::string got;
    const auto local = service.createLocal(
        "extension", [&](MessagePort&, std::int32_t messageID, std::optional<ByteView> data) {
            got = std::to_string(messageID) + (data ? " data" : " none");
            return std::optional(bytesOf("reply"));
        });
    EXPECT_EQ(service.deliver("extension", 3, std::nullopt), std::nullopt);
    EXPECT_EQ(got, "");
    service.setDispatchQueue(*local, dispatch.serialQueue("pushes"));
    EXPECT_EQ(service.deliver("extension", 3, std::nullopt), bytesOf("reply"));
    EXPECT_EQ(got, "3 none");
    EXPECT_EQ(service.deliver("other", 3, std::nullopt), std::nullopt);
    EXPECT_THAT(service.localNames(), ElementsAre("extension"));
}

} // namespace corvid::test
