#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace dme {
namespace mqtt {

// How a Client reaches the broker. A plain value type.
struct ClientOptions {
    std::string host = "127.0.0.1";
    unsigned short port = 1883;
    // The broker's credentials; none when username is empty.
    std::string username;
    std::string password;
    // The topic prefix of the devices.
    std::string prefix = "dme";
    // The MQTT client id; empty: a new unique one. Answers come to
    // "<prefix>/replies/<clientId>".
    std::string clientId;
    // Sent as the "user" user property of every request; none when empty.
    std::string user;
    std::chrono::seconds keepAlive{30};
};

// One device's answer to a request. A plain value type.
struct Reply {
    std::string device;
    // Whether an answer came in time; when not, the rest is empty.
    bool answered = false;
    unsigned int status = 0;  // the answer's "status" property
    int code = 0;             // the answer's "code" property
    std::string body;         // the JSON answer
};

// One retained or live message of a device's events topic. A plain value type.
struct Event {
    std::string device;
    std::string uri;  // "/network/interfaces/wan"
    std::string body;
    bool retained = false;  // the broker's last state rather than a new change
};

// The operator's side of the binding: sends requests to devices through the broker and waits
// for their answers, lists the online devices and follows events. Each method that waits does
// so on the calling thread; the methods may be called from several threads at once, except
// watch callbacks, which run on the client's network thread and must not call back into the
// client. Neither copyable nor movable.
class Client {
  public:
    // Does not connect yet.
    explicit Client(ClientOptions options);
    // Disconnects.
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Connects to the broker and subscribes to the client's reply topic, waiting at most
    // `patience`. Throws std::runtime_error("Cannot connect to <host>:<port>: <reason>").
    void connect(std::chrono::milliseconds patience);
    // Sends one request to `device` and waits at most `patience` for its answer. `target` is
    // the uri with an optional query ("network?expand=2"), whose arguments become user
    // properties; `method` is "read", "update", "create", "delete" or "schema".
    Reply request(const std::string& device, const std::string& method, const std::string& target,
                  const std::string& body, std::chrono::milliseconds patience);
    // Sends the same request to every device of `devices` at once and waits at most `patience`
    // for all answers; one Reply per device, in the order of `devices`.
    std::vector<Reply> requestAll(const std::vector<std::string>& devices,
                                  const std::string& method, const std::string& target,
                                  const std::string& body, std::chrono::milliseconds patience);
    // The devices whose presence topic holds "true", sorted: the retained presences that arrive
    // within `settle` of subscribing to them.
    std::vector<std::string> onlineDevices(std::chrono::milliseconds settle);
    // Calls `onEvent` for each message of the events topic of `uri` on `device` ("+" for every
    // device; uri "#" for every uri), retained ones first, until unwatch().
    void watch(const std::string& device, const std::string& uri,
               std::function<void(const Event&)> onEvent);
    // Stops every watch.
    void unwatch();

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace mqtt
}  // namespace dme
