#include <gtest/gtest.h>

#include <string>

#include "dme/http/server.h"
#include "http_client.h"
#include "http_fixture.h"

namespace dme {
namespace test {
namespace {

using EventStreamTest = HttpServerTest;

TEST_F(EventStreamTest, FirstEventCarriesTheCurrentStateAtOnce) {
    start();
    EventStreamClient stream(url("/api/events/name?interval=0"));
    ASSERT_TRUE(stream.waitForEvents(1));
    EXPECT_EQ("change", stream.events()[0].name);
    EXPECT_EQ("\"vara\"", stream.events()[0].data);
    EXPECT_EQ("text/event-stream", stream.contentType());
}

TEST_F(EventStreamTest, UpdateSendsTheNewState) {
    start();
    EventStreamClient stream(url("/api/events/name?interval=0"));
    ASSERT_TRUE(stream.waitForEvents(1));
    ASSERT_EQ(200, httpRequest("PUT", url("/api/name"), "\"quill\"").status);
    ASSERT_TRUE(stream.waitForEvents(2));
    EXPECT_EQ("change", stream.events()[1].name);
    EXPECT_EQ("\"quill\"", stream.events()[1].data);
}

TEST_F(EventStreamTest, StructureStateIsOneLineOfCompactJson) {
    http::ServerOptions options = baseOptions();
    options.beautify = true;
    start(options);
    EventStreamClient stream(url("/api/events?interval=0&select=name,port"));
    ASSERT_TRUE(stream.waitForEvents(1));
    EXPECT_EQ(R"({"href":"/","name":"vara","port":8080})", stream.events()[0].data);
}

TEST_F(EventStreamTest, ChangeBelowTheStreamedUriSendsAnEvent) {
    start();
    EventStreamClient stream(url("/api/events?interval=0&select=port"));
    ASSERT_TRUE(stream.waitForEvents(1));
    ASSERT_EQ(200, httpRequest("PUT", url("/api/port"), "9090").status);
    ASSERT_TRUE(stream.waitForEvents(2));
    EXPECT_EQ(R"({"href":"/","port":9090})", stream.events()[1].data);
}

TEST_F(EventStreamTest, IdleStreamReceivesHeartbeats) {
    start();
    EventStreamClient stream(url("/api/events/name"));
    EXPECT_TRUE(stream.waitForText(": heartbeat\n\n"));
}

TEST_F(EventStreamTest, ClosingTheStreamUnsubscribes) {
    start();
    EventStreamClient stream(url("/api/events/name?interval=0"));
    ASSERT_TRUE(stream.waitForEvents(1));
    EXPECT_EQ(1u, subscriptions());
    stream.close();
    EXPECT_TRUE(waitForNoSubscription());
}

TEST_F(EventStreamTest, OneStreamOverTheCapIs503) {
    http::ServerOptions options = baseOptions();
    options.maxStreams = 1;
    start(options);
    EventStreamClient first(url("/api/events/name"));
    ASSERT_TRUE(first.waitForEvents(1));
    const HttpReply second = get("/api/events/port", {"Accept: text/event-stream"});
    EXPECT_EQ(503, second.status);
    EXPECT_EQ(R"({"error":{"code":503,"message":"Service Unavailable","details":[]}})",
              second.body);
    EXPECT_EQ("application/json", second.header("content-type"));
    EXPECT_EQ(1u, subscriptions());
}

// A stream's slot comes free as soon as its client hangs up, so Retry-After asks for a second.
TEST_F(EventStreamTest, AnswerOverTheCapTellsWhenToRetry) {
    http::ServerOptions options = baseOptions();
    options.maxStreams = 1;
    start(options);
    EventStreamClient first(url("/api/events/name"));
    ASSERT_TRUE(first.waitForEvents(1));
    const HttpReply second = get("/api/events/port", {"Accept: text/event-stream"});
    EXPECT_EQ(503, second.status);
    EXPECT_EQ("1", second.header("retry-after"));
}

TEST_F(EventStreamTest, ClosedStreamFreesItsPlaceUnderTheCap) {
    http::ServerOptions options = baseOptions();
    options.maxStreams = 1;
    start(options);
    EventStreamClient first(url("/api/events/name"));
    ASSERT_TRUE(first.waitForEvents(1));
    first.close();
    ASSERT_TRUE(waitForNoSubscription());
    EventStreamClient second(url("/api/events/port"));
    ASSERT_TRUE(second.waitForEvents(1));
    EXPECT_EQ("8080", second.events()[0].data);
}

TEST_F(EventStreamTest, StopEndsTheStreamsAndUnsubscribes) {
    start();
    EventStreamClient stream(url("/api/events/name"));
    ASSERT_TRUE(stream.waitForEvents(1));
    server_->stop();
    EXPECT_TRUE(stream.waitForEnd());
    EXPECT_EQ(0u, subscriptions());
}

TEST_F(EventStreamTest, RequestWithoutEventStreamAcceptIs406) {
    start();
    const HttpReply reply = get("/api/events/name");
    EXPECT_EQ(406, reply.status);
    EXPECT_EQ(R"({"error":{"code":406,"message":"Not Acceptable","details":[]}})", reply.body);
    EXPECT_EQ(0u, subscriptions());
}

TEST_F(EventStreamTest, OtherMethodThanGetIs405) {
    start();
    const HttpReply reply =
        httpRequest("POST", url("/api/events/name"), "{}", {"Accept: text/event-stream"});
    EXPECT_EQ(405, reply.status);
    EXPECT_EQ("OPTIONS, GET", reply.header("allow"));
}

TEST_F(EventStreamTest, MissingUriIs404) {
    start();
    const HttpReply reply = get("/api/events/missing", {"Accept: text/event-stream"});
    EXPECT_EQ(404, reply.status);
    EXPECT_EQ(R"({"error":{"code":404,"message":"Not Found","details":[]}})", reply.body);
    EXPECT_EQ(0u, subscriptions());
}

TEST_F(EventStreamTest, IntervalThatIsNoNumberIs400WithDocument) {
    start();
    const HttpReply reply = get("/api/events/name?interval=soon", {"Accept: text/event-stream"});
    EXPECT_EQ(400, reply.status);
    EXPECT_EQ(
        R"({"error":{"code":33,"message":"Argument invalid type","details":["soon","integer"]}})",
        reply.body);
    EXPECT_EQ(0u, subscriptions());
}

TEST_F(EventStreamTest, MalformedQueryIs400WithDocument) {
    start();
    const HttpReply reply = get("/api/events/name?=1", {"Accept: text/event-stream"});
    EXPECT_EQ(400, reply.status);
    EXPECT_EQ(R"({"error":{"code":32,"message":"Malformed query","details":["=1"]}})", reply.body);
}

TEST_F(EventStreamTest, StreamOfAForbiddenUriIs403) {
    start();
    const HttpReply reply = get(
        "/api/events/secret", {"Accept: text/event-stream", basicAuthorization("guest", "guest")});
    EXPECT_EQ(403, reply.status);
    EXPECT_EQ(0u, subscriptions());
}

TEST_F(EventStreamTest, AnonymousStreamOfAForbiddenUriIs401WithChallenge) {
    start();
    const HttpReply reply = get("/api/events/secret", {"Accept: text/event-stream"});
    EXPECT_EQ(401, reply.status);
    EXPECT_EQ("Basic realm=\"dme\"", reply.header("www-authenticate"));
}

TEST_F(EventStreamTest, SessionOfTheStreamReadsTheState) {
    start();
    EventStreamClient stream(url("/api/events/secret"), {basicAuthorization("admin", "secret")});
    ASSERT_TRUE(stream.waitForEvents(1));
    EXPECT_EQ("\"hidden\"", stream.events()[0].data);
}

TEST_F(EventStreamTest, ConfiguredEventsPrefixIsUsed) {
    http::ServerOptions options = baseOptions();
    options.eventsPrefix = "/watch";
    start(options);
    EventStreamClient stream(url("/api/watch/name"));
    ASSERT_TRUE(stream.waitForEvents(1));
    EXPECT_EQ("\"vara\"", stream.events()[0].data);
}

}  // namespace
}  // namespace test
}  // namespace dme
