// Clients that try to take the server off the air or to be read otherwise than a proxy reads
// them: slow and silent connections, bursts of dead ones, requests that can never complete,
// ambiguous heads, and event streams held or dropped by the thousand. Attackers connect from
// other loopback addresses than the legitimate client (127.0.0.1).
#include <dirent.h>

#include <memory>
#include <thread>

#include "http_fixture.h"
#include "raw_connection.h"

namespace dme {
namespace test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const std::string ADMIN = basicAuthorization("admin", "secret");
const std::string GUEST = basicAuthorization("guest", "guest");
constexpr milliseconds PATIENCE = HTTP_PATIENCE;

// The entries of a folder of /proc/self: open descriptors or threads.
std::size_t countEntries(const char* folder) {
    std::size_t count = 0;
    if (DIR* directory = ::opendir(folder)) {
        while (const dirent* entry = ::readdir(directory)) {
            if (entry->d_name[0] != '.') ++count;
        }
        ::closedir(directory);
    }
    return count;
}

std::string withHead(const std::string& requestLine, const std::string& fields) {
    return requestLine + "\r\nHost: device\r\n" + fields + "\r\n";
}

class HostileClientsTest : public HttpServerTest {
  protected:
    // An authenticated read of the name from 127.0.0.1.
    long servedStatus() { return get("/api/name", {ADMIN}).status; }

    // Sends `request` on a connection of its own and returns what comes back before the server
    // closes it (or PATIENCE passes; closed tells which).
    std::string exchange(const std::string& request, bool& closed) {
        RawConnection connection(server_->port());
        connection.send(request);
        const std::string answer = connection.receiveUntilClosed(PATIENCE);
        closed = connection.closedByServer();
        return answer;
    }

    // The answer to the admin's read of the name with a header field of `bytes` bytes.
    std::string readWithAFieldOf(std::size_t bytes) {
        bool closed = false;
        return exchange(
            withHead("GET /api/name HTTP/1.1", ADMIN + "\r\nConnection: close\r\nX-Large: " +
                                                   std::string(bytes, 'b') + "\r\n"),
            closed);
    }

    // The name as the admin reads it.
    std::string storedName() { return get("/api/name", {ADMIN}).body; }
};

// ---- slow, silent and dead connections ----

TEST_F(HostileClientsTest, FiveHundredSlowConnectionsDoNotStarveOthers) {
    start();
    std::vector<std::unique_ptr<RawConnection>> attackers;
    for (int i = 0; i < 500; ++i) {
        attackers.push_back(std::make_unique<RawConnection>(server_->port(), "127.0.0.2", false));
    }
    const std::string line = "GET /api/name HTTP/1.1\r\nX-Slow: ";
    for (std::size_t round = 0; round < 4; ++round) {
        for (auto& attacker : attackers) attacker->send(line.substr(round, 1));
        EXPECT_EQ(200, servedStatus()) << "round " << round;
        std::this_thread::sleep_for(seconds(1));
    }
}

TEST_F(HostileClientsTest, BurstOfDeadConnectionsDoesNotStarveOthers) {
    http::ServerOptions options = baseOptions();
    options.requestTimeout = seconds(60);
    start(options);
    for (int i = 0; i < 1000; ++i) {
        RawConnection attacker(server_->port(), "127.0.0.3", false);
        attacker.send("GET /api/na");
    }
    for (int i = 0; i < 5; ++i) EXPECT_EQ(200, servedStatus());
}

TEST_F(HostileClientsTest, ConnectionsFromOneAddressAreCapped) {
    http::ServerOptions options = baseOptions();
    options.maxConnectionsPerAddress = 2;
    start(options);
    RawConnection first(server_->port(), "127.0.0.4");
    RawConnection second(server_->port(), "127.0.0.4");
    first.send("G");
    second.send("G");
    RawConnection third(server_->port(), "127.0.0.4");
    third.receiveUntilClosed(PATIENCE);
    EXPECT_TRUE(third.closedByServer());
    EXPECT_EQ(200, servedStatus());
}

// With the deadline a minute away and one connection allowed per address, a second
// connection from the same address is served only once the first one's slot is free.
TEST_F(HostileClientsTest, ClientHangingUpMidRequestFreesItsSlotAtOnce) {
    http::ServerOptions options = baseOptions();
    options.requestTimeout = seconds(60);
    options.maxConnectionsPerAddress = 1;
    start(options);
    {
        RawConnection dead(server_->port(), "127.0.0.5");
        dead.send("GET /api/na");
    }
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    std::string answer;
    while (answer.find("200 OK") == std::string::npos &&
           std::chrono::steady_clock::now() < deadline) {
        RawConnection next(server_->port(), "127.0.0.5");
        next.send(withHead("GET /api/name HTTP/1.1", ADMIN + "\r\nConnection: close\r\n"));
        answer = next.receiveUntilClosed(PATIENCE);
    }
    EXPECT_NE(std::string::npos, answer.find("200 OK"));
}

TEST_F(HostileClientsTest, RequestNotCompleteInTimeIsDropped) {
    http::ServerOptions options = baseOptions();
    options.requestTimeout = milliseconds(300);
    start(options);
    RawConnection slow(server_->port());
    slow.send("GET /api/name HTTP/1.1\r\nHost: device\r\n");
    EXPECT_EQ("", slow.receiveUntilClosed(PATIENCE));
    EXPECT_TRUE(slow.closedByServer());
}

TEST_F(HostileClientsTest, IdleKeptAliveConnectionIsDroppedAfterTheRequestTimeout) {
    http::ServerOptions options = baseOptions();
    options.requestTimeout = milliseconds(300);
    start(options);
    RawConnection client(server_->port());
    client.send(withHead("GET /api/name HTTP/1.1", ADMIN + "\r\n"));
    EXPECT_NE(std::string::npos, client.receiveUntil("\"vara\"", PATIENCE).find("200 OK"));
    client.receiveUntilClosed(PATIENCE);
    EXPECT_TRUE(client.closedByServer());
}

TEST_F(HostileClientsTest, RequestCompleteInTimeIsServed) {
    http::ServerOptions options = baseOptions();
    options.requestTimeout = seconds(10);
    start(options);
    RawConnection client(server_->port());
    client.send(withHead("GET /api/name HTTP/1.1", ADMIN + "\r\n"));
    EXPECT_NE(std::string::npos, client.receiveUntil("\"vara\"", PATIENCE).find("200 OK"));
}

// ---- requests that can never complete: an answer or a close, never a held slot ----

TEST_F(HostileClientsTest, BodyShorterThanItsLengthIsDropped) {
    http::ServerOptions options = baseOptions();
    options.requestTimeout = milliseconds(300);
    start(options);
    bool closed = false;
    exchange(withHead("PUT /api/name HTTP/1.1", ADMIN + "\r\nContent-Length: 100\r\n") + "\"ab",
             closed);
    EXPECT_TRUE(closed);
    EXPECT_EQ("\"vara\"", storedName());
}

TEST_F(HostileClientsTest, UnterminatedChunkedBodyIsDropped) {
    http::ServerOptions options = baseOptions();
    options.requestTimeout = milliseconds(300);
    start(options);
    bool closed = false;
    exchange(withHead("PUT /api/name HTTP/1.1", ADMIN + "\r\nTransfer-Encoding: chunked\r\n") +
                 "4\r\n\"ab\"\r\n",
             closed);
    EXPECT_TRUE(closed);
    EXPECT_EQ("\"vara\"", storedName());
}

// Chunked framing that cannot be read is refused by the HTTP library itself (with a body of its
// own) before the binding sees the request: answered at once, nothing stored.
TEST_F(HostileClientsTest, MalformedChunkSizeIs400AndChangesNothing) {
    start();
    bool closed = false;
    const std::string answer =
        exchange(withHead("PUT /api/name HTTP/1.1", ADMIN + "\r\nTransfer-Encoding: chunked\r\n") +
                     "zz\r\n\"ab\"\r\n0\r\n\r\n",
                 closed);
    EXPECT_TRUE(closed);
    EXPECT_EQ(0u, answer.find("HTTP/1.1 400 Bad Request\r\n"));
    EXPECT_EQ("\"vara\"", storedName());
}

const std::string URI_TOO_LONG_DOCUMENT =
    R"({"error":{"code":414,"message":"URI Too Long","details":[]}})";

// A query of `count` short arguments.
std::string queryOf(int count) {
    std::string query = "a0=1";
    for (int i = 1; i < count; ++i) query += "&a" + std::to_string(i) + "=1";
    return query;
}

// Up to the size that the HTTP library's memory holds, the request arrives and the server
// answers 414; from there the library stalls taking the arguments apart, and the connection
// watch answers in its place. Both answers carry the error document.
TEST_F(HostileClientsTest, QueryOfTooManyArgumentsIs414WithTheErrorDocument) {
    http::ServerOptions options = baseOptions();
    options.requestTimeout = seconds(60);
    start(options);
    for (int count : {129, 447, 1000, 2000, 4000}) {
        bool closed = false;
        const std::string answer = exchange(
            withHead("GET /api/name?" + queryOf(count) + " HTTP/1.1", ADMIN + "\r\n"), closed);
        EXPECT_TRUE(closed) << count << " arguments";
        EXPECT_EQ(0u, answer.find("HTTP/1.1 414 URI Too Long\r\n")) << count << " arguments";
        EXPECT_NE(std::string::npos, answer.find("Content-Type: application/json"));
        EXPECT_NE(std::string::npos, answer.find(URI_TOO_LONG_DOCUMENT)) << count << " arguments";
    }
}

// Beyond the HTTP library's memory for a request head, it answers 414 or 431 itself (with a
// body of its own) and closes the connection: a head of any size gets an answer at once.
TEST_F(HostileClientsTest, RequestLineLongerThanTheConnectionMemoryIs414) {
    start();
    for (int count : {5000, 7000}) {
        bool closed = false;
        const std::string answer = exchange(
            withHead("GET /api/name?" + queryOf(count) + " HTTP/1.1", ADMIN + "\r\n"), closed);
        EXPECT_TRUE(closed) << count << " arguments";
        EXPECT_EQ(0u, answer.find("HTTP/1.1 414 URI Too Long\r\n")) << count << " arguments";
    }
    bool closed = false;
    const std::string answer = exchange(
        withHead("GET /api/name?x=" + std::string(40000, 'a') + " HTTP/1.1", ADMIN + "\r\n"),
        closed);
    EXPECT_TRUE(closed);
    EXPECT_EQ(0u, answer.find("HTTP/1.1 414 URI Too Long\r\n"));
}

TEST_F(HostileClientsTest, HeadLargerThanTheConnectionMemoryIs431) {
    start();
    std::string manyFields;
    for (int i = 0; i < 2000; ++i) manyFields += "X-" + std::to_string(i) + ": 1\r\n";
    const std::string oneLargeField = "X-Large: " + std::string(40000, 'b') + "\r\n";
    for (const std::string& fields : {manyFields, oneLargeField}) {
        bool closed = false;
        const std::string answer =
            exchange(withHead("GET /api/name HTTP/1.1", ADMIN + "\r\n" + fields), closed);
        EXPECT_TRUE(closed);
        EXPECT_EQ(0u, answer.find("HTTP/1.1 431 Request Header Fields Too Large\r\n"));
    }
}

TEST_F(HostileClientsTest, TooManyArgumentsAre414WithoutSockets) {
    http::HttpRequest request{"GET", "/api/name?a", "HTTP/1.1", {{"Host", "device"}}, ""};
    for (int i = 0; i < 128; ++i) request.target += "&a";
    http::Server server(engine_, baseOptions());
    EXPECT_EQ(414u, server.answer(request).status);
}

TEST_F(HostileClientsTest, LargerConnectionMemoryTakesALargerHead) {
    http::ServerOptions options = baseOptions();
    options.connectionMemoryBytes = 64 * 1024;
    start(options);
    EXPECT_EQ(0u, readWithAFieldOf(40000).find("HTTP/1.1 200 OK\r\n"));
}

// Up to 32 KiB the HTTP library takes a connection's memory from the heap, which connections
// opened and closed by the thousand leave fragmented; above it each connection's memory is
// mapped on its own and given back when the connection closes. So the default is above it,
// and a head larger than 32 KiB is served with it.
TEST_F(HostileClientsTest, DefaultConnectionMemoryIsMoreThan32KiB) {
    start();
    EXPECT_EQ(0u, readWithAFieldOf(33000).find("HTTP/1.1 200 OK\r\n"));
}

TEST_F(HostileClientsTest, QueryOfManyButNotTooManyArgumentsIsServed) {
    start();
    EXPECT_EQ(200, get("/api/name?" + queryOf(128), {ADMIN}).status);
}

// ---- heads that a proxy could read otherwise ----

TEST_F(HostileClientsTest, ConflictingContentLengthsAre400AndChangeNothing) {
    start();
    bool closed = false;
    const std::string answer =
        exchange(withHead("PUT /api/name HTTP/1.1",
                          ADMIN + "\r\nContent-Type: application/json\r\nContent-Length: 5\r\n"
                                  "Content-Length: 7\r\n") +
                     "\"abc\"",
                 closed);
    EXPECT_NE(std::string::npos, answer.find("400 Bad Request"));
    EXPECT_NE(std::string::npos,
              answer.find(
                  R"({"error":{"code":400,"message":"Conflicting Content-Length","details":[]}})"));
    EXPECT_EQ("\"vara\"", storedName());
}

TEST_F(HostileClientsTest, EqualContentLengthsAreServed) {
    start();
    bool closed = false;
    const std::string answer =
        exchange(withHead("PUT /api/name HTTP/1.1",
                          ADMIN + "\r\nContent-Type: application/json\r\nContent-Length: 5\r\n"
                                  "Content-Length: 5\r\nConnection: close\r\n") +
                     "\"abc\"",
                 closed);
    EXPECT_NE(std::string::npos, answer.find("200 OK"));
    EXPECT_EQ("\"abc\"", storedName());
}

TEST_F(HostileClientsTest, ContentLengthWithChunkedIs400) {
    start();
    bool closed = false;
    const std::string answer =
        exchange(withHead("PUT /api/name HTTP/1.1", ADMIN + "\r\nContent-Length: 5\r\n"
                                                            "Transfer-Encoding: chunked\r\n") +
                     "5\r\n\"abc\"\r\n0\r\n\r\n",
                 closed);
    EXPECT_NE(std::string::npos, answer.find("Content-Length with Transfer-Encoding"));
    EXPECT_NE(std::string::npos, answer.find("400 Bad Request"));
    EXPECT_EQ("\"vara\"", storedName());
}

TEST_F(HostileClientsTest, UnknownTransferCodingsAre501) {
    start();
    for (const char* coding : {"identity", "gzip, chunked", "chunked, chunked"}) {
        bool closed = false;
        const std::string answer =
            exchange(withHead("PUT /api/name HTTP/1.1",
                              ADMIN + "\r\nTransfer-Encoding: " + coding + "\r\n") +
                         "\"abc\"",
                     closed);
        EXPECT_NE(std::string::npos, answer.find("501 Not Implemented")) << coding;
        EXPECT_NE(std::string::npos, answer.find("Unsupported Transfer-Encoding")) << coding;
    }
    EXPECT_EQ("\"vara\"", storedName());
}

TEST_F(HostileClientsTest, DuplicateAuthorizationIs400) {
    start();
    bool closed = false;
    const std::string answer =
        exchange(withHead("GET /api/secret HTTP/1.1", GUEST + "\r\n" + ADMIN + "\r\n"), closed);
    EXPECT_NE(std::string::npos, answer.find("400 Bad Request"));
    EXPECT_NE(std::string::npos, answer.find("Duplicate Authorization"));
    EXPECT_EQ(std::string::npos, answer.find("hidden"));
}

TEST_F(HostileClientsTest, Http11WithoutHostIs400) {
    start();
    bool closed = false;
    const std::string answer = exchange("GET /api/name HTTP/1.1\r\n" + ADMIN + "\r\n\r\n", closed);
    EXPECT_NE(std::string::npos, answer.find("400 Bad Request"));
    EXPECT_NE(std::string::npos, answer.find("Missing Host"));
}

TEST_F(HostileClientsTest, DuplicateHostIs400) {
    start();
    bool closed = false;
    const std::string answer =
        exchange(withHead("GET /api/name HTTP/1.1", ADMIN + "\r\nHost: elsewhere\r\n"), closed);
    EXPECT_NE(std::string::npos, answer.find("Duplicate Host"));
}

TEST_F(HostileClientsTest, Http10WithoutHostIsServed) {
    start();
    bool closed = false;
    const std::string answer = exchange("GET /api/name HTTP/1.0\r\n" + ADMIN + "\r\n\r\n", closed);
    EXPECT_NE(std::string::npos, answer.find("200 OK"));
    EXPECT_NE(std::string::npos, answer.find("\"vara\""));
}

// ---- event streams ----

TEST_F(HostileClientsTest, OneUserCannotTakeEveryStream) {
    http::ServerOptions options = baseOptions();
    options.maxStreams = 4;
    options.maxStreamsPerUser = 2;
    start(options);
    const std::vector<std::string> guest{GUEST, "Accept: text/event-stream"};
    EventStreamClient first(url("/api/events/name"), {GUEST});
    EventStreamClient second(url("/api/events/port"), {GUEST});
    ASSERT_TRUE(first.waitForEvents(1));
    ASSERT_TRUE(second.waitForEvents(1));
    const HttpReply third = get("/api/events/name", guest);
    EXPECT_EQ(429, third.status);
    EXPECT_EQ("1", third.header("retry-after"));
    EXPECT_EQ(R"({"error":{"code":429,"message":"Too Many Requests","details":[]}})", third.body);
    EventStreamClient admins(url("/api/events/name"), {ADMIN});
    EXPECT_TRUE(admins.waitForEvents(1));
}

TEST_F(HostileClientsTest, HungUpStreamFreesItsSlotBeforeAnyHeartbeat) {
    http::ServerOptions options = baseOptions();
    options.maxStreams = 1;
    options.heartbeatInterval = seconds(3600);
    start(options);
    {
        RawConnection stream(server_->port());
        stream.send(withHead("GET /api/events/name HTTP/1.1", "Accept: text/event-stream\r\n"));
        ASSERT_NE(std::string::npos, stream.receiveUntil("event: change", PATIENCE).find("200"));
    }
    ASSERT_TRUE(waitForNoSubscription());
    EventStreamClient next(url("/api/events/name"));
    EXPECT_TRUE(next.waitForEvents(1));
}

TEST_F(HostileClientsTest, BadIntervalsAre400) {
    start();
    const std::vector<std::pair<std::string, std::string>> cases{
        {"-1",
         R"({"error":{"code":35,"message":"Argument out of range","details":["-1","[0, 86400000]"]}})"},
        {"86400001",
         R"({"error":{"code":35,"message":"Argument out of range","details":["86400001","[0, 86400000]"]}})"},
        {"99999999999999999999",
         R"({"error":{"code":33,"message":"Argument invalid type","details":["99999999999999999999","integer"]}})"},
        {"soon",
         R"({"error":{"code":33,"message":"Argument invalid type","details":["soon","integer"]}})"}};
    for (const auto& [interval, document] : cases) {
        const HttpReply reply =
            get("/api/events/name?interval=" + interval, {"Accept: text/event-stream"});
        EXPECT_EQ(400, reply.status) << interval;
        EXPECT_EQ(document, reply.body) << interval;
    }
    EXPECT_EQ(0u, subscriptions());
}

TEST_F(HostileClientsTest, ThousandDroppedStreamsLeaveNothingBehind) {
    http::ServerOptions options = baseOptions();
    options.maxStreams = 64;
    options.maxStreamsPerUser = 64;
    start(options);
    const std::string request =
        withHead("GET /api/events/name?interval=0 HTTP/1.1", "Accept: text/event-stream\r\n");
    auto openAndDrop = [&] {
        RawConnection stream(server_->port());
        stream.send(request);
        return stream.receiveUntil("event: change", PATIENCE).find("event: change") !=
               std::string::npos;
    };
    ASSERT_TRUE(openAndDrop());
    ASSERT_TRUE(waitForNoSubscription());
    const std::size_t descriptors = countEntries("/proc/self/fd");
    const std::size_t threads = countEntries("/proc/self/task");
    std::size_t opened = 0;
    for (int i = 0; i < 1000; ++i) {
        if (openAndDrop()) ++opened;
        if (i % 32 == 31) {
            ASSERT_TRUE(waitForNoSubscription()) << "after " << i + 1 << " streams";
        }
    }
    EXPECT_EQ(1000u, opened);
    ASSERT_TRUE(waitForNoSubscription());
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    while (countEntries("/proc/self/fd") > descriptors &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(20));
    }
    EXPECT_EQ(descriptors, countEntries("/proc/self/fd"));
    EXPECT_EQ(threads, countEntries("/proc/self/task"));
}

}  // namespace
}  // namespace test
}  // namespace dme
