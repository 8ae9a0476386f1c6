#pragma once

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace dme {
namespace mqtt {

// Initialises libmosquitto, once per process; safe from any thread.
void initialiseLibrary();

// A libmosquitto client, destroyed with its owner.
using Handle = std::unique_ptr<mosquitto, void (*)(mosquitto*)>;

// A new MQTT 5 client with a clean start, whose callbacks get `owner`. Throws
// std::runtime_error when libmosquitto cannot make one.
Handle newHandle(const std::string& clientId, void* owner);

// libmosquitto's text for its error `rc`.
std::string errorText(int rc);

// Whether `level` can stand as one level of a topic name: not empty, no '/', '+', '#' or NUL.
bool isTopicLevel(const std::string& level);
// Whether `name` can stand at the start of topic names: not empty, no '+', '#' or NUL, and no
// empty level.
bool isTopicPrefix(const std::string& name);

using UserProperties = std::vector<std::pair<std::string, std::string>>;

// An MQTT 5 property list that the owner builds and frees. Move-only.
class Properties {
  public:
    Properties() = default;
    ~Properties();
    Properties(Properties&& other) noexcept;
    Properties& operator=(Properties&& other) noexcept;
    Properties(const Properties&) = delete;
    Properties& operator=(const Properties&) = delete;

    void addUserProperties(const UserProperties& properties);
    void setResponseTopic(const std::string& topic);
    // No property when `data` is empty.
    void setCorrelationData(const std::string& data);
    const mosquitto_property* list() const { return list_; }

  private:
    mosquitto_property* list_ = nullptr;
};

// The properties of a received message that the binding uses.
struct ReceivedProperties {
    bool hasResponseTopic = false;
    std::string responseTopic;
    std::string correlationData;
    UserProperties userProperties;
};

ReceivedProperties readProperties(const mosquitto_property* list);

// The value of the first user property named `name`, or `otherwise`.
std::string userProperty(const UserProperties& properties, const std::string& name,
                         const std::string& otherwise = std::string());

}  // namespace mqtt
}  // namespace dme
