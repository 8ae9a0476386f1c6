#include "dme/notifier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using dme::Arguments;
using dme::IDataModelObserver;
using dme::Notifier;
using dme::NotifierManager;
using dme::Subscription;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// How long a test waits for a notification that is due: far longer than the loop needs.
constexpr Clock::duration kPatience = std::chrono::seconds(1);
constexpr Clock::time_point kNever = Clock::time_point::max();
// An arbitrary fixed point on the steady clock for the tests of a single Notifier.
const Clock::time_point kT = Clock::time_point() + std::chrono::hours(1000);

// Records every notification with the time it arrived. Thread-safe. A test declares it before
// its NotifierManager, so that it outlives the manager's thread, which may still notify it.
class RecordingObserver : public IDataModelObserver {
  public:
    struct Delivery {
        std::string uri;
        std::vector<Arguments::Pair> arguments;
        Clock::time_point at;
    };

    void notify(const std::string& uri, const Arguments& arguments) override {
        std::lock_guard<std::mutex> lock(mutex_);
        deliveries_.push_back({uri, arguments.pairs(), Clock::now()});
        arrived_.notify_all();
    }

    // Waits until `count` notifications have arrived or `latest` has passed; true when they
    // have arrived.
    bool waitUntil(std::size_t count, Clock::time_point latest) {
        std::unique_lock<std::mutex> lock(mutex_);
        return arrived_.wait_until(lock, latest, [&] { return deliveries_.size() >= count; });
    }
    bool waitFor(std::size_t count) { return waitUntil(count, Clock::now() + kPatience); }

    // Waits until a notification about `uri` has arrived or kPatience has passed.
    bool waitForUri(const std::string& uri) {
        std::unique_lock<std::mutex> lock(mutex_);
        return arrived_.wait_for(lock, kPatience, [&] { return countLocked(uri) > 0; });
    }

    std::vector<Delivery> deliveries() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return deliveries_;
    }
    std::size_t count() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return deliveries_.size();
    }
    std::size_t count(const std::string& uri) const {
        std::lock_guard<std::mutex> lock(mutex_);
        return countLocked(uri);
    }

  private:
    std::size_t countLocked(const std::string& uri) const {
        std::size_t n = 0;
        for (const Delivery& delivery : deliveries_) n += delivery.uri == uri ? 1 : 0;
        return n;
    }

    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<Delivery> deliveries_;
};

// Runs a function on every notification.
class CallbackObserver : public IDataModelObserver {
  public:
    explicit CallbackObserver(std::function<void()> callback) : callback_(std::move(callback)) {}
    void notify(const std::string&, const Arguments&) override { callback_(); }

  private:
    std::function<void()> callback_;
};

Notifier makeNotifier(IDataModelObserver& observer, milliseconds interval, unsigned int id = 7) {
    return Notifier(id, observer, "/a/b", Arguments{{"x", "1"}}, interval);
}

// The subscription of `id` as the manager holds it now.
Notifier snapshotOf(const NotifierManager& manager, unsigned int id) {
    for (const Notifier& notifier : manager.notifiers()) {
        if (notifier.id() == id) return notifier;
    }
    throw std::out_of_range("no such subscription");
}

std::vector<unsigned int> idsOf(const std::vector<Notifier>& notifiers) {
    std::vector<unsigned int> ids;
    for (const Notifier& notifier : notifiers) ids.push_back(notifier.id());
    return ids;
}

// ---- Notifier -----------------------------------------------------------------------------

TEST(NotifierTest, KeepsWhatItWasBuiltWith) {
    RecordingObserver observer;
    Notifier notifier(12, observer, "/a/b", Arguments{{"x", "1"}, {"y", "2"}}, milliseconds(250));
    EXPECT_EQ(notifier.id(), 12u);
    EXPECT_EQ(&notifier.observer(), &observer);
    EXPECT_EQ(notifier.uri(), "/a/b");
    EXPECT_EQ(notifier.arguments().pairs(), (std::vector<Arguments::Pair>{{"x", "1"}, {"y", "2"}}));
    EXPECT_EQ(notifier.minInterval(), milliseconds(250));
}

TEST(NotifierTest, StartsIdle) {
    RecordingObserver observer;
    EXPECT_EQ(makeNotifier(observer, milliseconds(100)).deadline(), kNever);
}

TEST(NotifierTest, GracePeriodOfAnIdleNotifierEndsOneIntervalAfterTheChange) {
    RecordingObserver observer;
    Notifier notifier = makeNotifier(observer, milliseconds(100));
    EXPECT_TRUE(notifier.startGracePeriod(kT));
    EXPECT_EQ(notifier.deadline(), kT + milliseconds(100));
}

TEST(NotifierTest, LaterChangeDoesNotPushThePendingDeadlineBack) {
    RecordingObserver observer;
    Notifier notifier = makeNotifier(observer, milliseconds(100));
    notifier.startGracePeriod(kT);
    EXPECT_FALSE(notifier.startGracePeriod(kT + milliseconds(10)));
    EXPECT_EQ(notifier.deadline(), kT + milliseconds(100));
}

TEST(NotifierTest, SameChangeTimeAgainDoesNotMoveTheDeadline) {
    RecordingObserver observer;
    Notifier notifier = makeNotifier(observer, milliseconds(100));
    notifier.startGracePeriod(kT);
    EXPECT_FALSE(notifier.startGracePeriod(kT));
    EXPECT_EQ(notifier.deadline(), kT + milliseconds(100));
}

TEST(NotifierTest, EarlierChangeBringsThePendingDeadlineForward) {
    RecordingObserver observer;
    Notifier notifier = makeNotifier(observer, milliseconds(100));
    notifier.startGracePeriod(kT + milliseconds(50));
    EXPECT_TRUE(notifier.startGracePeriod(kT));
    EXPECT_EQ(notifier.deadline(), kT + milliseconds(100));
}

TEST(NotifierTest, ZeroIntervalMakesTheChangeDueAtItsOwnTime) {
    RecordingObserver observer;
    Notifier notifier = makeNotifier(observer, milliseconds(0));
    EXPECT_TRUE(notifier.startGracePeriod(kT));
    EXPECT_EQ(notifier.deadline(), kT);
}

TEST(NotifierTest, IntervalBeyondTheClockRangeLeavesTheNotifierIdle) {
    RecordingObserver observer;
    Notifier notifier = makeNotifier(observer, milliseconds::max());
    EXPECT_FALSE(notifier.startGracePeriod(kT));
    EXPECT_EQ(notifier.deadline(), kNever);
}

TEST(NotifierTest, SetExpiredMakesAnIdleNotifierDueNow) {
    RecordingObserver observer;
    Notifier notifier = makeNotifier(observer, milliseconds(100));
    const Clock::time_point before = Clock::now();
    EXPECT_TRUE(notifier.setExpired());
    EXPECT_GE(notifier.deadline(), before);
    EXPECT_LE(notifier.deadline(), Clock::now());
}

TEST(NotifierTest, SetExpiredBringsAPendingDeadlineForwardToNow) {
    RecordingObserver observer;
    Notifier notifier = makeNotifier(observer, milliseconds(3600000));
    notifier.startGracePeriod(Clock::now());
    EXPECT_TRUE(notifier.setExpired());
    EXPECT_LE(notifier.deadline(), Clock::now());
}

TEST(NotifierTest, SetExpiredLeavesAnAlreadyDueDeadlineAlone) {
    RecordingObserver observer;
    Notifier notifier = makeNotifier(observer, milliseconds(0));
    const Clock::time_point change = Clock::now() - milliseconds(1);
    notifier.startGracePeriod(change);
    EXPECT_FALSE(notifier.setExpired());
    EXPECT_EQ(notifier.deadline(), change);
}

TEST(NotifierTest, SendObserverNotificationPassesUriAndArguments) {
    RecordingObserver observer;
    makeNotifier(observer, milliseconds(100)).sendObserverNotification();
    const auto deliveries = observer.deliveries();
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].uri, "/a/b");
    EXPECT_EQ(deliveries[0].arguments, (std::vector<Arguments::Pair>{{"x", "1"}}));
}

TEST(NotifierTest, BackgroundTaskOfAnIdleNotifierSendsNothing) {
    RecordingObserver observer;
    Notifier notifier = makeNotifier(observer, milliseconds(100));
    EXPECT_EQ(notifier.backgroundTask(), kNever);
    EXPECT_EQ(observer.count(), 0u);
}

TEST(NotifierTest, BackgroundTaskBeforeTheDeadlineSendsNothingAndReturnsIt) {
    RecordingObserver observer;
    Notifier notifier = makeNotifier(observer, milliseconds(3600000));
    const Clock::time_point change = Clock::now();
    notifier.startGracePeriod(change);
    EXPECT_EQ(notifier.backgroundTask(), change + std::chrono::hours(1));
    EXPECT_EQ(observer.count(), 0u);
}

TEST(NotifierTest, BackgroundTaskOfADueNotifierSendsOnceAndTurnsIdle) {
    RecordingObserver observer;
    Notifier notifier = makeNotifier(observer, milliseconds(0));
    notifier.setExpired();
    EXPECT_EQ(notifier.backgroundTask(), kNever);
    EXPECT_EQ(notifier.backgroundTask(), kNever);
    EXPECT_EQ(observer.count(), 1u);
}

TEST(NotifierTest, BackgroundTaskReleasesTheNotifierBeforeCallingTheObserver) {
    Clock::time_point seenInCallback;
    Notifier* self = nullptr;
    CallbackObserver observer([&] { seenInCallback = self->deadline(); });
    Notifier notifier = makeNotifier(observer, milliseconds(0));
    self = &notifier;
    notifier.setExpired();
    notifier.backgroundTask();
    EXPECT_EQ(seenInCallback, kNever);
}

TEST(NotifierTest, CopyKeepsEveryFieldAndThePendingDeadline) {
    RecordingObserver observer;
    Notifier original = makeNotifier(observer, milliseconds(100), 3);
    original.startGracePeriod(kT);
    const Notifier copy(original);
    EXPECT_EQ(copy.id(), 3u);
    EXPECT_EQ(&copy.observer(), &observer);
    EXPECT_EQ(copy.uri(), "/a/b");
    EXPECT_EQ(copy.arguments().pairs(), (std::vector<Arguments::Pair>{{"x", "1"}}));
    EXPECT_EQ(copy.minInterval(), milliseconds(100));
    EXPECT_EQ(copy.deadline(), kT + milliseconds(100));
}

TEST(NotifierTest, CopyHasADeadlineOfItsOwn) {
    RecordingObserver observer;
    Notifier original = makeNotifier(observer, milliseconds(100));
    Notifier copy(original);
    copy.startGracePeriod(kT);
    EXPECT_EQ(original.deadline(), kNever);
    EXPECT_EQ(copy.deadline(), kT + milliseconds(100));
}

TEST(NotifierTest, MoveKeepsEveryFieldAndThePendingDeadline) {
    RecordingObserver observer;
    Notifier original = makeNotifier(observer, milliseconds(100), 4);
    original.startGracePeriod(kT);
    const Notifier moved(std::move(original));
    EXPECT_EQ(moved.id(), 4u);
    EXPECT_EQ(&moved.observer(), &observer);
    EXPECT_EQ(moved.uri(), "/a/b");
    EXPECT_EQ(moved.arguments().pairs(), (std::vector<Arguments::Pair>{{"x", "1"}}));
    EXPECT_EQ(moved.deadline(), kT + milliseconds(100));
}

TEST(NotifierTest, CopyAssignmentReplacesEveryField) {
    RecordingObserver first;
    RecordingObserver second;
    Notifier target(1, first, "/one", Arguments(), milliseconds(10));
    Notifier source(2, second, "/two", Arguments{{"k", "v"}}, milliseconds(20));
    source.startGracePeriod(kT);
    target = source;
    EXPECT_EQ(target.id(), 2u);
    EXPECT_EQ(&target.observer(), &second);
    EXPECT_EQ(target.uri(), "/two");
    EXPECT_EQ(target.arguments().pairs(), (std::vector<Arguments::Pair>{{"k", "v"}}));
    EXPECT_EQ(target.minInterval(), milliseconds(20));
    EXPECT_EQ(target.deadline(), kT + milliseconds(20));
    EXPECT_EQ(source.uri(), "/two");
}

TEST(NotifierTest, MoveAssignmentReplacesEveryField) {
    RecordingObserver first;
    RecordingObserver second;
    Notifier target(1, first, "/one", Arguments(), milliseconds(10));
    target.startGracePeriod(kT);
    Notifier source(2, second, "/two", Arguments{{"k", "v"}}, milliseconds(20));
    target = std::move(source);
    EXPECT_EQ(target.id(), 2u);
    EXPECT_EQ(&target.observer(), &second);
    EXPECT_EQ(target.uri(), "/two");
    EXPECT_EQ(target.arguments().pairs(), (std::vector<Arguments::Pair>{{"k", "v"}}));
    EXPECT_EQ(target.minInterval(), milliseconds(20));
    EXPECT_EQ(target.deadline(), kNever);
}

// ---- NotifierManager: the subscription list -------------------------------------------------

TEST(NotifierManagerTest, StartsWithoutSubscriptions) {
    NotifierManager manager;
    EXPECT_EQ(manager.subscriptionNb(), 0u);
    EXPECT_TRUE(manager.notifiers().empty());
}

TEST(NotifierManagerTest, AddReturnsATicketOfThisManager) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription ticket = manager.add(observer, "/a", Arguments(), milliseconds(100));
    EXPECT_EQ(ticket.observer(), &manager);
    EXPECT_EQ(idsOf(manager.notifiers()), (std::vector<unsigned int>{ticket.id()}));
}

TEST(NotifierManagerTest, AddKeepsTheSubscriptionAsGivenAndIdle) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription ticket =
        manager.add(observer, "/a/b", Arguments{{"expand", "2"}}, milliseconds(150));
    const Notifier notifier = snapshotOf(manager, ticket.id());
    EXPECT_EQ(&notifier.observer(), &observer);
    EXPECT_EQ(notifier.uri(), "/a/b");
    EXPECT_EQ(notifier.arguments().pairs(), (std::vector<Arguments::Pair>{{"expand", "2"}}));
    EXPECT_EQ(notifier.minInterval(), milliseconds(150));
    EXPECT_EQ(notifier.deadline(), kNever);
}

TEST(NotifierManagerTest, AddedSubscriptionsGetIncreasingIdsAndStaySorted) {
    RecordingObserver observer;
    NotifierManager manager;
    const unsigned int a = manager.add(observer, "/a", Arguments(), milliseconds(1)).id();
    const unsigned int b = manager.add(observer, "/b", Arguments(), milliseconds(1)).id();
    const unsigned int c = manager.add(observer, "/c", Arguments(), milliseconds(1)).id();
    EXPECT_LT(a, b);
    EXPECT_LT(b, c);
    EXPECT_EQ(idsOf(manager.notifiers()), (std::vector<unsigned int>{a, b, c}));
    EXPECT_EQ(manager.subscriptionNb(), 3u);
}

TEST(NotifierManagerTest, RemoveErasesOnlyThatSubscription) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription a = manager.add(observer, "/a", Arguments(), milliseconds(1));
    const Subscription b = manager.add(observer, "/b", Arguments(), milliseconds(1));
    const Subscription c = manager.add(observer, "/c", Arguments(), milliseconds(1));
    manager.remove(b);
    EXPECT_EQ(idsOf(manager.notifiers()), (std::vector<unsigned int>{a.id(), c.id()}));
    EXPECT_EQ(manager.subscriptionNb(), 2u);
}

TEST(NotifierManagerTest, RemoveOfAnUnknownIdChangesNothing) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription a = manager.add(observer, "/a", Arguments(), milliseconds(1));
    manager.remove(Subscription(&manager, a.id() + 1000));
    manager.remove(a);
    manager.remove(a);
    EXPECT_EQ(manager.subscriptionNb(), 0u);
}

TEST(NotifierManagerTest, RemoveAllErasesEverySubscriptionOfThatObserverOnly) {
    NotifierManager manager;
    RecordingObserver leaving;
    RecordingObserver staying;
    manager.add(leaving, "/a", Arguments(), milliseconds(1));
    const Subscription kept = manager.add(staying, "/b", Arguments(), milliseconds(1));
    manager.add(leaving, "/c", Arguments(), milliseconds(1));
    manager.removeAll(leaving);
    EXPECT_EQ(idsOf(manager.notifiers()), (std::vector<unsigned int>{kept.id()}));
}

TEST(NotifierManagerTest, IdsKeepIncreasingAcrossManagers) {
    RecordingObserver observer;
    NotifierManager first;
    NotifierManager second;
    const unsigned int a = first.add(observer, "/a", Arguments(), milliseconds(1)).id();
    const unsigned int b = second.add(observer, "/a", Arguments(), milliseconds(1)).id();
    const unsigned int c = first.add(observer, "/a", Arguments(), milliseconds(1)).id();
    unsigned int d = 0;
    {
        NotifierManager third;
        d = third.add(observer, "/a", Arguments(), milliseconds(1)).id();
    }
    NotifierManager fourth;
    const unsigned int e = fourth.add(observer, "/a", Arguments(), milliseconds(1)).id();
    EXPECT_LT(a, b);
    EXPECT_LT(b, c);
    EXPECT_LT(c, d);
    EXPECT_LT(d, e);
}

TEST(NotifierManagerTest, RemovedIdIsNeverReused) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription first = manager.add(observer, "/a", Arguments(), milliseconds(1));
    manager.remove(first);
    const Subscription second = manager.add(observer, "/a", Arguments(), milliseconds(1));
    manager.removeAll(observer);
    const Subscription third = manager.add(observer, "/a", Arguments(), milliseconds(1));
    EXPECT_GT(second.id(), first.id());
    EXPECT_GT(third.id(), second.id());
}

// ---- NotifierManager: timing of notifications -----------------------------------------------

TEST(NotifierManagerTest, ChangeIsNotifiedOneIntervalLater) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription ticket = manager.add(observer, "/a", Arguments(), milliseconds(100));
    const Clock::time_point change = Clock::now();
    manager.notify({ticket.id()}, change);
    ASSERT_TRUE(observer.waitUntil(1, change + milliseconds(100) + kPatience));
    EXPECT_GE(observer.deliveries()[0].at - change, milliseconds(100));
}

TEST(NotifierManagerTest, NotificationCarriesTheSubscribedUriAndArguments) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription ticket =
        manager.add(observer, "/net/eth0", Arguments{{"expand", "1"}, {"a", "b"}}, milliseconds(0));
    manager.notify({ticket.id()}, Clock::now());
    ASSERT_TRUE(observer.waitFor(1));
    const auto delivery = observer.deliveries()[0];
    EXPECT_EQ(delivery.uri, "/net/eth0");
    EXPECT_EQ(delivery.arguments, (std::vector<Arguments::Pair>{{"expand", "1"}, {"a", "b"}}));
}

TEST(NotifierManagerTest, TwoChangesTenMillisecondsApartGiveOneNotification) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription ticket = manager.add(observer, "/a", Arguments(), milliseconds(100));
    const Clock::time_point change = Clock::now();
    manager.notify({ticket.id()}, change);
    manager.notify({ticket.id()}, change + milliseconds(10));
    ASSERT_TRUE(observer.waitUntil(1, change + milliseconds(100) + kPatience));
    EXPECT_GE(observer.deliveries()[0].at - change, milliseconds(100));
    // Nothing is left pending, so no second notification can follow.
    EXPECT_EQ(snapshotOf(manager, ticket.id()).deadline(), kNever);
    EXPECT_EQ(observer.count(), 1u);
}

TEST(NotifierManagerTest, ChangeAfterANotificationOpensANewPeriod) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription ticket = manager.add(observer, "/a", Arguments(), milliseconds(50));
    manager.notify({ticket.id()}, Clock::now());
    ASSERT_TRUE(observer.waitFor(1));
    const Clock::time_point second = Clock::now();
    manager.notify({ticket.id()}, second);
    ASSERT_TRUE(observer.waitUntil(2, second + milliseconds(50) + kPatience));
    EXPECT_GE(observer.deliveries()[1].at - second, milliseconds(50));
}

TEST(NotifierManagerTest, ZeroIntervalIsNotifiedOnTheNextPass) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription ticket = manager.add(observer, "/a", Arguments(), milliseconds(0));
    manager.notify({ticket.id()}, Clock::now());
    EXPECT_TRUE(observer.waitFor(1));
}

TEST(NotifierManagerTest, OnChangeSchedulesLikeNotify) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription ticket = manager.add(observer, "/a", Arguments(), milliseconds(100));
    dme::IElementObserver& receiver = manager;
    const Clock::time_point change = Clock::now();
    receiver.onChange({ticket.id()}, change);
    ASSERT_TRUE(observer.waitUntil(1, change + milliseconds(100) + kPatience));
    EXPECT_GE(observer.deliveries()[0].at - change, milliseconds(100));
}

TEST(NotifierManagerTest, OneChangeNotifiesEverySubscriptionItNames) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription a = manager.add(observer, "/a", Arguments(), milliseconds(0));
    const Subscription b = manager.add(observer, "/a/b", Arguments(), milliseconds(0));
    manager.notify({a.id(), b.id()}, Clock::now());
    ASSERT_TRUE(observer.waitFor(2));
    EXPECT_EQ(observer.count("/a"), 1u);
    EXPECT_EQ(observer.count("/a/b"), 1u);
}

TEST(NotifierManagerTest, DueSubscriptionsAreSentInIdOrder) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription first = manager.add(observer, "/first", Arguments(), milliseconds(0));
    const Subscription second = manager.add(observer, "/second", Arguments(), milliseconds(0));
    const Subscription third = manager.add(observer, "/third", Arguments(), milliseconds(0));
    manager.notify({third.id(), first.id(), second.id()}, Clock::now() - std::chrono::seconds(1));
    ASSERT_TRUE(observer.waitFor(3));
    const auto deliveries = observer.deliveries();
    EXPECT_EQ(deliveries[0].uri, "/first");
    EXPECT_EQ(deliveries[1].uri, "/second");
    EXPECT_EQ(deliveries[2].uri, "/third");
}

TEST(NotifierManagerTest, ChangeOnlyDelaysTheSubscriptionItNames) {
    RecordingObserver observer;
    NotifierManager manager;
    manager.add(observer, "/quiet", Arguments(), milliseconds(0));
    const Subscription changed = manager.add(observer, "/changed", Arguments(), milliseconds(0));
    manager.notify({changed.id()}, Clock::now());
    ASSERT_TRUE(observer.waitFor(1));
    EXPECT_EQ(observer.deliveries()[0].uri, "/changed");
    EXPECT_EQ(observer.count("/quiet"), 0u);
}

TEST(NotifierManagerTest, NotifyNowOnAnIdleSubscriptionSendsAtOnce) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription ticket = manager.add(observer, "/a", Arguments(), std::chrono::hours(1));
    manager.notifyNow(ticket.id());
    EXPECT_TRUE(observer.waitFor(1));
}

TEST(NotifierManagerTest, NotifyNowOnAPendingSubscriptionBringsItsDeadlineForward) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription ticket = manager.add(observer, "/a", Arguments(), std::chrono::hours(1));
    manager.notify({ticket.id()}, Clock::now());
    ASSERT_NE(snapshotOf(manager, ticket.id()).deadline(), kNever);
    manager.notifyNow(ticket.id());
    ASSERT_TRUE(observer.waitFor(1));
    EXPECT_EQ(snapshotOf(manager, ticket.id()).deadline(), kNever);
}

TEST(NotifierManagerTest, PendingChangeIsVisibleAsADeadline) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription ticket = manager.add(observer, "/a", Arguments(), std::chrono::hours(1));
    const Clock::time_point change = Clock::now();
    manager.notify({ticket.id()}, change);
    EXPECT_EQ(snapshotOf(manager, ticket.id()).deadline(), change + std::chrono::hours(1));
    EXPECT_EQ(observer.count(), 0u);
}

// ---- NotifierManager: removal and stale ids -------------------------------------------------

TEST(NotifierManagerTest, RemoveAllStopsPendingNotificationsOfThatObserver) {
    NotifierManager manager;
    RecordingObserver removed;
    RecordingObserver witness;
    const Subscription a = manager.add(removed, "/a", Arguments(), milliseconds(100));
    const Subscription b = manager.add(removed, "/b", Arguments(), milliseconds(100));
    const Subscription w = manager.add(witness, "/w", Arguments(), milliseconds(200));
    const Clock::time_point change = Clock::now();
    manager.notify({a.id(), b.id(), w.id()}, change);
    manager.removeAll(removed);
    // The witness is due after the removed subscriptions would have been: once it has arrived,
    // a pass after their deadlines has run.
    ASSERT_TRUE(witness.waitUntil(1, change + milliseconds(200) + kPatience));
    EXPECT_EQ(removed.count(), 0u);
}

TEST(NotifierManagerTest, RemoveStopsAPendingNotification) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription removed = manager.add(observer, "/removed", Arguments(), milliseconds(100));
    const Subscription witness = manager.add(observer, "/witness", Arguments(), milliseconds(200));
    const Clock::time_point change = Clock::now();
    manager.notify({removed.id(), witness.id()}, change);
    manager.remove(removed);
    ASSERT_TRUE(observer.waitUntil(1, change + milliseconds(200) + kPatience));
    EXPECT_EQ(observer.count("/removed"), 0u);
    EXPECT_EQ(observer.count("/witness"), 1u);
}

TEST(NotifierManagerTest, NotifySkipsIdsThatAreNoLongerRegistered) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription gone = manager.add(observer, "/gone", Arguments(), milliseconds(0));
    const Subscription kept = manager.add(observer, "/kept", Arguments(), milliseconds(0));
    manager.remove(gone);
    manager.notify({gone.id(), kept.id(), kept.id() + 1000}, Clock::now());
    ASSERT_TRUE(observer.waitFor(1));
    EXPECT_EQ(observer.deliveries()[0].uri, "/kept");
    EXPECT_EQ(manager.subscriptionNb(), 1u);
}

TEST(NotifierManagerTest, NotifyOnAnEmptyManagerDoesNothing) {
    NotifierManager manager;
    manager.notify({1, 2, 3}, Clock::now());
    manager.notify({}, Clock::now());
    EXPECT_EQ(manager.subscriptionNb(), 0u);
}

TEST(NotifierManagerTest, NotifyNowSkipsAnIdThatIsNoLongerRegistered) {
    RecordingObserver observer;
    NotifierManager manager;
    const Subscription gone = manager.add(observer, "/gone", Arguments(), milliseconds(0));
    const Subscription kept = manager.add(observer, "/kept", Arguments(), milliseconds(0));
    manager.remove(gone);
    manager.notifyNow(gone.id());
    manager.notifyNow(kept.id() + 1000);
    manager.notifyNow(kept.id());
    ASSERT_TRUE(observer.waitFor(1));
    EXPECT_EQ(observer.deliveries()[0].uri, "/kept");
}

// ---- NotifierManager: lifecycle -------------------------------------------------------------

TEST(NotifierManagerTest, DestroyingWithPendingNotificationsReturnsPromptlyAndSendsNone) {
    RecordingObserver observer;
    Clock::time_point destroying;
    {
        NotifierManager manager;
        const Subscription a = manager.add(observer, "/a", Arguments(), std::chrono::hours(1));
        const Subscription b = manager.add(observer, "/b", Arguments(), milliseconds(300));
        manager.notify({a.id(), b.id()}, Clock::now());
        destroying = Clock::now();
    }
    EXPECT_LT(Clock::now() - destroying, kPatience);
    EXPECT_EQ(observer.count(), 0u);
}

TEST(NotifierManagerTest, ObserverMayReadTheSubscriptionCountDuringANotification) {
    NotifierManager manager;
    std::atomic<unsigned int> seen{0};
    RecordingObserver done;
    CallbackObserver reader([&] {
        seen = manager.subscriptionNb();
        done.notify("/done", Arguments());
    });
    const Subscription ticket = manager.add(reader, "/a", Arguments(), milliseconds(0));
    manager.add(reader, "/b", Arguments(), milliseconds(1));
    manager.notifyNow(ticket.id());
    ASSERT_TRUE(done.waitFor(1));
    EXPECT_EQ(seen, 2u);
}

TEST(NotifierManagerTest, ThrowingObserverEndsTheNotifierThreadButNotTheProcess) {
    RecordingObserver thrown;
    CallbackObserver thrower([&] {
        thrown.notify("/thrower", Arguments());
        throw std::runtime_error("observer failed");
    });
    {
        NotifierManager manager;
        const Subscription ticket = manager.add(thrower, "/a", Arguments(), milliseconds(0));
        manager.notifyNow(ticket.id());
        ASSERT_TRUE(thrown.waitFor(1));
    }
    EXPECT_EQ(thrown.count(), 1u);
}

// ---- NotifierManager: several threads -------------------------------------------------------

TEST(NotifierManagerTest, ConcurrentChangesWhileSubscriptionsComeAndGo) {
    constexpr int kStable = 4;
    constexpr int kChangers = 4;
    constexpr int kChangesPerThread = 500;
    constexpr int kChurns = 300;
    RecordingObserver observer;
    NotifierManager manager;
    std::vector<unsigned int> stableIds;
    for (int i = 0; i < kStable; ++i) {
        const std::string uri = "/stable/" + std::to_string(i);
        stableIds.push_back(manager.add(observer, uri, Arguments(), milliseconds(i)).id());
    }
    std::atomic<unsigned int> latestChurnId{stableIds.back()};
    std::vector<unsigned int> churnIds;

    std::thread churner([&] {
        for (int i = 0; i < kChurns; ++i) {
            const Subscription ticket =
                manager.add(observer, "/churn", Arguments(), milliseconds(0));
            churnIds.push_back(ticket.id());
            latestChurnId = ticket.id();
            if (i % 3 == 0) std::this_thread::yield();
            manager.remove(ticket);
        }
    });
    std::vector<std::thread> changers;
    for (int t = 0; t < kChangers; ++t) {
        changers.emplace_back([&] {
            std::vector<unsigned int> ids = stableIds;
            ids.push_back(0);
            ids.push_back(0);
            for (int i = 0; i < kChangesPerThread; ++i) {
                const unsigned int churn = latestChurnId;
                ids[kStable] = churn;
                ids[kStable + 1] = churn + 1;
                manager.notify(ids, Clock::now());
                if (i % 50 == 0) manager.notifyNow(churn);
            }
        });
    }
    std::thread reader([&] {
        for (int i = 0; i < 100; ++i) {
            for (const Notifier& notifier : manager.notifiers()) {
                EXPECT_FALSE(notifier.uri().empty());
            }
        }
    });
    churner.join();
    for (std::thread& changer : changers) changer.join();
    reader.join();

    EXPECT_EQ(manager.subscriptionNb(), static_cast<unsigned int>(kStable));
    for (std::size_t i = 1; i < churnIds.size(); ++i) EXPECT_LT(churnIds[i - 1], churnIds[i]);
    EXPECT_GT(churnIds.front(), stableIds.back());
    for (int i = 0; i < kStable; ++i) {
        manager.notifyNow(stableIds[i]);
        EXPECT_TRUE(observer.waitForUri("/stable/" + std::to_string(i)));
    }
}

TEST(NotifierManagerTest, ManagersOnSeveralThreadsNeverShareAnId) {
    constexpr int kThreads = 4;
    constexpr int kAdds = 200;
    RecordingObserver observer;
    std::vector<std::vector<unsigned int>> idsPerThread(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&observer, &ids = idsPerThread[t]] {
            NotifierManager manager;
            for (int i = 0; i < kAdds; ++i) {
                ids.push_back(manager.add(observer, "/a", Arguments(), milliseconds(1)).id());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::map<unsigned int, int> uses;
    for (const auto& ids : idsPerThread) {
        for (std::size_t i = 1; i < ids.size(); ++i) EXPECT_LT(ids[i - 1], ids[i]);
        for (unsigned int id : ids) ++uses[id];
    }
    EXPECT_EQ(uses.size(), static_cast<std::size_t>(kThreads * kAdds));
}

}  // namespace
