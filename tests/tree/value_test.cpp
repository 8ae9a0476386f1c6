#include "dme/value.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "dme/json.h"
#include "dme/result.h"
#include "request.h"
#include "test_nodes.h"

namespace dme {
namespace {

using cxxtools::SerializationInfo;
using test::BareValue;
using test::grant;
using test::Request;
using test::TestParent;
using test::TextLeaf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StrEq;
using ::testing::StrictMock;
using ::testing::ThrowsMessage;

constexpr std::uint32_t C = AllowedMethods::C;
constexpr std::uint32_t R = AllowedMethods::R;
constexpr std::uint32_t U = AllowedMethods::U;
constexpr std::uint32_t D = AllowedMethods::D;
constexpr std::uint32_t B = AllowedMethods::B;
constexpr std::uint32_t ALL = C | R | U | D | B;

class MockObserver : public ISubscribable::IObserver {
  public:
    MOCK_METHOD(void, onChange, (const std::chrono::steady_clock::time_point&), (override));
};

class MockReceiver : public IElementObserver {
  public:
    MOCK_METHOD(void, onChange,
                (const std::vector<unsigned int>&, const std::chrono::steady_clock::time_point&),
                (override));
};

// A context of `method` on `uri`, standing at the root, with the test lexicon.
std::unique_ptr<Context> contextFor(Method method, const std::string& uri,
                                    const std::string& query = "", bool forceExpand = false) {
    return std::make_unique<Context>(test::testLexicon(), method, uri, Arguments(query),
                                     forceExpand);
}

// A context of `method` on "/" that stands on the child "x", below the requested node.
std::unique_ptr<Context> belowRequest(Method method, const std::string& query = "") {
    auto ctx = contextFor(method, "/", query);
    ctx->next("x");
    return ctx;
}

void addTicket(Context& ctx, IElementObserver& receiver, unsigned int id) {
    ctx.customs().add(std::make_shared<Subscription>(&receiver, id));
}

std::string json(const SerializationInfo& document) {
    return formatJson(document);
}

// A leaf whose schema operations add recognisable members and return their own codes.
class SchemaLeaf : public BareValue {
  public:
    using BareValue::BareValue;
    int serializeReadOnly(Context&, const SerializationInfo&, SerializationInfo& out) override {
        out.addMember("ro").setValue("yes");
        return 5;
    }
    int serializeSchemaFormat(Context&, const SerializationInfo&, SerializationInfo& out) override {
        out.addMember("format").setValue("text");
        return 5;
    }
    int serializeChildSchema(Context&, const SerializationInfo&, SerializationInfo& out) override {
        out.addMember("children").setValue(0);
        return 9;
    }
};

// A leaf that can be observed but keeps the default of unsubscribeToValue.
class SubscribeOnlyLeaf : public BareValue {
  public:
    using BareValue::BareValue;
    int subscribeToValue(Context&) override { return result::DONE; }
};

// ---- process ----------------------------------------------------------------------------------

TEST(ValueProcessTest, EmptyNextSegmentServesTheRequestAtThisNode) {
    TextLeaf leaf(R, "hello");
    grant(leaf, R);
    Request request(READ, "/");
    EXPECT_EQ(request.run(leaf), dme::result::DONE);
    EXPECT_EQ(json(request.out()), R"({"href":"/","value":"hello"})");
}

TEST(ValueProcessTest, NextSegmentIsBrowsedToTheChild) {
    TestParent root(R | B);
    grant(root, R | B);
    TextLeaf child(R, "x");
    root.add("a", child);
    Request request(READ, "/a");
    EXPECT_EQ(request.run(root), dme::result::DONE);
    EXPECT_EQ(json(request.out()), R"({"href":"/a","value":"x"})");
}

TEST(ValueProcessTest, BrowsingWithoutBrowseBitInAllowedMethodsYields2) {
    TestParent root(R);
    grant(root, R | B);
    TextLeaf child(R, "x");
    root.add("a", child);
    Request request(READ, "/a");
    EXPECT_EQ(request.run(root), dme::result::NOT_ALLOWED);
    EXPECT_THAT(child.calls(), IsEmpty());
}

TEST(ValueProcessTest, BrowsingWithoutBrowseRightYields6) {
    TestParent root(R | B);
    grant(root, R);
    TextLeaf child(R, "x");
    root.add("a", child);
    Request request(READ, "/a");
    EXPECT_EQ(request.run(root), dme::result::FORBIDDEN);
    EXPECT_THAT(child.calls(), IsEmpty());
}

TEST(ValueProcessTest, BrowseResultIsReturnedUnchanged) {
    BareValue leaf(R | B);
    grant(leaf, R | B);
    Request request(READ, "/x");
    EXPECT_EQ(request.run(leaf), dme::result::NO_CHILDREN);
}

// ---- SCHEMA -----------------------------------------------------------------------------------

TEST(ValueSchemaTest, IsAnsweredWithEmptyAllowedMethodsAndNoRights) {
    BareValue node(0);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(node), dme::result::DONE);
    EXPECT_EQ(json(request.out()), R"({"type":"unknown","readonly":true})");
}

TEST(ValueSchemaTest, ModifiableNodeHasNoReadOnlyMember) {
    BareValue node(U);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(node), dme::result::DONE);
    EXPECT_EQ(json(request.out()), R"({"type":"unknown"})");
}

TEST(ValueSchemaTest, TypeWordComesFromGetType) {
    TextLeaf leaf(R);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(leaf), dme::result::DONE);
    EXPECT_EQ(json(request.out()), R"({"type":"string","readonly":true})");
}

TEST(ValueSchemaTest, ModifiableNodeWritesFormatThenChildSchemaAndReturnsItsResult) {
    SchemaLeaf node(U);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(node), 9);
    EXPECT_EQ(json(request.out()), R"({"type":"unknown","format":"text","children":0})");
}

TEST(ValueSchemaTest, ReadOnlyNodeWritesReadOnlyThenChildSchemaAndReturnsItsResult) {
    SchemaLeaf node(R);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(node), 9);
    EXPECT_EQ(json(request.out()), R"({"type":"unknown","ro":"yes","children":0})");
}

// ---- READ -------------------------------------------------------------------------------------

TEST(ValueReadTest, WithoutResourcePathKeyWritesOnlyTheValue) {
    TextLeaf leaf(R, "hello");
    grant(leaf, R);
    Request request(READ, "/", "", test::bareLexicon());
    EXPECT_EQ(request.run(leaf), dme::result::DONE);
    EXPECT_EQ(json(request.out()), R"({"value":"hello"})");
}

TEST(ValueReadTest, WithoutAnyRightYields6AndWritesNothing) {
    TextLeaf leaf(R, "hello");
    Request request(READ, "/");
    EXPECT_EQ(request.run(leaf), dme::result::FORBIDDEN);
    EXPECT_EQ(json(request.out()), "null");
    EXPECT_THAT(leaf.calls(), IsEmpty());
}

TEST(ValueReadTest, WithAnEmptyStaticPolicyYields6) {
    TextLeaf leaf(R, "hello");
    grant(leaf, 0);
    Request request(READ, "/");
    EXPECT_EQ(request.run(leaf), dme::result::FORBIDDEN);
}

TEST(ValueReadTest, UnexpandedNodeWithAnotherRightButNoReadRightIsListedByPathOnly) {
    TestParent root(R | B);
    grant(root, R | B);
    TextLeaf child(R | C, "x");
    grant(child, C);
    root.add("a", child);
    Request request(READ, "/");
    EXPECT_EQ(request.run(root), dme::result::DONE);
    EXPECT_EQ(json(request.out()), R"({"href":"/","a":{"href":"/a"}})");
    EXPECT_THAT(child.calls(), IsEmpty());
}

TEST(ValueReadTest, UnexpandedNodeWithoutAnyRightIsLeftOut) {
    TestParent root(R | B);
    grant(root, R | B);
    TextLeaf child(R, "x");
    grant(child, 0);
    root.add("a", child);
    Request request(READ, "/");
    EXPECT_EQ(request.run(root), dme::result::DONE);
    EXPECT_EQ(json(request.out()), R"({"href":"/"})");
}

TEST(ValueReadTest, RequestedNodeWithAnotherRightButNoReadRightIsListedByPathOnly) {
    TextLeaf leaf(R | C, "hello");
    grant(leaf, C);
    Request request(READ, "/");
    EXPECT_EQ(request.run(leaf), dme::result::DONE);
    EXPECT_EQ(json(request.out()), R"({"href":"/"})");
    EXPECT_THAT(leaf.calls(), IsEmpty());
}

TEST(ValueReadTest, RightsWithoutReadAndWithoutResourcePathKeyYield6) {
    TextLeaf leaf(R | C, "hello");
    grant(leaf, C);
    Request request(READ, "/", "", test::bareLexicon());
    EXPECT_EQ(request.run(leaf), dme::result::FORBIDDEN);
    EXPECT_THAT(leaf.calls(), IsEmpty());
}

TEST(ValueReadTest, NodeThatDoesNotAllowReadYields2WithoutResourcePathKey) {
    TextLeaf leaf(U, "hello");
    grant(leaf, ALL);
    Request request(READ, "/", "", test::bareLexicon());
    EXPECT_EQ(request.run(leaf), dme::result::NOT_ALLOWED);
}

TEST(ValueReadTest, UnexpandedNodeThatAllowsAnotherMethodIsListedByPath) {
    TextLeaf leaf(U, "hello");
    grant(leaf, ALL);
    auto ctx = belowRequest(READ);
    SerializationInfo in, out;
    EXPECT_EQ(leaf.internalProcess(*ctx, in, out), 0);
    EXPECT_EQ(json(out), R"({"href":"/x"})");
}

TEST(ValueReadTest, UnexpandedNodeWithoutReadOverrideYields0WithOnlyThePath) {
    BareValue node(R);
    grant(node, R);
    auto ctx = belowRequest(READ);
    SerializationInfo in, out;
    EXPECT_EQ(node.internalProcess(*ctx, in, out), 0);
    EXPECT_EQ(json(out), R"({"href":"/x"})");
}

TEST(ValueReadTest, ExpandedNodeWithoutReadOverrideYields8) {
    BareValue node(R);
    grant(node, R);
    Request request(READ, "/");
    EXPECT_EQ(request.run(node), dme::result::NOT_SUPPORTED);
}

TEST(ValueReadTest, AlwaysExpandedNodeIsReadWithoutPathMember) {
    TextLeaf leaf(R, "v", true);
    grant(leaf, R);
    Request request(READ, "/");
    EXPECT_EQ(request.run(leaf), dme::result::DONE);
    EXPECT_EQ(json(request.out()), R"({"value":"v"})");
}

TEST(ValueReadTest, AlwaysExpandedNodeWithoutReadRightYields6) {
    TextLeaf leaf(R | C, "v", true);
    grant(leaf, C);
    Request request(READ, "/");
    EXPECT_EQ(request.run(leaf), dme::result::FORBIDDEN);
    EXPECT_EQ(json(request.out()), "null");
}

// ---- Expansion --------------------------------------------------------------------------------

// A readable root "/" holding the readable leaf "a" with the text "x".
class ExpansionTest : public ::testing::Test {
  protected:
    void SetUp() override { grant(root_, R | B); }

    std::string readRoot(Value& child, const std::string& query) {
        root_.add("a", child);
        Request request(READ, "/", query);
        EXPECT_EQ(request.run(root_), dme::result::DONE);
        return json(request.out());
    }

    TestParent root_{R | B};
};

TEST_F(ExpansionTest, ChildrenAreListedByPathAtExpandLevelZero) {
    TextLeaf child(R, "x");
    EXPECT_EQ(readRoot(child, ""), R"({"href":"/","a":{"href":"/a"}})");
    EXPECT_THAT(child.calls(), IsEmpty());
}

TEST_F(ExpansionTest, RequestedNodeSpendsOneLevelSoLevelOneListsChildrenByPath) {
    TextLeaf child(R, "x");
    EXPECT_EQ(readRoot(child, "expand=1"), R"({"href":"/","a":{"href":"/a"}})");
}

TEST_F(ExpansionTest, LevelTwoExpandsTheChildren) {
    TextLeaf child(R, "x");
    EXPECT_EQ(readRoot(child, "expand=2"), R"({"href":"/","a":{"href":"/a","value":"x"}})");
}

TEST_F(ExpansionTest, AlwaysExpandedChildIsExpandedAtLevelZeroWithoutPath) {
    TextLeaf child(R, "x", true);
    EXPECT_EQ(readRoot(child, ""), R"({"href":"/","a":{"value":"x"}})");
}

TEST(ValueIsExpandNeededTest, AlwaysExpandedNodeNeedsItWithoutSpendingALevel) {
    BareValue node(R, true);
    auto ctx = belowRequest(READ, "expand=3");
    EXPECT_TRUE(node.isExpandNeeded(*ctx));
    EXPECT_EQ(ctx->expandLevel(), 3u);
}

TEST(ValueIsExpandNeededTest, RequestedNodeNeedsItAndSpendsALevel) {
    BareValue node(R);
    auto ctx = contextFor(READ, "/", "expand=2");
    EXPECT_TRUE(node.isExpandNeeded(*ctx));
    EXPECT_EQ(ctx->expandLevel(), 1u);
}

TEST(ValueIsExpandNeededTest, RequestedNodeNeedsItAtLevelZero) {
    BareValue node(R);
    auto ctx = contextFor(READ, "/");
    EXPECT_TRUE(node.isExpandNeeded(*ctx));
    EXPECT_EQ(ctx->expandLevel(), 0u);
}

TEST(ValueIsExpandNeededTest, NodeBelowTheRequestNeedsItWhileALevelRemains) {
    BareValue node(R);
    auto ctx = belowRequest(READ, "expand=1");
    EXPECT_TRUE(node.isExpandNeeded(*ctx));
    EXPECT_EQ(ctx->expandLevel(), 0u);
    EXPECT_FALSE(node.isExpandNeeded(*ctx));
}

TEST(ValueIsExpandNeededTest, ForcedExpansionReachesBelowTheRequest) {
    BareValue node(R);
    auto ctx = contextFor(READ, "/", "", true);
    ctx->next("x");
    EXPECT_TRUE(node.isExpandNeeded(*ctx));
}

// ---- CREATE, UPDATE, DELETE and other methods -------------------------------------------------

TEST(ValueWriteTest, CreateCallsCreate) {
    TextLeaf leaf(C);
    grant(leaf, C);
    Request request(CREATE, "/");
    EXPECT_EQ(request.run(leaf), dme::result::DONE);
    EXPECT_THAT(leaf.calls(), ElementsAre("create"));
}

TEST(ValueWriteTest, UpdateCallsUpdateWithTheBody) {
    TextLeaf leaf(U, "old");
    grant(leaf, U);
    SerializationInfo body;
    body.addMember("value").setValue("new");
    Request request(UPDATE, "/");
    EXPECT_EQ(request.run(leaf, body), dme::result::DONE);
    EXPECT_THAT(leaf.calls(), ElementsAre("update"));
    EXPECT_EQ(leaf.text(), "new");
}

TEST(ValueWriteTest, DeleteCallsDestroy) {
    TextLeaf leaf(D);
    grant(leaf, D);
    Request request(DELETE, "/");
    EXPECT_EQ(request.run(leaf), dme::result::DONE);
    EXPECT_THAT(leaf.calls(), ElementsAre("destroy"));
}

TEST(ValueWriteTest, MethodNotAllowedYields2) {
    TextLeaf leaf(R | B);
    grant(leaf, ALL);
    for (Method method : {CREATE, UPDATE, DELETE}) {
        Request request(method, "/");
        EXPECT_EQ(request.run(leaf), dme::result::NOT_ALLOWED) << method;
    }
    EXPECT_THAT(leaf.calls(), IsEmpty());
}

TEST(ValueWriteTest, MethodWithoutRightYields6) {
    TextLeaf leaf(C | U | D);
    grant(leaf, R);
    for (Method method : {CREATE, UPDATE, DELETE}) {
        Request request(method, "/");
        EXPECT_EQ(request.run(leaf), dme::result::FORBIDDEN) << method;
    }
    EXPECT_THAT(leaf.calls(), IsEmpty());
}

TEST(ValueWriteTest, OperationsNotOverriddenYield8) {
    BareValue node(C | U | D);
    grant(node, C | U | D);
    for (Method method : {CREATE, UPDATE, DELETE}) {
        Request request(method, "/");
        EXPECT_EQ(request.run(node), dme::result::NOT_SUPPORTED) << method;
    }
}

TEST(ValueOtherMethodTest, UnknownMethodAllowedAndPermittedYields7) {
    TextLeaf leaf(ALL);
    grant(leaf, ALL);
    Request request(static_cast<Method>(C | R), "/");
    EXPECT_EQ(request.run(leaf), dme::result::UNKNOWN_METHOD);
    EXPECT_THAT(leaf.calls(), IsEmpty());
}

TEST(ValueOtherMethodTest, UnknownMethodNotAllowedYields2) {
    TextLeaf leaf(ALL);
    grant(leaf, ALL);
    Request request(static_cast<Method>(0x100), "/");
    EXPECT_EQ(request.run(leaf), dme::result::NOT_ALLOWED);
}

TEST(ValueOtherMethodTest, UnknownMethodWithoutRightYields6) {
    TextLeaf leaf(ALL);
    grant(leaf, U);
    Request request(static_cast<Method>(C | R), "/");
    EXPECT_EQ(request.run(leaf), dme::result::FORBIDDEN);
}

// ---- SUBSCRIBE and UNSUBSCRIBE dispatch -------------------------------------------------------

TEST(ValueSubscribeRequestTest, RequestedNodeRegistersTheTicketWithoutAllowanceCheck) {
    StrictMock<MockReceiver> receiver;
    TextLeaf leaf(0);
    Request request(SUBSCRIBE, "/");
    addTicket(request.context(), receiver, 7);
    EXPECT_EQ(request.run(leaf), dme::result::DONE);
    EXPECT_THAT(leaf.calls(), ElementsAre("subscribeToValue"));
    ASSERT_NE(leaf.subscriberManager(), nullptr);
    ASSERT_EQ(leaf.subscriberManager()->subscribers().size(), 1u);
    EXPECT_THAT(leaf.subscriberManager()->subscribers()[0].ids(), ElementsAre(7u));
}

TEST(ValueSubscribeRequestTest, NodeThatCannotBeObservedYields8AndKeepsNoSubscriber) {
    StrictMock<MockReceiver> receiver;
    BareValue node(ALL);
    Request request(SUBSCRIBE, "/");
    addTicket(request.context(), receiver, 7);
    EXPECT_EQ(request.run(node), dme::result::NOT_SUPPORTED);
    ASSERT_NE(node.subscriberManager(), nullptr);
    EXPECT_THAT(node.subscriberManager()->subscribers(), IsEmpty());
}

TEST(ValueSubscribeRequestTest, UnexpandedNodeYields2) {
    StrictMock<MockReceiver> receiver;
    TextLeaf leaf(ALL);
    grant(leaf, ALL);
    auto ctx = belowRequest(SUBSCRIBE);
    addTicket(*ctx, receiver, 7);
    SerializationInfo in, out;
    EXPECT_EQ(leaf.internalProcess(*ctx, in, out), 2);
    EXPECT_EQ(leaf.subscriberManager(), nullptr);
}

TEST(ValueSubscribeRequestTest, UnexpandedNodeAllowingTheSubscribeBitsYields7) {
    BareValue node{AllowedMethods(SUBSCRIBE)};
    grant(node, AllowedMethods(SCHEMA));
    auto ctx = belowRequest(SUBSCRIBE);
    SerializationInfo in, out;
    EXPECT_EQ(node.internalProcess(*ctx, in, out), 7);
}

TEST(ValueSubscribeRequestTest, UnexpandedNodeAllowingTheSubscribeBitsWithoutRightYields6) {
    BareValue node{AllowedMethods(SUBSCRIBE)};
    grant(node, R);
    auto ctx = belowRequest(SUBSCRIBE);
    SerializationInfo in, out;
    EXPECT_EQ(node.internalProcess(*ctx, in, out), 6);
}

TEST(ValueSubscribeRequestTest, NodeBelowTheRequestWithARemainingLevelRegisters) {
    StrictMock<MockReceiver> receiver;
    TextLeaf leaf(0);
    auto ctx = belowRequest(SUBSCRIBE, "expand=1");
    addTicket(*ctx, receiver, 7);
    SerializationInfo in, out;
    EXPECT_EQ(leaf.internalProcess(*ctx, in, out), 0);
    EXPECT_THAT(leaf.calls(), ElementsAre("subscribeToValue"));
}

TEST(ValueSubscribeRequestTest, UnsubscribeWithoutSubscriberManagerYields3) {
    StrictMock<MockReceiver> receiver;
    TextLeaf leaf(ALL);
    grant(leaf, ALL);
    Request request(UNSUBSCRIBE, "/");
    addTicket(request.context(), receiver, 7);
    EXPECT_EQ(request.run(leaf), dme::result::NOT_FOUND);
    EXPECT_THAT(leaf.calls(), IsEmpty());
}

TEST(ValueSubscribeRequestTest, UnsubscribeReleasesTheNodeWithoutAllowanceCheck) {
    StrictMock<MockReceiver> receiver;
    TextLeaf leaf(0);
    Request subscribe(SUBSCRIBE, "/");
    addTicket(subscribe.context(), receiver, 7);
    ASSERT_EQ(subscribe.run(leaf), dme::result::DONE);
    Request unsubscribe(UNSUBSCRIBE, "/");
    addTicket(unsubscribe.context(), receiver, 7);
    EXPECT_EQ(unsubscribe.run(leaf), dme::result::DONE);
    EXPECT_THAT(leaf.calls(), ElementsAre("subscribeToValue", "unsubscribeToValue"));
    ASSERT_NE(leaf.subscriberManager(), nullptr);
    EXPECT_THAT(leaf.subscriberManager()->subscribers(), IsEmpty());
}

// ---- subscribe, unsubscribe and notifyChange --------------------------------------------------

TEST(ValueObserverTest, SubscribeAttachesTheObserverOfAnObservableValue) {
    MockObserver observer;
    TextLeaf leaf(R);
    auto ctx = contextFor(SUBSCRIBE, "/");
    EXPECT_EQ(leaf.subscribe(*ctx, observer), 0);
    EXPECT_CALL(observer, onChange).Times(1);
    EXPECT_EQ(leaf.notifyChange(), 0);
}

TEST(ValueObserverTest, SubscribeThroughISubscribableReachesTheValue) {
    MockObserver observer;
    TextLeaf leaf(R);
    ISubscribable& subscribable = leaf;
    auto ctx = contextFor(SUBSCRIBE, "/");
    EXPECT_EQ(subscribable.subscribe(*ctx, observer), 0);
    EXPECT_THAT(leaf.calls(), ElementsAre("subscribeToValue"));
    EXPECT_EQ(subscribable.unsubscribe(*ctx, observer), 0);
    EXPECT_THAT(leaf.calls(), ElementsAre("subscribeToValue", "unsubscribeToValue"));
}

TEST(ValueObserverTest, SubscribeToAValueThatCannotBeObservedYields8AndAttachesNothing) {
    StrictMock<MockObserver> observer;
    BareValue node(R);
    auto ctx = contextFor(SUBSCRIBE, "/");
    EXPECT_EQ(node.subscribe(*ctx, observer), 8);
    EXPECT_EQ(node.notifyChange(), 0);
    EXPECT_EQ(node.subscribe(*ctx, observer), 8);
}

TEST(ValueObserverTest, SecondSubscribeWithAnotherObserverThrowsWithTheCurrentUri) {
    MockObserver first;
    MockObserver second;
    TextLeaf leaf(R);
    auto ctx = contextFor(SUBSCRIBE, "/a");
    ctx->next("a");
    ASSERT_EQ(leaf.subscribe(*ctx, first), 0);
    EXPECT_THAT(
        [&] { leaf.subscribe(*ctx, second); },
        ThrowsMessage<std::runtime_error>(StrEq("Attempt to subscribe twice to dme::Value /a")));
    EXPECT_THAT(leaf.calls(), ElementsAre("subscribeToValue"));
}

TEST(ValueObserverTest, SecondSubscribeWithTheSameObserverThrows) {
    MockObserver observer;
    TextLeaf leaf(R);
    auto ctx = contextFor(SUBSCRIBE, "/");
    ASSERT_EQ(leaf.subscribe(*ctx, observer), 0);
    EXPECT_THAT(
        [&] { leaf.subscribe(*ctx, observer); },
        ThrowsMessage<std::runtime_error>(StrEq("Attempt to subscribe twice to dme::Value /")));
}

TEST(ValueObserverTest, UnsubscribeWithAnotherObserverThrowsAndKeepsTheAttachedOne) {
    MockObserver attached;
    StrictMock<MockObserver> stranger;
    TextLeaf leaf(R);
    auto ctx = contextFor(UNSUBSCRIBE, "/a");
    ctx->next("a");
    ASSERT_EQ(leaf.subscribe(*ctx, attached), 0);
    EXPECT_THAT([&] { leaf.unsubscribe(*ctx, stranger); },
                ThrowsMessage<std::runtime_error>(
                    StrEq("Attempt to unsubscribe from unknown observer in dme::Value /a")));
    EXPECT_CALL(attached, onChange).Times(1);
    leaf.notifyChange();
    EXPECT_THAT(leaf.calls(), ElementsAre("subscribeToValue"));
}

TEST(ValueObserverTest, UnsubscribeWithoutAttachedObserverThrows) {
    MockObserver observer;
    TextLeaf leaf(R);
    auto ctx = contextFor(UNSUBSCRIBE, "/");
    EXPECT_THAT([&] { leaf.unsubscribe(*ctx, observer); },
                ThrowsMessage<std::runtime_error>(
                    StrEq("Attempt to unsubscribe from unknown observer in dme::Value /")));
}

TEST(ValueObserverTest, UnsubscribeDetachesTheObserver) {
    StrictMock<MockObserver> observer;
    TextLeaf leaf(R);
    auto ctx = contextFor(SUBSCRIBE, "/");
    ASSERT_EQ(leaf.subscribe(*ctx, observer), 0);
    EXPECT_EQ(leaf.unsubscribe(*ctx, observer), 0);
    EXPECT_EQ(leaf.notifyChange(), 0);
    EXPECT_EQ(leaf.subscribe(*ctx, observer), 0);
}

TEST(ValueObserverTest, UnsubscribeReturnsUnsubscribeToValueResultAndDetachesAnyway) {
    StrictMock<MockObserver> observer;
    SubscribeOnlyLeaf leaf(R);
    auto ctx = contextFor(SUBSCRIBE, "/");
    ASSERT_EQ(leaf.subscribe(*ctx, observer), 0);
    EXPECT_EQ(leaf.unsubscribe(*ctx, observer), 8);
    EXPECT_EQ(leaf.notifyChange(), 0);
    EXPECT_EQ(leaf.subscribe(*ctx, observer), 0);
}

TEST(ValueObserverTest, NotifyChangeWithoutObserverReturns0) {
    TextLeaf leaf(R);
    EXPECT_EQ(leaf.notifyChange(), 0);
}

TEST(ValueObserverTest, NotifyChangeStampsTheChangeWithTheSteadyClock) {
    MockObserver observer;
    TextLeaf leaf(R);
    auto ctx = contextFor(SUBSCRIBE, "/");
    ASSERT_EQ(leaf.subscribe(*ctx, observer), 0);
    std::chrono::steady_clock::time_point stamp;
    EXPECT_CALL(observer, onChange).WillOnce(::testing::SaveArg<0>(&stamp));
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(leaf.notifyChange(), 0);
    const auto after = std::chrono::steady_clock::now();
    EXPECT_LE(before, stamp);
    EXPECT_LE(stamp, after);
}

// ---- Parent, path and keys --------------------------------------------------------------------

TEST(ValueTreeTest, DetachedNodeHasNoParentAndTheRootPath) {
    BareValue node(R);
    EXPECT_EQ(node.parent(), nullptr);
    EXPECT_EQ(static_cast<std::string>(node.path()), "/");
    EXPECT_TRUE(node.path().empty());
}

TEST(ValueTreeTest, SetParentStoresTheParentAndBuildsThePath) {
    TestParent root(ALL);
    TestParent middle(ALL);
    BareValue leaf(R);
    root.add("a", middle);
    middle.add("b", leaf);
    EXPECT_EQ(leaf.parent(), &middle);
    EXPECT_EQ(static_cast<std::string>(leaf.path()), "/a/b");
    EXPECT_EQ(leaf.path(), Path("/a/b"));
    EXPECT_EQ(leaf.path().hash(), Path("/a/b").hash());
}

TEST(ValueTreeTest, EmptyOwnKeyClearsThePath) {
    TestParent first(ALL);
    TestParent second(ALL);
    BareValue leaf(R);
    first.add("a", leaf);
    ASSERT_EQ(leaf.path().size(), 1u);
    second.add("", leaf);
    EXPECT_EQ(leaf.parent(), &second);
    EXPECT_EQ(leaf.path().size(), 0u);
}

TEST(ValueTreeTest, UpdatePathWithoutParentKeepsThePath) {
    BareValue node(R);
    node.updatePath();
    EXPECT_EQ(static_cast<std::string>(node.path()), "/");
}

TEST(ValueTreeTest, OwnKeyIsTheNameUnderWhichTheParentHoldsTheNode) {
    TestParent root(ALL);
    BareValue leaf(R);
    root.add("member", leaf);
    EXPECT_EQ(leaf.getOwnKey(), ConstHashString("member"));
}

TEST(ValueTreeTest, GetChildKeyOfAValueThrows) {
    BareValue node(R);
    BareValue other(R);
    EXPECT_THAT([&] { node.getChildKey(&other); },
                ThrowsMessage<std::runtime_error>(StrEq("Cannot get child key in a value")));
}

TEST(ValueTreeTest, AttachingBelowANodeWithoutChildKeysThrows) {
    BareValue leaf(R);
    BareValue child(R);
    EXPECT_THAT([&] { child.setParent(&leaf); },
                ThrowsMessage<std::runtime_error>(StrEq("Cannot get child key in a value")));
}

TEST(ValueTreeTest, RootParentOfTheRootIsTheRootItself) {
    TestParent root(ALL);
    EXPECT_EQ(root.rootParent(), &root);
}

TEST(ValueTreeTest, RootParentOfADeepNodeIsTheTop) {
    TestParent root(ALL);
    TestParent middle(ALL);
    BareValue leaf(R);
    root.add("a", middle);
    middle.add("b", leaf);
    EXPECT_EQ(leaf.rootParent(), &root);
}

TEST(ValueTreeTest, SetParentLinksTheInheritedPolicyToTheParent) {
    TestParent parent(ALL);
    grant(parent, R | U);
    BareValue child(ALL);
    auto ctx = contextFor(READ, "/");
    EXPECT_EQ(child.getRights(*ctx, false), AllowedMethods(0));
    parent.add("a", child);
    EXPECT_EQ(child.getRights(*ctx, false), AllowedMethods(R | U));
    EXPECT_TRUE(child.hasPermission(READ, *ctx));
    EXPECT_TRUE(child.hasPermission(UPDATE, *ctx));
    EXPECT_FALSE(child.hasPermission(CREATE, *ctx));
}

// ---- Defaults and allowance checks ------------------------------------------------------------

TEST(ValueDefaultsTest, TypeIsUnknown) {
    BareValue node(R);
    EXPECT_STREQ(node.getType(), "unknown");
}

TEST(ValueDefaultsTest, ModifiableExactlyWhenUpdateIsAllowed) {
    EXPECT_TRUE(BareValue(U).isModifiable());
    EXPECT_FALSE(BareValue(C | R | D | B).isModifiable());
}

TEST(ValueDefaultsTest, ResourcePathNeededUnlessAlwaysExpanded) {
    EXPECT_TRUE(BareValue(R, false).isResourcePathNeeded());
    EXPECT_FALSE(BareValue(R, true).isResourcePathNeeded());
}

TEST(ValueDefaultsTest, SerializeReadOnlyAddsReadonlyTrue) {
    BareValue node(R);
    auto ctx = contextFor(SCHEMA, "/");
    SerializationInfo in, out;
    EXPECT_EQ(node.serializeReadOnly(*ctx, in, out), 0);
    EXPECT_EQ(json(out), R"({"readonly":true})");
}

TEST(ValueDefaultsTest, SchemaFormatAndChildSchemaAddNothing) {
    BareValue node(U);
    auto ctx = contextFor(SCHEMA, "/");
    SerializationInfo in, out;
    EXPECT_EQ(node.serializeSchemaFormat(*ctx, in, out), 0);
    EXPECT_EQ(node.serializeChildSchema(*ctx, in, out), 0);
    EXPECT_EQ(json(out), "null");
}

TEST(ValueDefaultsTest, RequestOperationsAreNotSupported) {
    BareValue node(ALL);
    auto ctx = contextFor(READ, "/");
    SerializationInfo in, out;
    EXPECT_EQ(node.read(*ctx, in, out), dme::result::NOT_SUPPORTED);
    EXPECT_EQ(node.update(*ctx, in, out), dme::result::NOT_SUPPORTED);
    EXPECT_EQ(node.create(*ctx, in, out), dme::result::NOT_SUPPORTED);
    EXPECT_EQ(node.destroy(*ctx, in, out), dme::result::NOT_SUPPORTED);
    EXPECT_EQ(node.subscribeToValue(*ctx), 8);
    EXPECT_EQ(node.unsubscribeToValue(*ctx), 8);
    EXPECT_EQ(json(out), "null");
}

TEST(ValueDefaultsTest, FindPermissionPolicyHoldersClearsTheList) {
    BareValue node(R);
    BareValue other(R);
    std::vector<PermissionPolicyHolder*> holders{&other};
    node.findPermissionPolicyHolders(ConstHashString("x"), holders);
    EXPECT_THAT(holders, IsEmpty());
}

TEST(ValueAllowanceTest, SchemaIsAlwaysAllowed) {
    BareValue node(0);
    auto ctx = contextFor(SCHEMA, "/");
    EXPECT_EQ(node.checkMethodAllowance(SCHEMA, *ctx), 0);
}

TEST(ValueAllowanceTest, MethodNotAllowedYields2EvenWithTheRight) {
    BareValue node(R);
    grant(node, ALL);
    auto ctx = contextFor(UPDATE, "/");
    EXPECT_EQ(node.checkMethodAllowance(UPDATE, *ctx), 2);
}

TEST(ValueAllowanceTest, AllowedMethodWithoutTheRightYields6) {
    BareValue node(U);
    grant(node, R);
    auto ctx = contextFor(UPDATE, "/");
    EXPECT_EQ(node.checkMethodAllowance(UPDATE, *ctx), 6);
}

TEST(ValueAllowanceTest, AllowedMethodWithTheRightYields0) {
    BareValue node(U);
    grant(node, U);
    auto ctx = contextFor(UPDATE, "/");
    EXPECT_EQ(node.checkMethodAllowance(UPDATE, *ctx), 0);
}

TEST(ValueAllowanceTest, MethodIsAllowedWhenItSharesABitWithTheAllowedSet) {
    BareValue node(R | U);
    EXPECT_TRUE(node.isMethodAllowed(READ));
    EXPECT_TRUE(node.isMethodAllowed(UPDATE));
    EXPECT_FALSE(node.isMethodAllowed(CREATE));
    EXPECT_FALSE(node.isMethodAllowed(SUBSCRIBE));
}

TEST(ValueAllowanceTest, MethodsAllowanceIntersectsRequestAllowedAndRights) {
    BareValue node(C | R | U);
    grant(node, R | U | D);
    auto ctx = contextFor(READ, "/");
    EXPECT_EQ(node.getMethodsAllowance(ALL, *ctx), AllowedMethods(R | U));
    EXPECT_EQ(node.getMethodsAllowance(C | D, *ctx), AllowedMethods(0));
}

}  // namespace
}  // namespace dme
