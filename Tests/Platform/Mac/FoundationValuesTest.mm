#import "Platform/Mac/FoundationValues.h"

#include <gtest/gtest.h>

namespace corvid {
namespace {

TEST(FoundationStringTest, KeepsEveryText) {
    using namespace std::string_literals;
    for (const std::string& text :
         {""s, "plain"s, "Übung 日本 🎈"s, "e\xCC\x81 stays decomposed"s, "nul\0inside"s}) {
        @autoreleasepool {
            EXPECT_EQ(utf8String(foundationString(text)), text);
        }
    }
}

TEST(FoundationStringTest, ReplacesWhatIsNotUTF8) {
    @autoreleasepool {
        EXPECT_EQ(utf8String(foundationString("a\xFF"
                                              "b")),
                  "a\xEF\xBF\xBD"
                  "b");
        EXPECT_EQ(utf8String(nil), "");
    }
}

TEST(FoundationURLTest, KeepsTextAndBase) {
    @autoreleasepool {
        for (const char* text :
             {"file:///Volumes/Corvid", "file:///Volumes/Corvid/d/",
              "file:///Volumes/Corvid/a%20b%25%C3%BC.txt", "https://example.com/x?y#z"}) {
            const auto url = URL::fromText(text);
            ASSERT_TRUE(url) << text;
            NSURL* object = foundationURL(*url);
            EXPECT_EQ(utf8String([object absoluteString]), text);
            EXPECT_EQ(portableURL(object), url);
        }
        const auto base = URL::fromText("file:///Volumes/Corvid/d/");
        const auto relative = URL::fromText("x.txt", *base);
        NSURL* object = foundationURL(*relative);
        EXPECT_EQ(utf8String([object absoluteString]), "file:///Volumes/Corvid/d/x.txt");
        EXPECT_EQ(utf8String([object relativeString]), "x.txt");
        EXPECT_EQ(portableURL(object), relative);
    }
}

TEST(FoundationURLTest, TakesWhatFinderMakes) {
    @autoreleasepool {
        NSURL* object = [NSURL fileURLWithPath:@"/Volumes/Corvid/a b#ü.txt" isDirectory:NO];
        const auto url = portableURL(object);
        ASSERT_TRUE(url);
        EXPECT_EQ(url->path(), "/Volumes/Corvid/a b#ü.txt");
        EXPECT_EQ(url->absoluteString(), "file:///Volumes/Corvid/a%20b%23%C3%BC.txt");
        EXPECT_EQ(portableURL(nil), std::nullopt);
    }
}

} // namespace
} // namespace corvid
