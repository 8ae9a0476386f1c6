// A storm of concurrent activity on one engine: application threads change values directly
// (setValue, which notifies on the changing thread), the notifier thread delivers, and request
// threads subscribe, update and unsubscribe through the engine. Requests are serialised by the
// test's own lock, as the engine requires of its caller; value changes take no lock of the
// test's. Built with ThreadSanitizer (`make test-tsan`) these tests also prove the absence of
// data races on these paths; without it they check the bookkeeping that the storm leaves.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "application.h"
#include "dme/atomic_value.h"
#include "dme/container.h"
#include "dme/engine.h"
#include "dme/structure.h"
#include "request.h"

namespace dme {
namespace {

using std::chrono::milliseconds;

// Subscribe, update and unsubscribe rounds per request thread.
constexpr int kRounds = 300;
// Every this many rounds a request thread waits for the first notification that it asked for.
constexpr int kWaitingRound = 10;
// Changes that every value-changing thread makes at least, however fast the requests end.
constexpr int kLeastChanges = 500;
constexpr int kRequestThreads = 2;
// The uris that the request threads subscribe to in turn; every leaf is covered.
const std::vector<std::string> kChurnUris{"/group", "/group/a", "/group/b", "/solo", "/shared"};

// What one request thread saw: the results of its requests other than 0, each with its request.
using Failures = std::vector<std::string>;

class NotificationStressTest : public ::testing::Test {
  protected:
    NotificationStressTest()
        : model(root, test::testLexicon(), READ + UPDATE + AllowedMethods::B),
          engine(model, "stress") {}

    // Subscribes the permanent observer to "/group" and "/shared", notified without delay.
    void subscribeWitness() {
        ASSERT_EQ(engine.subscribe(witness, "/group", Arguments(), milliseconds(0),
                                   ObserverOption::CHANGES_ONLY),
                  0);
        ASSERT_EQ(engine.subscribe(witness, "/shared", Arguments(), milliseconds(0),
                                   ObserverOption::CHANGES_ONLY),
                  0);
    }

    // Runs the storm: one thread per application-changed leaf, kRequestThreads request threads.
    // Returns when every thread has ended.
    void runStorm() {
        std::atomic<bool> requestsDone{false};
        std::vector<std::thread> changers;
        const std::pair<StaticAtomicValue<int>*, const char*> leaves[] = {
            {&a, "/group/a"}, {&b, "/group/b"}, {&solo, "/solo"}};
        for (const auto& [leaf, uri] : leaves) {
            changers.emplace_back(
                [leaf = leaf, uri = uri, &requestsDone] { changeUntil(*leaf, uri, requestsDone); });
        }
        std::vector<std::thread> requesters;
        for (int r = 0; r < kRequestThreads; ++r) {
            requesters.emplace_back([this, r] { requestRounds(r); });
        }
        for (std::thread& thread : requesters) thread.join();
        requestsDone = true;
        for (std::thread& thread : changers) thread.join();
    }

    // The uri that churn observer `slot` of a request thread subscribes to in `round`.
    static const std::string& churnUri(int round, int slot) {
        return kChurnUris[static_cast<std::size_t>(round + 2 * slot) % kChurnUris.size()];
    }

    // The ids that the node at `leaf` holds for this engine's notifier manager.
    std::vector<unsigned int> idsAt(const Value& leaf) const {
        const SubscriberManager* manager = leaf.subscriberManager();
        if (manager == nullptr || manager->subscribers().empty()) return {};
        return manager->subscribers().front().ids();
    }

    // The id of each subscription that the notifier manager holds, by uri.
    std::map<std::string, unsigned int> subscriptionIds() const {
        std::map<std::string, unsigned int> ids;
        for (const Notifier& notifier : engine.notifierManager()->notifiers()) {
            ids[notifier.uri()] = notifier.id();
        }
        return ids;
    }

    // Observers first: they must outlive the engine, whose thread calls them.
    test::WaitingObserver witness;
    test::WaitingObserver churn[kRequestThreads][2];
    StaticAtomicValue<int> a{0, READ + UPDATE};
    StaticAtomicValue<int> b{0, READ + UPDATE};
    StaticAtomicValue<int> solo{0, READ + UPDATE};
    StaticAtomicValue<int> shared{0, READ + UPDATE};
    Structure group{
        {new Entry("a", a), new Entry("b", b)}, READ + UPDATE + AllowedMethods::B, true};
    Structure root{
        {new Entry("group", group), new Entry("solo", solo), new Entry("shared", shared)},
        READ + UPDATE + AllowedMethods::B,
        false};
    DataModel model;
    DataModelEngine engine;
    std::mutex requestLock;  // the application's serialisation of engine requests
    Failures failures[kRequestThreads];

  private:
    // Changes `leaf` at `uri` as the application would, from its own thread, until the requests
    // are done and at least kLeastChanges changes were made.
    static void changeUntil(StaticAtomicValue<int>& leaf, const std::string& uri,
                            const std::atomic<bool>& requestsDone) {
        Context ctx(test::testLexicon(), UPDATE, uri, Arguments(), false);
        for (int value = 1; value <= kLeastChanges || !requestsDone; ++value) {
            leaf.setValue(ctx, value);
            std::this_thread::yield();
        }
    }

    // kRounds times: subscribes both churn observers of thread `r` (alternating the interval
    // and the first-notification option), updates "/shared" and unsubscribes them again; each
    // request under the request lock. Every kWaitingRound rounds it first waits, without the
    // lock, for the first notification of slot 0, so that deliveries to churn observers are
    // certain to happen during the storm.
    void requestRounds(int r) {
        for (int round = 0; round < kRounds; ++round) {
            const Arguments arguments{{"round", std::to_string(round)}};
            const auto option = round % 2 == 0 ? ObserverOption::IMMEDIATE_NOTIFICATION
                                               : ObserverOption::CHANGES_ONLY;
            for (int slot = 0; slot < 2; ++slot) {
                std::lock_guard<std::mutex> lock(requestLock);
                const int rc = engine.subscribe(churn[r][slot], churnUri(round, slot), arguments,
                                                milliseconds(round % 3), option);
                if (rc != 0) failures[r].push_back("subscribe " + std::to_string(rc));
            }
            if (round % kWaitingRound == 0 &&
                !churn[r][0].waitFor(churnUri(round, 0), arguments.pairs())) {
                failures[r].push_back("no first notification in round " + std::to_string(round));
            }
            updateShared(r, round);
            for (test::WaitingObserver& observer : churn[r]) {
                std::lock_guard<std::mutex> lock(requestLock);
                engine.unsubscribe(observer);
            }
        }
    }

    void updateShared(int r, int round) {
        cxxtools::SerializationInfo in;
        in.setValue(round);
        cxxtools::SerializationInfo out;
        std::lock_guard<std::mutex> lock(requestLock);
        const int rc = engine.execute(UPDATE, "/shared", Arguments(), in, out);
        if (rc != 0) failures[r].push_back("update " + std::to_string(rc));
    }
};

TEST_F(NotificationStressTest, EveryRequestSucceedsWhileValuesChange) {
    subscribeWitness();
    runStorm();
    for (const Failures& failed : failures) EXPECT_EQ(failed, Failures());
}

TEST_F(NotificationStressTest, OnlyThePermanentSubscriptionsRemainAfterTheStorm) {
    subscribeWitness();
    const std::map<std::string, unsigned int> before = subscriptionIds();
    runStorm();
    EXPECT_EQ(subscriptionIds(), before);
    const unsigned int groupId = before.at("/group");
    EXPECT_EQ(idsAt(a), std::vector<unsigned int>{groupId});
    EXPECT_EQ(idsAt(b), std::vector<unsigned int>{groupId});
    EXPECT_EQ(idsAt(shared), std::vector<unsigned int>{before.at("/shared")});
    EXPECT_EQ(idsAt(solo), std::vector<unsigned int>());
}

TEST_F(NotificationStressTest, TheFirstNotificationsWaitedForWereDelivered) {
    runStorm();
    for (auto& observers : churn) {
        for (int round = 0; round < kRounds; round += kWaitingRound) {
            EXPECT_TRUE(
                observers[0].waitFor(churnUri(round, 0), {{"round", std::to_string(round)}}))
                << "round " << round;
        }
    }
}

TEST_F(NotificationStressTest, EveryNotificationCarriesTheUriAndArgumentsOfItsSubscription) {
    runStorm();
    for (int r = 0; r < kRequestThreads; ++r) {
        for (int slot = 0; slot < 2; ++slot) {
            for (const auto& notification : churn[r][slot].notifications()) {
                ASSERT_EQ(notification.arguments.size(), 1u);
                ASSERT_EQ(notification.arguments[0].first, "round");
                const int round = std::stoi(notification.arguments[0].second);
                EXPECT_EQ(notification.uri, churnUri(round, slot)) << "round " << round;
            }
        }
    }
}

TEST_F(NotificationStressTest, ThePermanentObserverHearsOfChangesMadeDuringTheStorm) {
    subscribeWitness();
    runStorm();
    EXPECT_TRUE(witness.waitFor("/group"));
    EXPECT_TRUE(witness.waitFor("/shared"));
    for (const auto& notification : witness.notifications()) {
        EXPECT_TRUE(notification.uri == "/group" || notification.uri == "/shared")
            << notification.uri;
    }
}

TEST_F(NotificationStressTest, UnsubscribedObserversHearNothingOnceTheStormIsOver) {
    runStorm();
    std::vector<std::size_t> heard;
    for (const auto& observers : churn) {
        for (const test::WaitingObserver& observer : observers) heard.push_back(observer.count());
    }
    // A later subscription whose notification is due after any churn subscription's would be:
    // once it is delivered, a churn subscription left behind would have been delivered too.
    test::WaitingObserver latecomer;
    for (const char* uri : {"/group", "/solo", "/shared"}) {
        ASSERT_EQ(engine.subscribe(latecomer, uri, Arguments(), milliseconds(5),
                                   ObserverOption::CHANGES_ONLY),
                  0);
    }
    Context ctx(test::testLexicon(), UPDATE, "/", Arguments(), false);
    for (StaticAtomicValue<int>* leaf : {&a, &solo, &shared}) leaf->setValue(ctx, -1);
    for (const char* uri : {"/group", "/solo", "/shared"}) EXPECT_TRUE(latecomer.waitFor(uri));
    std::vector<std::size_t> heardAfter;
    for (const auto& observers : churn) {
        for (const test::WaitingObserver& observer : observers)
            heardAfter.push_back(observer.count());
    }
    EXPECT_EQ(heardAfter, heard);
    engine.unsubscribe(latecomer);
}

}  // namespace
}  // namespace dme
