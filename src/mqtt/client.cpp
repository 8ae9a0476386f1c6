#include "dme/mqtt/client.h"

#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>
#include <utility>

#include "mosquitto_link.h"

namespace dme {
namespace mqtt {
namespace {

constexpr int QOS = 1;

std::string uniqueClientId() {
    static std::atomic<unsigned int> counter{0};
    std::random_device random;
    return "dme-client-" + std::to_string(getpid()) + "-" + std::to_string(++counter) + "-" +
           std::to_string(random());
}

// "network?expand=2&select=a" → uri "/network" and the arguments as user properties.
void splitTarget(const std::string& target, std::string& uri, UserProperties& arguments) {
    const std::size_t mark = target.find('?');
    uri = target.substr(0, mark);
    while (!uri.empty() && uri.front() == '/') uri.erase(0, 1);
    if (mark == std::string::npos) return;
    const std::string query = target.substr(mark + 1);
    std::size_t start = 0;
    while (start <= query.size()) {
        std::size_t end = query.find('&', start);
        if (end == std::string::npos) end = query.size();
        const std::string pair = query.substr(start, end - start);
        if (!pair.empty()) {
            const std::size_t equals = pair.find('=');
            arguments.emplace_back(pair.substr(0, equals),
                                   equals == std::string::npos ? "" : pair.substr(equals + 1));
        }
        start = end + 1;
    }
}

unsigned int toNumber(const std::string& text) {
    try {
        return static_cast<unsigned int>(std::stoul(text));
    } catch (const std::exception&) {
        return 0;
    }
}

}  // namespace

class Client::Impl {
  public:
    explicit Impl(ClientOptions options) : options_(std::move(options)) {
        if (options_.clientId.empty()) options_.clientId = uniqueClientId();
        replyTopic_ = options_.prefix + "/replies/" + options_.clientId;
    }

    ~Impl() {
        if (!handle_) return;
        mosquitto_disconnect_v5(handle_.get(), 0, nullptr);
        mosquitto_loop_stop(handle_.get(), false);
    }

    void connect(std::chrono::milliseconds patience) {
        if (handle_) throw std::logic_error("Client already connected");
        handle_ = newHandle(options_.clientId, this);
        if (!options_.username.empty()) {
            mosquitto_username_pw_set(handle_.get(), options_.username.c_str(),
                                      options_.password.c_str());
        }
        setCallbacks(handle_.get());
        int rc =
            mosquitto_connect_bind_async(handle_.get(), options_.host.c_str(), options_.port,
                                         static_cast<int>(options_.keepAlive.count()), nullptr);
        if (rc == MOSQ_ERR_SUCCESS) rc = mosquitto_loop_start(handle_.get());
        if (rc != MOSQ_ERR_SUCCESS) {
            handle_.reset();
            throw std::runtime_error(cannotConnect(errorText(rc)));
        }
        std::unique_lock<std::mutex> lock(mutex_);
        if (!changed_.wait_for(lock, patience, [this] { return connectResult_ >= 0; })) {
            throw std::runtime_error(cannotConnect("no answer from the broker"));
        }
        if (connectResult_ != 0) {
            throw std::runtime_error(cannotConnect(mosquitto_reason_string(connectResult_)));
        }
    }

    std::vector<Reply> requestAll(const std::vector<std::string>& devices,
                                  const std::string& method, const std::string& target,
                                  const std::string& body, std::chrono::milliseconds patience) {
        requireConnection();
        std::string uri;
        UserProperties properties;
        if (!options_.user.empty()) properties.emplace_back("user", options_.user);
        splitTarget(target, uri, properties);
        std::vector<std::string> correlations;
        for (const std::string& device : devices) {
            const std::string correlation = std::to_string(++sequence_);
            {
                std::lock_guard<std::mutex> lock(mutex_);
                replies_[correlation].device = device;
            }
            correlations.push_back(correlation);
            Properties sent;
            sent.setResponseTopic(replyTopic_);
            sent.setCorrelationData(correlation);
            sent.addUserProperties(properties);
            const std::string topic = requestTopic(device, method, uri);
            mosquitto_publish_v5(handle_.get(), nullptr, topic.c_str(),
                                 static_cast<int>(body.size()), body.data(), QOS, false,
                                 sent.list());
        }
        return collect(correlations, patience);
    }

    std::vector<std::string> onlineDevices(std::chrono::milliseconds settle) {
        requireConnection();
        const std::string filter = options_.prefix + "/+/online";
        {
            std::lock_guard<std::mutex> lock(mutex_);
            presence_.clear();
        }
        mosquitto_subscribe_v5(handle_.get(), nullptr, filter.c_str(), QOS, 0, nullptr);
        std::this_thread::sleep_for(settle);
        mosquitto_unsubscribe_v5(handle_.get(), nullptr, filter.c_str(), nullptr);
        std::vector<std::string> online;
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [device, state] : presence_) {
            if (state == "true") online.push_back(device);
        }
        return online;
    }

    void watch(const std::string& device, const std::string& uri,
               std::function<void(const Event&)> onEvent) {
        requireConnection();
        std::string levels = uri;
        while (!levels.empty() && levels.front() == '/') levels.erase(0, 1);
        std::string filter = options_.prefix + "/" + device + "/events";
        if (!levels.empty()) filter += "/" + levels;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            watches_.emplace_back(filter, std::move(onEvent));
        }
        mosquitto_subscribe_v5(handle_.get(), nullptr, filter.c_str(), QOS, 0, nullptr);
    }

    void unwatch() {
        std::vector<std::pair<std::string, std::function<void(const Event&)>>> ended;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            ended.swap(watches_);
        }
        for (const auto& watch : ended) {
            mosquitto_unsubscribe_v5(handle_.get(), nullptr, watch.first.c_str(), nullptr);
        }
    }

  private:
    std::string cannotConnect(const std::string& reason) const {
        return "Cannot connect to " + options_.host + ":" + std::to_string(options_.port) + ": " +
               reason;
    }

    // "<prefix>/<device>/req/<method>/<uri>", without the last level for the root.
    std::string requestTopic(const std::string& device, const std::string& method,
                             const std::string& uri) const {
        std::string topic = options_.prefix;
        topic.append("/").append(device).append("/req/").append(method);
        if (!uri.empty()) topic.append("/").append(uri);
        return topic;
    }

    void requireConnection() const {
        if (!handle_) throw std::logic_error("Client not connected");
    }

    void setCallbacks(mosquitto* handle) {
        mosquitto_connect_v5_callback_set(
            handle, [](mosquitto* m, void* self, int rc, int, const mosquitto_property*) {
                static_cast<Impl*>(self)->onConnect(m, rc);
            });
        mosquitto_subscribe_v5_callback_set(
            handle, [](mosquitto*, void* self, int mid, int, const int*,
                       const mosquitto_property*) { static_cast<Impl*>(self)->onSubscribed(mid); });
        mosquitto_message_v5_callback_set(
            handle, [](mosquitto*, void* self, const mosquitto_message* message,
                       const mosquitto_property* properties) {
                static_cast<Impl*>(self)->onMessage(*message, properties);
            });
    }

    // A refused connection ends connect() at once; an accepted one once the broker has
    // confirmed the reply subscription (onSubscribed). Both run on the network thread.
    void onConnect(mosquitto* handle, int rc) {
        if (rc == 0) {
            mosquitto_subscribe_v5(handle, &replyMid_, replyTopic_.c_str(), QOS, 0, nullptr);
            return;
        }
        std::lock_guard<std::mutex> lock(mutex_);
        connectResult_ = rc;
        changed_.notify_all();
    }

    void onSubscribed(int mid) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (mid != replyMid_ || connectResult_ >= 0) return;
        connectResult_ = 0;
        changed_.notify_all();
    }

    void onMessage(const mosquitto_message& message, const mosquitto_property* properties) {
        const std::string topic = message.topic;
        const std::string payload = message.payloadlen > 0
                                        ? std::string(static_cast<const char*>(message.payload),
                                                      static_cast<std::size_t>(message.payloadlen))
                                        : std::string();
        if (topic == replyTopic_) {
            onReply(payload, readProperties(properties));
            return;
        }
        const std::string prefix = options_.prefix + "/";
        if (topic.compare(0, prefix.size(), prefix) != 0) return;
        const std::string rest = topic.substr(prefix.size());
        const std::size_t slash = rest.find('/');
        if (slash == std::string::npos) return;
        const std::string device = rest.substr(0, slash);
        const std::string kind = rest.substr(slash + 1);
        if (kind == "online") {
            std::lock_guard<std::mutex> lock(mutex_);
            presence_[device] = payload;
        } else if (kind == "events" || kind.compare(0, 7, "events/") == 0) {
            const std::string uri = kind.size() > 7 ? kind.substr(6) : "/";
            onEvent(topic, Event{device, uri, payload, message.retain});
        }
    }

    void onReply(const std::string& payload, const ReceivedProperties& properties) {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto waiting = replies_.find(properties.correlationData);
        if (waiting == replies_.end() || waiting->second.answered) return;
        Reply& reply = waiting->second;
        reply.answered = true;
        reply.status = toNumber(userProperty(properties.userProperties, "status"));
        reply.code = static_cast<int>(toNumber(userProperty(properties.userProperties, "code")));
        reply.body = payload;
        changed_.notify_all();
    }

    void onEvent(const std::string& topic, const Event& event) {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [filter, callback] : watches_) {
            bool matches = false;
            mosquitto_topic_matches_sub(filter.c_str(), topic.c_str(), &matches);
            if (matches) callback(event);
        }
    }

    // Waits for the answers of `correlations` until `patience` has passed, and forgets them.
    std::vector<Reply> collect(const std::vector<std::string>& correlations,
                               std::chrono::milliseconds patience) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, patience, [&] {
            for (const std::string& correlation : correlations) {
                if (!replies_[correlation].answered) return false;
            }
            return true;
        });
        std::vector<Reply> replies;
        for (const std::string& correlation : correlations) {
            replies.push_back(std::move(replies_[correlation]));
            replies_.erase(correlation);
        }
        return replies;
    }

    ClientOptions options_;
    std::string replyTopic_;
    Handle handle_{nullptr, mosquitto_destroy};
    std::atomic<unsigned long long> sequence_{0};
    std::mutex mutex_;
    std::condition_variable changed_;
    int connectResult_ = -1;
    // The id of the reply subscription: network thread only.
    int replyMid_ = 0;
    std::map<std::string, Reply> replies_;
    std::map<std::string, std::string> presence_;
    std::vector<std::pair<std::string, std::function<void(const Event&)>>> watches_;
};

Client::Client(ClientOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Client::~Client() = default;

void Client::connect(std::chrono::milliseconds patience) {
    impl_->connect(patience);
}

Reply Client::request(const std::string& device, const std::string& method,
                      const std::string& target, const std::string& body,
                      std::chrono::milliseconds patience) {
    return impl_->requestAll({device}, method, target, body, patience).front();
}

std::vector<Reply> Client::requestAll(const std::vector<std::string>& devices,
                                      const std::string& method, const std::string& target,
                                      const std::string& body, std::chrono::milliseconds patience) {
    return impl_->requestAll(devices, method, target, body, patience);
}

std::vector<std::string> Client::onlineDevices(std::chrono::milliseconds settle) {
    return impl_->onlineDevices(settle);
}

void Client::watch(const std::string& device, const std::string& uri,
                   std::function<void(const Event&)> onEvent) {
    impl_->watch(device, uri, std::move(onEvent));
}

void Client::unwatch() {
    impl_->unwatch();
}

}  // namespace mqtt
}  // namespace dme
