#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "dme/arguments.h"
#include "dme/subscription.h"
#include "quill/common/thread.h"

namespace dme {

// The application's receiver of change notifications. `notify` is called on the notifier
// thread with the manager's lock held: it must not throw and must not call back into the
// NotifierManager that calls it.
class IDataModelObserver {
  public:
    virtual ~IDataModelObserver() = default;
    // The resource at `uri`, read with `arguments`, has changed since the last notification.
    virtual void notify(const std::string& uri, const Arguments& arguments) = 0;
};

// One subscription: who wants to hear, about which uri, with which query arguments, and the
// grace period between a change and its notification. It is idle (deadline() is
// time_point::max()) or pending (a finite deadline). Its deadline is guarded by its own mutex;
// the other fields change only by assignment. Copyable and movable (the mutex is never copied;
// the deadline is read under the source's lock), so that it can live in a std::vector.
class Notifier {
  public:
    using Clock = std::chrono::steady_clock;

    // An idle subscription.
    Notifier(unsigned int id, std::reference_wrapper<IDataModelObserver> observer, std::string uri,
             Arguments arguments, std::chrono::milliseconds minInterval);
    Notifier(const Notifier& other);
    Notifier(Notifier&& other) noexcept;
    Notifier& operator=(const Notifier& other);
    Notifier& operator=(Notifier&& other) noexcept;

    unsigned int id() const { return id_; }
    IDataModelObserver& observer() const { return observer_.get(); }
    const std::string& uri() const { return uri_; }
    const Arguments& arguments() const { return arguments_; }
    std::chrono::milliseconds minInterval() const { return minInterval_; }
    // When the next notification is due; time_point::max() when none is pending.
    Clock::time_point deadline() const;

    // Makes the notification due at `when` + minInterval unless it is due earlier already (an
    // earlier deadline is never pushed back). Returns true when the deadline moved. An interval
    // reaching past the clock's range leaves the subscription as it is.
    bool startGracePeriod(const Clock::time_point& when);
    // Makes a pending or idle notification due now. Returns true when the deadline moved.
    bool setExpired();
    // Tells the observer about the subscribed uri and arguments.
    void sendObserverNotification();
    // Sends the notification when it is due (and makes the subscription idle before calling the
    // observer, with this notifier's lock released). Returns the deadline afterwards.
    Clock::time_point backgroundTask();

  private:
    unsigned int id_;
    std::reference_wrapper<IDataModelObserver> observer_;
    std::string uri_;
    Arguments arguments_;
    std::chrono::milliseconds minInterval_;
    mutable std::mutex mutex_;
    Clock::time_point deadline_ = Clock::time_point::max();
};

// Owns the engine's subscriptions and a background thread that delivers their notifications.
// A change (`onChange`/`notify`) opens a grace period of the subscription's minimal interval;
// the thread notifies the observer when it ends, so a burst of changes gives one notification.
// Ids come from one counter shared by every manager of the process: they keep increasing and
// are never reused.
// Thread-safe: changes may be signalled from any thread while requests add and remove
// subscriptions; one mutex guards the subscription list (lock order: this mutex, then a
// notifier's). Observers are called on the notifier thread with that mutex held, in id order.
// Neither copyable nor movable.
class NotifierManager : public IElementObserver {
  public:
    using Clock = std::chrono::steady_clock;

    // Starts the notifier thread.
    NotifierManager();
    // Stops and joins the notifier thread; pending notifications are dropped.
    ~NotifierManager() override;
    NotifierManager(const NotifierManager&) = delete;
    NotifierManager& operator=(const NotifierManager&) = delete;

    // Registers a subscription with the next id of the process. Returns its ticket: this
    // manager and the new id. `observer` is not owned and must outlive the subscription.
    Subscription add(IDataModelObserver& observer, const std::string& uri,
                     const Arguments& arguments, const std::chrono::milliseconds& minInterval);
    // Erases the subscription of `subscription.id()`; nothing when there is none.
    void remove(const Subscription& subscription);
    // Erases every subscription of `observer`.
    void removeAll(IDataModelObserver& observer);
    // Same as notify.
    void onChange(const std::vector<unsigned int>& ids, const Clock::time_point& when) override;
    // Starts the grace period of every subscription in `ids` for a change at `when`, and wakes
    // the thread when a deadline moved. Ids that are not registered (a change that raced with
    // a removal) are skipped. Does not allocate.
    void notify(const std::vector<unsigned int>& ids, const Clock::time_point& when);
    // Makes subscription `id` due at once (nothing when it is not registered) and wakes the
    // thread.
    void notifyNow(unsigned int id);
    // Wakes the notifier thread for a pass over all subscriptions.
    void wakeUpLoop();
    // A copy of the subscriptions, in id order.
    std::vector<Notifier> notifiers() const;
    // The number of subscriptions, read without the lock: a snapshot that is exact only when
    // no add or remove runs at the same time. Safe to call from inside an observer.
    unsigned int subscriptionNb() const;

  private:
    // Requires: `lock` holds this manager's mutex. Returns the subscription of `id`, or null
    // when `id` is not registered (any more).
    Notifier* getNotifier(unsigned int id, std::unique_lock<std::mutex>& lock);
    void start();
    void stop();
    // The notifier thread: sends due notifications and sleeps until the next deadline, at
    // most an hour, or until woken.
    void loop();

    std::vector<Notifier> notifiers_;
    quill::common::Thread thread_;
    std::atomic<bool> running_{false};
    mutable std::mutex mutex_;
    std::condition_variable wakeUp_;
};

}  // namespace dme
