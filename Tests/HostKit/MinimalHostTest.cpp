// The example, built against an installed copy of the library, as the host of a conversation.

#include "Tests/HostKit/ExtensionDouble.h"
#include "Tests/HostKit/HostProcess.h"
#include "Tests/HostKit/RuntimeFolderFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvid {
namespace {

using ::testing::HasSubstr;

class MinimalHostTest : public RuntimeFolderFixture {};

TEST_F(MinimalHostTest, servesAWholeConversation) {
    HostProcess host({CORVID_MINIMAL_HOST, volume_});
    EXPECT_THAT(host.waitForLine("Serving"), HasSubstr(volume_));
    ExtensionDouble extension("test");
    ASSERT_TRUE(extension.registerPort());
    EXPECT_EQ(extension.badge("/a.txt"), "synced");
    EXPECT_EQ(extension.badge("/a.png"), "cloud");
    const auto menu = extension.menu({"/a.txt"});
    ASSERT_TRUE(menu.has_value());
    ASSERT_EQ(menu->size(), 1U);
    EXPECT_EQ(menu->front()->title, "Say Hello");
    EXPECT_TRUE(extension.click(menu->front(), {"/a.txt"}));
    extension.waitForPush("/a.txt", "checkedOut");
    EXPECT_EQ(host.waitForLine("Hello"), "Hello, " + volume_ + "/a.txt");
    host.closeInput();
    EXPECT_EQ(host.wait(), 0);
}

TEST_F(MinimalHostTest, saysWhyItCannotServe) {
    HostProcess host({CORVID_MINIMAL_HOST, volume_ + "/nowhere"});
    EXPECT_THAT(host.waitForLine("nowhere"), HasSubstr("name one that exists"));
    EXPECT_EQ(host.wait(), 1);
}

} // namespace
} // namespace corvid
