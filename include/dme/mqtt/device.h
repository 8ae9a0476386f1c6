#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "dme/arguments.h"
#include "dme/engine.h"
#include "dme/http/server.h"
#include "dme/session.h"

namespace dme {
namespace mqtt {

// Who sent a request, as the device hands it to its session mapper. A plain value type.
struct RequestOrigin {
    // The request's "user" user property; empty when it has none.
    std::string user;
    // The method segment of the request topic ("read", "update", ...) and the uri after it.
    std::string method;
    std::string uri;
    // Where the answer goes.
    std::string responseTopic;
};

// Decides the session a request runs as, or refuses it with nothing: a refused request that
// named no user is answered 401, one that named a user 403. Called on the device's request
// thread, one call at a time, never under the engine lock.
using SessionMapper = std::function<std::optional<SessionInfo>(const RequestOrigin& origin)>;

// How a Device reaches its broker and answers. A plain value type: copy it, change what you
// need, hand it to the Device's constructor.
struct DeviceOptions {
    // The broker.
    std::string host = "127.0.0.1";
    unsigned short port = 1883;
    // The broker's credentials for this device; none when username is empty.
    std::string username;
    std::string password;
    // The device's id: the topic level after the prefix. Required; one topic level (no '/',
    // '+', '#' or NUL).
    std::string deviceId;
    // The first topic level(s) of every topic of the device.
    std::string prefix = "dme";
    // The MQTT client id; empty: "<prefix>-<deviceId>" with '/' replaced by '-'.
    std::string clientId;
    // Maps a request's origin to a session; without one every request is refused (401).
    SessionMapper sessionMapper;
    // Result codes to the statuses of the answers' "status" property.
    http::StatusTable statusTable = http::StatusTable::defaults();
    // The MQTT keep-alive.
    std::chrono::seconds keepAlive{30};
    // After the broker is lost, the first reconnection is tried after reconnectDelay, each
    // further one after twice the time before it, at most reconnectDelayMax.
    std::chrono::seconds reconnectDelay{1};
    std::chrono::seconds reconnectDelayMax{30};
    // Events waiting to be handed to the broker connection at most; when one more comes, the
    // oldest waiting event is dropped. Answers are never dropped (see docs/mqtt.md).
    std::size_t maxQueuedEvents = 256;
    // Messages handed to the broker connection and not yet acknowledged, at most; the rest wait
    // in the device's own queue.
    std::size_t maxInFlight = 32;
    // Requests received and not yet served, at most; one more is answered 503 at once.
    std::size_t maxQueuedRequests = 256;
    // Request payloads longer than this are answered 413.
    std::size_t maxPayloadBytes = std::size_t{1024} * 1024;
    // Whether an update that fails changes nothing (DataModelEngine::setAllOrNothingUpdates,
    // turned on by the constructor); when false the engine is left as the application set it.
    bool allOrNothingUpdates = true;
    // The lock around every engine call of the device; none: the device's own. Give the lock of
    // another binding (http::Server::engineMutex()) when both serve the same engine.
    std::mutex* engineMutex = nullptr;
};

// What a device has done since it was constructed. A plain value type.
struct DeviceStatistics {
    std::size_t connections = 0;  // connections to the broker made
    std::size_t requests = 0;     // requests received
    std::size_t answers = 0;      // answers handed to the broker connection
    // Requests without a response topic, or with one that no message may have (a wildcard in
    // it): unanswered.
    std::size_t unanswerable = 0;
    std::size_t eventsPublished = 0;  // events handed to the broker connection
    std::size_t eventsDropped = 0;    // events dropped from a full queue
};

// Serves one JsonDataModelEngine through an MQTT 5 broker, under the topics
//   <prefix>/<device>/req/<method>/<uri>    requests (method read, update, create, delete,
//                                           schema); user properties are query arguments
//   <prefix>/<device>/events/<uri>          the READ of a published uri after each change,
//                                           retained
//   <prefix>/<device>/online                true while connected, false (the last will)
//                                           when not; retained
// A request is answered on its response topic with its correlation data, the JSON answer as
// payload and the user properties "status" (through the status table) and "code" (the engine's
// result code). Requests without a response topic are ignored.
//
// Threads: the broker connection runs on a thread of its own, which reconnects with backoff
// after the broker is lost. Requests and event reads are served one at a time, in the order
// received, on the device's request thread, each engine call holding engineMutex(); the
// application holds it too around its own engine calls while the device runs. Outgoing
// messages wait in a bounded queue (events dropped oldest first, answers never). start(),
// stop() and publishEvents() are called from the application's thread, not concurrently.
// Neither copyable nor movable; the engine must outlive the device.
class Device {
  public:
    // Keeps `engine` by reference and `options` by copy; does not connect yet. Throws
    // std::invalid_argument("Invalid device id") for a device id that is not one topic level,
    // and "Invalid topic prefix" for a prefix that is empty or holds '+', '#' or NUL.
    Device(JsonDataModelEngine& engine, DeviceOptions options);
    // Stops the device when it runs.
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // Returns at once: the device connects in the background, trying again with backoff while
    // the broker cannot be reached, and reconnects after a loss. Requires that it is not
    // running (std::logic_error "Device already running" otherwise). std::runtime_error when
    // libmosquitto cannot make a client.
    void start();
    // Publishes "false" on the presence topic, disconnects and stops the device's threads.
    // Does nothing when the device is not running. Must not be called while holding
    // engineMutex().
    void stop();
    // Publishes the READ of `uri` (with `arguments`, on behalf of `reader`) on its events topic
    // now and after each change, at most once per `interval`, retained. Returns the engine's
    // result of subscribing (0 when done). May be called before or after start().
    int publishEvents(const std::string& uri, std::chrono::milliseconds interval,
                      const Arguments& arguments = Arguments(),
                      const RequestInfo& reader = RequestInfo());
    // Whether the device is connected to its broker now and the broker has confirmed its
    // subscription to its requests (so that a request sent now reaches it).
    bool connected() const;
    // Waits until the device is connected, at most `patience`; returns connected().
    bool waitUntilConnected(std::chrono::milliseconds patience) const;
    DeviceStatistics statistics() const;
    // The lock around every engine call.
    std::mutex& engineMutex();
    // The device's topics: "<prefix>/<device>".
    const std::string& topicBase() const;

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace mqtt
}  // namespace dme
