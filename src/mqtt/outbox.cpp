#include "outbox.h"

#include <algorithm>
#include <utility>

namespace dme {
namespace mqtt {

Outbox::Outbox(std::size_t maxEvents) : maxEvents_(std::max<std::size_t>(maxEvents, 1)) {}

void Outbox::pushAnswer(Message message) {
    message.event = false;
    messages_.push_back(std::move(message));
}

bool Outbox::pushEvent(Message message) {
    message.event = true;
    const auto sameTopic = std::find_if(messages_.begin(), messages_.end(), [&](const Message& m) {
        return m.event && m.topic == message.topic;
    });
    if (sameTopic != messages_.end()) {
        *sameTopic = std::move(message);
        return false;
    }
    bool dropped = false;
    if (events_ >= maxEvents_) {
        const auto oldest = std::find_if(messages_.begin(), messages_.end(),
                                         [](const Message& m) { return m.event; });
        messages_.erase(oldest);
        --events_;
        dropped = true;
    }
    messages_.push_back(std::move(message));
    ++events_;
    return dropped;
}

void Outbox::dropEvents() {
    messages_.erase(std::remove_if(messages_.begin(), messages_.end(),
                                   [](const Message& m) { return m.event; }),
                    messages_.end());
    events_ = 0;
}

std::optional<Message> Outbox::pop() {
    if (messages_.empty()) return std::nullopt;
    Message message = std::move(messages_.front());
    messages_.pop_front();
    if (message.event) --events_;
    return message;
}

}  // namespace mqtt
}  // namespace dme
