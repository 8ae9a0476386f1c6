#include "dme/subscription.h"

#include <algorithm>
#include <memory>

#include "dme/result.h"

namespace dme {
namespace {

// The request's subscription ticket, held for the whole operation: the node called meanwhile
// may change the context's customs.
std::shared_ptr<Subscription> ticketOf(Context& ctx) {
    return ctx.customs().get<Subscription>();
}

}  // namespace

Subscriber::Subscriber(const Subscription& subscription)
    : observer_(subscription.observer()), ids_{subscription.id()} {}

int Subscriber::add(unsigned int id) {
    if (std::find(ids_.begin(), ids_.end(), id) == ids_.end()) ids_.push_back(id);
    return result::DONE;
}

int Subscriber::remove(unsigned int id) {
    auto position = std::find(ids_.begin(), ids_.end(), id);
    if (position == ids_.end()) return result::NOT_FOUND;
    ids_.erase(position);
    return result::DONE;
}

void Subscriber::notifyObserver(const std::chrono::steady_clock::time_point& when) {
    observer_->onChange(ids_, when);
}

std::vector<Subscriber>::iterator SubscriberManager::findSubscriber(
    const IElementObserver* observer) {
    return std::find_if(subscribers_.begin(), subscribers_.end(),
                        [observer](const Subscriber& s) { return s.observer() == observer; });
}

int SubscriberManager::add(ISubscribable& node, Context& ctx) {
    const std::shared_ptr<Subscription> ticket = ticketOf(ctx);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto subscriber = findSubscriber(ticket->observer());
        if (subscriber != subscribers_.end()) return subscriber->add(ticket->id());
        subscribers_.emplace_back(*ticket);
    }
    int rc;
    try {
        rc = node.subscribe(ctx, *this);
    } catch (...) {
        erase(ticket->observer());
        throw;
    }
    if (rc != result::DONE) erase(ticket->observer());
    return rc;
}

int SubscriberManager::remove(ISubscribable& node, Context& ctx) {
    const std::shared_ptr<Subscription> ticket = ticketOf(ctx);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto subscriber = findSubscriber(ticket->observer());
        if (subscriber == subscribers_.end()) return result::NOT_FOUND;
        subscriber->remove(ticket->id());
        if (!subscriber->empty()) return result::DONE;
    }
    node.unsubscribe(ctx, *this);
    erase(ticket->observer());
    return result::DONE;
}

void SubscriberManager::onChange(const std::chrono::steady_clock::time_point& when) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (Subscriber& subscriber : subscribers_) subscriber.notifyObserver(when);
}

void SubscriberManager::erase(const IElementObserver* observer) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto subscriber = findSubscriber(observer);
    if (subscriber != subscribers_.end()) subscribers_.erase(subscriber);
}

}  // namespace dme
