#pragma once

#include <gtest/gtest.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "broker.h"
#include "device_model.h"
#include "dme/engine.h"
#include "dme/mqtt/mqtt.h"

namespace dme {
namespace mqtt {
namespace test {

// Generous: the broker, the device and the client are all on this machine.
constexpr std::chrono::milliseconds PATIENCE{10000};

// A bare libmosquitto client that publishes what the Client class never would: requests
// without a response topic or with an invalid one.
class RawPublisher {
  public:
    // Returns once connected, or throws.
    explicit RawPublisher(unsigned short port) : handle_(mosquitto_new(nullptr, true, this)) {
        mosquitto_int_option(handle_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
        mosquitto_connect_v5_callback_set(
            handle_, [](mosquitto*, void* self, int rc, int, const mosquitto_property*) {
                if (rc == 0) static_cast<RawPublisher*>(self)->connected_ = true;
            });
        if (mosquitto_connect(handle_, "127.0.0.1", port, 30) != MOSQ_ERR_SUCCESS ||
            mosquitto_loop_start(handle_) != MOSQ_ERR_SUCCESS) {
            throw std::runtime_error("The raw publisher cannot connect");
        }
        const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
        while (!connected_ && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (!connected_) throw std::runtime_error("The raw publisher got no connection");
    }
    ~RawPublisher() {
        mosquitto_disconnect(handle_);
        mosquitto_loop_stop(handle_, false);
        mosquitto_destroy(handle_);
    }
    RawPublisher(const RawPublisher&) = delete;
    RawPublisher& operator=(const RawPublisher&) = delete;

    // Publishes an empty request on `topic` with QoS 1, with `responseTopic` unless it is null.
    int publish(const std::string& topic, const char* responseTopic) {
        mosquitto_property* properties = nullptr;
        if (responseTopic != nullptr) {
            mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC, responseTopic);
        }
        const int rc =
            mosquitto_publish_v5(handle_, nullptr, topic.c_str(), 0, nullptr, 1, false, properties);
        mosquitto_property_free_all(&properties);
        return rc;
    }

  private:
    mosquitto* handle_;
    std::atomic<bool> connected_{false};
};

// The example gateway served as device "gw1" through a real broker, with its built-in users
// named by the "user" property.
class MqttDeviceTest : public ::testing::Test {
  protected:
    MqttDeviceTest() : model_(DME_DEVICE_FACTORY), engine_(model_.dataModel(), "gateway") {
        options_.port = broker_.port();
        options_.deviceId = "gw1";
        options_.sessionMapper = [](const RequestOrigin& origin) {
            return example::builtInSession(origin.user);
        };
    }

    void startDevice() {
        device_ = std::make_unique<Device>(engine_, options_);
        device_->start();
        ASSERT_TRUE(device_->waitUntilConnected(PATIENCE));
    }

    // A connected client whose requests name `user` (none when empty).
    std::unique_ptr<Client> connectedClient(const std::string& user) {
        ClientOptions options;
        options.port = broker_.port();
        options.user = user;
        auto client = std::make_unique<Client>(options);
        client->connect(PATIENCE);
        return client;
    }

    // The engine's own answer to a READ of `uri` as `user`, for comparison.
    std::string directRead(const std::string& uri, const std::string& query,
                           const std::string& user) {
        std::string out;
        std::lock_guard<std::mutex> lock(device_->engineMutex());
        engine_.execute(READ, uri, Arguments(query),
                        RequestInfo(*example::builtInSession(user), {}), "", out, false);
        return out;
    }

    Broker broker_;
    example::DeviceModel model_;
    JsonDataModelEngine engine_;
    DeviceOptions options_;
    std::unique_ptr<Device> device_;
};

}  // namespace test
}  // namespace mqtt
}  // namespace dme
