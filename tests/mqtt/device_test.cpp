// Requests through a real broker: each method end to end, the errors and their "status" and
// "code" properties, sessions from the "user" property.
#include <mosquitto.h>

#include <functional>
#include <future>
#include <thread>

#include "mqtt_fixture.h"

namespace dme {
namespace mqtt {
namespace test {
namespace {

class DeviceRequestTest : public MqttDeviceTest {
  protected:
    void SetUp() override { startDevice(); }

    // Sends `body` as an update of `uri` on behalf of `user`: it must be refused with `status`,
    // `code` and an error document, and leave /system as it was.
    void expectRefusedUpdate(const std::string& user, const std::string& uri,
                             const std::string& body, unsigned int status, int code) {
        const std::string before = directRead("/system", "", "admin");
        const Reply reply = connectedClient(user)->request("gw1", "update", uri, body, PATIENCE);
        ASSERT_TRUE(reply.answered);
        EXPECT_EQ(reply.status, status);
        EXPECT_EQ(reply.code, code);
        EXPECT_NE(reply.body.find("\"error\""), std::string::npos) << reply.body;
        EXPECT_EQ(directRead("/system", "", "admin"), before);
    }

    // Waits until `done` holds, at most PATIENCE.
    static void waitFor(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
        while (!done() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
};

TEST_F(DeviceRequestTest, ReadAnswersTheEnginesJsonWithStatus200AndCode0) {
    const Reply reply = connectedClient("guest")->request("gw1", "read", "system", "", PATIENCE);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, 200u);
    EXPECT_EQ(reply.code, 0);
    EXPECT_EQ(reply.body, directRead("/system", "", "guest"));
}

TEST_F(DeviceRequestTest, UserPropertiesAreTheQueryArguments) {
    const Reply reply =
        connectedClient("guest")->request("gw1", "read", "network?expand=2", "", PATIENCE);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, 200u);
    EXPECT_EQ(reply.body, directRead("/network", "expand=2", "guest"));
    EXPECT_NE(reply.body, directRead("/network", "", "guest"));
}

TEST_F(DeviceRequestTest, TheRootIsTheTopicWithoutAUri) {
    const Reply reply = connectedClient("guest")->request("gw1", "read", "", "", PATIENCE);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, 200u);
    EXPECT_EQ(reply.body, directRead("/", "", "guest"));
}

TEST_F(DeviceRequestTest, UpdateWritesTheValue) {
    const Reply reply = connectedClient("admin")->request("gw1", "update", "system/location",
                                                          "\"attic\"", PATIENCE);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, 200u);
    EXPECT_EQ(reply.code, 0);
    EXPECT_EQ(directRead("/system/location", "", "admin"), "\"attic\"");
}

TEST_F(DeviceRequestTest, CreateAnswers201AndDeleteRemovesTheItem) {
    const auto client = connectedClient("admin");
    const Reply created = client->request(
        "gw1", "create", "users",
        R"({"name":"carol","role":"guest","enabled":true,"password":"long enough"})", PATIENCE);
    ASSERT_TRUE(created.answered);
    EXPECT_EQ(created.status, 201u);
    EXPECT_EQ(created.code, 0);
    EXPECT_NE(directRead("/users/3", "", "admin").find("carol"), std::string::npos);

    const Reply deleted = client->request("gw1", "delete", "users/3", "", PATIENCE);
    ASSERT_TRUE(deleted.answered);
    EXPECT_EQ(deleted.status, 200u);
    EXPECT_EQ(deleted.code, 0);
    const Reply gone = client->request("gw1", "read", "users/3", "", PATIENCE);
    EXPECT_EQ(gone.status, 404u);
}

TEST_F(DeviceRequestTest, SchemaAnswersTheNodesSchema) {
    const Reply reply =
        connectedClient("guest")->request("gw1", "schema", "system/timezoneOffset", "", PATIENCE);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, 200u);
    EXPECT_NE(reply.body.find("840"), std::string::npos) << reply.body;
}

TEST_F(DeviceRequestTest, AMalformedBodyIs400WithTheParsersReason) {
    const Reply reply =
        connectedClient("admin")->request("gw1", "update", "system", "{\"location\":", PATIENCE);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, 400u);
    EXPECT_EQ(reply.code, 10);
    EXPECT_NE(reply.body.find("\"Malformed JSON\""), std::string::npos) << reply.body;
}

TEST_F(DeviceRequestTest, AValueOutOfRangeIs400AndChangesNothing) {
    expectRefusedUpdate("admin", "system", R"({"location":"hall","timezoneOffset":9999})", 400, 10);
}

TEST_F(DeviceRequestTest, AWriteTheSessionMayNotMakeIs403WithCode6) {
    expectRefusedUpdate("guest", "system/location", "\"cellar\"", 403, 6);
}

TEST_F(DeviceRequestTest, AnUnknownUriIs404) {
    const Reply reply = connectedClient("guest")->request("gw1", "read", "nowhere", "", PATIENCE);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, 404u);
    EXPECT_EQ(reply.code, 3);
    EXPECT_NE(reply.body.find("\"code\":404"), std::string::npos) << reply.body;
}

TEST_F(DeviceRequestTest, AnUnknownMethodIs400WithCode7) {
    const Reply reply = connectedClient("guest")->request("gw1", "fetch", "system", "", PATIENCE);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, 400u);
    EXPECT_EQ(reply.code, 7);
}

TEST_F(DeviceRequestTest, ARequestWithoutAUserIs401) {
    const Reply reply = connectedClient("")->request("gw1", "read", "system", "", PATIENCE);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, 401u);
    EXPECT_EQ(reply.code, 6);
    EXPECT_EQ(reply.body, R"({"error":{"code":401,"message":"Unauthorized","details":[]}})");
}

TEST_F(DeviceRequestTest, AUserTheMapperRefusesIs403) {
    const Reply reply = connectedClient("root")->request("gw1", "read", "system", "", PATIENCE);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, 403u);
    EXPECT_EQ(reply.code, 6);
}

TEST_F(DeviceRequestTest, ThePayloadLimitIsAnswered413) {
    device_->stop();
    options_.maxPayloadBytes = 16;
    startDevice();
    const Reply reply = connectedClient("admin")->request(
        "gw1", "update", "system/location", "\"a location of more than 16 bytes\"", PATIENCE);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, 413u);
    EXPECT_EQ(directRead("/system/location", "", "admin"), "\"\"");
}

TEST_F(DeviceRequestTest, ARequestWithoutAResponseTopicIsCountedAndLeftUnanswered) {
    {
        RawPublisher raw(broker_.port());
        EXPECT_EQ(raw.publish("dme/gw1/req/read/system", nullptr), MOSQ_ERR_SUCCESS);
        waitFor([this] { return device_->statistics().unanswerable > 0; });
    }
    EXPECT_EQ(device_->statistics().unanswerable, 1u);
    EXPECT_EQ(device_->statistics().requests, 1u);
    EXPECT_EQ(device_->statistics().answers, 0u);
}

TEST_F(DeviceRequestTest, ResponseTopicsThatNoMessageMayHaveDoNotStallTheDevice) {
    // More of them than the window of unacknowledged messages holds.
    const std::size_t hostile = options_.maxInFlight + 8;
    {
        RawPublisher raw(broker_.port());
        for (std::size_t i = 0; i < hostile; ++i) {
            raw.publish("dme/gw1/req/read/system", i % 2 == 0 ? "replies/+" : "replies/#");
        }
        waitFor([&] { return device_->statistics().requests >= hostile; });
    }
    const Reply reply = connectedClient("guest")->request("gw1", "read", "system", "", PATIENCE);
    ASSERT_TRUE(reply.answered);
    EXPECT_EQ(reply.status, 200u);
    const DeviceStatistics statistics = device_->statistics();
    EXPECT_EQ(statistics.requests, statistics.unanswerable + 1);
    EXPECT_EQ(statistics.answers, 1u);
}

TEST_F(DeviceRequestTest, ConcurrentRequestsEachGetTheirOwnAnswer) {
    const auto client = connectedClient("admin");
    const std::string expected = directRead("/system/timezoneOffset", "", "admin");
    std::vector<std::thread> writers;
    std::vector<Reply> replies(8);
    for (std::size_t i = 0; i < replies.size(); ++i) {
        writers.emplace_back([&, i] {
            replies[i] = client->request("gw1", "read", "system/timezoneOffset", "", PATIENCE);
        });
    }
    for (std::thread& writer : writers) writer.join();
    for (const Reply& reply : replies) {
        EXPECT_TRUE(reply.answered);
        EXPECT_EQ(reply.body, expected);
    }
    EXPECT_EQ(device_->statistics().answers, replies.size());
}

TEST_F(DeviceRequestTest, RequestsBeyondTheQueueAreAnswered503AtOnce) {
    device_->stop();
    options_.maxQueuedRequests = 1;
    startDevice();
    const auto client = connectedClient("guest");
    std::future<std::vector<Reply>> replies;
    {
        // The request thread waits for the engine: one request is taken, one waits, the rest
        // overflow.
        std::lock_guard<std::mutex> busy(device_->engineMutex());
        replies = std::async(std::launch::async, [&] {
            return client->requestAll({"gw1", "gw1", "gw1", "gw1"}, "read", "system/hostname", "",
                                      PATIENCE);
        });
        waitFor([this] { return device_->statistics().answers >= 2; });
    }
    std::size_t ok = 0;
    std::size_t unavailable = 0;
    for (const Reply& reply : replies.get()) {
        ASSERT_TRUE(reply.answered);
        ok += reply.status == 200 ? 1 : 0;
        if (reply.status == 503) {
            ++unavailable;
            EXPECT_EQ(reply.code, 1);
            EXPECT_NE(reply.body.find("\"code\":503"), std::string::npos) << reply.body;
        }
    }
    EXPECT_GE(ok, 1u);
    EXPECT_GE(unavailable, 2u);
    EXPECT_EQ(ok + unavailable, 4u);
}

TEST_F(DeviceRequestTest, PresenceIsRetainedTrueWhileConnectedAndFalseAfterStop) {
    const auto client = connectedClient("");
    EXPECT_EQ(client->onlineDevices(std::chrono::milliseconds(500)),
              std::vector<std::string>{"gw1"});
    device_->stop();
    EXPECT_TRUE(client->onlineDevices(std::chrono::milliseconds(500)).empty());
}

TEST_F(DeviceRequestTest, TheDeviceIdMustBeOneTopicLevel) {
    for (const std::string id : {"", "a/b", "a+", "#"}) {
        options_.deviceId = id;
        EXPECT_THROW(Device(engine_, options_), std::invalid_argument) << id;
    }
}

TEST_F(DeviceRequestTest, ThePrefixMustHaveNoWildcardsOrEmptyLevels) {
    for (const std::string prefix : {"", "a/+", "#", "/a", "a//b", "a/"}) {
        options_.prefix = prefix;
        EXPECT_THROW(Device(engine_, options_), std::invalid_argument) << prefix;
    }
}

TEST(DeviceStart, ABrokerThatIsNotThereIsTriedAgainUntilItComes) {
    Broker broker;
    broker.stop();
    example::DeviceModel model(DME_DEVICE_FACTORY);
    JsonDataModelEngine engine(model.dataModel(), "gateway");
    DeviceOptions options;
    options.port = broker.port();
    options.deviceId = "late";
    Device device(engine, options);
    device.start();
    EXPECT_FALSE(device.connected());
    broker.restart();
    EXPECT_TRUE(device.waitUntilConnected(std::chrono::milliseconds(30000)));
}

TEST(DeviceStart, StartingTwiceIsALogicError) {
    Broker broker;
    example::DeviceModel model(DME_DEVICE_FACTORY);
    JsonDataModelEngine engine(model.dataModel(), "gateway");
    DeviceOptions options;
    options.port = broker.port();
    options.deviceId = "twice";
    Device device(engine, options);
    device.start();
    EXPECT_THROW(device.start(), std::logic_error);
}

}  // namespace
}  // namespace test
}  // namespace mqtt
}  // namespace dme
