#include "dme/mqtt/device.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "../http/answer.h"
#include "dme/notifier.h"
#include "dme/result.h"
#include "mosquitto_link.h"
#include "outbox.h"

namespace dme {
namespace mqtt {
namespace {

constexpr int QOS = 1;
// MQTT 5's "Disconnect with Will Message": the broker publishes the last will (presence false).
constexpr int DISCONNECT_WITH_WILL = 4;
constexpr unsigned int UNAUTHORIZED = 401;
constexpr unsigned int FORBIDDEN = 403;
constexpr unsigned int PAYLOAD_TOO_LARGE = 413;
constexpr unsigned int SERVICE_UNAVAILABLE = 503;

const std::map<std::string, Method> METHODS = {
    {"read", READ}, {"update", UPDATE}, {"create", CREATE}, {"delete", DELETE}, {"schema", SCHEMA}};

// A received request, as the broker connection's thread hands it to the request thread.
struct Request {
    std::string method;
    std::string uri;
    std::string payload;
    ReceivedProperties properties;
};

std::string defaultClientId(const DeviceOptions& options) {
    std::string id = options.prefix + "-" + options.deviceId;
    std::replace(id.begin(), id.end(), '/', '-');
    return id;
}

// The uri's topic levels after `base`: "/a/b" → "<base>/a/b", "/" → "<base>".
std::string topicOf(const std::string& base, const std::string& uri) {
    std::string rest = uri;
    while (!rest.empty() && rest.front() == '/') rest.erase(0, 1);
    return rest.empty() ? base : base + "/" + rest;
}

Message answerMessage(const http::Answer& answer, const ReceivedProperties& properties) {
    Message message;
    message.topic = properties.responseTopic;
    message.payload = answer.body;
    message.correlationData = properties.correlationData;
    message.userProperties = {{"status", std::to_string(answer.status)},
                              {"code", std::to_string(answer.resultCode)}};
    return message;
}

}  // namespace

class Device::Impl {
  public:
    Impl(JsonDataModelEngine& engine, DeviceOptions options)
        : engine_(engine),
          options_(std::move(options)),
          engineMutex_(options_.engineMutex != nullptr ? *options_.engineMutex : ownMutex_),
          base_(options_.prefix + "/" + options_.deviceId),
          outbox_(options_.maxQueuedEvents) {
        if (!isTopicLevel(options_.deviceId)) throw std::invalid_argument("Invalid device id");
        if (!isTopicPrefix(options_.prefix)) throw std::invalid_argument("Invalid topic prefix");
        if (options_.clientId.empty()) options_.clientId = defaultClientId(options_);
        if (options_.allOrNothingUpdates) engine_.setAllOrNothingUpdates(true);
    }

    ~Impl() {
        stop();
        std::lock_guard<std::mutex> lock(engineMutex_);
        for (const auto& source : sources_) engine_.unsubscribe(*source);
    }

    void start() {
        if (handle_) throw std::logic_error("Device already running");
        handle_ = newHandle(options_.clientId, this);
        configure(handle_.get());
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = false;
            outbox_.dropEvents();
        }
        worker_ = std::thread([this] { serve(); });
        starter_ = std::thread([this] { connectUntilStarted(); });
    }

    void stop() {
        if (!handle_) return;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        wakeUp_.notify_all();
        starter_.join();
        worker_.join();
        if (networkStarted_) {
            mosquitto_disconnect_v5(handle_.get(), DISCONNECT_WITH_WILL, nullptr);
            mosquitto_loop_stop(handle_.get(), false);
            networkStarted_ = false;
        }
        handle_.reset();
        std::lock_guard<std::mutex> lock(mutex_);
        connected_ = false;
    }

    int publishEvents(const std::string& uri, std::chrono::milliseconds interval,
                      const Arguments& arguments, const RequestInfo& reader) {
        EventSource* source = nullptr;
        {
            // Listed, but inactive, before subscribing, so that a notification finds it.
            std::lock_guard<std::mutex> lock(mutex_);
            sources_.push_back(
                std::make_unique<EventSource>(*this, sources_.size(), uri, arguments, reader));
            source = sources_.back().get();
        }
        int code = result::FAILED;
        {
            std::lock_guard<std::mutex> lock(engineMutex_);
            code =
                engine_.subscribe(*source, uri, arguments, interval, ObserverOption::CHANGES_ONLY);
            if (code != result::DONE) engine_.unsubscribe(*source);
        }
        std::lock_guard<std::mutex> lock(mutex_);
        const std::size_t index = sources_.size() - 1;
        if (code != result::DONE) {
            due_.erase(index);
            sources_.pop_back();
            return code;
        }
        // Its first event: the current state.
        source->active_ = true;
        due_.insert(index);
        wakeUp_.notify_all();
        return code;
    }

    bool connected() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return connected_;
    }

    bool waitUntilConnected(std::chrono::milliseconds patience) const {
        std::unique_lock<std::mutex> lock(mutex_);
        return connectedChanged_.wait_for(lock, patience, [this] { return connected_; });
    }

    DeviceStatistics statistics() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return statistics_;
    }

    std::mutex& engineMutex() { return engineMutex_; }
    const std::string& topicBase() const { return base_; }

  private:
    // One published uri: the engine's observer that marks it due.
    class EventSource : public IDataModelObserver {
      public:
        EventSource(Impl& owner, std::size_t index, std::string uri, Arguments arguments,
                    RequestInfo reader)
            : uri_(std::move(uri)),
              arguments_(std::move(arguments)),
              reader_(std::move(reader)),
              owner_(owner),
              index_(index) {}
        void notify(const std::string&, const Arguments&) override { owner_.markDue(index_); }

        const std::string uri_;
        const Arguments arguments_;
        const RequestInfo reader_;
        // Whether its subscription holds; the request thread reads only active sources. Guarded
        // by the owner's mutex_.
        bool active_ = false;

      private:
        Impl& owner_;
        const std::size_t index_;
    };

    int keepAlive() const { return static_cast<int>(options_.keepAlive.count()); }

    void configure(mosquitto* handle) {
        const std::string presence = base_ + "/online";
        mosquitto_will_set_v5(handle, presence.c_str(), 5, "false", QOS, true, nullptr);
        if (!options_.username.empty()) {
            mosquitto_username_pw_set(handle, options_.username.c_str(), options_.password.c_str());
        }
        mosquitto_reconnect_delay_set(
            handle, static_cast<unsigned int>(options_.reconnectDelay.count()),
            static_cast<unsigned int>(options_.reconnectDelayMax.count()), true);
        mosquitto_connect_v5_callback_set(
            handle, [](mosquitto* m, void* self, int rc, int, const mosquitto_property*) {
                static_cast<Impl*>(self)->onConnect(m, rc);
            });
        mosquitto_subscribe_v5_callback_set(
            handle, [](mosquitto* m, void* self, int, int, const int*, const mosquitto_property*) {
                static_cast<Impl*>(self)->onSubscribed(m);
            });
        mosquitto_disconnect_v5_callback_set(
            handle, [](mosquitto*, void* self, int, const mosquitto_property*) {
                static_cast<Impl*>(self)->onDisconnect();
            });
        mosquitto_publish_v5_callback_set(
            handle, [](mosquitto*, void* self, int, int, const mosquitto_property*) {
                static_cast<Impl*>(self)->onPublished();
            });
        mosquitto_message_v5_callback_set(
            handle, [](mosquitto* m, void* self, const mosquitto_message* message,
                       const mosquitto_property* properties) {
                static_cast<Impl*>(self)->onMessage(m, *message, properties);
            });
    }

    // Network thread: subscribes to the requests; the device is ready once the broker has
    // confirmed it (onSubscribed).
    void onConnect(mosquitto* handle, int rc) {
        if (rc != 0) return;
        const std::string requests = base_ + "/req/#";
        mosquitto_subscribe_v5(handle, nullptr, requests.c_str(), QOS, 0, nullptr);
    }

    // Network thread: announces presence only now, so that a client that sees it can send
    // requests at once, and has every published uri sent again (a restarted broker has lost
    // its retained states).
    void onSubscribed(mosquitto* handle) {
        const std::string presence = base_ + "/online";
        mosquitto_publish_v5(handle, nullptr, presence.c_str(), 4, "true", QOS, true, nullptr);
        std::lock_guard<std::mutex> lock(mutex_);
        connected_ = true;
        inFlight_ = 0;
        republish_ = true;
        ++statistics_.connections;
        connectedChanged_.notify_all();
        wakeUp_.notify_all();
    }

    void onDisconnect() {
        std::lock_guard<std::mutex> lock(mutex_);
        connected_ = false;
        connectedChanged_.notify_all();
    }

    void onPublished() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (inFlight_ > 0) --inFlight_;
        wakeUp_.notify_all();
    }

    // Network thread: queues a request for the request thread, or answers 503 at once when too
    // many wait.
    void onMessage(mosquitto* handle, const mosquitto_message& message,
                   const mosquitto_property* properties) {
        const std::string prefix = base_ + "/req/";
        const std::string topic = message.topic;
        if (topic.compare(0, prefix.size(), prefix) != 0) return;
        Request request;
        const std::string rest = topic.substr(prefix.size());
        const std::size_t slash = rest.find('/');
        request.method = rest.substr(0, slash);
        request.uri = slash == std::string::npos ? "/" : rest.substr(slash);
        if (message.payloadlen > 0) {
            request.payload.assign(static_cast<const char*>(message.payload),
                                   static_cast<std::size_t>(message.payloadlen));
        }
        request.properties = readProperties(properties);
        std::unique_lock<std::mutex> lock(mutex_);
        ++statistics_.requests;
        if (!request.properties.hasResponseTopic) {
            ++statistics_.unanswerable;
            return;
        }
        if (requests_.size() >= options_.maxQueuedRequests) {
            ++statistics_.answers;
            lock.unlock();
            publish(handle, answerMessage(refusal(SERVICE_UNAVAILABLE, result::FAILED),
                                          request.properties));
            return;
        }
        requests_.push_back(std::move(request));
        wakeUp_.notify_all();
    }

    // Notifier thread.
    void markDue(std::size_t index) {
        std::lock_guard<std::mutex> lock(mutex_);
        due_.insert(index);
        wakeUp_.notify_all();
    }

    // The request thread: serves requests and event reads one at a time, and hands waiting
    // messages to the broker connection.
    void serve() {
        std::unique_lock<std::mutex> lock(mutex_);
        while (true) {
            wakeUp_.wait(lock, [this] { return stopping_ || hasWork(); });
            if (stopping_) return;
            const bool republish = std::exchange(republish_, false);
            if (republish) outbox_.dropEvents();
            std::set<std::size_t> due = std::move(due_);
            due_.clear();
            std::optional<Request> request;
            if (!requests_.empty()) {
                request = std::move(requests_.front());
                requests_.pop_front();
            }
            std::vector<EventSource*> sources;
            for (std::size_t index = 0; index < sources_.size(); ++index) {
                const bool wanted = republish || due.count(index) > 0;
                if (wanted && sources_[index]->active_) sources.push_back(sources_[index].get());
            }
            lock.unlock();
            if (republish) published_.clear();
            for (EventSource* source : sources) queueEvent(*source);
            if (request) answer(*request);
            lock.lock();
            pump(lock);
        }
    }

    // Requires mutex_.
    bool hasWork() const {
        return republish_ || !due_.empty() || !requests_.empty() ||
               (connected_ && outbox_.size() > 0 && inFlight_ < options_.maxInFlight);
    }

    // Requires mutex_, which it releases while publishing. Hands waiting messages to the broker
    // connection while it is connected and the in-flight window has room.
    void pump(std::unique_lock<std::mutex>& lock) {
        while (connected_ && inFlight_ < options_.maxInFlight) {
            std::optional<Message> message = outbox_.pop();
            if (!message) return;
            ++inFlight_;
            ++(message->event ? statistics_.eventsPublished : statistics_.answers);
            lock.unlock();
            const bool published = publish(handle_.get(), *message);
            lock.lock();
            // Nothing will acknowledge it: a response topic that no message may have (a
            // wildcard in it) must not take a place of the window for good.
            if (!published) {
                --inFlight_;
                --(message->event ? statistics_.eventsPublished : statistics_.answers);
                ++statistics_.unanswerable;
            }
        }
    }

    // Returns whether libmosquitto took the message.
    static bool publish(mosquitto* handle, const Message& message) {
        Properties properties;
        properties.addUserProperties(message.userProperties);
        properties.setCorrelationData(message.correlationData);
        return mosquitto_publish_v5(handle, nullptr, message.topic.c_str(),
                                    static_cast<int>(message.payload.size()),
                                    message.payload.data(), QOS, message.retain,
                                    properties.list()) == MOSQ_ERR_SUCCESS;
    }

    // Reads the source's uri and queues its event, unless the state is the one last published.
    void queueEvent(const EventSource& source) {
        http::Answer read = [&] {
            std::lock_guard<std::mutex> lock(engineMutex_);
            return http::runOnEngine(engine_, READ, source.uri_, source.arguments_, source.reader_,
                                     "", options_.statusTable, false);
        }();
        Message event;
        event.topic = topicOf(base_ + "/events", source.uri_);
        std::string& last = published_[event.topic];
        if (last == read.body) return;
        last = read.body;
        event.payload = std::move(read.body);
        event.retain = true;
        event.userProperties = {{"status", std::to_string(read.status)},
                                {"code", std::to_string(read.resultCode)}};
        std::lock_guard<std::mutex> lock(mutex_);
        if (outbox_.pushEvent(std::move(event))) ++statistics_.eventsDropped;
    }

    void answer(const Request& request) {
        Message message = answerMessage(answerTo(request), request.properties);
        std::lock_guard<std::mutex> lock(mutex_);
        outbox_.pushAnswer(std::move(message));
    }

    http::Answer answerTo(const Request& request) {
        if (request.payload.size() > options_.maxPayloadBytes) {
            return refusal(PAYLOAD_TOO_LARGE, result::INVALID_ARGUMENT);
        }
        const auto method = METHODS.find(request.method);
        if (method == METHODS.end()) {
            return http::engineAnswer(result::UNKNOWN_METHOD, READ, "", options_.statusTable,
                                      false);
        }
        RequestOrigin origin;
        origin.user = userProperty(request.properties.userProperties, "user");
        origin.method = request.method;
        origin.uri = request.uri;
        origin.responseTopic = request.properties.responseTopic;
        std::optional<SessionInfo> session;
        if (options_.sessionMapper) session = options_.sessionMapper(origin);
        if (!session) {
            return refusal(origin.user.empty() ? UNAUTHORIZED : FORBIDDEN, result::FORBIDDEN);
        }
        std::vector<Arguments::Pair> arguments;
        for (const auto& property : request.properties.userProperties) {
            if (property.first != "user") arguments.push_back(property);
        }
        std::lock_guard<std::mutex> lock(engineMutex_);
        return http::runOnEngine(engine_, method->second, request.uri, Arguments(arguments),
                                 RequestInfo(*session, {}), request.payload, options_.statusTable,
                                 false);
    }

    static http::Answer refusal(unsigned int status, int code) {
        http::Answer answer = http::statusAnswer(status, false);
        answer.resultCode = code;
        return answer;
    }

    // The starter thread: tries to connect, with backoff, until the network thread runs. Once
    // it runs, the network thread reconnects by itself after a loss; but a first connection
    // that fails at once leaves libmosquitto without a connection to retry.
    void connectUntilStarted() {
        std::chrono::milliseconds delay = options_.reconnectDelay;
        std::unique_lock<std::mutex> lock(mutex_);
        while (!stopping_) {
            lock.unlock();
            int rc = mosquitto_connect_bind_async(handle_.get(), options_.host.c_str(),
                                                  options_.port, keepAlive(), nullptr);
            if (rc == MOSQ_ERR_SUCCESS) rc = mosquitto_loop_start(handle_.get());
            lock.lock();
            if (rc == MOSQ_ERR_SUCCESS) {
                networkStarted_ = true;
                return;
            }
            wakeUp_.wait_for(lock, delay, [this] { return stopping_; });
            delay = std::min<std::chrono::milliseconds>(delay * 2, options_.reconnectDelayMax);
        }
    }

    JsonDataModelEngine& engine_;
    DeviceOptions options_;
    std::mutex ownMutex_;
    std::mutex& engineMutex_;
    const std::string base_;
    Handle handle_{nullptr, mosquitto_destroy};

    // Guards what follows, up to the request thread's own state.
    mutable std::mutex mutex_;
    std::condition_variable wakeUp_;
    mutable std::condition_variable connectedChanged_;
    bool stopping_ = false;
    bool connected_ = false;
    bool republish_ = false;
    std::size_t inFlight_ = 0;
    std::deque<Request> requests_;
    std::set<std::size_t> due_;
    std::vector<std::unique_ptr<EventSource>> sources_;
    Outbox outbox_;
    DeviceStatistics statistics_;

    // The request thread's own: the payload last published on each events topic.
    std::map<std::string, std::string> published_;
    std::thread worker_;
    std::thread starter_;
    // Whether the network thread runs: written by the starter thread, read after joining it.
    bool networkStarted_ = false;
};

Device::Device(JsonDataModelEngine& engine, DeviceOptions options)
    : impl_(std::make_unique<Impl>(engine, std::move(options))) {}

Device::~Device() = default;

void Device::start() {
    impl_->start();
}

void Device::stop() {
    impl_->stop();
}

int Device::publishEvents(const std::string& uri, std::chrono::milliseconds interval,
                          const Arguments& arguments, const RequestInfo& reader) {
    return impl_->publishEvents(uri, interval, arguments, reader);
}

bool Device::connected() const {
    return impl_->connected();
}

bool Device::waitUntilConnected(std::chrono::milliseconds patience) const {
    return impl_->waitUntilConnected(patience);
}

DeviceStatistics Device::statistics() const {
    return impl_->statistics();
}

std::mutex& Device::engineMutex() {
    return impl_->engineMutex();
}

const std::string& Device::topicBase() const {
    return impl_->topicBase();
}

}  // namespace mqtt
}  // namespace dme
