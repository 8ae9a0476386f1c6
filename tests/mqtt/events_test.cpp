// Change events through a real broker: the retained last state, coalescing by the interval, no
// event for a refused write.
#include <thread>

#include "event_log.h"
#include "mqtt_fixture.h"

namespace dme {
namespace mqtt {
namespace test {
namespace {

using std::chrono::milliseconds;

const RequestInfo GUEST(*example::builtInSession("guest"), {});

class DeviceEventsTest : public MqttDeviceTest {
  protected:
    void SetUp() override { startDevice(); }

    void update(const std::string& uri, const std::string& body, unsigned int status = 200) {
        const Reply reply = writer_->request("gw1", "update", uri, body, PATIENCE);
        ASSERT_TRUE(reply.answered);
        ASSERT_EQ(reply.status, status) << reply.body;
    }

    // Publishes the events of `uri` at most once per `interval`, read as a guest, and returns a
    // client that watches them, once `log` holds the current state.
    std::unique_ptr<Client> watchPublished(const std::string& uri, milliseconds interval,
                                           EventLog& log) {
        EXPECT_EQ(device_->publishEvents(uri, interval, {}, GUEST), 0);
        auto watcher = connectedClient("");
        watcher->watch("gw1", uri, log.recorder());
        EXPECT_TRUE(log.waitForBody(directRead(uri, "", "guest"), PATIENCE));
        return watcher;
    }

    const std::unique_ptr<Client> writer_ = connectedClient("admin");
};

TEST_F(DeviceEventsTest, ANewSubscriberGetsTheRetainedLastStateAtOnce) {
    ASSERT_EQ(device_->publishEvents("/system/location", milliseconds(50), {}, GUEST), 0);
    EventLog live;
    const auto first = connectedClient("");
    first->watch("gw1", "system/location", live.recorder());
    update("system/location", "\"attic\"");
    ASSERT_TRUE(live.waitForBody("\"attic\"", PATIENCE));

    EventLog late;
    const auto second = connectedClient("");
    second->watch("gw1", "system/location", late.recorder());
    ASSERT_TRUE(late.waitForBody("\"attic\"", PATIENCE));
    const std::vector<Event> events = late.events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].device, "gw1");
    EXPECT_EQ(events[0].uri, "/system/location");
    EXPECT_TRUE(events[0].retained);
}

TEST_F(DeviceEventsTest, EachChangeIsPublishedWithTheNodesRead) {
    EventLog log;
    const auto watcher = watchPublished("/system", milliseconds(50), log);

    update("system/location", "\"hall\"");
    const std::string changed = directRead("/system", "", "guest");
    ASSERT_NE(changed.find("hall"), std::string::npos);
    EXPECT_TRUE(log.waitForBody(changed, PATIENCE));
    EXPECT_FALSE(log.events().back().retained);
}

TEST_F(DeviceEventsTest, ChangesWithinTheIntervalAreCoalesced) {
    const milliseconds interval(400);
    EventLog log;
    const auto watcher = watchPublished("/system/location", interval, log);

    const int changes = 30;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 1; i <= changes; ++i) update("system/location", "\"v" + std::to_string(i) + "\"");
    const auto elapsed = std::chrono::steady_clock::now() - start;
    ASSERT_TRUE(log.waitForBody("\"v30\"", PATIENCE));

    // The first event is the initial state; each interval of the writes allows one more, and
    // the last change may come one interval after them.
    const auto allowed = static_cast<std::size_t>(elapsed / interval) + 2;
    const std::size_t changeEvents = log.events().size() - 1;
    EXPECT_LE(changeEvents, allowed);
    EXPECT_LT(changeEvents, static_cast<std::size_t>(changes));
}

TEST_F(DeviceEventsTest, ARefusedWriteIsNoEvent) {
    EventLog log;
    const auto watcher = watchPublished("/system", milliseconds(50), log);
    const std::size_t published = device_->statistics().eventsPublished;

    update("system", R"({"location":"garage","timezoneOffset":9999})", 400);
    std::this_thread::sleep_for(milliseconds(1000));
    EXPECT_EQ(device_->statistics().eventsPublished, published);
    EXPECT_EQ(log.events().size(), 1u);

    update("system/location", "\"garage\"");
    EXPECT_TRUE(log.waitForBody(directRead("/system", "", "guest"), PATIENCE));
    EXPECT_EQ(log.events().size(), 2u);
}

TEST_F(DeviceEventsTest, AnEventIsReadWithTheReadersRights) {
    ASSERT_EQ(device_->publishEvents("/system", milliseconds(50)), 0);
    EventLog log;
    const auto watcher = connectedClient("");
    watcher->watch("+", "#", log.recorder());
    ASSERT_TRUE(log.waitFor([](const Event&) { return true; }, PATIENCE));
    const Event event = log.events().front();
    EXPECT_EQ(event.uri, "/system");
    EXPECT_NE(event.body.find("\"error\""), std::string::npos) << event.body;
    EXPECT_EQ(event.body.find("firmwareVersion"), std::string::npos) << event.body;
}

TEST_F(DeviceEventsTest, PublishingAnUnknownUriIsRefusedWithTheEnginesResult) {
    EXPECT_EQ(device_->publishEvents("/nowhere", milliseconds(50), {}, GUEST), 3);
}

}  // namespace
}  // namespace test
}  // namespace mqtt
}  // namespace dme
