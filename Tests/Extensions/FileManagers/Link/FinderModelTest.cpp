#include "Extensions/FileManagers/Link/FinderModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <malloc.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace corvid::link {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
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
        ASSERT_THAT(model.ask(connection, folder, items), IsEmpty());
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
    for (std::size_t i = 0; i < kMaxFoldersShown; ++i) {
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
    EXPECT_THAT(model.ask(kAnn, "/v", {{"a", false}}), ElementsAre("a"));
    show(kBob, "/v", {});
    EXPECT_THAT(model.ask(kAnn, "/v", {{"a", false}}), ElementsAre("a"));
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
    EXPECT_THAT(model.ask(kAnn, "/v", {{"a", false}}), ElementsAre("a"));
}

// Bounds.

std::vector<AskedItem> numbered(std::size_t from, std::size_t to) {
    std::vector<AskedItem> items;
    for (std::size_t i = from; i < to; ++i) {
        items.push_back({std::to_string(i), false});
    }
    return items;
}

/// What the program has taken from the heap and not given back; 0 where a sanitizer has the heap.
std::size_t heapBytes() {
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

TEST_F(FinderModelTest, ABeginAndItsEndThatBothWaitLeaveNothing) {
    show(kBob, "/v/shown", {{"a", false}});
    model.begin(kBob, "/v/first");
    const std::size_t before = heapBytes();
    for (int i = 0; i < 100'000; ++i) {
        const std::string folder = "/v/" + std::to_string(i);
        ASSERT_TRUE(model.begin(kAnn, folder));
        model.end(kAnn, folder);
    }
    EXPECT_EQ(model.rememberedFolders(), 2U);
    EXPECT_LT(heapBytes(), before + 100'000);
    model.end(kBob, "/v/shown");
    EXPECT_THAT(observe(), ElementsAre("+/v/first", "-/v/shown"));
}

TEST_F(FinderModelTest, QuestionsOfOneWhoHasGoneAreNotAskedForAnother) {
    show(kAnn, "/v", {{"a", false}, {"b", false}, {"c", false}});
    ASSERT_TRUE(model.begin(kBob, "/v"));
    model.ask(kBob, "/v", {{"b", false}, {"d", false}});
    model.setBadge("/v/c", "synced", nullptr);
    model.disconnect(kAnn);
    // Bob is told of "c", so its badge has to stay true.
    EXPECT_EQ(model.waitingQuestions(), 3U);
    EXPECT_THAT(answer("synced"), UnorderedElementsAre("/v/b", "/v/c", "/v/d"));
    EXPECT_THAT(news(kBob), UnorderedElementsAre("b=synced!", "c=synced", "d=synced!"));
    model.ask(kBob, "/v", {{"a", false}});
    EXPECT_THAT(answer("error"), ElementsAre("/v/a"));
    EXPECT_THAT(news(kBob), ElementsAre("a=error!"));
    model.ask(kBob, "/v", {{"e", false}});
    model.end(kBob, "/v");
    EXPECT_THAT(answer("error"), IsEmpty());
}

TEST_F(FinderModelTest, NoEndIsDroppedHoweverManyWait) {
    constexpr std::size_t kShown = kMaxFoldersShown;
    for (std::size_t i = 0; i < kShown; ++i) {
        model.begin(kAnn, "/v/" + std::to_string(i));
    }
    EXPECT_EQ(observe().size(), kShown);
    // From here on the host hangs.
    model.disconnect(kAnn);
    for (std::size_t round = 0; round < 3; ++round) {
        for (std::size_t i = 0; i < kShown; ++i) {
            model.begin(kBob, "/v/other " + std::to_string(round * kShown + i));
        }
        model.disconnect(kBob);
    }
    EXPECT_EQ(model.rememberedFolders(), kShown);
    const std::vector<std::string> told = observe();
    EXPECT_EQ(told.size(), kShown);
    EXPECT_THAT(told, Each(StartsWith("-/v/")));
    EXPECT_EQ(model.rememberedFolders(), 0U);
}

TEST_F(FinderModelTest, TurnsOfFoldersThatAreGoneLeaveNothing) {
    const auto cycle = [this] {
        show(kAnn, "/v/x", {{"a", false}});
        model.end(kAnn, "/v/x");
        observe();
    };
    cycle();
    const std::size_t before = heapBytes();
    for (int i = 0; i < 20'000; ++i) {
        cycle();
    }
    EXPECT_LT(heapBytes(), before + 100'000);
    EXPECT_FALSE(model.nextQuestion());
}

TEST_F(FinderModelTest, ItemsBeyondTheBoundAreNotStored) {
    constexpr std::size_t kBound = FinderModel::kMaxItemsRemembered;
    constexpr std::size_t kMore = 50'000;
    show(kAnn, "/v", numbered(0, kBound));
    EXPECT_EQ(model.ask(kAnn, "/v", numbered(kBound, kBound + kMore)).size(), kMore);
    EXPECT_THAT(model.ask(kAnn, "/v", numbered(0, 10)), IsEmpty()) << "those are known";
    // What waits is not looked through for each push.
    for (std::size_t i = 0; i < kMore; ++i) {
        model.setBadge("/v/pushed " + std::to_string(i), "error", nullptr);
    }
    EXPECT_EQ(model.rememberedItems(), kBound);
    EXPECT_EQ(model.waitingQuestions(), kBound);
    EXPECT_EQ(answer("synced").size(), kBound);
    EXPECT_EQ(news(kAnn).size(), kBound);
    // Once they are told there is room for others.
    EXPECT_THAT(model.ask(kAnn, "/v", numbered(kBound, kBound + kMore)), IsEmpty());
    EXPECT_EQ(answer("synced").size(), kMore);
    EXPECT_EQ(news(kAnn).size(), kMore);
    EXPECT_EQ(model.rememberedItems(), kBound);
}

TEST(FinderModelBounds, AllFoldersTogetherAreBounded) {
    FinderModel model({100, 250});
    const auto tellAll = [&model] {
        while (const auto observation = model.nextObservation()) {
            model.finish(*observation, SendOutcome::arrived);
        }
        while (const auto question = model.nextQuestion()) {
            model.setBadge(question->path(), "synced", &*question);
            model.finish(*question, SendOutcome::arrived);
        }
        std::size_t told = 0;
        while (const auto badges = model.takeNews(kAnn)) {
            told += badges->items.size();
        }
        return told;
    };
    for (const std::string folder : {"/v/a", "/v/b", "/v/c"}) {
        model.begin(kAnn, folder);
    }
    model.begin(kAnn, "/v/d");
    EXPECT_THAT(model.ask(kAnn, "/v/a", numbered(0, 100)), IsEmpty());
    EXPECT_THAT(model.ask(kAnn, "/v/b", numbered(0, 100)), IsEmpty());
    EXPECT_EQ(model.ask(kAnn, "/v/c", numbered(0, 100)).size(), 50U);
    EXPECT_EQ(model.rememberedItems(), 250U);
    EXPECT_EQ(tellAll(), 250U);
    // Another folder finds room, and takes it from those longest without news.
    EXPECT_THAT(model.ask(kAnn, "/v/d", numbered(0, 100)), IsEmpty());
    EXPECT_EQ(model.rememberedItems(), 250U);
    EXPECT_EQ(tellAll(), 100U);
    model.disconnect(kAnn);
    EXPECT_EQ(model.rememberedItems(), 0U);
    EXPECT_EQ(model.waitingQuestions(), 0U);
    EXPECT_EQ(model.shownFolders(), 0U);
}

TEST(FinderModelBounds, NewsThatWasNotTakenIsNotForgotten) {
    FinderModel model({10, 10});
    model.begin(kAnn, "/v");
    for (int i = 0; i < 20; ++i) {
        model.setBadge("/v/" + std::to_string(i), "error", nullptr);
    }
    const auto badges = model.takeNews(kAnn);
    ASSERT_TRUE(badges);
    EXPECT_EQ(badges->items.size(), 10U);
    EXPECT_EQ(badges->items.front(), (ItemBadge{"0", "error", false}));
    model.setBadge("/v/0", "synced", nullptr);
    model.setBadge("/v/new", "error", nullptr);
    EXPECT_EQ(model.rememberedItems(), 10U);
    EXPECT_EQ(model.takeNews(kAnn)->items.size(), 2U);
}

/// Whatever three front ends do, and whenever they read: at the end each has been told the badge
/// that every item has now, and has an answer for each question.
TEST(FinderModelBounds, EachFrontEndIsToldTheBadgesThatThereAre) {
    const std::vector<std::string> badges{"synced", "cloud", "error", ""};
    for (unsigned seed = 0; seed < 300; ++seed) {
        std::mt19937 random(seed);
        const auto pick = [&random](std::size_t count) { return random() % count; };
        FinderModel model({8, 8});
        std::map<std::string, std::string> truth;
        std::map<FinderModel::Connection, std::map<std::string, std::string>> told;
        std::map<FinderModel::Connection, std::set<std::string>> open;
        std::set<FinderModel::Connection> shows;
        std::vector<FinderModel::Question> inWork;
        const auto read = [&](FinderModel::Connection connection) {
            while (const auto news = model.takeNews(connection)) {
                for (const ItemBadge& item : news->items) {
                    told[connection][item.name] = item.badge;
                    if (item.isAnswer) {
                        open[connection].erase(item.name);
                    }
                }
            }
        };
        const auto observe = [&] {
            while (const auto observation = model.nextObservation()) {
                model.finish(*observation, SendOutcome::arrived);
            }
        };
        const auto finish = [&] {
            const FinderModel::Question question = inWork.front();
            inWork.erase(inWork.begin());
            if (!truth[question.item.name].empty()) {
                model.setBadge(question.path(), truth[question.item.name], &question);
            }
            model.finish(question, SendOutcome::arrived);
        };
        for (int step = 0; step < 400; ++step) {
            const auto connection = static_cast<FinderModel::Connection>(1 + pick(3));
            const std::string name = std::to_string(pick(8));
            switch (pick(8)) {
            case 0:
                if (shows.insert(connection).second) {
                    model.begin(connection, "/v");
                }
                break;
            case 1:
                if (pick(4) == 0 && shows.erase(connection) > 0) {
                    model.end(connection, "/v");
                    told.erase(connection);
                    open.erase(connection);
                }
                break;
            case 2:
            case 3:
                if (model.ask(connection, "/v", {{name, false}}).empty()) {
                    open[connection].insert(name);
                }
                break;
            case 4:
                truth[name] = badges[pick(badges.size())];
                model.setBadge("/v/" + name, truth[name], nullptr);
                break;
            case 5:
                read(connection);
                break;
            case 6:
                if (auto question = model.nextQuestion()) {
                    inWork.push_back(*question);
                }
                break;
            default:
                observe();
                if (!inWork.empty()) {
                    finish();
                }
            }
        }
        observe();
        for (auto question = model.nextQuestion(); question || !inWork.empty();
             question = model.nextQuestion()) {
            if (question) {
                inWork.push_back(*question);
            }
            finish();
        }
        for (const FinderModel::Connection connection : shows) {
            read(connection);
            EXPECT_THAT(open[connection], IsEmpty()) << "seed " << seed;
            for (const auto& [name, badge] : told[connection]) {
                // An item that the host never named a badge for keeps what it had.
                if (!truth[name].empty()) {
                    EXPECT_EQ(badge, truth[name]) << "seed " << seed << ", item " << name;
                }
            }
        }
    }
}

} // namespace
} // namespace corvid::link
