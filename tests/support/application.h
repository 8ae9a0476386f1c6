#pragma once

#include <cxxtools/serializationinfo.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

#include "dme/arguments.h"
#include "dme/context.h"
#include "dme/exception.h"
#include "dme/notifier.h"

namespace dme {
namespace test {

// What an embedding application hands to an engine in the tests: an observer of notifications
// and an exception handler that writes error documents.

// Records every notification it receives (on the notifier thread) and lets the test thread
// wait for them.
class WaitingObserver : public IDataModelObserver {
  public:
    struct Notification {
        std::string uri;
        std::vector<Arguments::Pair> arguments;
    };

    // Long enough for any loaded machine; only a broken notification path waits this long.
    static constexpr std::chrono::seconds PATIENCE{20};

    void notify(const std::string& uri, const Arguments& arguments) override {
        std::lock_guard<std::mutex> lock(mutex_);
        notifications_.push_back({uri, arguments.pairs()});
        arrived_.notify_all();
    }

    // Waits until at least `count` notifications have arrived, at most PATIENCE; true when
    // they have.
    bool waitFor(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        return arrived_.wait_for(lock, PATIENCE,
                                 [this, count] { return notifications_.size() >= count; });
    }

    // Waits, at most PATIENCE, until a notification about `uri` with `arguments` has arrived;
    // true when one has.
    bool waitFor(const std::string& uri, const std::vector<Arguments::Pair>& arguments = {}) {
        std::unique_lock<std::mutex> lock(mutex_);
        return arrived_.wait_for(lock, PATIENCE, [&] { return hasLocked(uri, arguments); });
    }

    std::vector<Notification> notifications() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return notifications_;
    }

    std::size_t count() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return notifications_.size();
    }

  private:
    bool hasLocked(const std::string& uri, const std::vector<Arguments::Pair>& arguments) const {
        for (const Notification& notification : notifications_) {
            if (notification.uri == uri && notification.arguments == arguments) return true;
        }
        return false;
    }

    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<Notification> notifications_;
};

// The status that writeErrorDocument gives to a rejected input.
constexpr int REJECTED = 10;

// An exception handler: turns a dme::Exception into REJECTED and the error document
// {"error": message, "details": [detail1, detail2]}; declines (12) anything else.
inline int writeErrorDocument(std::exception& e, Context&, const cxxtools::SerializationInfo&,
                              cxxtools::SerializationInfo& out) {
    auto* error = dynamic_cast<Exception*>(&e);
    if (error == nullptr) return ExceptionHandlers::NOT_HANDLED;
    out.addMember("error").setValue(error->message);
    cxxtools::SerializationInfo& details = out.addMember("details");
    details.setCategory(cxxtools::SerializationInfo::Array);
    details.addMember().setValue(error->detail1);
    details.addMember().setValue(error->detail2);
    return REJECTED;
}

}  // namespace test
}  // namespace dme
