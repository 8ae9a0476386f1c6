#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

#include "dme/mqtt/client.h"

namespace dme {
namespace mqtt {
namespace test {

// The events a watch has received, safe to read while they arrive.
class EventLog {
  public:
    // The callback for Client::watch.
    std::function<void(const Event&)> recorder() {
        return [this](const Event& event) {
            std::lock_guard<std::mutex> lock(mutex_);
            events_.push_back(event);
            changed_.notify_all();
        };
    }

    // Waits at most `patience` for an event that satisfies `wanted`; returns whether one came.
    bool waitFor(const std::function<bool(const Event&)>& wanted,
                 std::chrono::milliseconds patience) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, patience, [&] {
            for (const Event& event : events_) {
                if (wanted(event)) return true;
            }
            return false;
        });
    }

    bool waitForBody(const std::string& body, std::chrono::milliseconds patience) {
        return waitFor([&](const Event& event) { return event.body == body; }, patience);
    }

    std::vector<Event> events() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Event> events_;
};

}  // namespace test
}  // namespace mqtt
}  // namespace dme
