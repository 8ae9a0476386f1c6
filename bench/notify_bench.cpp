// Change cases: notifyChange on a node without and with a subscription, and the delivery of a
// burst of changes to 10,000 subscriptions.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dme/notifier.h"
#include "support.h"

namespace dme {
namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

// Counts notifications and lets the benchmark thread wait for a number of them. The notifying
// thread signals only once the awaited number is reached.
class CountingObserver : public IDataModelObserver {
  public:
    void notify(const std::string& uri, const Arguments&) override {
        std::lock_guard<std::mutex> lock(mutex_);
        benchmark::DoNotOptimize(uri.data());
        if (++count_ == awaited_) arrived_.notify_one();
    }

    // Makes the observer signal when `count` notifications have arrived in total.
    void expect(std::size_t count) {
        std::lock_guard<std::mutex> lock(mutex_);
        awaited_ = count;
    }

    // Waits until `count` notifications have arrived in total, at most 20 s; true when they
    // have.
    bool waitFor(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        awaited_ = count;
        return arrived_.wait_for(lock, std::chrono::seconds(20),
                                 [this, count] { return count_ >= count; });
    }

    std::size_t count() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return count_;
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::size_t count_ = 0;
    std::size_t awaited_ = 0;
};

// What a team without the library would write to deliver change notifications: a mutex-guarded
// deadline per subscription, the list of pending ones, and a thread that delivers each when
// its interval has passed. Changes within an interval give one notification.
class HandWrittenNotifier {
  public:
    HandWrittenNotifier(unsigned int subscriptions, std::chrono::milliseconds interval,
                        std::function<void(unsigned int)> deliver)
        : interval_(interval),
          deliver_(std::move(deliver)),
          deadlines_(subscriptions, Clock::time_point::max()),
          thread_([this] { loop(); }) {}

    ~HandWrittenNotifier() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopped_ = true;
        }
        wakeUp_.notify_one();
        thread_.join();
    }

    // Schedules the notification of subscription `id` unless one is pending already.
    void change(unsigned int id) {
        const Clock::time_point now = Clock::now();
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (deadlines_[id] != Clock::time_point::max()) return;
            deadlines_[id] = now + interval_;
            pending_.push_back(id);
        }
        wakeUp_.notify_one();
    }

  private:
    void loop() {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!stopped_) {
            const Clock::time_point next = deliverDue();
            if (next == Clock::time_point::max()) {
                wakeUp_.wait(lock);
            } else {
                wakeUp_.wait_until(lock, next);
            }
        }
    }

    // Requires the lock. Delivers the due notifications; returns the next deadline.
    Clock::time_point deliverDue() {
        const Clock::time_point now = Clock::now();
        Clock::time_point next = Clock::time_point::max();
        std::size_t kept = 0;
        for (unsigned int id : pending_) {
            if (deadlines_[id] <= now) {
                deadlines_[id] = Clock::time_point::max();
                deliver_(id);
            } else {
                next = std::min(next, deadlines_[id]);
                pending_[kept++] = id;
            }
        }
        pending_.resize(kept);
        return next;
    }

    const std::chrono::milliseconds interval_;
    const std::function<void(unsigned int)> deliver_;
    std::mutex mutex_;
    std::condition_variable wakeUp_;
    std::vector<Clock::time_point> deadlines_;
    std::vector<unsigned int> pending_;
    bool stopped_ = false;
    std::thread thread_;
};

// The minimal interval of the single subscription: changes faster than this are merged.
constexpr std::chrono::milliseconds ONE_SUBSCRIPTION_INTERVAL{100};

// --- notifyChange on /quiet (never subscribed) and on /watched (one subscription).

struct TwoLeaves {
    std::unique_ptr<JsonDataModelEngine> engine;
    CountingObserver observer;
    const Value* quiet;
    const Value* watched;
    int subscribed;

    TwoLeaves() {
        Entry* quietEntry = stringLeaf("quiet", "q");
        Entry* watchedEntry = stringLeaf("watched", "w");
        quiet = quietEntry->getValue();
        watched = watchedEntry->getValue();
        engine = makeEngine(structure({quietEntry, watchedEntry}));
        subscribed = engine->subscribe(observer, "/watched", Arguments(), ONE_SUBSCRIPTION_INTERVAL,
                                       ObserverOption::CHANGES_ONLY);
    }
};

TwoLeaves& twoLeaves() {
    static TwoLeaves tree;
    return tree;
}

void notifyWithoutObserver(benchmark::State& state) {
    const Value& node = *twoLeaves().quiet;
    for (auto _ : state) benchmark::DoNotOptimize(node.notifyChange());
}

void notifyOneSubscriptionEngine(benchmark::State& state) {
    TwoLeaves& tree = twoLeaves();
    if (!requireDone(state, tree.subscribed)) return;
    const std::size_t before = tree.observer.count();
    tree.watched->notifyChange();
    if (!tree.observer.waitFor(before + 1)) {
        state.SkipWithError("the subscription was not notified");
        return;
    }
    for (auto _ : state) benchmark::DoNotOptimize(tree.watched->notifyChange());
}

void notifyOneSubscriptionHandWritten(benchmark::State& state) {
    CountingObserver observer;
    const std::string uri = "/watched";
    const Arguments arguments;
    HandWrittenNotifier notifier(1, ONE_SUBSCRIPTION_INTERVAL,
                                 [&](unsigned int) { observer.notify(uri, arguments); });
    notifier.change(0);
    if (!observer.waitFor(1)) {
        state.SkipWithError("the subscription was not notified");
        return;
    }
    for (auto _ : state) notifier.change(0);
}

// --- 10,000 subscriptions, one on each leaf of 100 structures s00..s99 of 100 leaves l00..l99;
// a burst of changes on the 1,000 leaves of s00..s09, timed until every notification has been
// delivered. The subscriptions have no minimal interval.

constexpr unsigned int GROUPS = 100;
constexpr unsigned int LEAVES = 100;
constexpr unsigned int CHANGED = 1000;

std::string leafUri(unsigned int group, unsigned int leaf) {
    return "/" + numbered("s", group, 2) + "/" + numbered("l", leaf, 2);
}

struct SubscribedTree {
    std::unique_ptr<JsonDataModelEngine> engine;
    CountingObserver observer;
    std::vector<const Value*> leaves;
    int subscribed = 0;
    double subscribeMilliseconds = 0;

    SubscribedTree() {
        std::vector<Element*> groups;
        for (unsigned int g = 0; g < GROUPS; ++g) {
            std::vector<Element*> members;
            for (unsigned int l = 0; l < LEAVES; ++l) {
                Entry* entry = stringLeaf(numbered("l", l, 2), "v");
                leaves.push_back(entry->getValue());
                members.push_back(entry);
            }
            groups.push_back(new Entry(numbered("s", g, 2), structure(members)));
        }
        engine = makeEngine(structure(groups));
        const Clock::time_point start = Clock::now();
        for (unsigned int g = 0; g < GROUPS && subscribed == 0; ++g) {
            for (unsigned int l = 0; l < LEAVES && subscribed == 0; ++l) {
                subscribed =
                    engine->subscribe(observer, leafUri(g, l), Arguments(),
                                      std::chrono::milliseconds(0), ObserverOption::CHANGES_ONLY);
            }
        }
        subscribeMilliseconds =
            std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    }
};

// Times each burst of `change(i)` for i < CHANGED until `observer` has counted every
// notification, then checks that no extra ones arrive.
template <class Change>
void measureBurst(benchmark::State& state, CountingObserver& observer, Change change) {
    std::size_t expected = observer.count();
    for (auto _ : state) {
        expected += CHANGED;
        observer.expect(expected);
        const Clock::time_point start = Clock::now();
        for (unsigned int i = 0; i < CHANGED; ++i) change(i);
        if (!observer.waitFor(expected)) {
            state.SkipWithError("not every notification was delivered");
            return;
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (observer.count() != expected) state.SkipWithError("more notifications than changes");
}

void burstEngine(benchmark::State& state) {
    static SubscribedTree tree;
    if (!requireDone(state, tree.subscribed)) return;
    state.counters["subscribe_10k_ms"] = tree.subscribeMilliseconds;
    measureBurst(state, tree.observer, [&](unsigned int i) { tree.leaves[i]->notifyChange(); });
}

void burstHandWritten(benchmark::State& state) {
    CountingObserver observer;
    std::vector<std::string> uris;
    for (unsigned int g = 0; g < GROUPS; ++g) {
        for (unsigned int l = 0; l < LEAVES; ++l) uris.push_back(leafUri(g, l));
    }
    const Arguments arguments;
    HandWrittenNotifier notifier(GROUPS * LEAVES, std::chrono::milliseconds(0),
                                 [&](unsigned int id) { observer.notify(uris[id], arguments); });
    measureBurst(state, observer, [&](unsigned int i) { notifier.change(i); });
}

const int quietCase = declareCase({"notify_no_observer", "notifyChange on a leaf without observers",
                                   "", "", 0.0, 50.0, "< 50 ns"});
const int watchedCase =
    declareCase({"notify_one_subscription", "notifyChange on a leaf with one subscription (100 ms)",
                 "", "", 0.0, 1000.0, "< 1 us"});
const int burstCase = declareCase({"notify_burst_1k_of_10k",
                                   "10,000 subscriptions, 1,000 leaves changed: all delivered", "",
                                   "", 0.0, 0.0, ""});

}  // namespace

BENCHMARK(notifyWithoutObserver)->Name("notify_no_observer/engine");
BENCHMARK(notifyOneSubscriptionEngine)->Name("notify_one_subscription/engine");
BENCHMARK(notifyOneSubscriptionHandWritten)->Name("notify_one_subscription/handwritten");
BENCHMARK(burstEngine)
    ->Name("notify_burst_1k_of_10k/engine")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(burstHandWritten)
    ->Name("notify_burst_1k_of_10k/handwritten")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace bench
}  // namespace dme
