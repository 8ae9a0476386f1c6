// dme-device-server: serves the example gateway model (docs/example.md) over HTTP.
//
//     dme-device-server [--bind ADDRESS] [--port PORT] [--factory FILE] [--state-dir DIR]
//                       [--state-interval MS] [--tls-cert FILE --tls-key FILE]
//                       [--access-log FILE] [--cors ORIGIN]...
//                       [--mqtt HOST:PORT [--device-id ID] [--mqtt-prefix PREFIX]
//                        [--mqtt-user NAME] [--mqtt-credentials USER:PASSWORD]
//                        [--mqtt-event URI]...] [--help]
//
// Listens on 127.0.0.1:8080 unless told otherwise (the PORT environment variable also sets the
// port). Users authenticate with HTTP Basic: guest, operator and admin, each with its own name
// as password. With --mqtt it is also a device of an MQTT broker (docs/mqtt.md). Stops cleanly
// on SIGINT and SIGTERM.

#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "device_model.h"
#include "dme/engine.h"
#include "dme/http/server.h"
#include "dme/mqtt/device.h"
#include "dme/saved_configuration.h"

namespace {

constexpr const char* USAGE =
    "usage: dme-device-server [--bind ADDRESS] [--port PORT] [--factory FILE] [--state-dir DIR]\n"
    "                         [--state-interval MS] [--tls-cert FILE --tls-key FILE]\n"
    "                         [--access-log FILE] [--cors ORIGIN]...\n"
    "                         [--mqtt HOST:PORT [--device-id ID] [--mqtt-prefix PREFIX]\n"
    "                          [--mqtt-user NAME] [--mqtt-credentials USER:PASSWORD]\n"
    "                          [--mqtt-event URI]...] [--help]\n"
    "  --bind ADDRESS        address to listen on (default 127.0.0.1)\n"
    "  --port PORT           port to listen on (default $PORT, else 8080; 0 picks a free one)\n"
    "  --factory FILE        the JSON file shown under /factory (default: the shipped one)\n"
    "  --state-dir DIR       keep the gateway's configuration in DIR/configuration.json\n"
    "  --state-interval MS   least time between two writes of it (default 1000)\n"
    "  --tls-cert FILE       serve HTTPS with this PEM certificate (with --tls-key)\n"
    "  --tls-key FILE        the PEM private key of that certificate\n"
    "  --access-log FILE     append one line per request to FILE (- for standard output)\n"
    "  --cors ORIGIN         let pages from ORIGIN call the server from a browser (* for any)\n"
    "  --mqtt HOST:PORT      also serve the model through this MQTT broker\n"
    "  --device-id ID        the device's topic level (default gateway)\n"
    "  --mqtt-prefix PREFIX  the first topic level(s) (default dme)\n"
    "  --mqtt-user NAME      run every MQTT request as this user (default: the one that the\n"
    "                        request's \"user\" property names)\n"
    "  --mqtt-credentials USER:PASSWORD   the device's login at the broker\n"
    "  --mqtt-event URI      publish the changes of URI (default /system and /status)\n"
    "  --help                print this and exit\n";

// How often observers of /status are told that the simulated counters moved.
constexpr std::chrono::seconds STATUS_PERIOD{5};

struct Options {
    std::string bindAddress = "127.0.0.1";
    unsigned short port = 8080;
    std::string factoryFile = DME_DEVICE_FACTORY_DEFAULT;
    std::string stateDirectory;
    std::chrono::milliseconds stateInterval{1000};
    std::string tlsCertificateFile;
    std::string tlsKeyFile;
    std::string accessLogFile;
    std::vector<std::string> corsOrigins;
    std::string mqttBroker;
    std::string deviceId = "gateway";
    std::string mqttPrefix = "dme";
    std::string mqttUser;
    std::string mqttCredentials;
    std::vector<std::string> mqttEvents;
    bool help = false;
};

// How often a published uri is sent at most.
constexpr std::chrono::milliseconds EVENT_INTERVAL{1000};

// The parts of the gateway whose writable values are kept in the state directory.
const std::vector<std::string> SAVED_SUBTREES = {"/system",
                                                 "/labels",
                                                 "/network/interfaces/wan",
                                                 "/network/interfaces/lan",
                                                 "/network/interfaces/wlan",
                                                 "/network/defaultRoute",
                                                 "/network/dnsServers"};

unsigned short parsePort(const std::string& text) {
    std::size_t used = 0;
    const unsigned long port = std::stoul(text, &used);
    if (used != text.size() || port > 65535) throw std::invalid_argument(text);
    return static_cast<unsigned short>(port);
}

Options parseOptions(int argc, char** argv) {
    Options options;
    if (const char* port = std::getenv("PORT"); port != nullptr && *port != '\0') {
        options.port = parsePort(port);
    }
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help") {
            options.help = true;
            continue;
        }
        if (i + 1 >= argc) throw std::invalid_argument(option);
        const std::string value = argv[++i];
        if (option == "--bind") {
            options.bindAddress = value;
        } else if (option == "--port") {
            options.port = parsePort(value);
        } else if (option == "--factory") {
            options.factoryFile = value;
        } else if (option == "--state-dir") {
            options.stateDirectory = value;
        } else if (option == "--tls-cert") {
            options.tlsCertificateFile = value;
        } else if (option == "--tls-key") {
            options.tlsKeyFile = value;
        } else if (option == "--access-log") {
            options.accessLogFile = value;
        } else if (option == "--cors") {
            options.corsOrigins.push_back(value);
        } else if (option == "--mqtt") {
            options.mqttBroker = value;
        } else if (option == "--device-id") {
            options.deviceId = value;
        } else if (option == "--mqtt-prefix") {
            options.mqttPrefix = value;
        } else if (option == "--mqtt-user") {
            options.mqttUser = value;
        } else if (option == "--mqtt-credentials") {
            options.mqttCredentials = value;
        } else if (option == "--mqtt-event") {
            options.mqttEvents.push_back(value);
        } else if (option == "--state-interval") {
            options.stateInterval = std::chrono::milliseconds(std::stoul(value));
        } else {
            throw std::invalid_argument(option);
        }
    }
    return options;
}

// The built-in users, each with its own name as password.
std::optional<dme::SessionInfo> authenticate(const std::string& user, const std::string& password) {
    if (password != user) return std::nullopt;
    return example::builtInSession(user);
}

// The device of the broker named by --mqtt, sharing the server's engine lock; none without it.
std::unique_ptr<dme::mqtt::Device> mqttDevice(const Options& options,
                                              dme::JsonDataModelEngine& engine,
                                              std::mutex& engineMutex) {
    if (options.mqttBroker.empty()) return nullptr;
    const std::size_t colon = options.mqttBroker.rfind(':');
    if (colon == std::string::npos) throw std::invalid_argument("--mqtt " + options.mqttBroker);
    dme::mqtt::DeviceOptions device;
    device.host = options.mqttBroker.substr(0, colon);
    device.port = parsePort(options.mqttBroker.substr(colon + 1));
    device.deviceId = options.deviceId;
    device.prefix = options.mqttPrefix;
    const std::size_t separator = options.mqttCredentials.find(':');
    device.username = options.mqttCredentials.substr(0, separator);
    if (separator != std::string::npos)
        device.password = options.mqttCredentials.substr(separator + 1);
    const std::string fixedUser = options.mqttUser;
    device.sessionMapper = [fixedUser](const dme::mqtt::RequestOrigin& origin) {
        return example::builtInSession(fixedUser.empty() ? origin.user : fixedUser);
    };
    device.engineMutex = &engineMutex;
    auto created = std::make_unique<dme::mqtt::Device>(engine, device);
    const dme::RequestInfo guest(*example::builtInSession("guest"), {});
    const std::vector<std::string> published = options.mqttEvents.empty()
                                                   ? std::vector<std::string>{"/system", "/status"}
                                                   : options.mqttEvents;
    for (const std::string& uri : published) {
        if (created->publishEvents(uri, EVENT_INTERVAL, dme::Arguments(), guest) != 0) {
            throw std::runtime_error("Cannot publish the events of " + uri);
        }
    }
    return created;
}

// Tells the observers of /status every STATUS_PERIOD that the simulated counters moved, on a
// thread of its own, until destroyed.
class StatusTicker {
  public:
    StatusTicker(example::DeviceModel& model, std::mutex& engineMutex)
        : thread_([this, &model, &engineMutex] {
              std::unique_lock<std::mutex> lock(mutex_);
              while (!wakeUp_.wait_for(lock, STATUS_PERIOD, [this] { return stopping_; })) {
                  std::lock_guard<std::mutex> engineLock(engineMutex);
                  model.notifyStatusChange();
              }
          }) {}
    ~StatusTicker() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        wakeUp_.notify_all();
        thread_.join();
    }

  private:
    std::mutex mutex_;
    std::condition_variable wakeUp_;
    bool stopping_ = false;
    std::thread thread_;
};

// Writes one line per exchange: time (UTC), user ("-" for none), "method target", status, body
// bytes and duration in microseconds.
dme::http::AccessLog accessLogTo(std::ostream& out) {
    return [&out](const dme::http::AccessLogEntry& entry) {
        const std::time_t now = std::time(nullptr);
        std::tm utc{};
        gmtime_r(&now, &utc);
        char time[32];
        std::strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%SZ", &utc);
        out << time << ' ' << (entry.user.empty() ? "-" : entry.user) << " \"" << entry.method
            << ' ' << entry.target << "\" " << entry.status << ' ' << entry.bytes << ' '
            << entry.duration.count() << "us" << std::endl;
    };
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    try {
        options = parseOptions(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << "dme-device-server: invalid argument " << e.what() << "\n" << USAGE;
        return 2;
    }
    if (options.help) {
        std::cout << USAGE;
        return 0;
    }
    try {
        example::DeviceModel model(options.factoryFile);
        dme::JsonDataModelEngine engine(model.dataModel(), "gateway");
        dme::http::ServerOptions serverOptions;
        serverOptions.bindAddress = options.bindAddress;
        serverOptions.port = options.port;
        serverOptions.authenticator = authenticate;
        serverOptions.realm = "gateway";
        serverOptions.tlsCertificateFile = options.tlsCertificateFile;
        serverOptions.tlsKeyFile = options.tlsKeyFile;
        serverOptions.corsOrigins = options.corsOrigins;
        serverOptions.console = true;
        std::ofstream logFile;
        if (options.accessLogFile == "-") {
            serverOptions.accessLog = accessLogTo(std::cout);
        } else if (!options.accessLogFile.empty()) {
            logFile.open(options.accessLogFile, std::ios::app);
            if (!logFile) throw std::runtime_error("Cannot open " + options.accessLogFile);
            serverOptions.accessLog = accessLogTo(logFile);
        }
        dme::http::Server server(engine, serverOptions);
        const dme::RequestInfo administrator(*example::builtInSession("admin"), {});
        std::unique_ptr<dme::SavedConfiguration> saved;
        if (!options.stateDirectory.empty()) {
            saved = std::make_unique<dme::SavedConfiguration>(
                engine, server.engineMutex(),
                dme::SavedConfiguration::Options{options.stateDirectory + "/configuration.json",
                                                 SAVED_SUBTREES, options.stateInterval,
                                                 &administrator});
            for (const std::string& problem : saved->restore()) {
                std::cerr << "dme-device-server: " << problem << std::endl;
            }
            saved->flush();
            saved->start();
        }
        const std::unique_ptr<dme::mqtt::Device> device =
            mqttDevice(options, engine, server.engineMutex());
        server.start();
        if (device) device->start();
        const std::string scheme = options.tlsCertificateFile.empty() ? "http" : "https";
        std::cout << "dme-device-server: serving the example gateway on " << scheme << "://"
                  << options.bindAddress << ":" << server.port() << "/api\n"
                  << "  console: " << scheme << "://" << options.bindAddress << ":" << server.port()
                  << "/\n"
                  << "  try: curl -u guest:guest '" << scheme << "://" << options.bindAddress << ":"
                  << server.port() << "/api/network?expand=3'\n"
                  << "  users: guest, operator, admin (password: the user name)\n";
        if (device) {
            std::cout << "  mqtt: device " << device->topicBase() << " of the broker "
                      << options.mqttBroker << "\n";
        }
        std::cout << "  stop with Ctrl-C" << std::endl;
        {
            const StatusTicker ticker(model, server.engineMutex());
            server.run();
        }
        if (device) device->stop();
        if (saved) saved->stop();
        std::cout << "dme-device-server: stopped" << std::endl;
        return 0;
    } catch (const std::exception& e) {
        std::cerr << "dme-device-server: " << e.what() << std::endl;
        return 1;
    }
}
