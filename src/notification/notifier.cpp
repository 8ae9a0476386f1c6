#include "dme/notifier.h"

#include <algorithm>
#include <utility>

namespace dme {
namespace {

using Clock = std::chrono::steady_clock;

// Gives the subscription ids; shared by every manager so that ids stay unique in the process.
std::atomic<unsigned int> nextId{0};

// The notifier thread sleeps at most this long, even with nothing pending.
constexpr std::chrono::hours longestSleep{1};

// `when` + `interval`, or time_point::max() when the sum lies beyond the clock's range.
Clock::time_point saturatedSum(const Clock::time_point& when, std::chrono::milliseconds interval) {
    const auto room =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - when);
    if (interval >= room) return Clock::time_point::max();
    return when + interval;
}

// Orders notifiers by id, for the binary searches over the id-sorted list.
struct ById {
    bool operator()(const Notifier& notifier, unsigned int id) const { return notifier.id() < id; }
    bool operator()(unsigned int id, const Notifier& notifier) const { return id < notifier.id(); }
};

}  // namespace

Notifier::Notifier(unsigned int id, std::reference_wrapper<IDataModelObserver> observer,
                   std::string uri, Arguments arguments, std::chrono::milliseconds minInterval)
    : id_(id),
      observer_(observer),
      uri_(std::move(uri)),
      arguments_(std::move(arguments)),
      minInterval_(minInterval) {}

Notifier::Notifier(const Notifier& other)
    : Notifier(other.id_, other.observer_, other.uri_, other.arguments_, other.minInterval_) {
    deadline_ = other.deadline();
}

Notifier::Notifier(Notifier&& other) noexcept
    : Notifier(other.id_, other.observer_, std::move(other.uri_), std::move(other.arguments_),
               other.minInterval_) {
    deadline_ = other.deadline();
}

Notifier& Notifier::operator=(const Notifier& other) {
    if (this != &other) *this = Notifier(other);
    return *this;
}

Notifier& Notifier::operator=(Notifier&& other) noexcept {
    if (this == &other) return *this;
    const Clock::time_point deadline = other.deadline();
    id_ = other.id_;
    observer_ = other.observer_;
    uri_ = std::move(other.uri_);
    arguments_ = std::move(other.arguments_);
    minInterval_ = other.minInterval_;
    std::lock_guard<std::mutex> lock(mutex_);
    deadline_ = deadline;
    return *this;
}

Clock::time_point Notifier::deadline() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return deadline_;
}

bool Notifier::startGracePeriod(const Clock::time_point& when) {
    std::lock_guard<std::mutex> lock(mutex_);
    const Clock::time_point candidate = saturatedSum(when, minInterval_);
    if (!(candidate < deadline_)) return false;
    deadline_ = candidate;
    return true;
}

bool Notifier::setExpired() {
    std::lock_guard<std::mutex> lock(mutex_);
    const Clock::time_point now = Clock::now();
    if (!(now < deadline_)) return false;
    deadline_ = now;
    return true;
}

void Notifier::sendObserverNotification() {
    observer_.get().notify(uri_, arguments_);
}

Clock::time_point Notifier::backgroundTask() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (Clock::now() >= deadline_) {
        deadline_ = Clock::time_point::max();
        lock.unlock();
        sendObserverNotification();
        lock.lock();
    }
    return deadline_;
}

NotifierManager::NotifierManager() {
    start();
}

NotifierManager::~NotifierManager() {
    stop();
}

Subscription NotifierManager::add(IDataModelObserver& observer, const std::string& uri,
                                  const Arguments& arguments,
                                  const std::chrono::milliseconds& minInterval) {
    std::lock_guard<std::mutex> lock(mutex_);
    // Taken under this manager's lock, so the ids of one manager are appended in order.
    const unsigned int id = nextId++;
    notifiers_.emplace_back(id, observer, uri, arguments, minInterval);
    return Subscription(this, id);
}

void NotifierManager::remove(const Subscription& subscription) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto range =
        std::equal_range(notifiers_.begin(), notifiers_.end(), subscription.id(), ById());
    notifiers_.erase(range.first, range.second);
}

void NotifierManager::removeAll(IDataModelObserver& observer) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto observedBy = [&observer](const Notifier& notifier) {
        return &notifier.observer() == &observer;
    };
    notifiers_.erase(std::remove_if(notifiers_.begin(), notifiers_.end(), observedBy),
                     notifiers_.end());
}

void NotifierManager::onChange(const std::vector<unsigned int>& ids,
                               const Clock::time_point& when) {
    notify(ids, when);
}

void NotifierManager::notify(const std::vector<unsigned int>& ids, const Clock::time_point& when) {
    bool deadlineMoved = false;
    {
        std::unique_lock<std::mutex> lock(mutex_);
        for (unsigned int id : ids) {
            // A change may still be on its way from the tree while its subscription is removed.
            Notifier* notifier = getNotifier(id, lock);
            if (notifier != nullptr && notifier->startGracePeriod(when)) deadlineMoved = true;
        }
    }
    if (deadlineMoved) wakeUpLoop();
}

void NotifierManager::notifyNow(unsigned int id) {
    {
        std::unique_lock<std::mutex> lock(mutex_);
        Notifier* notifier = getNotifier(id, lock);
        if (notifier != nullptr) notifier->setExpired();
    }
    wakeUpLoop();
}

Notifier* NotifierManager::getNotifier(unsigned int id,
                                       [[maybe_unused]] std::unique_lock<std::mutex>& lock) {
    const auto position = std::lower_bound(notifiers_.begin(), notifiers_.end(), id, ById());
    if (position == notifiers_.end() || position->id() != id) return nullptr;
    return &*position;
}

void NotifierManager::wakeUpLoop() {
    std::lock_guard<std::mutex> lock(mutex_);
    wakeUp_.notify_all();
}

std::vector<Notifier> NotifierManager::notifiers() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return notifiers_;
}

unsigned int NotifierManager::subscriptionNb() const {
    return static_cast<unsigned int>(notifiers_.size());
}

void NotifierManager::start() {
    bool stopped = false;
    if (running_.compare_exchange_strong(stopped, true)) {
        thread_.start([this](void*) { loop(); }, nullptr);
    }
}

void NotifierManager::stop() {
    bool running = true;
    if (!running_.compare_exchange_strong(running, false)) return;
    wakeUpLoop();
    thread_.wait(quill::common::Thread::INFINITE);
}

void NotifierManager::loop() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (running_) {
        Clock::time_point next = Clock::time_point::max();
        for (Notifier& notifier : notifiers_) next = std::min(next, notifier.backgroundTask());
        wakeUp_.wait_until(lock, std::min(next, Clock::now() + longestSleep));
    }
}

}  // namespace dme
