// The broker restarts in the middle of a run: the device reconnects, announces itself again,
// publishes its retained states again, and answers every request sent after it is back exactly
// once.
#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <atomic>
#include <map>
#include <thread>

#include "event_log.h"
#include "mqtt_fixture.h"

namespace dme {
namespace mqtt {
namespace test {
namespace {

using std::chrono::milliseconds;

// Counts every message on the reply topics of every client, by correlation data, through a
// subscription of its own: a duplicated answer shows here even when the client ignores it.
class ReplyCounter {
  public:
    // Returns once the broker has confirmed the subscription.
    explicit ReplyCounter(unsigned short port) : handle_(mosquitto_new(nullptr, true, this)) {
        mosquitto_int_option(handle_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
        mosquitto_connect_v5_callback_set(
            handle_, [](mosquitto* handle, void*, int rc, int, const mosquitto_property*) {
                if (rc == 0)
                    mosquitto_subscribe_v5(handle, nullptr, "dme/replies/#", 1, 0, nullptr);
            });
        mosquitto_subscribe_v5_callback_set(
            handle_, [](mosquitto*, void* self, int, int, const int*, const mosquitto_property*) {
                static_cast<ReplyCounter*>(self)->subscribed_ = true;
            });
        mosquitto_message_v5_callback_set(
            handle_, [](mosquitto*, void* self, const mosquitto_message* message,
                        const mosquitto_property* properties) {
                static_cast<ReplyCounter*>(self)->count(*message, properties);
            });
        if (mosquitto_connect(handle_, "127.0.0.1", port, 30) != MOSQ_ERR_SUCCESS ||
            mosquitto_loop_start(handle_) != MOSQ_ERR_SUCCESS) {
            throw std::runtime_error("The reply counter cannot connect");
        }
        const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
        while (!subscribed_ && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(milliseconds(10));
        }
        if (!subscribed_) throw std::runtime_error("The reply counter cannot subscribe");
    }
    ~ReplyCounter() {
        mosquitto_disconnect(handle_);
        mosquitto_loop_stop(handle_, false);
        mosquitto_destroy(handle_);
    }

    std::map<std::string, int> counts() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return counts_;
    }

  private:
    void count(const mosquitto_message&, const mosquitto_property* properties) {
        void* data = nullptr;
        uint16_t length = 0;
        mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                       false);
        std::lock_guard<std::mutex> lock(mutex_);
        ++counts_[std::string(static_cast<char*>(data), length)];
        free(data);
    }

    mosquitto* handle_;
    std::atomic<bool> subscribed_{false};
    mutable std::mutex mutex_;
    std::map<std::string, int> counts_;
};

class BrokerRestartTest : public MqttDeviceTest {};

TEST_F(BrokerRestartTest, TheDeviceComesBackWithPresenceStatesAndExactlyOneAnswerEach) {
    options_.reconnectDelay = std::chrono::seconds(1);
    options_.reconnectDelayMax = std::chrono::seconds(2);
    startDevice();
    ASSERT_EQ(device_->publishEvents("/system/location", milliseconds(50), Arguments(),
                                     RequestInfo(*example::builtInSession("guest"), {})),
              0);
    {
        const auto before = connectedClient("admin");
        ASSERT_EQ(
            before->request("gw1", "update", "system/location", "\"before\"", PATIENCE).status,
            200u);
    }

    broker_.stop();
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    while (device_->connected() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(20));
    }
    ASSERT_FALSE(device_->connected());
    broker_.restart();
    ASSERT_TRUE(device_->waitUntilConnected(std::chrono::seconds(30)));
    EXPECT_EQ(device_->statistics().connections, 2u);

    const auto client = connectedClient("admin");
    EXPECT_EQ(client->onlineDevices(milliseconds(500)), std::vector<std::string>{"gw1"});
    EventLog log;
    client->watch("gw1", "system/location", log.recorder());
    EXPECT_TRUE(log.waitFor(
        [](const Event& event) { return event.retained && event.body == "\"before\""; }, PATIENCE));

    const ReplyCounter counter(broker_.port());
    const int requests = 50;
    for (int i = 0; i < requests; ++i) {
        const Reply reply = client->request("gw1", "update", "system/location",
                                            "\"after " + std::to_string(i) + "\"", PATIENCE);
        ASSERT_TRUE(reply.answered) << i;
        EXPECT_EQ(reply.status, 200u);
    }
    EXPECT_EQ(directRead("/system/location", "", "admin"), "\"after 49\"");
    // The last answer may still be on its way to the counter.
    const auto settle = std::chrono::steady_clock::now() + PATIENCE;
    while (counter.counts().size() < static_cast<std::size_t>(requests) &&
           std::chrono::steady_clock::now() < settle) {
        std::this_thread::sleep_for(milliseconds(20));
    }
    const std::map<std::string, int> counts = counter.counts();
    EXPECT_EQ(counts.size(), static_cast<std::size_t>(requests));
    for (const auto& [correlation, count] : counts) EXPECT_EQ(count, 1) << correlation;
}

}  // namespace
}  // namespace test
}  // namespace mqtt
}  // namespace dme
