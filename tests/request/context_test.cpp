#include "dme/context.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "dme/exception.h"
#include "request.h"

namespace dme {
namespace {

using test::bareLexicon;
using test::testLexicon;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

// A context for READ of `uri` with the arguments of `query`, with every lexicon feature on.
std::unique_ptr<Context> readContext(const std::string& uri, const std::string& query = "") {
    return std::make_unique<Context>(testLexicon(), READ, uri, Arguments(query), false);
}

// Builds a context for `query` and returns the dme::Exception that its construction throws.
Exception constructionError(const std::string& query) {
    try {
        readContext("/", query);
    } catch (const Exception& e) {
        return e;
    }
    ADD_FAILURE() << "no dme::Exception was thrown for " << query;
    return Exception(Error::INVALID_TYPE, "nothing thrown");
}

class FirstCustom : public Context::ICustom {};
class SecondCustom : public Context::ICustom {};
class DerivedCustom : public FirstCustom {};

// ---- Construction ----

TEST(ContextConstructionTest, MethodZeroIsInvalid) {
    EXPECT_THAT([] { Context(testLexicon(), static_cast<Method>(0), "/", Arguments(), false); },
                ThrowsMessage<std::invalid_argument>(StrEq("Invalid method")));
}

TEST(ContextConstructionTest, MethodSharingNoBitWithTheMaskIsInvalid) {
    EXPECT_THAT([] { Context(testLexicon(), static_cast<Method>(0x10), "/", Arguments(), false); },
                ThrowsMessage<std::invalid_argument>(StrEq("Invalid method")));
}

TEST(ContextConstructionTest, CombinedMethodSharingABitWithTheMaskIsAccepted) {
    Context ctx(testLexicon(), static_cast<Method>(CREATE | READ), "/", Arguments(), false);
    EXPECT_EQ(static_cast<std::uint32_t>(ctx.method()), 3u);
}

TEST(ContextConstructionTest, KeepsWhatWasAsked) {
    const RequestInfo info(SessionInfo(UserInfo("op", 7, {}), {}), {"urgent"});
    Context ctx(testLexicon(), UPDATE, "/a/b", Arguments("x=1"), info, true);
    EXPECT_EQ(&ctx.lexicon(), &testLexicon());
    EXPECT_EQ(&ctx.requestInfo(), &info);
    EXPECT_EQ(ctx.method(), UPDATE);
    EXPECT_TRUE(ctx.forceExpand());
    std::string x;
    EXPECT_TRUE(ctx.arguments().getStringArg("x", x));
    EXPECT_EQ(x, "1");
}

TEST(ContextConstructionTest, WithoutRequestInfoTheSessionIsAnonymous) {
    auto ctx = readContext("/");
    EXPECT_EQ(ctx->requestInfo().session().user().name(), "#unknown");
    EXPECT_TRUE(ctx->requestInfo().flags().empty());
}

TEST(ContextConstructionTest, WalkStartsAtTheRootTowardsTheRequestedPath) {
    auto ctx = readContext("/a/b");
    EXPECT_EQ(static_cast<std::string>(ctx->requestedUri()), "/a/b");
    EXPECT_EQ(static_cast<std::string>(ctx->currentUri()), "/");
    EXPECT_EQ(ctx->getUrl().str(), "a");
    EXPECT_TRUE(ctx->currentPath().empty());
    EXPECT_TRUE(ctx->currentId().empty());
}

// ---- Expand level ----

TEST(ContextExpandTest, AbsentArgumentGivesLevelZero) {
    EXPECT_EQ(readContext("/")->expandLevel(), 0u);
}

TEST(ContextExpandTest, ArgumentSetsTheInitialLevel) {
    auto ctx = readContext("/", "expand=3");
    EXPECT_EQ(ctx->expandLevel(), 3u);
    EXPECT_EQ(ctx->extractExpandLevel(), 3u);
}

TEST(ContextExpandTest, LargestLevelIsAccepted) {
    EXPECT_EQ(readContext("/", "expand=4294967295")->expandLevel(), 4294967295u);
}

TEST(ContextExpandTest, LevelAboveUnsigned32BitsIsOutOfRange) {
    const Exception e = constructionError("expand=4294967296");
    EXPECT_EQ(e.id, Error::ARGUMENT_OUT_OF_RANGE);
    EXPECT_EQ(e.message, "Argument out of range");
    EXPECT_EQ(e.detail1, "4294967296");
    EXPECT_EQ(e.detail2, "");
}

TEST(ContextExpandTest, NegativeLevelIsOutOfRange) {
    const Exception e = constructionError("expand=-1");
    EXPECT_EQ(e.id, Error::ARGUMENT_OUT_OF_RANGE);
    EXPECT_EQ(e.detail1, "-1");
    EXPECT_EQ(e.detail2, "");
}

TEST(ContextExpandTest, LevelThatIsNotANumberHasAnInvalidType) {
    const Exception e = constructionError("expand=all");
    EXPECT_EQ(e.id, Error::ARGUMENT_INVALID_TYPE);
    EXPECT_EQ(e.message, "Argument invalid type");
    EXPECT_EQ(e.detail1, "all");
    EXPECT_EQ(e.detail2, "integer");
}

TEST(ContextExpandTest, WithoutExpandArgumentNameTheQueryIsIgnored) {
    Context ctx(bareLexicon(), READ, "/", Arguments("expand=5"), false);
    EXPECT_EQ(ctx.expandLevel(), 0u);
    EXPECT_EQ(ctx.extractExpandLevel(), 0u);
}

TEST(ContextExpandTest, LevelCannotBeSetOnceSet) {
    auto ctx = readContext("/", "expand=2");
    EXPECT_THAT([&ctx] { ctx->setExpandLevel(1); },
                ThrowsMessage<std::runtime_error>(
                    StrEq("Expand level can be set only prior to request execution")));
    EXPECT_EQ(ctx->expandLevel(), 2u);
}

TEST(ContextExpandTest, DecrementStopsAtZero) {
    auto ctx = readContext("/");
    ctx->decrementExpandLevel();
    EXPECT_EQ(ctx->expandLevel(), 0u);
}

TEST(ContextExpandTest, DecrementBelowAChildIsUndoneByPrev) {
    auto ctx = readContext("/a", "expand=2");
    ctx->next(ConstHashString("a"));
    ctx->decrementExpandLevel();
    EXPECT_EQ(ctx->expandLevel(), 1u);
    ctx->prev();
    EXPECT_EQ(ctx->expandLevel(), 2u);
}

TEST(ContextExpandTest, RequestedNodeHasToBeExpandedAtLevelZero) {
    auto ctx = readContext("/a");
    EXPECT_FALSE(ctx->hasToBeExpanded());
    ctx->next(ConstHashString("a"));
    EXPECT_TRUE(ctx->hasToBeExpanded());
    ctx->next(ConstHashString("b"));
    EXPECT_FALSE(ctx->hasToBeExpanded());
}

TEST(ContextExpandTest, NonZeroLevelExpandsBelowTheRequest) {
    auto ctx = readContext("/", "expand=1");
    ctx->next(ConstHashString("b"));
    EXPECT_TRUE(ctx->hasToBeExpanded());
}

TEST(ContextExpandTest, ForcedExpansionExpandsEverywhere) {
    Context ctx(testLexicon(), READ, "/a", Arguments(), true);
    EXPECT_TRUE(ctx.hasToBeExpanded());
}

// ---- Selection ----

TEST(ContextSelectTest, SelectArgumentIsParsed) {
    auto ctx = readContext("/", "select=a,b");
    EXPECT_EQ(ctx->extractSelect(), "a,b");
    EXPECT_FALSE(ctx->select().selectAll());
    EXPECT_EQ(ctx->select().root().size(), 2u);
}

TEST(ContextSelectTest, AbsentSelectArgumentSelectsEverything) {
    auto ctx = readContext("/");
    EXPECT_EQ(ctx->extractSelect(), "");
    EXPECT_TRUE(ctx->select().selectAll());
}

TEST(ContextSelectTest, WithoutSelectArgumentNameTheQueryIsIgnored) {
    Context ctx(bareLexicon(), READ, "/", Arguments("select=a"), false);
    EXPECT_EQ(ctx.extractSelect(), "");
    EXPECT_TRUE(ctx.select().selectAll());
}

// ---- Walk ----

TEST(ContextWalkTest, NextEntersTheChild) {
    auto ctx = readContext("/a/b");
    ctx->next(ConstHashString("a"));
    EXPECT_EQ(static_cast<std::string>(ctx->currentUri()), "/a");
    EXPECT_EQ(static_cast<std::string>(ctx->currentPath()), "/a");
    EXPECT_EQ(ctx->getUrl().str(), "b");
}

TEST(ContextWalkTest, PrevLeavesTheChild) {
    auto ctx = readContext("/a/b");
    ctx->next(ConstHashString("a"));
    ctx->prev();
    EXPECT_EQ(static_cast<std::string>(ctx->currentUri()), "/");
    EXPECT_EQ(ctx->getUrl().str(), "a");
}

TEST(ContextWalkTest, CurrentPathIsRefreshedByNextOnly) {
    auto ctx = readContext("/a");
    ctx->next(ConstHashString("a"));
    ctx->prev();
    EXPECT_EQ(static_cast<std::string>(ctx->currentPath()), "/a");
}

TEST(ContextWalkTest, CurrentPathFollowsASideStepAfterPrev) {
    auto ctx = readContext("/a");
    ctx->next(ConstHashString("a"));
    ctx->next(ConstHashString("b"));
    ctx->prev();
    ctx->next(ConstHashString("x"));
    EXPECT_EQ(static_cast<std::string>(ctx->currentPath()), "/a/x");
    EXPECT_EQ(ctx->currentPath().hash(), Path("/a/x").hash());
}

TEST(ContextWalkTest, CurrentPathFollowsAStepFromHigherUp) {
    auto ctx = readContext("/a");
    ctx->next(ConstHashString("a"));
    ctx->next(ConstHashString("b"));
    ctx->next(ConstHashString("c"));
    ctx->prev();
    ctx->prev();
    ctx->prev();
    ctx->next(ConstHashString("y"));
    EXPECT_EQ(static_cast<std::string>(ctx->currentPath()), "/y");
    EXPECT_EQ(ctx->currentPath().hash(), Path("/y").hash());
}

TEST(ContextWalkTest, CurrentPathIsRelativeUntilTheFirstNext) {
    auto ctx = readContext("/a");
    EXPECT_FALSE(ctx->currentPath().isAbsolute());
    ctx->next(ConstHashString("a"));
    EXPECT_TRUE(ctx->currentPath().isAbsolute());
}

TEST(ContextWalkTest, RequestedSegmentIsEmptyBeyondTheRequest) {
    auto ctx = readContext("/a");
    ctx->next(ConstHashString("a"));
    EXPECT_TRUE(ctx->getUrl().empty());
    ctx->next(ConstHashString("x"));
    EXPECT_TRUE(ctx->getUrl().empty());
    EXPECT_EQ(static_cast<std::string>(ctx->currentUri()), "/a/x");
}

TEST(ContextWalkTest, NextWithIdRecordsTheIdAndEntersIt) {
    auto ctx = readContext("/3");
    ctx->nextWithId(ConstHashString("3"));
    EXPECT_EQ(ctx->currentId().str(), "3");
    EXPECT_EQ(static_cast<std::string>(ctx->currentUri()), "/3");
}

TEST(ContextWalkTest, PrevKeepsTheLastId) {
    auto ctx = readContext("/x");
    ctx->nextWithId(ConstHashString("x"));
    ctx->prev();
    EXPECT_EQ(ctx->currentId().str(), "x");
}

TEST(ContextWalkTest, PushParametersReplacesMethodAndFlag) {
    auto ctx = readContext("/");
    ctx->pushParameters(UPDATE, true);
    EXPECT_EQ(ctx->method(), UPDATE);
    EXPECT_TRUE(ctx->forceExpand());
}

TEST(ContextWalkTest, PopParametersRestoresInReverseOrder) {
    auto ctx = readContext("/");
    ctx->pushParameters(UPDATE, false);
    ctx->pushParameters(DELETE, true);
    ctx->popParameters();
    EXPECT_EQ(ctx->method(), UPDATE);
    EXPECT_FALSE(ctx->forceExpand());
    ctx->popParameters();
    EXPECT_EQ(ctx->method(), READ);
    EXPECT_FALSE(ctx->forceExpand());
}

// ---- Walk scope guards ----

TEST(WalkStepTest, EntersAMemberAndLeavesItAtTheEndOfTheScope) {
    auto ctx = readContext("/a/b");
    {
        WalkStep step(*ctx, ConstHashString("a"));
        EXPECT_EQ(static_cast<std::string>(ctx->currentUri()), "/a");
        EXPECT_EQ(ctx->getUrl().str(), "b");
    }
    EXPECT_EQ(static_cast<std::string>(ctx->currentUri()), "/");
    EXPECT_EQ(ctx->getUrl().str(), "a");
}

TEST(WalkStepTest, AnItemStepRecordsTheId) {
    auto ctx = readContext("/7");
    {
        WalkStep step(*ctx, ConstHashString("7"), WalkStep::ITEM);
        EXPECT_EQ(ctx->currentId().str(), "7");
        EXPECT_EQ(static_cast<std::string>(ctx->currentUri()), "/7");
    }
    EXPECT_EQ(static_cast<std::string>(ctx->currentUri()), "/");
}

TEST(WalkStepTest, AMemberStepLeavesTheIdAlone) {
    auto ctx = readContext("/7/a");
    WalkStep item(*ctx, ConstHashString("7"), WalkStep::ITEM);
    WalkStep member(*ctx, ConstHashString("a"));
    EXPECT_EQ(ctx->currentId().str(), "7");
}

TEST(WalkStepTest, StepsBackWhenAnExceptionPasses) {
    auto ctx = readContext("/a/b");
    EXPECT_THROW(
        {
            WalkStep outer(*ctx, ConstHashString("a"));
            WalkStep inner(*ctx, ConstHashString("b"));
            throw std::runtime_error("boom");
        },
        std::runtime_error);
    EXPECT_EQ(static_cast<std::string>(ctx->currentUri()), "/");
    EXPECT_EQ(ctx->getUrl().str(), "a");
}

TEST(ParametersScopeTest, ReplacesMethodAndFlagForTheScope) {
    auto ctx = readContext("/");
    {
        ParametersScope scope(*ctx, UPDATE, true);
        EXPECT_EQ(ctx->method(), UPDATE);
        EXPECT_TRUE(ctx->forceExpand());
    }
    EXPECT_EQ(ctx->method(), READ);
    EXPECT_FALSE(ctx->forceExpand());
}

TEST(ParametersScopeTest, RestoresWhenAnExceptionPasses) {
    auto ctx = readContext("/");
    EXPECT_THROW(
        {
            ParametersScope scope(*ctx, DELETE, true);
            throw std::runtime_error("boom");
        },
        std::runtime_error);
    EXPECT_EQ(ctx->method(), READ);
    EXPECT_FALSE(ctx->forceExpand());
}

// ---- Child context ----

TEST(ContextChildTest, TakesLexiconRequestInfoAndArgumentsOfTheParent) {
    const RequestInfo info(SessionInfo(UserInfo("op", 7, {}), {}), {});
    Context parent(testLexicon(), READ, "/a", Arguments("expand=2&k=v"), info, false);
    Context child(parent, UPDATE, "/b/c", true);
    EXPECT_EQ(&child.lexicon(), &testLexicon());
    EXPECT_EQ(&child.requestInfo(), &info);
    EXPECT_EQ(child.method(), UPDATE);
    EXPECT_TRUE(child.forceExpand());
    std::string k;
    EXPECT_TRUE(child.arguments().getStringArg("k", k));
    EXPECT_EQ(k, "v");
}

TEST(ContextChildTest, WalkStateIsComputedAfresh) {
    Context parent(testLexicon(), READ, "/a", Arguments("expand=2"), false);
    parent.next(ConstHashString("a"));
    parent.decrementExpandLevel();
    parent.customs().add(std::make_shared<FirstCustom>());
    Context child(parent, READ, "/b/c", false);
    EXPECT_EQ(child.expandLevel(), 2u);
    EXPECT_EQ(static_cast<std::string>(child.requestedUri()), "/b/c");
    EXPECT_EQ(static_cast<std::string>(child.currentUri()), "/");
    EXPECT_TRUE(child.customs().empty());
}

// ---- Customs ----

TEST(ContextCustomsTest, AreFoundByExactType) {
    auto ctx = readContext("/");
    ctx->customs().add(std::make_shared<DerivedCustom>());
    ctx->customs().add(std::make_shared<SecondCustom>());
    EXPECT_NE(ctx->customs().find<DerivedCustom>(), nullptr);
    EXPECT_EQ(ctx->customs().find<FirstCustom>(), nullptr);
}

TEST(ContextCustomsTest, SecondObjectOfOneTypeIsRefused) {
    auto ctx = readContext("/");
    ctx->customs().add(std::make_shared<FirstCustom>());
    EXPECT_THAT([&ctx] { ctx->customs().add(std::make_shared<FirstCustom>()); },
                ThrowsMessage<std::invalid_argument>(
                    StrEq("TypeIndexContainer - Error: attempt to add a type already stored")));
}

TEST(ContextCustomsTest, AbsentTypeIsNotFound) {
    auto ctx = readContext("/");
    EXPECT_THAT(
        [&ctx] { ctx->customs().get<SecondCustom>(); },
        ThrowsMessage<std::out_of_range>(StrEq("TypeIndexContainer - Error: Type not found")));
}

}  // namespace
}  // namespace dme
