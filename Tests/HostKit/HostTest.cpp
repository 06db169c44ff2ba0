#include <CorvidHostKit/Host.h>

#include "Platform/Unix/VolumeFile.h"
#include "Tests/HostKit/ExtensionDouble.h"
#include "Tests/HostKit/RecordingApplication.h"
#include "Tests/HostKit/RuntimeFolderFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <sys/resource.h>

namespace corvid::hostkit {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;

class HostTest : public RuntimeFolderFixture {
protected:
    std::string refusal(const std::string& folder) {
        RecordingApplication application;
        try {
            const Host host(folder, application);
        } catch (const Error& error) {
            return error.what();
        }
        return "(served)";
    }

    RecordingApplication application_;
};

TEST_F(HostTest, servesTheExtensionsThatAreOpenAlready) {
    ExtensionDouble extension("before");
    Host host(volume_ + "/", application_);
    EXPECT_EQ(host.folder(), volume_);
    host.push(volume_ + "/a", "error");
    extension.waitForPush("/a", "error");
    EXPECT_EQ(extension.badge("/a"), "synced");
    EXPECT_THAT(application_.calls(), Contains("badge " + volume_ + "/a"));
}

TEST_F(HostTest, followsExtensionsThatComeAndGo) {
    const Host host(volume_, application_);
    auto extension = std::make_unique<ExtensionDouble>("later");
    const std::string name = extension->name();
    application_.waitFor("open " + name);
    extension->registerPort();
    extension->show("/d");
    application_.waitFor("shown " + volume_ + "/d");
    EXPECT_TRUE(host.isShown(volume_ + "/d"));
    extension->close();
    application_.waitFor("closed " + name);
    application_.waitFor("hidden " + volume_ + "/d");
    EXPECT_FALSE(host.isShown(volume_ + "/d"));
}

TEST_F(HostTest, pushesResumeWhenThereAreDescriptorsAgain) {
    ExtensionDouble extension("starved");
    Host host(volume_, application_);
    application_.waitFor("open " + extension.name());
    host.push(volume_ + "/a", "synced");
    extension.waitForPush("/a", "synced");
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max}; // No new one; those that there are stay.
    setrlimit(RLIMIT_NOFILE, &none);
    host.push(volume_ + "/a", "error");
    EXPECT_FALSE(host.flush(std::chrono::milliseconds(300)));
    host.push(volume_ + "/a", "inProgress");
    setrlimit(RLIMIT_NOFILE, &before);
    extension.waitForPush("/a", "inProgress");
    EXPECT_TRUE(host.flush(std::chrono::seconds(10)));
    EXPECT_EQ(extension.pushCount(), 2U) << "the one between was replaced";
}

TEST_F(HostTest, publishesItsFolderWhileItLives) {
    {
        const Host host(volume_, application_);
        const auto published = VolumeFile::ofHost(runtimeFolder()).read();
        ASSERT_TRUE(published.has_value());
        EXPECT_EQ(published->folder, volume_);
        EXPECT_TRUE(published->isFixed);
    }
    EXPECT_FALSE(VolumeFile::ofHost(runtimeFolder()).read().has_value());
}

TEST_F(HostTest, refusesFoldersThatCannotBeServed) {
    EXPECT_THAT(refusal(volume_ + "/nowhere"), HasSubstr("nowhere\" is no folder"));
    EXPECT_THAT(refusal(""), HasSubstr("is no folder"));
    const std::string odd = volume_ + "/new\nline";
    std::filesystem::create_directory(odd);
    EXPECT_THAT(refusal(odd), HasSubstr("holds a newline"));
}

TEST_F(HostTest, secondHostIsRefused) {
    const Host host(volume_, application_);
    EXPECT_THAT(refusal(top_.string()),
                AllOf(HasSubstr("another host application"), HasSubstr(volume_)));
}

TEST_F(HostTest, extensionWithAnotherFolderIsRefusedNamingBoth) {
    const std::string other = (top_ / "other").string();
    const VolumeFile file = VolumeFile::ofExtension(runtimeFolder());
    auto published = file.publish(other, true);
    EXPECT_THAT(refusal(volume_), AllOf(HasSubstr(other), HasSubstr(volume_)));
    EXPECT_FALSE(VolumeFile::ofHost(runtimeFolder()).read().has_value());

    published.publication->update(other, false);
    EXPECT_EQ(refusal(volume_), "(served)") << "nobody chose that folder";

    std::filesystem::create_directory_symlink(volume_, other);
    published.publication->update(other, true);
    EXPECT_EQ(refusal(volume_), "(served)") << "two names of one folder";
}

TEST_F(HostTest, extensionThatComesWithAnotherFolderIsReported) {
    const Host host(volume_, application_);
    const auto published = VolumeFile::ofExtension(runtimeFolder()).publish(top_.string(), true);
    application_.waitFor("problem: the extension (process " + std::to_string(getpid()) +
                         ") was told to watch " + top_.string() + ", but this host serves " +
                         volume_ +
                         "; start one of them with the other's folder, or the extension without "
                         "any");
}

TEST_F(HostTest, applicationMayPushFromItsFirstCallOn) {
    class Pushing : public RecordingApplication {
        void extensionChanged(const std::string& portName, bool isOpen) override {
            if (isOpen) {
                host().push(host().folder() + "/a", "cloud");
            }
            RecordingApplication::extensionChanged(portName, isOpen);
        }
    };
    ExtensionDouble extension("before");
    Pushing application;
    Host host(volume_, application);
    EXPECT_TRUE(host.flush(std::chrono::minutes(1)));
    extension.waitForPush("/a", "cloud");
}

TEST_F(HostTest, burstOfPushesArrivesWhole) {
    ExtensionDouble extension("burst");
    Host host(volume_, application_);
    constexpr int kItems = 2000;
    for (int i = 0; i < kItems; ++i) {
        host.push(volume_ + "/" + std::to_string(i), "synced");
    }
    EXPECT_TRUE(host.flush(std::chrono::minutes(1)));
    for (int i = 0; i < kItems; ++i) {
        extension.waitForPush("/" + std::to_string(i), "synced");
    }
    EXPECT_EQ(extension.pushCount(), static_cast<std::size_t>(kItems));
}

} // namespace
} // namespace corvid::hostkit
