#include "dme/subscription.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

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
using ::testing::_;
using ::testing::ElementsAre;
using ::testing::InSequence;
using ::testing::IsEmpty;
using ::testing::Ref;
using ::testing::Return;
using ::testing::StrEq;
using ::testing::StrictMock;
using ::testing::Throw;
using ::testing::ThrowsMessage;

using TimePoint = std::chrono::steady_clock::time_point;

class MockReceiver : public IElementObserver {
  public:
    MOCK_METHOD(void, onChange, (const std::vector<unsigned int>&, const TimePoint&), (override));
};

class MockNode : public ISubscribable {
  public:
    MOCK_METHOD(int, subscribe, (Context&, ISubscribable::IObserver&), (override));
    MOCK_METHOD(int, unsubscribe, (Context&, ISubscribable::IObserver&), (override));
};

// A request context of `method` on `uri` without any custom object.
std::unique_ptr<Context> bareContext(Method method = SUBSCRIBE, const std::string& uri = "/") {
    return std::make_unique<Context>(test::testLexicon(), method, uri, Arguments(), false);
}

// A request context that carries the subscription ticket (`receiver`, `id`).
std::unique_ptr<Context> ticketContext(IElementObserver& receiver, unsigned int id,
                                       Method method = SUBSCRIBE) {
    auto ctx = bareContext(method);
    ctx->customs().add(std::make_shared<Subscription>(&receiver, id));
    return ctx;
}

// Runs a `method` request on `uri` below `root`, carrying the ticket (`receiver`, `id`).
int runWithTicket(Value& root, Method method, const std::string& uri, IElementObserver& receiver,
                  unsigned int id, const std::string& query = "") {
    Request request(method, uri, query);
    request.context().customs().add(std::make_shared<Subscription>(&receiver, id));
    return request.run(root);
}

ISubscribable::IObserver& asObserver(SubscriberManager& manager) {
    return manager;
}

const TimePoint STAMP = TimePoint(std::chrono::seconds(42));

// ---- Subscription -----------------------------------------------------------------------------

TEST(SubscriptionTest, CarriesItsReceiverAndId) {
    MockReceiver receiver;
    const Subscription ticket(&receiver, 17);
    EXPECT_EQ(ticket.observer(), &receiver);
    EXPECT_EQ(ticket.id(), 17u);
}

TEST(SubscriptionTest, DroppingTheTicketDoesNotUnsubscribe) {
    MockReceiver receiver;
    TextLeaf leaf(0);
    {
        auto ctx = ticketContext(receiver, 5);
        SerializationInfo in, out;
        ASSERT_EQ(leaf._subscribe(*ctx, in, out), 0);
    }
    EXPECT_THAT(leaf.calls(), ElementsAre("subscribeToValue"));
    EXPECT_CALL(receiver, onChange(ElementsAre(5u), _)).Times(1);
    leaf.notifyChange();
}

// ---- Subscriber -------------------------------------------------------------------------------

TEST(SubscriberTest, StartsWithTheTicketsReceiverAndId) {
    MockReceiver receiver;
    MockReceiver other;
    const Subscriber subscriber(Subscription(&receiver, 4));
    EXPECT_EQ(subscriber.observer(), &receiver);
    EXPECT_THAT(subscriber.ids(), ElementsAre(4u));
    EXPECT_TRUE(subscriber == receiver);
    EXPECT_FALSE(subscriber == other);
    EXPECT_FALSE(subscriber.empty());
}

TEST(SubscriberTest, AddAppendsNewIdsInOrderOfRegistration) {
    MockReceiver receiver;
    Subscriber subscriber(Subscription(&receiver, 4));
    EXPECT_EQ(subscriber.add(9), 0);
    EXPECT_EQ(subscriber.add(2), 0);
    EXPECT_THAT(subscriber.ids(), ElementsAre(4u, 9u, 2u));
}

TEST(SubscriberTest, AddOfAPresentIdKeepsItOnceAndReturns0) {
    MockReceiver receiver;
    Subscriber subscriber(Subscription(&receiver, 4));
    EXPECT_EQ(subscriber.add(4), 0);
    EXPECT_THAT(subscriber.ids(), ElementsAre(4u));
}

TEST(SubscriberTest, RemoveOfAPresentIdReturns0) {
    MockReceiver receiver;
    Subscriber subscriber(Subscription(&receiver, 4));
    subscriber.add(9);
    EXPECT_EQ(subscriber.remove(4), 0);
    EXPECT_THAT(subscriber.ids(), ElementsAre(9u));
}

TEST(SubscriberTest, RemoveOfAMissingIdReturns3) {
    MockReceiver receiver;
    Subscriber subscriber(Subscription(&receiver, 4));
    EXPECT_EQ(subscriber.remove(5), 3);
    EXPECT_THAT(subscriber.ids(), ElementsAre(4u));
}

TEST(SubscriberTest, IsEmptyOnceTheLastIdIsRemoved) {
    MockReceiver receiver;
    Subscriber subscriber(Subscription(&receiver, 4));
    subscriber.remove(4);
    EXPECT_TRUE(subscriber.empty());
}

TEST(SubscriberTest, NotifyObserverPassesEveryIdAndTheStamp) {
    StrictMock<MockReceiver> receiver;
    Subscriber subscriber(Subscription(&receiver, 4));
    subscriber.add(9);
    EXPECT_CALL(receiver, onChange(ElementsAre(4u, 9u), STAMP)).Times(1);
    subscriber.notifyObserver(STAMP);
}

// ---- SubscriberManager::add -------------------------------------------------------------------

TEST(SubscriberManagerAddTest, TakesTheTicketFromTheContextAndAttachesItselfToTheNode) {
    MockReceiver receiver;
    StrictMock<MockNode> node;
    SubscriberManager manager;
    auto ctx = ticketContext(receiver, 7);
    EXPECT_CALL(node, subscribe(Ref(*ctx), Ref(asObserver(manager)))).WillOnce(Return(0));
    EXPECT_EQ(manager.add(node, *ctx), 0);
    ASSERT_EQ(manager.subscribers().size(), 1u);
    EXPECT_EQ(manager.subscribers()[0].observer(), &receiver);
    EXPECT_THAT(manager.subscribers()[0].ids(), ElementsAre(7u));
}

TEST(SubscriberManagerAddTest, WithoutTicketThrowsOutOfRange) {
    StrictMock<MockNode> node;
    SubscriberManager manager;
    auto ctx = bareContext();
    EXPECT_THAT(
        [&] { manager.add(node, *ctx); },
        ThrowsMessage<std::out_of_range>(StrEq("TypeIndexContainer - Error: Type not found")));
    EXPECT_THAT(manager.subscribers(), IsEmpty());
}

TEST(SubscriberManagerAddTest, NodeRefusalIsReturnedAndLeavesNoSubscriber) {
    MockReceiver receiver;
    StrictMock<MockNode> node;
    SubscriberManager manager;
    auto ctx = ticketContext(receiver, 7);
    EXPECT_CALL(node, subscribe(_, _)).WillOnce(Return(8));
    EXPECT_EQ(manager.add(node, *ctx), 8);
    EXPECT_THAT(manager.subscribers(), IsEmpty());
}

TEST(SubscriberManagerAddTest, ValueWithoutSubscribeToValueYields8AndLeavesNoSubscriber) {
    MockReceiver receiver;
    BareValue node(0);
    SubscriberManager manager;
    auto ctx = ticketContext(receiver, 7);
    EXPECT_EQ(manager.add(node, *ctx), 8);
    EXPECT_THAT(manager.subscribers(), IsEmpty());
}

TEST(SubscriberManagerAddTest, NodeExceptionPropagatesAndLeavesNoSubscriber) {
    MockReceiver receiver;
    StrictMock<MockNode> node;
    SubscriberManager manager;
    auto ctx = ticketContext(receiver, 7);
    EXPECT_CALL(node, subscribe(_, _)).WillOnce(Throw(std::runtime_error("refused")));
    EXPECT_THROW(manager.add(node, *ctx), std::runtime_error);
    EXPECT_THAT(manager.subscribers(), IsEmpty());
}

TEST(SubscriberManagerAddTest, SameTicketTwiceRecordsTheIdOnceAndCallsTheNodeOnce) {
    MockReceiver receiver;
    StrictMock<MockNode> node;
    SubscriberManager manager;
    EXPECT_CALL(node, subscribe(_, _)).WillOnce(Return(0));
    EXPECT_EQ(manager.add(node, *ticketContext(receiver, 7)), 0);
    EXPECT_EQ(manager.add(node, *ticketContext(receiver, 7)), 0);
    ASSERT_EQ(manager.subscribers().size(), 1u);
    EXPECT_THAT(manager.subscribers()[0].ids(), ElementsAre(7u));
}

TEST(SubscriberManagerAddTest, SecondTicketOfTheSameReceiverOnlyRecordsTheId) {
    MockReceiver receiver;
    StrictMock<MockNode> node;
    SubscriberManager manager;
    EXPECT_CALL(node, subscribe(_, _)).WillOnce(Return(0));
    EXPECT_EQ(manager.add(node, *ticketContext(receiver, 1)), 0);
    EXPECT_EQ(manager.add(node, *ticketContext(receiver, 2)), 0);
    ASSERT_EQ(manager.subscribers().size(), 1u);
    EXPECT_THAT(manager.subscribers()[0].ids(), ElementsAre(1u, 2u));
}

TEST(SubscriberManagerAddTest, AnotherReceiverGetsItsOwnSubscriberAndCallsTheNodeAgain) {
    MockReceiver first;
    MockReceiver second;
    StrictMock<MockNode> node;
    SubscriberManager manager;
    EXPECT_CALL(node, subscribe(_, _)).Times(2).WillRepeatedly(Return(0));
    EXPECT_EQ(manager.add(node, *ticketContext(first, 1)), 0);
    EXPECT_EQ(manager.add(node, *ticketContext(second, 2)), 0);
    ASSERT_EQ(manager.subscribers().size(), 2u);
    EXPECT_EQ(manager.subscribers()[0].observer(), &first);
    EXPECT_EQ(manager.subscribers()[1].observer(), &second);
}

TEST(SubscriberManagerAddTest, AnotherReceiverOnAnObservedValueThrowsAndKeepsTheFirst) {
    MockReceiver first;
    MockReceiver second;
    TextLeaf leaf(0);
    SubscriberManager manager;
    ASSERT_EQ(manager.add(leaf, *ticketContext(first, 1)), 0);
    EXPECT_THAT(
        [&] { manager.add(leaf, *ticketContext(second, 2)); },
        ThrowsMessage<std::runtime_error>(StrEq("Attempt to subscribe twice to dme::Value /")));
    ASSERT_EQ(manager.subscribers().size(), 1u);
    EXPECT_EQ(manager.subscribers()[0].observer(), &first);
}

// ---- SubscriberManager::remove ----------------------------------------------------------------

TEST(SubscriberManagerRemoveTest, WithoutTicketThrowsOutOfRange) {
    StrictMock<MockNode> node;
    SubscriberManager manager;
    auto ctx = bareContext(UNSUBSCRIBE);
    EXPECT_THAT(
        [&] { manager.remove(node, *ctx); },
        ThrowsMessage<std::out_of_range>(StrEq("TypeIndexContainer - Error: Type not found")));
}

TEST(SubscriberManagerRemoveTest, OnAManagerWithoutSubscribersYields3) {
    MockReceiver receiver;
    StrictMock<MockNode> node;
    SubscriberManager manager;
    EXPECT_EQ(manager.remove(node, *ticketContext(receiver, 7, UNSUBSCRIBE)), 3);
}

TEST(SubscriberManagerRemoveTest, TicketOfAReceiverTheNodeNeverSawYields3) {
    MockReceiver known;
    MockReceiver stranger;
    StrictMock<MockNode> node;
    SubscriberManager manager;
    EXPECT_CALL(node, subscribe(_, _)).WillOnce(Return(0));
    ASSERT_EQ(manager.add(node, *ticketContext(known, 7)), 0);
    EXPECT_EQ(manager.remove(node, *ticketContext(stranger, 7, UNSUBSCRIBE)), 3);
    ASSERT_EQ(manager.subscribers().size(), 1u);
    EXPECT_THAT(manager.subscribers()[0].ids(), ElementsAre(7u));
}

TEST(SubscriberManagerRemoveTest, OneOfTwoIdsKeepsTheNodeObserved) {
    MockReceiver receiver;
    StrictMock<MockNode> node;
    SubscriberManager manager;
    EXPECT_CALL(node, subscribe(_, _)).WillOnce(Return(0));
    manager.add(node, *ticketContext(receiver, 1));
    manager.add(node, *ticketContext(receiver, 2));
    EXPECT_EQ(manager.remove(node, *ticketContext(receiver, 1, UNSUBSCRIBE)), 0);
    ASSERT_EQ(manager.subscribers().size(), 1u);
    EXPECT_THAT(manager.subscribers()[0].ids(), ElementsAre(2u));
}

TEST(SubscriberManagerRemoveTest, UnknownIdOfAKnownReceiverYields0AndKeepsItsIds) {
    MockReceiver receiver;
    StrictMock<MockNode> node;
    SubscriberManager manager;
    EXPECT_CALL(node, subscribe(_, _)).WillOnce(Return(0));
    manager.add(node, *ticketContext(receiver, 1));
    EXPECT_EQ(manager.remove(node, *ticketContext(receiver, 5, UNSUBSCRIBE)), 0);
    ASSERT_EQ(manager.subscribers().size(), 1u);
    EXPECT_THAT(manager.subscribers()[0].ids(), ElementsAre(1u));
}

TEST(SubscriberManagerRemoveTest, LastIdReleasesTheNodeAndDropsTheSubscriber) {
    MockReceiver receiver;
    StrictMock<MockNode> node;
    SubscriberManager manager;
    EXPECT_CALL(node, subscribe(_, _)).WillOnce(Return(0));
    manager.add(node, *ticketContext(receiver, 1));
    auto ctx = ticketContext(receiver, 1, UNSUBSCRIBE);
    EXPECT_CALL(node, unsubscribe(Ref(*ctx), Ref(asObserver(manager)))).WillOnce(Return(0));
    EXPECT_EQ(manager.remove(node, *ctx), 0);
    EXPECT_THAT(manager.subscribers(), IsEmpty());
}

TEST(SubscriberManagerRemoveTest, NodeResultOfUnsubscribeIsIgnored) {
    MockReceiver receiver;
    StrictMock<MockNode> node;
    SubscriberManager manager;
    EXPECT_CALL(node, subscribe(_, _)).WillOnce(Return(0));
    manager.add(node, *ticketContext(receiver, 1));
    EXPECT_CALL(node, unsubscribe(_, _)).WillOnce(Return(8));
    EXPECT_EQ(manager.remove(node, *ticketContext(receiver, 1, UNSUBSCRIBE)), 0);
    EXPECT_THAT(manager.subscribers(), IsEmpty());
}

// ---- SubscriberManager::onChange --------------------------------------------------------------

TEST(SubscriberManagerOnChangeTest, NotifiesEverySubscriberInOrderWithItsIds) {
    StrictMock<MockReceiver> first;
    StrictMock<MockReceiver> second;
    MockNode node;
    SubscriberManager manager;
    EXPECT_CALL(node, subscribe(_, _)).WillRepeatedly(Return(0));
    manager.add(node, *ticketContext(first, 1));
    manager.add(node, *ticketContext(second, 2));
    manager.add(node, *ticketContext(first, 3));
    InSequence inOrder;
    EXPECT_CALL(first, onChange(ElementsAre(1u, 3u), STAMP)).Times(1);
    EXPECT_CALL(second, onChange(ElementsAre(2u), STAMP)).Times(1);
    manager.onChange(STAMP);
}

TEST(SubscriberManagerOnChangeTest, WithoutSubscribersNotifiesNobody) {
    SubscriberManager manager;
    manager.onChange(STAMP);
    EXPECT_THAT(manager.subscribers(), IsEmpty());
}

// ---- Through the tree -------------------------------------------------------------------------

// A root "/" that lets requests through to the observable leaf "a".
class SubscribedTreeTest : public ::testing::Test {
  protected:
    SubscribedTreeTest() {
        grant(root_, AllowedMethods::R | AllowedMethods::U | AllowedMethods::B);
        root_.add("a", leaf_);
    }

    StrictMock<MockReceiver> receiver_;
    TestParent root_{AllowedMethods::R | AllowedMethods::U | AllowedMethods::B};
    TextLeaf leaf_{AllowedMethods::R | AllowedMethods::U, "old"};
};

TEST_F(SubscribedTreeTest, OverlappingSubscriptionsGiveOneSubscriberWithBothIds) {
    ASSERT_EQ(runWithTicket(root_, SUBSCRIBE, "/a", receiver_, 1), 0);
    ASSERT_EQ(runWithTicket(root_, SUBSCRIBE, "/", receiver_, 2, "expand=2"), 0);
    ASSERT_NE(leaf_.subscriberManager(), nullptr);
    ASSERT_EQ(leaf_.subscriberManager()->subscribers().size(), 1u);
    EXPECT_THAT(leaf_.subscriberManager()->subscribers()[0].ids(), ElementsAre(1u, 2u));
    EXPECT_THAT(leaf_.calls(), ElementsAre("subscribeToValue"));
}

TEST_F(SubscribedTreeTest, OneChangeCallsTheReceiverOnceWithEveryId) {
    runWithTicket(root_, SUBSCRIBE, "/a", receiver_, 1);
    runWithTicket(root_, SUBSCRIBE, "/", receiver_, 2, "expand=2");
    EXPECT_CALL(receiver_, onChange(ElementsAre(1u, 2u), _)).Times(1);
    SerializationInfo body;
    body.addMember("value").setValue("new");
    Request update(UPDATE, "/a");
    EXPECT_EQ(update.run(root_, body), dme::result::DONE);
}

TEST_F(SubscribedTreeTest, UnsubscribingOneOfTwoIdsLeavesTheNodeObserved) {
    runWithTicket(root_, SUBSCRIBE, "/a", receiver_, 1);
    runWithTicket(root_, SUBSCRIBE, "/a", receiver_, 2);
    EXPECT_EQ(runWithTicket(root_, UNSUBSCRIBE, "/a", receiver_, 1), 0);
    EXPECT_THAT(leaf_.calls(), ElementsAre("subscribeToValue"));
    EXPECT_CALL(receiver_, onChange(ElementsAre(2u), _)).Times(1);
    leaf_.notifyChange();
}

TEST_F(SubscribedTreeTest, UnsubscribingTheLastIdReleasesTheNode) {
    runWithTicket(root_, SUBSCRIBE, "/a", receiver_, 1);
    runWithTicket(root_, SUBSCRIBE, "/a", receiver_, 2);
    runWithTicket(root_, UNSUBSCRIBE, "/a", receiver_, 1);
    EXPECT_EQ(runWithTicket(root_, UNSUBSCRIBE, "/a", receiver_, 2), 0);
    EXPECT_THAT(leaf_.calls(), ElementsAre("subscribeToValue", "unsubscribeToValue"));
    leaf_.notifyChange();
}

TEST_F(SubscribedTreeTest, UnsubscribingATicketTheNodeNeverSawYields3) {
    MockReceiver stranger;
    runWithTicket(root_, SUBSCRIBE, "/a", receiver_, 1);
    EXPECT_EQ(runWithTicket(root_, UNSUBSCRIBE, "/a", stranger, 1), 3);
    EXPECT_CALL(receiver_, onChange(ElementsAre(1u), _)).Times(1);
    leaf_.notifyChange();
}

TEST_F(SubscribedTreeTest, SubscribingANodeThatCannotBeObservedYields8AndLeavesNoSubscriber) {
    BareValue plain(AllowedMethods::R);
    root_.add("plain", plain);
    EXPECT_EQ(runWithTicket(root_, SUBSCRIBE, "/plain", receiver_, 1), 8);
    ASSERT_NE(plain.subscriberManager(), nullptr);
    EXPECT_THAT(plain.subscriberManager()->subscribers(), IsEmpty());
}

TEST_F(SubscribedTreeTest, ChangeIsStampedWithTheSteadyClock) {
    runWithTicket(root_, SUBSCRIBE, "/a", receiver_, 1);
    TimePoint stamp;
    EXPECT_CALL(receiver_, onChange(_, _)).WillOnce(::testing::SaveArg<1>(&stamp));
    const TimePoint before = std::chrono::steady_clock::now();
    leaf_.notifyChange();
    const TimePoint after = std::chrono::steady_clock::now();
    EXPECT_LE(before, stamp);
    EXPECT_LE(stamp, after);
}

}  // namespace
}  // namespace dme
