// A fleet on one broker: 200 engines of the example gateway (DME_FLEET_SIZE in the environment
// for another number), each its own device, and one client that reads a value from all of them
// and updates a setting on all of them. Prints the times, the broker's memory and every
// device's answer; with DME_FLEET_ROUNDS=N, also the rate of N more reads from all of them.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "mqtt_fixture.h"

namespace dme {
namespace mqtt {
namespace test {
namespace {

using Clock = std::chrono::steady_clock;

int fromEnvironment(const char* name, int otherwise) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::atoi(value) : otherwise;
}
constexpr std::chrono::milliseconds FLEET_PATIENCE{60000};

// One device of the fleet: its model, engine and binding.
struct Member {
    Member(const std::string& id, unsigned short port)
        : model(DME_DEVICE_FACTORY), engine(model.dataModel(), id) {
        DeviceOptions options;
        options.port = port;
        options.deviceId = id;
        options.sessionMapper = [](const RequestOrigin& origin) {
            return example::builtInSession(origin.user);
        };
        device = std::make_unique<Device>(engine, options);
    }

    std::string run(Method method, const std::string& uri, const std::string& body) {
        std::string out;
        std::lock_guard<std::mutex> lock(device->engineMutex());
        engine.execute(method, uri, Arguments(), RequestInfo(*example::builtInSession("admin"), {}),
                       body, out, false);
        return out;
    }

    example::DeviceModel model;
    JsonDataModelEngine engine;
    std::unique_ptr<Device> device;
};

std::string idOf(int index) {
    std::ostringstream id;
    id << "gw-" << std::setw(3) << std::setfill('0') << index;
    return id.str();
}

long long millisecondsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

TEST(Fleet, OneClientReadsFromAndUpdatesTwoHundredDevices) {
    const int FLEET_SIZE = fromEnvironment("DME_FLEET_SIZE", 200);
    Broker broker;
    std::map<std::string, std::unique_ptr<Member>> fleet;
    const auto startOfConnections = Clock::now();
    for (int i = 0; i < FLEET_SIZE; ++i) {
        const std::string id = idOf(i);
        auto member = std::make_unique<Member>(id, broker.port());
        member->run(UPDATE, "/system/location", "\"rack " + std::to_string(i) + "\"");
        member->device->start();
        fleet.emplace(id, std::move(member));
    }
    for (const auto& [id, member] : fleet) {
        ASSERT_TRUE(member->device->waitUntilConnected(FLEET_PATIENCE)) << id;
    }
    const long long connecting = millisecondsSince(startOfConnections);

    ClientOptions options;
    options.port = broker.port();
    options.user = "admin";
    Client client(options);
    client.connect(PATIENCE);
    const std::vector<std::string> online = client.onlineDevices(std::chrono::milliseconds(1000));
    ASSERT_EQ(online.size(), static_cast<std::size_t>(FLEET_SIZE));

    const auto startOfRead = Clock::now();
    const std::vector<Reply> reads =
        client.requestAll(online, "read", "system/location", "", FLEET_PATIENCE);
    const long long reading = millisecondsSince(startOfRead);

    const auto startOfUpdate = Clock::now();
    const std::vector<Reply> updates =
        client.requestAll(online, "update", "system/timezoneOffset", "120", FLEET_PATIENCE);
    const long long updating = millisecondsSince(startOfUpdate);

    std::cout << "fleet: " << FLEET_SIZE << " devices connected in " << connecting
              << " ms; read from all in " << reading << " ms; updated all in " << updating
              << " ms; broker resident memory " << broker.residentKilobytes() << " kB\n";
    for (std::size_t i = 0; i < online.size(); ++i) {
        std::cout << "  " << reads[i].device << ": read " << reads[i].status << " " << reads[i].body
                  << ", update " << updates[i].status << "\n";
        const std::string suffix = reads[i].device.substr(3);
        EXPECT_TRUE(reads[i].answered) << reads[i].device;
        EXPECT_EQ(reads[i].status, 200u) << reads[i].device;
        EXPECT_EQ(reads[i].body, "\"rack " + std::to_string(std::stoi(suffix)) + "\"");
        EXPECT_TRUE(updates[i].answered) << updates[i].device;
        EXPECT_EQ(updates[i].status, 200u) << updates[i].device;
    }
    for (const auto& [id, member] : fleet) {
        EXPECT_EQ(member->run(READ, "/system/timezoneOffset", ""), "120") << id;
    }

    const int rounds = fromEnvironment("DME_FLEET_ROUNDS", 0);
    if (rounds <= 0) return;
    const auto startOfRounds = Clock::now();
    std::size_t answered = 0;
    for (int round = 0; round < rounds; ++round) {
        for (const Reply& reply :
             client.requestAll(online, "read", "system/location", "", FLEET_PATIENCE)) {
            answered += reply.answered ? 1 : 0;
        }
    }
    const long long elapsed = millisecondsSince(startOfRounds);
    EXPECT_EQ(answered, online.size() * static_cast<std::size_t>(rounds));
    std::cout << "fleet: " << answered << " reads answered in " << elapsed << " ms, "
              << answered * 1000 / static_cast<std::size_t>(std::max(elapsed, 1LL))
              << " per second\n";
}

}  // namespace
}  // namespace test
}  // namespace mqtt
}  // namespace dme
