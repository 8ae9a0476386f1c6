#pragma once

#include <chrono>
#include <mutex>
#include <vector>

#include "dme/context.h"

namespace dme {

// A node that can be observed. Implemented by every Value.
class ISubscribable {
  public:
    // What a node tells about its changes.
    class IObserver {
      public:
        virtual ~IObserver() = default;
        virtual void onChange(const std::chrono::steady_clock::time_point& when) = 0;
    };

    virtual ~ISubscribable() = default;
    // Attaches `observer`; returns a result code.
    virtual int subscribe(Context& ctx, IObserver& observer) = 0;
    // Detaches `observer`; returns a result code.
    virtual int unsubscribe(Context& ctx, IObserver& observer) = 0;
};

// The receiver of the subscription ids concerned by a change (the notifier manager).
class IElementObserver {
  public:
    virtual ~IElementObserver() = default;
    virtual void onChange(const std::vector<unsigned int>& subscriptionIds,
                          const std::chrono::steady_clock::time_point& when) = 0;
};

// The ticket of one engine subscription, carried in the request context's customs while a
// SUBSCRIBE or UNSUBSCRIBE request runs. Dropping it does not unsubscribe. Copyable.
class Subscription : public Context::ICustom {
  public:
    Subscription(IElementObserver* observer, unsigned int id) : observer_(observer), id_(id) {}
    ~Subscription() override = default;
    IElementObserver* observer() const { return observer_; }
    unsigned int id() const { return id_; }

  private:
    IElementObserver* observer_;
    unsigned int id_;
};

// One receiver as seen from one node: the receiver and the ids of its subscriptions that cover
// the node, without duplicates, in order of registration. Copyable; not thread-safe.
class Subscriber {
  public:
    explicit Subscriber(const Subscription& subscription);
    // Appends `id` unless present; returns 0.
    int add(unsigned int id);
    // Removes `id`; returns 3 when it was not there, else 0.
    int remove(unsigned int id);
    bool empty() const { return ids_.empty(); }
    bool operator==(const IElementObserver& observer) const { return observer_ == &observer; }
    // Tells the receiver every id with the time of the change.
    void notifyObserver(const std::chrono::steady_clock::time_point& when);
    IElementObserver* observer() const { return observer_; }
    const std::vector<unsigned int>& ids() const { return ids_; }

  private:
    IElementObserver* observer_;
    std::vector<unsigned int> ids_;
};

// The per-node list of receivers, at most one per IElementObserver. Owned by its node and
// attached to it as the node's single observer while it has subscribers. `add` and `remove` run
// in requests, which the engine's caller serialises; `onChange` may run on any thread at the same
// time. A mutex guards the list and is held while a change is fanned out (lock order: this
// mutex, then the receiver's); it is never held while the node is called.
class SubscriberManager : public ISubscribable::IObserver {
  public:
    SubscriberManager() = default;
    SubscriberManager(const SubscriberManager&) = delete;
    SubscriberManager& operator=(const SubscriberManager&) = delete;

    // Records the context's Subscription ticket: a known receiver only gains the id; a new one
    // is added and this manager attached to `node`, and is dropped again when `node` refuses or
    // throws. Returns 0, or the node's refusal (8 for a node that cannot be observed).
    // Requires a Subscription among the context's customs (std::out_of_range otherwise).
    int add(ISubscribable& node, Context& ctx);
    // Forgets the ticket's id; releases `node` when its receiver has no id left. Returns 3 for
    // a receiver the node never saw, else 0. Requires a Subscription like `add`.
    int remove(ISubscribable& node, Context& ctx);
    // Fans a change of the node out to every receiver. May be called from any thread.
    void onChange(const std::chrono::steady_clock::time_point& when) override;
    // The receivers, read without the lock: only while no change is signalled.
    const std::vector<Subscriber>& subscribers() const { return subscribers_; }

  private:
    // Requires the mutex.
    std::vector<Subscriber>::iterator findSubscriber(const IElementObserver* observer);
    // Erases the receiver `observer`, taking the mutex.
    void erase(const IElementObserver* observer);

    std::mutex mutex_;
    std::vector<Subscriber> subscribers_;
};

}  // namespace dme
