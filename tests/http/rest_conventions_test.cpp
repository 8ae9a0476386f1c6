// What REST clients, proxies and browsers expect of the binding beyond the methods: OPTIONS and
// Allow, entity tags and preconditions, CORS, media types, percent-encoded paths, the access
// log, Server::run() and the clean end of event streams at stop().
#include <atomic>
#include <csignal>
#include <thread>

#include "http_fixture.h"

namespace dme {
namespace test {
namespace {

const std::string ADMIN = basicAuthorization("admin", "secret");
const std::string GUEST = basicAuthorization("guest", "guest");
constexpr char PORTAL[] = "https://portal.example";

using RestConventionsTest = HttpServerTest;

// ---- OPTIONS and Allow ----

TEST_F(RestConventionsTest, OptionsAnswers204WithTheMethodsOfTheNode) {
    start();
    const HttpReply reply = httpRequest("OPTIONS", url("/api/name"));
    EXPECT_EQ(204, reply.status);
    EXPECT_EQ("OPTIONS, GET, HEAD, PUT, PATCH", reply.header("allow"));
    EXPECT_EQ("", reply.body);
}

TEST_F(RestConventionsTest, OptionsOfAReadOnlyNodeAllowsReadingOnly) {
    start();
    EXPECT_EQ("OPTIONS, GET, HEAD", httpRequest("OPTIONS", url("/api/serial")).header("allow"));
}

TEST_F(RestConventionsTest, OptionsFollowsTheSessionsRights) {
    start();
    EXPECT_EQ("OPTIONS", httpRequest("OPTIONS", url("/api/secret"), "", {GUEST}).header("allow"));
    EXPECT_EQ("OPTIONS, GET, HEAD, PUT, PATCH",
              httpRequest("OPTIONS", url("/api/secret"), "", {ADMIN}).header("allow"));
}

TEST_F(RestConventionsTest, OptionsOfAMissingNodeIs404) {
    start();
    EXPECT_EQ(404, httpRequest("OPTIONS", url("/api/missing")).status);
}

TEST_F(RestConventionsTest, OptionsOfTheSchemaAndEventAreasNameTheirMethods) {
    start();
    EXPECT_EQ("OPTIONS, GET, HEAD",
              httpRequest("OPTIONS", url("/api/schema/name")).header("allow"));
    EXPECT_EQ("OPTIONS, GET", httpRequest("OPTIONS", url("/api/events/name")).header("allow"));
}

TEST_F(RestConventionsTest, OptionsNeedsCredentialsLikeAnyRequest) {
    http::ServerOptions options = baseOptions();
    options.allowAnonymous = false;
    start(options);
    EXPECT_EQ(401, httpRequest("OPTIONS", url("/api/name")).status);
}

TEST_F(RestConventionsTest, AnEngine405NamesWhatTheNodeAllows) {
    start();
    const HttpReply reply = httpRequest("DELETE", url("/api/name"));
    EXPECT_EQ(405, reply.status);
    EXPECT_EQ("OPTIONS, GET, HEAD, PUT, PATCH", reply.header("allow"));
}

// ---- Entity tags ----

TEST_F(RestConventionsTest, GetAndHeadCarryTheSameStrongEntityTag) {
    start();
    const std::string tag = get("/api/name").header("etag");
    EXPECT_EQ(18u, tag.size());
    EXPECT_EQ('"', tag.front());
    EXPECT_EQ(tag, httpRequest("HEAD", url("/api/name")).header("etag"));
}

TEST_F(RestConventionsTest, TheEntityTagChangesWithTheAnswer) {
    start();
    const std::string before = get("/api/name").header("etag");
    httpRequest("PUT", url("/api/name"), "\"other\"");
    EXPECT_NE(before, get("/api/name").header("etag"));
    EXPECT_NE(get("/api/name").header("etag"), get("/api/port").header("etag"));
}

TEST_F(RestConventionsTest, IfNoneMatchWithTheCurrentTagIs304WithoutABody) {
    start();
    const std::string tag = get("/api/name").header("etag");
    for (const std::string& condition : {tag, "W/" + tag, "\"x\", " + tag, std::string("*")}) {
        const HttpReply reply = get("/api/name", {"If-None-Match: " + condition});
        EXPECT_EQ(304, reply.status) << condition;
        EXPECT_EQ("", reply.body);
        EXPECT_EQ(tag, reply.header("etag"));
    }
}

TEST_F(RestConventionsTest, IfNoneMatchWithAnotherTagIsAnsweredInFull) {
    start();
    const HttpReply reply = get("/api/name", {"If-None-Match: \"0000000000000000\""});
    EXPECT_EQ(200, reply.status);
    EXPECT_EQ("\"vara\"", reply.body);
}

TEST_F(RestConventionsTest, IfMatchWithTheCurrentTagWrites) {
    start();
    const std::string tag = get("/api/name").header("etag");
    EXPECT_EQ(200, httpRequest("PUT", url("/api/name"), "\"new\"", {"If-Match: " + tag}).status);
    EXPECT_EQ("\"new\"", get("/api/name").body);
}

TEST_F(RestConventionsTest, IfMatchWithAStaleTagIs412AndChangesNothing) {
    start();
    const HttpReply reply =
        httpRequest("PUT", url("/api/name"), "\"new\"", {"If-Match: \"0000000000000000\""});
    EXPECT_EQ(412, reply.status);
    EXPECT_EQ(R"({"error":{"code":412,"message":"Precondition Failed","details":[]}})", reply.body);
    EXPECT_EQ("\"vara\"", get("/api/name").body);
}

TEST_F(RestConventionsTest, IfMatchNeverMatchesAWeakTag) {
    start();
    const std::string tag = get("/api/name").header("etag");
    EXPECT_EQ(412, httpRequest("PUT", url("/api/name"), "\"new\"", {"If-Match: W/" + tag}).status);
}

TEST_F(RestConventionsTest, IfMatchStarNeedsAResourceThatCanBeRead) {
    start();
    EXPECT_EQ(200, httpRequest("PUT", url("/api/name"), "\"new\"", {"If-Match: *"}).status);
    EXPECT_EQ(412, httpRequest("DELETE", url("/api/missing"), "", {"If-Match: *"}).status);
}

TEST_F(RestConventionsTest, OfTwoClientsEditingTheSameValueTheSecondIsRefused) {
    start();
    const std::string seenByBoth = get("/api/name").header("etag");
    EXPECT_EQ(
        200, httpRequest("PUT", url("/api/name"), "\"first\"", {"If-Match: " + seenByBoth}).status);
    EXPECT_EQ(
        412,
        httpRequest("PUT", url("/api/name"), "\"second\"", {"If-Match: " + seenByBoth}).status);
    EXPECT_EQ("\"first\"", get("/api/name").body);
}

TEST_F(RestConventionsTest, ConcurrentConditionalWritesFromOneTagSucceedOnce) {
    start();
    const std::string tag = get("/api/port").header("etag");
    std::atomic<int> written{0};
    std::vector<std::thread> clients;
    for (int client = 0; client < 8; ++client) {
        clients.emplace_back([this, &tag, &written, client] {
            const HttpReply reply = httpRequest(
                "PUT", url("/api/port"), std::to_string(9000 + client), {"If-Match: " + tag});
            if (reply.status == 200) ++written;
        });
    }
    for (std::thread& client : clients) client.join();
    EXPECT_EQ(1, written.load());
}

// ---- Media types ----

TEST_F(RestConventionsTest, ABodyThatIsNotJsonIs415AndChangesNothing) {
    start();
    for (const char* type :
         {"text/plain", "application/x-www-form-urlencoded", "application/json; charset=latin1"}) {
        const HttpReply reply =
            httpRequest("PUT", url("/api/name"), "\"x\"", {std::string("Content-Type: ") + type});
        EXPECT_EQ(415, reply.status) << type;
        EXPECT_EQ(R"({"error":{"code":415,"message":"Unsupported Media Type","details":[]}})",
                  reply.body);
    }
    EXPECT_EQ("\"vara\"", get("/api/name").body);
}

TEST_F(RestConventionsTest, JsonWithOrWithoutTheUtf8CharsetIsAccepted) {
    start();
    EXPECT_EQ(200, httpRequest("PUT", url("/api/name"), "\"a\"",
                               {"Content-Type: application/json; charset=UTF-8"})
                       .status);
    EXPECT_EQ(
        200,
        httpRequest("PUT", url("/api/name"), "\"b\"", {"Content-Type: Application/JSON"}).status);
    EXPECT_EQ("\"b\"", get("/api/name").body);
}

TEST_F(RestConventionsTest, AnAcceptThatExcludesJsonIs406) {
    start();
    for (const char* accept : {"application/xml", "text/html, application/json;q=0"}) {
        const HttpReply reply = get("/api/name", {std::string("Accept: ") + accept});
        EXPECT_EQ(406, reply.status) << accept;
    }
}

TEST_F(RestConventionsTest, AnAcceptThatAllowsJsonIsServed) {
    start();
    for (const char* accept : {"application/json", "*/*", "text/html, application/*;q=0.2"}) {
        EXPECT_EQ(200, get("/api/name", {std::string("Accept: ") + accept}).status) << accept;
    }
}

// ---- CORS ----

TEST_F(RestConventionsTest, WithoutCorsOriginsNoCorsHeadersAreSent) {
    start();
    const HttpReply reply = get("/api/name", {std::string("Origin: ") + PORTAL});
    EXPECT_EQ(200, reply.status);
    EXPECT_EQ("", reply.header("access-control-allow-origin"));
}

TEST_F(RestConventionsTest, AnAllowedOriginSeesTheAnswer) {
    http::ServerOptions options = baseOptions();
    options.corsOrigins = {PORTAL};
    start(options);
    const HttpReply reply = get("/api/name", {std::string("Origin: ") + PORTAL});
    EXPECT_EQ(PORTAL, reply.header("access-control-allow-origin"));
    EXPECT_EQ("true", reply.header("access-control-allow-credentials"));
    EXPECT_EQ("Origin", reply.header("vary"));
    EXPECT_NE(std::string::npos, reply.header("access-control-expose-headers").find("ETag"));
}

TEST_F(RestConventionsTest, AnotherOriginIsNotAllowed) {
    http::ServerOptions options = baseOptions();
    options.corsOrigins = {PORTAL};
    start(options);
    const HttpReply reply = get("/api/name", {"Origin: https://elsewhere.example"});
    EXPECT_EQ("", reply.header("access-control-allow-origin"));
    EXPECT_EQ("Origin", reply.header("vary"));
}

TEST_F(RestConventionsTest, APreflightIsAnsweredWithoutCredentials) {
    http::ServerOptions options = baseOptions();
    options.allowAnonymous = false;
    options.corsOrigins = {"*"};
    start(options);
    const HttpReply reply =
        httpRequest("OPTIONS", url("/api/name"), "",
                    {std::string("Origin: ") + PORTAL, "Access-Control-Request-Method: PUT",
                     "Access-Control-Request-Headers: authorization, content-type"});
    EXPECT_EQ(204, reply.status);
    EXPECT_EQ(PORTAL, reply.header("access-control-allow-origin"));
    EXPECT_EQ("OPTIONS, GET, HEAD, PUT, PATCH, POST, DELETE",
              reply.header("access-control-allow-methods"));
    EXPECT_NE(std::string::npos,
              reply.header("access-control-allow-headers").find("Authorization"));
    EXPECT_EQ("600", reply.header("access-control-max-age"));
}

// ---- Percent-encoded paths ----

TEST_F(RestConventionsTest, PercentEscapesInThePathAreDecoded) {
    start();
    EXPECT_EQ("\"vara\"", get("/api/na%6De").body);
    EXPECT_EQ("\"vara\"", get("/api/%6E%61%6D%65").body);
}

TEST_F(RestConventionsTest, AnEncodedSlashSeparatesSegmentsLikeASlash) {
    start();
    EXPECT_EQ(404, get("/api/bare%2Fdeeper").status);
    EXPECT_EQ(get("/api/bare/deeper").body, get("/api/bare%2fdeeper").body);
}

TEST_F(RestConventionsTest, AMalformedEscapeIs400) {
    start();
    const HttpReply reply = get("/api/na%zze");
    EXPECT_EQ(400, reply.status);
    EXPECT_EQ(
        R"({"error":{"code":400,"message":"Malformed percent-encoding","details":["/api/na%zze"]}})",
        reply.body);
}

// ---- Access log ----

TEST_F(RestConventionsTest, TheAccessLogRecordsEveryExchange) {
    std::mutex mutex;
    std::vector<http::AccessLogEntry> entries;
    http::ServerOptions options = baseOptions();
    options.accessLog = [&](const http::AccessLogEntry& entry) {
        std::lock_guard<std::mutex> lock(mutex);
        entries.push_back(entry);
    };
    start(options);
    get("/api/name?select=x", {ADMIN});
    httpRequest("PUT", url("/api/port"), "\"bad\"");
    server_->stop();  // every exchange has completed once the server has stopped
    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(2u, entries.size());
    EXPECT_EQ("GET", entries[0].method);
    EXPECT_EQ("/api/name?select=x", entries[0].target);
    EXPECT_EQ(200u, entries[0].status);
    EXPECT_EQ(6u, entries[0].bytes);
    EXPECT_EQ("admin", entries[0].user);
    EXPECT_GE(entries[0].duration.count(), 0);
    EXPECT_EQ("PUT", entries[1].method);
    EXPECT_EQ(400u, entries[1].status);
    EXPECT_EQ("", entries[1].user);
}

// ---- run() and stop() ----

// Whether SIGTERM is handled by something else than the default action.
bool sigtermIsHandled() {
    struct sigaction current {};
    sigaction(SIGTERM, nullptr, &current);
    return current.sa_handler != SIG_DFL;
}

TEST_F(RestConventionsTest, RunStartsTheServerAndServesUntilStopIsCalled) {
    server_ = std::make_unique<http::Server>(engine_, baseOptions());
    std::atomic<int> returned{-1};
    std::thread running([this, &returned] { returned = server_->run(); });
    const auto deadline = std::chrono::steady_clock::now() + HTTP_PATIENCE;
    while (server_->port() == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ("\"vara\"", get("/api/name").body);
    server_->stop();
    running.join();
    EXPECT_EQ(0, returned.load());
}

TEST_F(RestConventionsTest, AStopMadeBeforeRunDoesNotEndIt) {
    start();
    server_->stop();
    std::atomic<int> returned{-1};
    std::thread running([this, &returned] { returned = server_->run(); });
    const auto deadline = std::chrono::steady_clock::now() + HTTP_PATIENCE;
    while (server_->port() == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(200, get("/api/name").status);
    server_->stop();
    running.join();
    EXPECT_EQ(0, returned.load());
    EXPECT_FALSE(server_->running());
}

TEST_F(RestConventionsTest, RunEndsAtSigtermAndPutsTheHandlerBack) {
    start();
    ASSERT_FALSE(sigtermIsHandled());
    std::atomic<int> returned{-1};
    std::thread running([this, &returned] { returned = server_->run(); });
    const auto deadline = std::chrono::steady_clock::now() + HTTP_PATIENCE;
    while (!sigtermIsHandled() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(sigtermIsHandled());
    kill(getpid(), SIGTERM);
    running.join();
    EXPECT_EQ(SIGTERM, returned.load());
    EXPECT_FALSE(server_->running());
    EXPECT_FALSE(sigtermIsHandled());
}

TEST_F(RestConventionsTest, OnlyOneRunAtATime) {
    start();
    std::thread running([this] { server_->run(); });
    const auto deadline = std::chrono::steady_clock::now() + HTTP_PATIENCE;
    while (!sigtermIsHandled() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    http::Server other(engine_, baseOptions());
    try {
        other.run();
        ADD_FAILURE() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ("Server::run() already running", e.what());
    }
    EXPECT_FALSE(other.running());
    server_->stop();
    running.join();
}

TEST_F(RestConventionsTest, StopEndsAnEventStreamWithACommentAndACleanEnd) {
    start();
    EventStreamClient stream(url("/api/events/name"));
    ASSERT_TRUE(stream.waitForEvents(1));
    server_->stop();
    ASSERT_TRUE(stream.waitForEnd());
    EXPECT_TRUE(stream.endedCleanly());
    EXPECT_NE(std::string::npos, stream.text().find(": server stopping\n\n"));
}

}  // namespace
}  // namespace test
}  // namespace dme
