// The broker's ACLs and the device's session mapping together, as docs/mqtt.md sets them up:
// broker users log in with passwords, the method is a topic level that the ACL grants per user,
// and the device runs every request as one fixed role.
#include <cstdlib>
#include <fstream>

#include "mqtt_fixture.h"

namespace dme {
namespace mqtt {
namespace test {
namespace {

const char* const ACL = R"(pattern read dme/%u/req/#
pattern write dme/%u/events/#
pattern write dme/%u/online
pattern write dme/replies/#

user monitor
topic write dme/+/req/read/#
topic write dme/+/req/schema/#
topic read dme/+/events/#
topic read dme/+/online
pattern read dme/replies/%c

user fleet
topic write dme/+/req/#
topic read dme/#
)";

void writeAccounts(const std::string& directory) {
    std::ofstream(directory + "/acl") << ACL;
    const std::string passwords = directory + "/passwords";
    for (const std::string user : {"gw1", "monitor", "fleet"}) {
        const std::string command = "mosquitto_passwd -b " +
                                    std::string(user == "gw1" ? "-c " : "") + "'" + passwords +
                                    "' " + user + " " + user + "-secret";
        if (std::system(command.c_str()) != 0) throw std::runtime_error("mosquitto_passwd failed");
    }
}

class BrokerAclTest : public ::testing::Test {
  protected:
    BrokerAclTest()
        : broker_("allow_anonymous false\npassword_file passwords\nacl_file acl\n", writeAccounts),
          model_(DME_DEVICE_FACTORY),
          engine_(model_.dataModel(), "gateway") {}

    void SetUp() override {
        DeviceOptions options;
        options.port = broker_.port();
        options.deviceId = "gw1";
        options.username = "gw1";
        options.password = "gw1-secret";
        options.sessionMapper = [](const RequestOrigin&) {
            return example::builtInSession("operator");
        };
        device_ = std::make_unique<Device>(engine_, options);
        device_->start();
        ASSERT_TRUE(device_->waitUntilConnected(PATIENCE));
    }

    std::unique_ptr<Client> client(const std::string& login, const std::string& password) {
        ClientOptions options;
        options.port = broker_.port();
        options.username = login;
        options.password = password;
        options.clientId = login + "-console";
        auto connected = std::make_unique<Client>(options);
        connected->connect(PATIENCE);
        return connected;
    }

    std::string location() {
        std::string out;
        std::lock_guard<std::mutex> lock(device_->engineMutex());
        engine_.execute(READ, "/system/location", Arguments(),
                        RequestInfo(*example::builtInSession("admin"), {}), "", out, false);
        return out;
    }

    Broker broker_;
    example::DeviceModel model_;
    JsonDataModelEngine engine_;
    std::unique_ptr<Device> device_;
};

TEST_F(BrokerAclTest, AMonitorMayReadButItsWritesNeverReachTheDevice) {
    const auto monitor = client("monitor", "monitor-secret");
    const Reply read = monitor->request("gw1", "read", "system/hostname", "", PATIENCE);
    ASSERT_TRUE(read.answered);
    EXPECT_EQ(read.status, 200u);

    const Reply write = monitor->request("gw1", "update", "system/location", "\"roof\"",
                                         std::chrono::milliseconds(1500));
    EXPECT_FALSE(write.answered);
    EXPECT_EQ(device_->statistics().requests, 1u);
}

TEST_F(BrokerAclTest, TheFleetManagerWritesWithTheDevicesFixedRole) {
    const auto fleet = client("fleet", "fleet-secret");
    const Reply network =
        fleet->request("gw1", "update", "network/interfaces/wan/mtu", "1400", PATIENCE);
    ASSERT_TRUE(network.answered);
    EXPECT_EQ(network.status, 200u);
    // The fixed role is operator, which may not change the system settings, whoever asks.
    const Reply system = fleet->request("gw1", "update", "system/location", "\"roof\"", PATIENCE);
    ASSERT_TRUE(system.answered);
    EXPECT_EQ(system.status, 403u);
    EXPECT_EQ(location(), "\"\"");
}

TEST_F(BrokerAclTest, AWrongPasswordCannotConnect) {
    try {
        client("fleet", "guess");
        FAIL() << "connected with a wrong password";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("Cannot connect to 127.0.0.1:"), std::string::npos)
            << e.what();
    }
}

}  // namespace
}  // namespace test
}  // namespace mqtt
}  // namespace dme
