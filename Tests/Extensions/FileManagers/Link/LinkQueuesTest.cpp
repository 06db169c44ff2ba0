// What waits for the extension and for the front ends, and its bounds.

#include "Core/Archive/OpaqueObject.h"
#include "Extensions/FileManagers/Link/JobQueue.h"
#include "Extensions/FileManagers/Link/ReplyQueue.h"
#include "Extensions/FileManagers/Link/ShownMenus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace corvid::link {
namespace {

using Added = JobQueue::Added;

constexpr FinderModel::Connection kAnn = 1;
constexpr FinderModel::Connection kBob = 2;

MenuRequest requestOf(std::uint32_t request, std::uint32_t context, std::size_t items = 1,
                      std::size_t length = 10) {
    MenuRequest result{request, context, 0, "/v", {}};
    result.selection.assign(items, {"/v/" + std::string(length - 3, 'x'), false});
    return result;
}

std::uint32_t numberOf(const JobQueue::Job& job) {
    return std::visit([](const auto& what) { return what.request; }, job.what);
}

TEST(JobQueue, HandsOutWhatCameFirst) {
    JobQueue jobs;
    EXPECT_EQ(jobs.add(kAnn, requestOf(1, 1)), Added::added);
    EXPECT_EQ(jobs.add(kBob, Click{2, 1, 1}), Added::added);
    EXPECT_EQ(jobs.add(kAnn, requestOf(3, 2)), Added::added);
    for (const std::uint32_t expected : {1U, 2U, 3U}) {
        const auto job = jobs.take();
        ASSERT_TRUE(job);
        EXPECT_EQ(numberOf(*job), expected);
        jobs.finish(*job);
    }
    EXPECT_FALSE(jobs.take());
}

TEST(JobQueue, CountsWhatWaitsAndWhatIsInWork) {
    JobQueue jobs;
    for (std::uint32_t i = 0; i < JobQueue::kMaxJobs; ++i) {
        ASSERT_EQ(jobs.add(kAnn, Click{i, 1, 1}), Added::added);
    }
    EXPECT_EQ(jobs.add(kAnn, Click{99, 1, 1}), Added::tooMany);
    EXPECT_EQ(jobs.add(kBob, Click{99, 1, 1}), Added::added) << "each has its own share";
    const auto job = jobs.take();
    EXPECT_EQ(jobs.add(kAnn, Click{99, 1, 1}), Added::tooMany);
    jobs.finish(*job);
    EXPECT_EQ(jobs.add(kAnn, Click{99, 1, 1}), Added::added);
}

TEST(JobQueue, BoundsTheBytesOfWhatWaits) {
    JobQueue jobs;
    const std::size_t length = 4000;
    const std::size_t items = JobQueue::kMaxBytes / 3 / (length + sizeof(SelectedItem));
    EXPECT_EQ(jobs.add(kAnn, requestOf(1, 1, items, length)), Added::added);
    EXPECT_EQ(jobs.add(kAnn, requestOf(2, 2, items, length)), Added::added);
    const auto job = jobs.take();
    EXPECT_EQ(jobs.add(kAnn, requestOf(3, 3, items + items / 10, length)), Added::tooLarge);
    EXPECT_EQ(jobs.add(kAnn, requestOf(4, 4)), Added::added);
    EXPECT_EQ(jobs.dropWaiting(kAnn, 2), 2U);
    EXPECT_EQ(jobs.dropWaiting(kAnn, 2), std::nullopt);
    EXPECT_EQ(jobs.add(kAnn, requestOf(5, 3, items + items / 10, length)), Added::added);
    jobs.finish(*job);
}

TEST(JobQueue, PassesOverWhoIsHeldBack) {
    JobQueue jobs;
    jobs.add(kAnn, Click{1, 1, 1});
    jobs.add(kBob, Click{2, 1, 1});
    EXPECT_TRUE(jobs.holdBack(kAnn, true));
    EXPECT_FALSE(jobs.holdBack(kAnn, true));
    EXPECT_EQ(numberOf(*jobs.take()), 2U);
    EXPECT_FALSE(jobs.take());
    EXPECT_TRUE(jobs.holdBack(kAnn, false));
    const auto job = jobs.take();
    EXPECT_EQ(numberOf(*job), 1U);
    jobs.add(kAnn, Click{3, 1, 1});
    jobs.forget(kAnn);
    EXPECT_FALSE(jobs.take());
    jobs.finish(*job);
}

TEST(ReplyQueue, CountsItsBytes) {
    ReplyQueue replies;
    MenuReply menu;
    menu.entries.resize(10);
    menu.entries.front().hasSubmenu = true;
    menu.entries.front().submenu.resize(1);
    menu.entries.front().submenu.front().title = std::string(ReplyQueue::kFullSize, 't');
    replies.add(Pong{1});
    EXPECT_FALSE(replies.isFull());
    replies.add(menu);
    EXPECT_TRUE(replies.isFull());
    EXPECT_TRUE(std::holds_alternative<Pong>(*replies.take()));
    EXPECT_TRUE(replies.isFull());
    EXPECT_TRUE(std::holds_alternative<MenuReply>(*replies.take()));
    EXPECT_EQ(replies.bytes(), 0U);
    EXPECT_FALSE(replies.take());
}

TEST(ReplyQueue, KeepsOnlyTheNewestState) {
    ReplyQueue replies;
    for (int i = 0; i < 1000; ++i) {
        replies.replace(HostStateChange{HostState::present});
        replies.replace(Volume{"/v/" + std::to_string(i)});
    }
    replies.take();
    EXPECT_EQ(std::get<Volume>(*replies.take()).folder, "/v/999");
    EXPECT_EQ(replies.bytes(), 0U);
    EXPECT_FALSE(replies.take());
}

ShownMenu menuOf(std::size_t entries, std::size_t bytes = 1000) {
    return {std::make_shared<const Selection>(Selection{*URL::fileURL("/v"), {}}),
            std::vector<ShownMenu::Entry>(entries), bytes};
}

TEST(ShownMenus, KeepsTheNewestOfAConnection) {
    ShownMenus menus;
    const std::uint32_t other = menus.add(kBob, menuOf(1));
    const std::uint32_t first = menus.add(kAnn, menuOf(1));
    for (std::size_t i = 1; i < ShownMenus::kMaxMenus; ++i) {
        menus.add(kAnn, menuOf(1));
    }
    EXPECT_NE(menus.find(kAnn, first), nullptr);
    EXPECT_EQ(menus.find(kBob, first), nullptr) << "another's";
    const std::uint32_t last = menus.add(kAnn, menuOf(ShownMenus::kMaxEntries - 5));
    EXPECT_EQ(menus.find(kAnn, first), nullptr);
    EXPECT_NE(menus.find(kAnn, last), nullptr);
    EXPECT_EQ(menus.find(kAnn, last - 6), nullptr) << "its entry is one too many";
    EXPECT_NE(menus.find(kAnn, last - 5), nullptr);
    EXPECT_NE(menus.find(kBob, other), nullptr);
    menus.forget(kAnn);
    EXPECT_EQ(menus.find(kAnn, last), nullptr);
    menus.forget(kBob);
    EXPECT_EQ(menus.bytes(), 0U);
}

TEST(ShownMenus, BoundsTheBytesOfAllTogether) {
    ShownMenus menus;
    std::vector<std::uint32_t> numbers;
    for (FinderModel::Connection connection = 1; connection <= 5; ++connection) {
        numbers.push_back(menus.add(connection, menuOf(1, ShownMenus::kMaxMenuBytes)));
        EXPECT_LE(menus.bytes(), ShownMenus::kMaxBytes);
    }
    EXPECT_EQ(menus.find(3, numbers[2]), nullptr);
    EXPECT_NE(menus.find(4, numbers[3]), nullptr);
    EXPECT_NE(menus.find(5, numbers[4]), nullptr);
}

TEST(ShownMenus, AMenusBytesAreThoseOfAllItsParts) {
    const auto menu = std::make_shared<Menu>();
    const std::size_t none = menuBytes(*menu);
    const auto blob = Value::data(Bytes(100'000));
    for (int i = 0; i < 2; ++i) {
        const auto item = std::make_shared<MenuItem>();
        item->title = std::string(1000, 't');
        item->otherFields = fieldsWith(nullptr, "blob", Value::array({blob, Value::menu(menu)}));
        menu->add(item);
    }
    const std::size_t bytes = menuBytes(*menu) - none;
    EXPECT_GE(bytes, 102'000U);
    EXPECT_LT(bytes, 110'000U) << "what two items share counts once";
    // Neither keeps the other alive beyond this test.
    menu->items.clear();
}

} // namespace
} // namespace corvid::link
