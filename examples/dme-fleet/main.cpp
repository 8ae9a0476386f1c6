// dme-fleet: requests to the devices of an MQTT broker, one device or every online one.
//
//     dme-fleet [OPTIONS] list
//     dme-fleet [OPTIONS] read|schema|delete TARGET (--device ID | --all)
//     dme-fleet [OPTIONS] update|create TARGET BODY (--device ID | --all)
//     dme-fleet [OPTIONS] watch URI (--device ID | --all) [--count N]
//
// TARGET is a uri with an optional query ('network?expand=2'). With one device the answer is
// printed as it came; with --all, one line per online device: its id, the status and the answer.
// Exits 0 when every answer has a status below 400, 1 when one has not or none came in time,
// 2 for a command line it cannot run and 3 when the broker cannot be reached.

#include <atomic>
#include <csignal>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "dme/mqtt/client.h"

namespace {

constexpr const char* USAGE =
    "usage: dme-fleet [OPTIONS] list\n"
    "       dme-fleet [OPTIONS] read|schema|delete TARGET (--device ID | --all)\n"
    "       dme-fleet [OPTIONS] update|create TARGET BODY (--device ID | --all)\n"
    "       dme-fleet [OPTIONS] watch URI (--device ID | --all) [--count N]\n"
    "options:\n"
    "  --broker HOST:PORT    the broker (default 127.0.0.1:1883)\n"
    "  --prefix PREFIX       the devices' first topic level(s) (default dme)\n"
    "  --user NAME           the user that requests name (their \"user\" property)\n"
    "  --credentials USER:PASSWORD   the login at the broker\n"
    "  --timeout MS          how long to wait for answers (default 5000)\n"
    "  --help                print this and exit\n";

constexpr unsigned int FIRST_ERROR_STATUS = 400;
// How long retained presences are collected for `list` and `--all`.
constexpr std::chrono::milliseconds PRESENCE_SETTLE{500};

struct Command {
    dme::mqtt::ClientOptions client;
    std::chrono::milliseconds timeout{5000};
    std::vector<std::string> words;  // the command and its operands
    std::string device;
    bool all = false;
    long count = -1;  // events to watch for; -1: until interrupted
    bool help = false;
};

std::atomic<bool> interrupted{false};

unsigned short parsePort(const std::string& text) {
    std::size_t used = 0;
    const unsigned long port = std::stoul(text, &used);
    if (used != text.size() || port == 0 || port > 65535) throw std::invalid_argument(text);
    return static_cast<unsigned short>(port);
}

void setBroker(dme::mqtt::ClientOptions& client, const std::string& broker) {
    const std::size_t colon = broker.rfind(':');
    if (colon == std::string::npos) throw std::invalid_argument("--broker " + broker);
    client.host = broker.substr(0, colon);
    client.port = parsePort(broker.substr(colon + 1));
}

Command parseCommand(int argc, char** argv) {
    Command command;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--help") {
            command.help = true;
        } else if (word == "--all") {
            command.all = true;
        } else if (word.compare(0, 2, "--") != 0) {
            command.words.push_back(word);
        } else if (i + 1 >= argc) {
            throw std::invalid_argument(word);
        } else {
            const std::string value = argv[++i];
            if (word == "--broker") {
                setBroker(command.client, value);
            } else if (word == "--prefix") {
                command.client.prefix = value;
            } else if (word == "--user") {
                command.client.user = value;
            } else if (word == "--credentials") {
                const std::size_t colon = value.find(':');
                command.client.username = value.substr(0, colon);
                if (colon != std::string::npos) command.client.password = value.substr(colon + 1);
            } else if (word == "--timeout") {
                command.timeout = std::chrono::milliseconds(std::stoul(value));
            } else if (word == "--device") {
                command.device = value;
            } else if (word == "--count") {
                command.count = std::stol(value);
            } else {
                throw std::invalid_argument(word);
            }
        }
    }
    return command;
}

// The number of operands that `verb` takes, or -1 for an unknown verb.
int operandsOf(const std::string& verb) {
    if (verb == "list") return 0;
    if (verb == "read" || verb == "schema" || verb == "delete" || verb == "watch") return 1;
    if (verb == "update" || verb == "create") return 2;
    return -1;
}

void checkCommand(const Command& command) {
    if (command.words.empty()) throw std::invalid_argument("no command");
    const std::string& verb = command.words.front();
    const int operands = operandsOf(verb);
    if (operands < 0) throw std::invalid_argument(verb);
    if (static_cast<int>(command.words.size()) != operands + 1) {
        throw std::invalid_argument(verb + " takes " + std::to_string(operands) + " operand(s)");
    }
    if (verb != "list" && command.all == !command.device.empty()) {
        throw std::invalid_argument(verb + " needs either --device ID or --all");
    }
}

int list(dme::mqtt::Client& client) {
    for (const std::string& device : client.onlineDevices(PRESENCE_SETTLE)) {
        std::cout << device << "\n";
    }
    return 0;
}

int request(dme::mqtt::Client& client, const Command& command) {
    const std::string& verb = command.words[0];
    const std::string body = command.words.size() > 2 ? command.words[2] : std::string();
    const std::vector<std::string> devices =
        command.all ? client.onlineDevices(PRESENCE_SETTLE) : std::vector{command.device};
    const std::vector<dme::mqtt::Reply> replies =
        client.requestAll(devices, verb, command.words[1], body, command.timeout);
    int status = 0;
    for (const dme::mqtt::Reply& reply : replies) {
        if (!reply.answered || reply.status >= FIRST_ERROR_STATUS) status = 1;
        if (command.all) std::cout << reply.device << " ";
        if (!reply.answered) {
            std::cout << "no answer\n";
        } else if (command.all) {
            std::cout << reply.status << " " << reply.body << "\n";
        } else {
            std::cout << reply.body << "\n";
            if (reply.status >= FIRST_ERROR_STATUS) std::cerr << "status " << reply.status << "\n";
        }
    }
    return status;
}

int watch(dme::mqtt::Client& client, const Command& command) {
    std::atomic<long> seen{0};
    client.watch(command.all ? "+" : command.device, command.words[1],
                 [&seen](const dme::mqtt::Event& event) {
                     std::cout << event.device << " " << event.uri << " " << event.body
                               << std::endl;
                     ++seen;
                 });
    std::signal(SIGINT, [](int) { interrupted = true; });
    std::signal(SIGTERM, [](int) { interrupted = true; });
    while (!interrupted && (command.count < 0 || seen < command.count)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    client.unwatch();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Command command;
    try {
        command = parseCommand(argc, argv);
        if (command.help) {
            std::cout << USAGE;
            return 0;
        }
        checkCommand(command);
    } catch (const std::exception& e) {
        std::cerr << "dme-fleet: invalid argument " << e.what() << "\n" << USAGE;
        return 2;
    }
    dme::mqtt::Client client(command.client);
    try {
        client.connect(command.timeout);
    } catch (const std::exception& e) {
        std::cerr << "dme-fleet: " << e.what() << std::endl;
        return 3;
    }
    const std::string& verb = command.words[0];
    if (verb == "list") return list(client);
    if (verb == "watch") return watch(client, command);
    return request(client, command);
}
