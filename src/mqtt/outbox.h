#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>

#include "mosquitto_link.h"

namespace dme {
namespace mqtt {

// One message to publish.
struct Message {
    std::string topic;
    std::string payload;
    UserProperties userProperties;
    std::string correlationData;
    bool retain = false;
    // An event (a state that a later one supersedes) rather than an answer.
    bool event = false;
};

// The device's messages waiting to be handed to the broker connection, oldest first. Answers
// are never dropped. An event replaces the waiting event of its topic in place (only the
// latest state matters); when maxEvents other events wait, the oldest of them is dropped to
// make room. Not thread-safe: the owner locks.
class Outbox {
  public:
    explicit Outbox(std::size_t maxEvents);

    void pushAnswer(Message message);
    // Returns whether an older event was dropped to make room.
    bool pushEvent(Message message);
    // Forgets every waiting event (they are published again from the current state).
    void dropEvents();
    // The oldest waiting message, taken out; nothing when none waits.
    std::optional<Message> pop();

    std::size_t size() const { return messages_.size(); }
    std::size_t events() const { return events_; }

  private:
    std::size_t maxEvents_;
    std::size_t events_ = 0;
    std::deque<Message> messages_;
};

}  // namespace mqtt
}  // namespace dme
