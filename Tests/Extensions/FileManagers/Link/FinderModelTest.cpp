#include "Extensions/FileManagers/Link/FinderModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace corvid::link {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr FinderModel::Connection kAnn = 1;
constexpr FinderModel::Connection kBob = 2;

/// The model, and an extension that does at once what it is told.
class FinderModelTest : public ::testing::Test {
protected:
    /// Every waiting begin ("+folder") and end ("-folder"), told with `outcome`.
    std::vector<std::string> observe(SendOutcome outcome = SendOutcome::arrived) {
        std::vector<std::string> told;
        while (const auto observation = model.nextObservation()) {
            told.push_back((observation->isBegin ? "+" : "-") + observation->folder);
            model.finish(*observation, outcome);
        }
        return told;
    }

    /// Every waiting question, answered with `badge` ("none" sets nothing).
    std::vector<std::string> answer(const std::string& badge,
                                    SendOutcome outcome = SendOutcome::arrived) {
        std::vector<std::string> asked;
        while (const auto question = model.nextQuestion()) {
            asked.push_back(question->path());
            if (badge != "none") {
                model.setBadge(question->path(), badge, &*question);
            }
            model.finish(*question, outcome);
        }
        return asked;
    }

    /// "name=badge", with "!" after what is an answer; everything that waits.
    std::vector<std::string> news(FinderModel::Connection connection) {
        std::vector<std::string> lines;
        while (const auto badges = model.takeNews(connection)) {
            for (const ItemBadge& item : badges->items) {
                lines.push_back(item.name + "=" + item.badge + (item.isAnswer ? "!" : ""));
            }
        }
        return lines;
    }

    void show(FinderModel::Connection connection, const std::string& folder,
              const std::vector<AskedItem>& items) {
        ASSERT_TRUE(model.begin(connection, folder));
        ASSERT_TRUE(model.ask(connection, folder, items));
        observe();
    }

    FinderModel model;
};

TEST_F(FinderModelTest, BeginsOnTheFirstViewAndEndsOnTheLast) {
    model.begin(kAnn, "/v");
    EXPECT_THAT(observe(), ElementsAre("+/v"));
    model.begin(kAnn, "/v");
    model.begin(kBob, "/v");
    EXPECT_THAT(observe(), IsEmpty());
    model.end(kAnn, "/v");
    model.end(kBob, "/v");
    EXPECT_THAT(observe(), IsEmpty());
    model.end(kAnn, "/v");
    EXPECT_THAT(observe(), ElementsAre("-/v"));
    EXPECT_EQ(model.shownFolders(), 0U);
}

TEST_F(FinderModelTest, EndsWhatAConnectionShowedWhenItGoes) {
    model.begin(kAnn, "/v");
    model.begin(kAnn, "/v/a");
    model.begin(kBob, "/v/a");
    EXPECT_THAT(observe(), ElementsAre("+/v", "+/v/a"));
    model.disconnect(kAnn);
    EXPECT_THAT(observe(), ElementsAre("-/v"));
    model.disconnect(kBob);
    EXPECT_THAT(observe(), ElementsAre("-/v/a"));
}

TEST_F(FinderModelTest, IgnoresAnEndWithoutABegin) {
    model.end(kAnn, "/v");
    model.begin(kBob, "/v");
    model.end(kAnn, "/v");
    EXPECT_THAT(observe(), ElementsAre("+/v"));
}

TEST_F(FinderModelTest, CancelsABeginThatWasNotToldYet) {
    model.begin(kAnn, "/v");
    model.end(kAnn, "/v");
    model.begin(kAnn, "/v/a");
    EXPECT_THAT(observe(), ElementsAre("+/v/a"));
    model.end(kAnn, "/v/a");
    model.begin(kAnn, "/v/a");
    EXPECT_THAT(observe(), IsEmpty());
}

TEST_F(FinderModelTest, TellsWhatChangedWhileItWasTold) {
    model.begin(kAnn, "/v");
    const auto begin = model.nextObservation();
    ASSERT_TRUE(begin);
    model.end(kAnn, "/v");
    EXPECT_FALSE(model.nextObservation());
    model.finish(*begin, SendOutcome::arrived);
    EXPECT_THAT(observe(), ElementsAre("-/v"));
}

TEST_F(FinderModelTest, RefusesMoreFoldersThanOneMayShow) {
    for (std::size_t i = 0; i < FinderModel::kMaxFoldersShown; ++i) {
        ASSERT_TRUE(model.begin(kAnn, "/v/" + std::to_string(i)));
    }
    EXPECT_FALSE(model.begin(kAnn, "/v/more"));
    EXPECT_TRUE(model.begin(kBob, "/v/more"));
    model.end(kAnn, "/v/0");
    EXPECT_TRUE(model.begin(kAnn, "/v/more"));
}

TEST_F(FinderModelTest, AnswersAreMarkedForThoseWhoAsked) {
    model.begin(kBob, "/v");
    show(kAnn, "/v", {{"a", false}});
    EXPECT_THAT(answer("synced"), ElementsAre("/v/a"));
    EXPECT_THAT(news(kAnn), ElementsAre("a=synced!"));
    EXPECT_THAT(news(kBob), ElementsAre("a=synced"));
    EXPECT_THAT(news(kAnn), IsEmpty());
}

TEST_F(FinderModelTest, AsksOnceForWhatSeveralWaitFor) {
    model.begin(kBob, "/v");
    show(kAnn, "/v", {{"a", false}, {"a", false}});
    model.ask(kBob, "/v", {{"a", false}});
    EXPECT_THAT(answer("cloud"), ElementsAre("/v/a"));
    EXPECT_THAT(news(kAnn), ElementsAre("a=cloud!"));
    EXPECT_THAT(news(kBob), ElementsAre("a=cloud!"));
}

TEST_F(FinderModelTest, RefusesQuestionsAboutAFolderThatIsNotShown) {
    EXPECT_FALSE(model.ask(kAnn, "/v", {{"a", false}}));
    show(kBob, "/v", {});
    EXPECT_FALSE(model.ask(kAnn, "/v", {{"a", false}}));
    EXPECT_THAT(answer("cloud"), IsEmpty());
}

TEST_F(FinderModelTest, DropsQuestionsOfAFolderThatNobodyShowsAnyMore) {
    show(kAnn, "/v", {{"a", false}, {"b", false}});
    show(kBob, "/v/x", {{"c", false}});
    EXPECT_EQ(model.waitingQuestions(), 3U);
    model.end(kAnn, "/v");
    EXPECT_EQ(model.waitingQuestions(), 1U);
    EXPECT_THAT(answer("cloud"), ElementsAre("/v/x/c"));
}

TEST_F(FinderModelTest, KeepsQuestionsWhileSomebodyElseShowsTheFolder) {
    show(kAnn, "/v", {{"a", false}});
    show(kBob, "/v", {});
    model.disconnect(kAnn);
    EXPECT_THAT(answer("cloud"), ElementsAre("/v/a"));
    EXPECT_THAT(news(kBob), ElementsAre("a=cloud"));
}

TEST_F(FinderModelTest, AsksForNothingBeforeTheFolderWasBegun) {
    model.begin(kAnn, "/v");
    model.ask(kAnn, "/v", {{"a", false}});
    EXPECT_FALSE(model.nextQuestion());
    observe();
    EXPECT_THAT(answer("cloud"), ElementsAre("/v/a"));
}

TEST_F(FinderModelTest, FoldersTakeTurns) {
    show(kAnn, "/v", {{"a", false}, {"b", false}});
    show(kBob, "/v/x", {{"c", false}, {"d", true}});
    EXPECT_THAT(answer("cloud"), ElementsAre("/v/a", "/v/x/c", "/v/b", "/v/x/d"));
}

TEST_F(FinderModelTest, AnAnsweredNoneLeavesTheBadgeAndAPushedNoneTakesItAway) {
    show(kAnn, "/v", {{"a", false}});
    answer("synced");
    EXPECT_THAT(news(kAnn), ElementsAre("a=synced!"));
    model.ask(kAnn, "/v", {{"a", false}});
    answer("none");
    EXPECT_THAT(news(kAnn), ElementsAre("a=synced!"));
    model.setBadge("/v/a", "", nullptr);
    EXPECT_THAT(news(kAnn), ElementsAre("a="));
}

TEST_F(FinderModelTest, PushesGoToThoseWhoShowTheFolder) {
    show(kAnn, "/v", {});
    show(kBob, "/v/x", {});
    model.setBadge("/v/a", "error", nullptr);
    model.setBadge("/elsewhere/a", "error", nullptr);
    model.setBadge("a", "error", nullptr);
    model.setBadge("/v/", "error", nullptr);
    EXPECT_THAT(news(kAnn), ElementsAre("a=error"));
    EXPECT_THAT(news(kBob), IsEmpty());
}

TEST_F(FinderModelTest, TellsOnceWhatChangedTwice) {
    show(kAnn, "/v", {});
    model.setBadge("/v/a", "error", nullptr);
    model.setBadge("/v/a", "synced", nullptr);
    model.setBadge("/v/a", "synced", nullptr);
    EXPECT_THAT(news(kAnn), ElementsAre("a=synced"));
}

TEST_F(FinderModelTest, ASecondViewerHearsWhatIsKnown) {
    show(kAnn, "/v", {{"a", false}, {"b", false}});
    answer("synced");
    model.begin(kBob, "/v");
    EXPECT_THAT(news(kBob), UnorderedElementsAre("a=synced", "b=synced"));
}

TEST_F(FinderModelTest, ForgetsWhatNobodyShows) {
    show(kAnn, "/v", {{"a", false}});
    answer("synced");
    model.end(kAnn, "/v");
    observe();
    model.begin(kAnn, "/v");
    EXPECT_THAT(news(kAnn), IsEmpty());
}

TEST_F(FinderModelTest, BatchesAreBounded) {
    std::vector<AskedItem> items;
    for (std::size_t i = 0; i <= kMaxBatchSize; ++i) {
        items.push_back({std::to_string(i), false});
    }
    show(kAnn, "/v", items);
    answer("cloud");
    EXPECT_EQ(model.takeNews(kAnn)->items.size(), kMaxBatchSize);
    EXPECT_EQ(model.takeNews(kAnn)->items.size(), 1U);
    EXPECT_FALSE(model.takeNews(kAnn));
}

TEST_F(FinderModelTest, APushThatCrossesAnAnswerIsFollowedByOneMoreQuestion) {
    show(kAnn, "/v", {{"a", false}});
    auto question = model.nextQuestion();
    ASSERT_TRUE(question);
    model.setBadge("/v/a", "inProgress", nullptr);
    model.setBadge("/v/a", "synced", &*question);
    model.finish(*question, SendOutcome::arrived);
    question = model.nextQuestion();
    ASSERT_TRUE(question);
    // A host that pushes at every question must not be asked for ever.
    model.setBadge("/v/a", "inProgress", nullptr);
    model.finish(*question, SendOutcome::arrived);
    EXPECT_FALSE(model.nextQuestion());
}

TEST_F(FinderModelTest, AnAnswerThatComesAfterTheFolderWentIsNotKept) {
    show(kAnn, "/v", {{"a", false}});
    const auto question = model.nextQuestion();
    ASSERT_TRUE(question);
    model.end(kAnn, "/v");
    observe();
    model.setBadge("/v/a", "synced", &*question);
    model.finish(*question, SendOutcome::arrived);
    model.begin(kAnn, "/v");
    EXPECT_THAT(news(kAnn), IsEmpty());
}

// Recovery.

TEST_F(FinderModelTest, AHostThatAppearsIsToldAndAskedAnew) {
    show(kAnn, "/v", {{"a", false}});
    show(kBob, "/v/x", {{"b", true}});
    answer("cloud", SendOutcome::hostAbsent);
    model.end(kBob, "/v/x");
    news(kAnn);
    model.hostAppeared();
    EXPECT_FALSE(model.nextQuestion());
    EXPECT_THAT(observe(), ElementsAre("+/v"));
    EXPECT_THAT(answer("synced"), ElementsAre("/v/a"));
    EXPECT_THAT(news(kAnn), ElementsAre("a=synced"));
}

TEST_F(FinderModelTest, AHostThatAppearsDuringAQuestionIsAskedOnceMore) {
    show(kAnn, "/v", {{"a", false}});
    const auto question = model.nextQuestion();
    ASSERT_TRUE(question);
    model.hostAppeared();
    model.finish(*question, SendOutcome::hostAbsent);
    EXPECT_THAT(observe(), ElementsAre("+/v"));
    EXPECT_THAT(answer("synced"), ElementsAre("/v/a"));
}

TEST_F(FinderModelTest, WhenTheHostVanishesEveryBadgeIsAskedForOnce) {
    show(kAnn, "/v", {{"a", false}});
    answer("synced");
    model.setBadge("/v/pushed", "error", nullptr);
    news(kAnn);
    model.hostVanished();
    EXPECT_THAT(observe(), IsEmpty());
    EXPECT_THAT(answer("cloud", SendOutcome::hostAbsent), ElementsAre("/v/a"));
    EXPECT_THAT(news(kAnn), ElementsAre("a=cloud"));
}

TEST_F(FinderModelTest, AfterAFailureTriesOnceARetryAndThenAsksAgain) {
    show(kAnn, "/v", {{"a", false}, {"b", false}, {"c", false}});
    auto question = model.nextQuestion();
    model.setBadge("/v/a", "cloud", &*question);
    model.finish(*question, SendOutcome::failed);
    EXPECT_TRUE(model.isRetrying());
    EXPECT_FALSE(model.nextQuestion());

    model.retry();
    EXPECT_THAT(answer("cloud", SendOutcome::failed), ElementsAre("/v/b"));
    model.retry();
    EXPECT_THAT(answer("synced"), UnorderedElementsAre("/v/a", "/v/b", "/v/c"));
    EXPECT_FALSE(model.isRetrying());
    EXPECT_THAT(news(kAnn), UnorderedElementsAre("a=synced!", "b=synced!", "c=synced!"));
}

TEST_F(FinderModelTest, TriesWhatHasFailedWhenNothingElseWaits) {
    show(kAnn, "/v", {{"a", false}});
    answer("cloud", SendOutcome::failed);
    model.retry();
    EXPECT_THAT(answer("cloud", SendOutcome::failed), ElementsAre("/v/a"));
    EXPECT_TRUE(model.isRetrying());
    model.retry();
    EXPECT_THAT(answer("synced"), ElementsAre("/v/a"));
    EXPECT_FALSE(model.isRetrying());
}

TEST_F(FinderModelTest, TellsABeginAgainThatFailed) {
    model.begin(kAnn, "/v");
    EXPECT_THAT(observe(SendOutcome::failed), ElementsAre("+/v"));
    EXPECT_THAT(observe(), IsEmpty());
    model.retry();
    EXPECT_THAT(observe(), ElementsAre("+/v"));
    EXPECT_FALSE(model.isRetrying());
}

TEST_F(FinderModelTest, GivesUpRetryingWhenNothingIsLeftToTry) {
    show(kAnn, "/v", {{"a", false}});
    answer("cloud", SendOutcome::failed);
    model.end(kAnn, "/v");
    model.noteOutcome(SendOutcome::failed);
    model.retry();
    observe();
    model.retry();
    EXPECT_FALSE(model.isRetrying());
}

TEST_F(FinderModelTest, AMenuThatArrivesEndsTheTroubleToo) {
    show(kAnn, "/v", {{"a", false}});
    answer("cloud", SendOutcome::failed);
    model.noteOutcome(SendOutcome::nothingSent);
    EXPECT_TRUE(model.isRetrying());
    model.noteOutcome(SendOutcome::arrived);
    EXPECT_FALSE(model.isRetrying());
    EXPECT_THAT(answer("synced"), ElementsAre("/v/a"));
}

TEST_F(FinderModelTest, AnotherVolumeEndsEverything) {
    show(kAnn, "/v", {{"a", false}});
    show(kBob, "/v/x", {});
    model.endAll();
    EXPECT_THAT(observe(), UnorderedElementsAre("-/v", "-/v/x"));
    EXPECT_THAT(answer("cloud"), IsEmpty());
    EXPECT_FALSE(model.ask(kAnn, "/v", {{"a", false}}));
}

} // namespace
} // namespace corvid::link
