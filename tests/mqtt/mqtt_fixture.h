#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "broker.h"
#include "device_model.h"
#include "dme/engine.h"
#include "dme/mqtt/mqtt.h"

namespace dme {
namespace mqtt {
namespace test {

// Generous: the broker, the device and the client are all on this machine.
constexpr std::chrono::milliseconds PATIENCE{10000};

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
