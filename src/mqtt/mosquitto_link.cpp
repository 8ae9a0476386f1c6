#include "mosquitto_link.h"

#include <cstdlib>
#include <mutex>
#include <stdexcept>

namespace dme {
namespace mqtt {
namespace {

// Frees what libmosquitto allocated for a read property.
struct Freed {
    void operator()(void* memory) const { std::free(memory); }
};
using Owned = std::unique_ptr<char, Freed>;

void check(int rc, const char* what) {
    if (rc != MOSQ_ERR_SUCCESS) throw std::runtime_error(std::string(what) + ": " + errorText(rc));
}

}  // namespace

void initialiseLibrary() {
    static std::once_flag once;
    std::call_once(once, [] {
        mosquitto_lib_init();
        // Cleaned up when the process exits, after every client is gone.
        std::atexit([] { mosquitto_lib_cleanup(); });
    });
}

Handle newHandle(const std::string& clientId, void* owner) {
    initialiseLibrary();
    Handle handle(mosquitto_new(clientId.c_str(), true, owner), mosquitto_destroy);
    if (!handle) throw std::runtime_error("Cannot create an MQTT client");
    check(mosquitto_int_option(handle.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5),
          "Cannot select MQTT 5");
    return handle;
}

std::string errorText(int rc) {
    return mosquitto_strerror(rc);
}

bool isTopicLevel(const std::string& level) {
    return !level.empty() && level.find_first_of(std::string("/+#\0", 4)) == std::string::npos;
}

bool isTopicPrefix(const std::string& name) {
    if (name.empty() || name.find_first_of(std::string("+#\0", 3)) != std::string::npos) {
        return false;
    }
    return name.front() != '/' && name.back() != '/' && name.find("//") == std::string::npos;
}

Properties::~Properties() {
    mosquitto_property_free_all(&list_);
}

Properties::Properties(Properties&& other) noexcept : list_(other.list_) {
    other.list_ = nullptr;
}

Properties& Properties::operator=(Properties&& other) noexcept {
    if (this != &other) {
        mosquitto_property_free_all(&list_);
        list_ = other.list_;
        other.list_ = nullptr;
    }
    return *this;
}

void Properties::addUserProperties(const UserProperties& properties) {
    for (const auto& [name, value] : properties) {
        check(mosquitto_property_add_string_pair(&list_, MQTT_PROP_USER_PROPERTY, name.c_str(),
                                                 value.c_str()),
              "Invalid user property");
    }
}

void Properties::setResponseTopic(const std::string& topic) {
    check(mosquitto_property_add_string(&list_, MQTT_PROP_RESPONSE_TOPIC, topic.c_str()),
          "Invalid response topic");
}

void Properties::setCorrelationData(const std::string& data) {
    if (data.empty()) return;
    check(mosquitto_property_add_binary(&list_, MQTT_PROP_CORRELATION_DATA, data.data(),
                                        static_cast<uint16_t>(data.size())),
          "Invalid correlation data");
}

ReceivedProperties readProperties(const mosquitto_property* list) {
    ReceivedProperties read;
    for (const mosquitto_property* property = list; property != nullptr;
         property = mosquitto_property_next(property)) {
        const int id = mosquitto_property_identifier(property);
        if (id == MQTT_PROP_RESPONSE_TOPIC) {
            char* topic = nullptr;
            mosquitto_property_read_string(property, id, &topic, false);
            const Owned owned(topic);
            read.hasResponseTopic = topic != nullptr;
            if (topic != nullptr) read.responseTopic = topic;
        } else if (id == MQTT_PROP_CORRELATION_DATA) {
            void* data = nullptr;
            uint16_t length = 0;
            mosquitto_property_read_binary(property, id, &data, &length, false);
            const Owned owned(static_cast<char*>(data));
            if (data != nullptr) read.correlationData.assign(static_cast<char*>(data), length);
        } else if (id == MQTT_PROP_USER_PROPERTY) {
            char* name = nullptr;
            char* value = nullptr;
            mosquitto_property_read_string_pair(property, id, &name, &value, false);
            const Owned ownedName(name);
            const Owned ownedValue(value);
            if (name != nullptr && value != nullptr) read.userProperties.emplace_back(name, value);
        }
    }
    return read;
}

std::string userProperty(const UserProperties& properties, const std::string& name,
                         const std::string& otherwise) {
    for (const auto& [key, value] : properties) {
        if (key == name) return value;
    }
    return otherwise;
}

}  // namespace mqtt
}  // namespace dme
