#include "Extensions/FileManagers/Link/LinkMessages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace corvid::link {
namespace {

using namespace std::string_view_literals;

Bytes framed(const Message& message) {
    Bytes bytes;
    EXPECT_TRUE(appendFrame(bytes, message));
    return bytes;
}

ByteView body(const Bytes& frame) {
    return ByteView(frame).subspan(kFrameHeaderSize);
}

/// Decodes what was encoded; the same kind of message, or the test fails.
template <class T>
T roundTrip(const T& message) {
    const Bytes frame = framed(message);
    Decoded decoded = decodeFrame(body(frame));
    EXPECT_EQ(decoded.kind, Decoded::Kind::message);
    const T* result = std::get_if<T>(&decoded.message);
    EXPECT_NE(result, nullptr);
    return result != nullptr ? *result : T{};
}

std::vector<Message> oneOfEach() {
    MenuEntry entry;
    entry.title = "Copy";
    entry.hasSubmenu = true;
    entry.isEnabled = true;
    MenuEntry inner;
    inner.title = "Path";
    inner.toolTip = "tip";
    inner.iconName = "icon";
    inner.state = -1;
    inner.indentation = 2;
    inner.isHidden = true;
    inner.isAlternate = true;
    entry.submenu = {inner, MenuEntry{}};
    StatusReply status;
    status.volume = "/v";
    status.frontEnds = {"one", "two"};
    status.roundTrip = std::chrono::microseconds(120);
    status.lastFailure = "It failed.";
    status.sinceLastFailure = std::chrono::milliseconds(4000);
    status.logProblem = "No log is written.";
    return {Hello{1, 2, "test"},
            Welcome{1, 42, "0.1"},
            Refused{1, 1, "Restart."},
            Volume{"/v"},
            BadgeKinds{{{"synced", "Synced", "/p.png"}}},
            Begin{"/v"},
            End{"/v/a"},
            Ask{"/v", {{"a", true}, {"b\xFF", false}}},
            Badges{"/v", {{"a", "synced", true}, {"b", "", false}}},
            MenuRequest{1, 2, 3, "/v", {{"/v/a", true}, {"/v/b", false}}},
            MenuReply{1, MenuOutcome::made, 5, "Corvid", {entry, MenuEntry{}}},
            Click{1, 5, 2},
            ClickReply{1, ClickOutcome::hostAbsent},
            StatusRequest{9},
            status,
            HostStateChange{HostState::notAnswering},
            Ping{3},
            Pong{3}};
}

TEST(LinkMessages, FramesAreAsThePageSays) {
    EXPECT_EQ(framed(Begin{"/v"}), (Bytes{7, 0, 0, 0, 6, 2, 0, 0, 0, '/', 'v'}));
    EXPECT_EQ(framed(Hello{1, 2, "x"}),
              (Bytes{14, 0, 0, 0, 1, 'C', 'V', 'F', 'L', 1, 0, 2, 0, 1, 0, 0, 0, 'x'}));
    EXPECT_EQ(framed(Ask{"/v", {{"a", true}}}),
              (Bytes{17, 0, 0, 0, 8, 2, 0, 0, 0, '/', 'v', 1, 0, 0, 0, 1, 1, 0, 0, 0, 'a'}));
}

TEST(LinkMessages, EveryMessageComesBackAsItWas) {
    for (const Message& message : oneOfEach()) {
        const Bytes frame = framed(message);
        const Decoded decoded = decodeFrame(body(frame));
        ASSERT_EQ(decoded.kind, Decoded::Kind::message) << int{frame[4]};
        EXPECT_EQ(decoded.message.index(), message.index());
        // What is written again is equal to the byte, so every field came through.
        EXPECT_EQ(framed(decoded.message), frame) << int{frame[4]};
    }
}

TEST(LinkMessages, FieldsComeThrough) {
    const auto ask = roundTrip(Ask{"/v/\xFF", {{"line\nbreak", true}}});
    EXPECT_EQ(ask.folder, "/v/\xFF");
    EXPECT_THAT(ask.items, ::testing::ElementsAre(AskedItem{"line\nbreak", true}));
    const auto request = roundTrip(MenuRequest{7, 8, 1, "/v", {{"/v", true}}});
    EXPECT_EQ(request.request, 7U);
    EXPECT_EQ(request.context, 8U);
    EXPECT_EQ(request.kind, 1);
    EXPECT_THAT(request.selection, ::testing::ElementsAre(SelectedItem{"/v", true}));
}

TEST(LinkMessages, ACutFrameIsRefused) {
    for (const Message& message : oneOfEach()) {
        const Bytes frame = framed(message);
        const auto* const status = std::get_if<StatusReply>(&message);
        const std::size_t olderSize =
            status != nullptr ? body(frame).size() - 4 - status->logProblem.size() : frame.size();
        for (std::size_t size = 0; size < body(frame).size(); ++size) {
            const auto expected =
                size == olderSize ? Decoded::Kind::message : Decoded::Kind::malformed;
            EXPECT_EQ(decodeFrame(body(frame).first(size)).kind, expected)
                << int{frame[4]} << " cut to " << size;
        }
    }
}

TEST(LinkMessages, BytesAfterTheKnownFieldsAreIgnored) {
    for (const Message& message : oneOfEach()) {
        Bytes frame = framed(message);
        frame.push_back(0xAB);
        EXPECT_EQ(decodeFrame(body(frame)).kind, Decoded::Kind::message) << int{frame[4]};
    }
}

TEST(LinkMessages, AnUnknownTypeIsNoError) {
    EXPECT_EQ(decodeFrame(Bytes{0}).kind, Decoded::Kind::unknownType);
    EXPECT_EQ(decodeFrame(Bytes{19, 1, 2}).kind, Decoded::Kind::unknownType);
    EXPECT_EQ(decodeFrame(Bytes{255}).kind, Decoded::Kind::unknownType);
}

TEST(LinkMessages, ACountThatTheBytesCannotHoldIsRefused) {
    // ask: folder "/v", then a count of 4,000 with nothing behind it.
    EXPECT_EQ(decodeFrame(Bytes{8, 2, 0, 0, 0, '/', 'v', 0xA0, 0x0F, 0, 0}).kind,
              Decoded::Kind::malformed);
    // begin: a string that claims 4 GiB.
    EXPECT_EQ(decodeFrame(Bytes{6, 0xFF, 0xFF, 0xFF, 0xFF, '/'}).kind, Decoded::Kind::malformed);
}

TEST(LinkMessages, MenusAreBoundedInDepthAndNumber) {
    MenuReply deep;
    std::vector<MenuEntry>* level = &deep.entries;
    for (std::size_t i = 0; i < kMaxMenuDepth; ++i) {
        level->push_back({});
        level->back().hasSubmenu = i + 1 < kMaxMenuDepth;
        level = &level->back().submenu;
    }
    EXPECT_EQ(framed(deep), framed(roundTrip(deep)));
    MenuReply deeper;
    deeper.entries.push_back({});
    deeper.entries[0].hasSubmenu = true;
    deeper.entries[0].submenu = deep.entries;
    Bytes out;
    EXPECT_FALSE(appendFrame(out, deeper));

    MenuReply wide;
    wide.entries.resize(kMaxMenuItems);
    EXPECT_TRUE(appendFrame(out, wide));
    wide.entries.push_back({});
    out.clear();
    EXPECT_FALSE(appendFrame(out, wide));
    EXPECT_TRUE(out.empty());
}

TEST(LinkMessages, ABadValueIsRefused) {
    // hello with another magic, and with oldest above newest.
    EXPECT_EQ(decodeFrame(Bytes{1, 'C', 'V', 'F', 'X', 1, 0, 1, 0, 0, 0, 0, 0}).kind,
              Decoded::Kind::malformed);
    EXPECT_EQ(decodeFrame(Bytes{1, 'C', 'V', 'F', 'L', 2, 0, 1, 0, 0, 0, 0, 0}).kind,
              Decoded::Kind::malformed);
    // hostState 3, and a clickReply of outcome 5.
    EXPECT_EQ(decodeFrame(Bytes{16, 3}).kind, Decoded::Kind::malformed);
    EXPECT_EQ(decodeFrame(Bytes{13, 1, 0, 0, 0, 5}).kind, Decoded::Kind::malformed);
    // A menu without a selection cannot be asked for.
    Bytes out;
    EXPECT_FALSE(appendFrame(out, MenuRequest{1, 0, 0, "/v", {}}));
    EXPECT_EQ(
        decodeFrame(Bytes{10, 1, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, '/', 'v', 0, 0, 0, 0}).kind,
        Decoded::Kind::malformed);
}

TEST(LinkMessages, AVolumeHoldsItsFolderAndWhatIsBelow) {
    for (const auto path : {"/v"sv, "/v/a"sv, "/v/a/b"sv}) {
        EXPECT_TRUE(Volume{"/v"}.holds(path)) << path;
        EXPECT_TRUE(Volume{"/"}.holds(path)) << path;
        EXPECT_FALSE(Volume{}.holds(path)) << path;
    }
    for (const auto path : {"/"sv, "/w"sv, "/va"sv, "/w/v/a"sv}) {
        EXPECT_FALSE(Volume{"/v"}.holds(path)) << path;
    }
}

TEST(LinkMessages, PathsAndNamesArePlain) {
    for (const auto path : {"/"sv, "/a"sv, "/a/..."sv, "/a/.b"sv, "/\xFF"sv, "/a\nb"sv}) {
        EXPECT_TRUE(isPlainPath(path)) << path;
    }
    for (const auto path :
         {""sv, "a"sv, "/a/"sv, "//"sv, "/a//b"sv, "/./a"sv, "/a/.."sv, "/a\0"sv}) {
        EXPECT_FALSE(isPlainPath(path)) << path;
    }
    for (const auto name : {"a"sv, "..."sv, ".a"sv, "\xFF"sv, "a\n"sv}) {
        EXPECT_TRUE(isPlainName(name)) << name;
    }
    for (const auto name : {""sv, "."sv, ".."sv, "a/b"sv, "/"sv, "a\0"sv}) {
        EXPECT_FALSE(isPlainName(name)) << name;
    }
    EXPECT_TRUE(isPlainName(std::string(kMaxNameSize, 'a')));
    EXPECT_FALSE(isPlainName(std::string(kMaxNameSize + 1, 'a')));
    EXPECT_FALSE(isPlainPath("/" + std::string(kMaxNameSize + 1, 'a')));
}

TEST(LinkMessages, AnOlderExtensionSaysNothingOfItsLog) {
    StatusReply status;
    status.volume = "/v";
    status.lastFailure = "It failed.";
    status.logProblem = "No log is written.";
    EXPECT_EQ(roundTrip(status).logProblem, status.logProblem);
    Bytes frame = framed(status);
    frame.resize(frame.size() - 4 - status.logProblem.size());
    const Decoded decoded = decodeFrame(body(frame));
    ASSERT_EQ(decoded.kind, Decoded::Kind::message);
    const auto& older = std::get<StatusReply>(decoded.message);
    EXPECT_EQ(older.lastFailure, "It failed.");
    EXPECT_EQ(older.logProblem, "");
    frame.resize(frame.size() + 2);
    EXPECT_EQ(decodeFrame(body(frame)).kind, Decoded::Kind::malformed);
}

} // namespace
} // namespace corvid::link
