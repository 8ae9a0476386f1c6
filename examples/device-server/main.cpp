// dme-device-server: serves the example gateway model (docs/example.md) over HTTP.
//
//     dme-device-server [--bind ADDRESS] [--port PORT] [--factory FILE] [--state-dir DIR]
//                       [--state-interval MS] [--tls-cert FILE --tls-key FILE]
//
// Listens on 127.0.0.1:8080 unless told otherwise (the PORT environment variable also sets the
// port). Users authenticate with HTTP Basic: guest, operator and admin, each with its own name
// as password. Stops cleanly on SIGINT and SIGTERM.

#include <pthread.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "device_model.h"
#include "dme/engine.h"
#include "dme/http/server.h"
#include "dme/saved_configuration.h"

namespace {

constexpr const char* USAGE =
    "usage: dme-device-server [--bind ADDRESS] [--port PORT] [--factory FILE] [--state-dir DIR]\n"
    "                         [--state-interval MS]\n"
    "  --bind ADDRESS        address to listen on (default 127.0.0.1)\n"
    "  --port PORT           port to listen on (default $PORT, else 8080; 0 picks a free one)\n"
    "  --factory FILE        the JSON file shown under /factory (default: the shipped one)\n"
    "  --state-dir DIR       keep the gateway's configuration in DIR/configuration.json\n"
    "  --state-interval MS   least time between two writes of it (default 1000)\n"
    "  --tls-cert FILE       serve HTTPS with this PEM certificate (with --tls-key)\n"
    "  --tls-key FILE        the PEM private key of that certificate\n";

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
};

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

// Blocks SIGINT and SIGTERM in every thread, so that main can wait for them with sigwait.
sigset_t blockStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

// Waits for a stop signal, telling the observers of /status every STATUS_PERIOD meanwhile.
void serveUntilStopped(const sigset_t& signals, example::DeviceModel& model,
                       dme::http::Server& server) {
    const timespec period{static_cast<time_t>(STATUS_PERIOD.count()), 0};
    while (sigtimedwait(&signals, nullptr, &period) < 0) {
        std::lock_guard<std::mutex> lock(server.engineMutex());
        model.notifyStatusChange();
    }
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
    const sigset_t signals = blockStopSignals();
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
        server.start();
        const std::string scheme = options.tlsCertificateFile.empty() ? "http" : "https";
        std::cout << "dme-device-server: serving the example gateway on " << scheme << "://"
                  << options.bindAddress << ":" << server.port() << "/api\n"
                  << "  try: curl -u guest:guest '" << scheme << "://" << options.bindAddress << ":"
                  << server.port() << "/api/network?expand=3'\n"
                  << "  users: guest, operator, admin (password: the user name)\n"
                  << "  stop with Ctrl-C" << std::endl;
        serveUntilStopped(signals, model, server);
        server.stop();
        if (saved) saved->stop();
        std::cout << "dme-device-server: stopped" << std::endl;
        return 0;
    } catch (const std::exception& e) {
        std::cerr << "dme-device-server: " << e.what() << std::endl;
        return 1;
    }
}
