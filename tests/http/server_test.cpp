#include "dme/http/server.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "http_client.h"
#include "http_fixture.h"

namespace dme {
namespace test {
namespace {

using ::testing::ElementsAre;

TEST_F(HttpServerTest, GetReadsTheResource) {
    start();
    const HttpReply reply = get("/api/name");
    EXPECT_EQ(200, reply.status);
    EXPECT_EQ("\"vara\"", reply.body);
    EXPECT_EQ("application/json", reply.header("content-type"));
}

// The anonymous caller may not read the secret member, so the root's answer leaves it out.
TEST_F(HttpServerTest, BasePathAloneReadsTheRoot) {
    start();
    const HttpReply reply = get("/api");
    EXPECT_EQ(200, reply.status);
    EXPECT_EQ(R"({"href":"/","name":"vara","port":8080,"enabled":true,"serial":"A1",)"
              R"("leaf":{"href":"/leaf"},"bare":{"href":"/bare"}})",
              reply.body);
}

TEST_F(HttpServerTest, GetCallsRead) {
    start();
    EXPECT_EQ(200, get("/api/leaf").status);
    EXPECT_THAT(leafCalls(), ElementsAre("read"));
}

// Updates are all-or-nothing by default: the node's update runs in the checking pass, then in
// the applying pass.
TEST_F(HttpServerTest, PutCallsUpdateInBothPasses) {
    start();
    EXPECT_EQ(200, httpRequest("PUT", url("/api/leaf"), R"({"value":"u"})").status);
    EXPECT_THAT(leafCalls(), ElementsAre("update", "update"));
}

TEST_F(HttpServerTest, PatchCallsUpdateInBothPasses) {
    start();
    EXPECT_EQ(200, httpRequest("PATCH", url("/api/leaf"), R"({"value":"p"})").status);
    EXPECT_THAT(leafCalls(), ElementsAre("update", "update"));
}

TEST_F(HttpServerTest, ACertificateWithoutAKeyIsRefused) {
    http::ServerOptions options = baseOptions();
    options.tlsCertificatePem = "-----BEGIN CERTIFICATE-----";
    EXPECT_THROW(start(options), std::invalid_argument);
}

TEST_F(HttpServerTest, AnUnreadableCertificateFileIsRefused) {
    http::ServerOptions options = baseOptions();
    options.tlsCertificateFile = "/nonexistent/cert.pem";
    options.tlsKeyFile = "/nonexistent/key.pem";
    EXPECT_THROW(start(options), std::runtime_error);
}

TEST_F(HttpServerTest, WithoutAllOrNothingUpdatesUpdateRunsOnce) {
    http::ServerOptions options = baseOptions();
    options.allOrNothingUpdates = false;
    start(options);
    EXPECT_EQ(200, httpRequest("PUT", url("/api/leaf"), R"({"value":"u"})").status);
    EXPECT_THAT(leafCalls(), ElementsAre("update"));
}

TEST_F(HttpServerTest, PostCallsCreateAndAnswers201) {
    start();
    const HttpReply reply = httpRequest("POST", url("/api/leaf"), R"({"value":"c"})");
    EXPECT_EQ(201, reply.status);
    EXPECT_EQ("application/json", reply.header("content-type"));
    EXPECT_THAT(leafCalls(), ElementsAre("create"));
}

TEST_F(HttpServerTest, DeleteCallsDestroyAndAnswers204WithoutABody) {
    start();
    const HttpReply reply = httpRequest("DELETE", url("/api/leaf"));
    EXPECT_EQ(204, reply.status);
    EXPECT_EQ("", reply.body);
    EXPECT_EQ("", reply.header("content-type"));
    EXPECT_THAT(leafCalls(), ElementsAre("destroy"));
}

TEST_F(HttpServerTest, HeadAnswersTheHeadersOfGetWithoutTheBody) {
    start();
    const HttpReply reply = httpRequest("HEAD", url("/api/name"));
    EXPECT_EQ(200, reply.status);
    EXPECT_EQ("", reply.body);
    EXPECT_EQ("application/json", reply.header("content-type"));
    EXPECT_EQ("6", reply.header("content-length"));
}

TEST_F(HttpServerTest, PutStoresTheValue) {
    start();
    EXPECT_EQ(200, httpRequest("PUT", url("/api/name"), "\"quill\"").status);
    EXPECT_EQ("\"quill\"", get("/api/name").body);
}

TEST_F(HttpServerTest, SchemaPrefixAnswersTheSchema) {
    start();
    const HttpReply reply = get("/api/schema/name");
    EXPECT_EQ(200, reply.status);
    EXPECT_EQ(R"({"type":"string","default":"","minSize":0,"maxSize":65535})", reply.body);
    EXPECT_EQ("application/json", reply.header("content-type"));
}

TEST_F(HttpServerTest, SchemaPrefixAloneAnswersTheRootSchema) {
    start();
    const HttpReply reply = get("/api/schema");
    EXPECT_EQ(200, reply.status);
    EXPECT_THAT(reply.body, ::testing::StartsWith(R"({"type":"object","properties":{)"));
}

TEST_F(HttpServerTest, SchemaPrefixRefusesOtherMethodsWith405) {
    start();
    const HttpReply reply = httpRequest("PUT", url("/api/schema/name"), "\"x\"");
    EXPECT_EQ(405, reply.status);
    EXPECT_EQ("OPTIONS, GET, HEAD", reply.header("allow"));
    EXPECT_EQ("\"vara\"", get("/api/name").body);
}

TEST_F(HttpServerTest, ConfiguredPrefixesAreUsed) {
    http::ServerOptions options = baseOptions();
    options.basePath = "/v2/";
    options.schemaPrefix = "/describe";
    start(options);
    EXPECT_EQ("\"vara\"", get("/v2/name").body);
    EXPECT_EQ(R"({"type":"string","default":"","minSize":0,"maxSize":65535})",
              get("/v2/describe/name").body);
    EXPECT_EQ(404, get("/api/name").status);
}

TEST_F(HttpServerTest, QueryStringReachesTheArguments) {
    start();
    const HttpReply reply = get("/api?select=na%6De");
    EXPECT_EQ(200, reply.status);
    EXPECT_EQ(R"({"href":"/","name":"vara"})", reply.body);
}

TEST_F(HttpServerTest, UnknownHttpMethodIs405WithAllow) {
    start();
    const HttpReply reply = httpRequest("PROPFIND", url("/api/name"));
    EXPECT_EQ(405, reply.status);
    EXPECT_EQ("OPTIONS, GET, HEAD, PUT, PATCH, POST, DELETE", reply.header("allow"));
    EXPECT_EQ(R"({"error":{"code":405,"message":"Method Not Allowed","details":[]}})", reply.body);
}

TEST_F(HttpServerTest, MissingMemberIs404WithErrorDocument) {
    start();
    const HttpReply reply = get("/api/missing");
    EXPECT_EQ(404, reply.status);
    EXPECT_EQ(R"({"error":{"code":404,"message":"Not Found","details":[]}})", reply.body);
    EXPECT_EQ("application/json", reply.header("content-type"));
}

TEST_F(HttpServerTest, PathBelowANodeWithoutChildrenIs404) {
    start();
    EXPECT_EQ(404, get("/api/bare/deeper").status);
}

TEST_F(HttpServerTest, PathOutsideTheBasePathIs404) {
    start();
    EXPECT_EQ(404, get("/other").status);
    const HttpReply reply = get("/apiname");
    EXPECT_EQ(404, reply.status);
    EXPECT_EQ(R"({"error":{"code":404,"message":"Not Found","details":[]}})", reply.body);
}

TEST_F(HttpServerTest, MethodThatTheNodeDoesNotAllowIs405) {
    start();
    const HttpReply reply = httpRequest("PUT", url("/api/serial"), "\"B2\"");
    EXPECT_EQ(405, reply.status);
    EXPECT_EQ(R"({"error":{"code":405,"message":"Method Not Allowed","details":[]}})", reply.body);
    EXPECT_EQ("OPTIONS, GET, HEAD", reply.header("allow"));
    EXPECT_EQ("\"A1\"", get("/api/serial").body);
}

TEST_F(HttpServerTest, OperationThatTheNodeDoesNotImplementIs501) {
    start();
    const HttpReply reply = get("/api/bare");
    EXPECT_EQ(501, reply.status);
    EXPECT_EQ(R"({"error":{"code":501,"message":"Not Implemented","details":[]}})", reply.body);
}

TEST_F(HttpServerTest, RejectedValueIs400WithTheExceptionDocument) {
    start();
    const HttpReply reply = httpRequest("PUT", url("/api/port"), "\"abc\"");
    EXPECT_EQ(400, reply.status);
    EXPECT_EQ(R"({"error":{"code":0,"message":"Invalid type","details":["port","integer"]}})",
              reply.body);
    EXPECT_EQ("application/json", reply.header("content-type"));
    EXPECT_EQ("8080", get("/api/port").body);
}

TEST_F(HttpServerTest, MalformedJsonIs400AndChangesNothing) {
    start();
    const HttpReply reply = httpRequest("PUT", url("/api/name"), "not json");
    EXPECT_EQ(400, reply.status);
    EXPECT_EQ(R"({"error":{"code":400,"message":"Malformed JSON","details":[)"
              R"("invalid JSON at byte 1: invalid literal, expected null","1"]}})",
              reply.body);
    EXPECT_EQ("\"vara\"", get("/api/name").body);
}

TEST_F(HttpServerTest, MalformedQueryIs400WithDocumentAndChangesNothing) {
    start();
    const HttpReply reply = httpRequest("PUT", url("/api/name?a=%zz"), "\"quill\"");
    EXPECT_EQ(400, reply.status);
    EXPECT_EQ(R"({"error":{"code":32,"message":"Malformed query","details":["a=%zz"]}})",
              reply.body);
    EXPECT_EQ("application/json", reply.header("content-type"));
    EXPECT_EQ("\"vara\"", get("/api/name").body);
}

TEST_F(HttpServerTest, ReplacedStatusTableIsUsed) {
    http::ServerOptions options = baseOptions();
    options.statusTable.statuses[3] = 410;
    options.statusTable.created = 200;
    start(options);
    const HttpReply missing = get("/api/missing");
    EXPECT_EQ(410, missing.status);
    EXPECT_EQ(R"({"error":{"code":410,"message":"Gone","details":[]}})", missing.body);
    EXPECT_EQ(200, httpRequest("POST", url("/api/leaf"), R"({"value":"c"})").status);
}

TEST_F(HttpServerTest, BeautifyIndentsTheAnswer) {
    http::ServerOptions options = baseOptions();
    options.beautify = true;
    start(options);
    EXPECT_NE(std::string::npos, get("/api").body.find('\n'));
}

TEST_F(HttpServerTest, BodyOverTheLimitIs413AndChangesNothing) {
    http::ServerOptions options = baseOptions();
    options.maxBodyBytes = 16;
    start(options);
    const HttpReply reply =
        httpRequest("PUT", url("/api/name"), "\"" + std::string(40, 'x') + "\"");
    EXPECT_EQ(413, reply.status);
    EXPECT_EQ(R"({"error":{"code":413,"message":"Content Too Large","details":[]}})", reply.body);
    EXPECT_EQ("\"vara\"", get("/api/name").body);
}

TEST_F(HttpServerTest, ChunkedBodyOverTheLimitIs413AndChangesNothing) {
    http::ServerOptions options = baseOptions();
    options.maxBodyBytes = 16;
    start(options);
    const HttpReply reply = httpRequest("PUT", url("/api/name"), "\"" + std::string(40, 'x') + "\"",
                                        {"Transfer-Encoding: chunked"});
    EXPECT_EQ(413, reply.status);
    EXPECT_EQ("\"vara\"", get("/api/name").body);
}

TEST_F(HttpServerTest, BodyAtTheLimitIsAccepted) {
    http::ServerOptions options = baseOptions();
    options.maxBodyBytes = 16;
    start(options);
    EXPECT_EQ(200, httpRequest("PUT", url("/api/name"), "\"0123456789abcd\"").status);
    EXPECT_EQ("\"0123456789abcd\"", get("/api/name").body);
}

TEST_F(HttpServerTest, DefaultBodyLimitIsOneMebibyte) {
    start();
    const HttpReply reply =
        httpRequest("PUT", url("/api/name"), "\"" + std::string(1024 * 1024, 'x') + "\"");
    EXPECT_EQ(413, reply.status);
}

// Connects to the server and sends `text`; returns the socket.
int connectAndSend(unsigned short port, const std::string& text) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return -1;
    if (send(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) return -1;
    return fd;
}

// Reads until the peer closes the socket, at most HTTP_PATIENCE; true when it closed.
bool waitForClose(int fd) {
    const auto deadline = std::chrono::steady_clock::now() + HTTP_PATIENCE;
    char buffer[256];
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd entry{fd, POLLIN, 0};
        if (poll(&entry, 1, 100) <= 0) continue;
        const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0) return true;
    }
    return false;
}

TEST_F(HttpServerTest, ClientThatStopsSendingIsTimedOut) {
    http::ServerOptions options = baseOptions();
    options.idleTimeout = std::chrono::seconds(1);
    start(options);
    const int fd = connectAndSend(server_->port(), "GET /api/name HTTP/1.1\r\nHost: x\r\n");
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(waitForClose(fd));
    close(fd);
}

TEST_F(HttpServerTest, StartReportsThePickedPort) {
    start();
    EXPECT_TRUE(server_->running());
    EXPECT_NE(0, server_->port());
}

TEST_F(HttpServerTest, StopClosesTheServer) {
    start();
    const std::string address = url("/api/name");
    server_->stop();
    EXPECT_FALSE(server_->running());
    EXPECT_EQ(0, server_->port());
    EXPECT_EQ(0, httpRequest("GET", address).status);
}

TEST_F(HttpServerTest, StopTwiceIsHarmless) {
    start();
    server_->stop();
    server_->stop();
    EXPECT_FALSE(server_->running());
}

TEST_F(HttpServerTest, StartAfterStopServesAgain) {
    start();
    server_->stop();
    server_->start();
    EXPECT_EQ("\"vara\"", get("/api/name").body);
}

TEST_F(HttpServerTest, StartWhileRunningThrowsLogicError) {
    start();
    EXPECT_THROW(
        {
            try {
                server_->start();
            } catch (const std::logic_error& e) {
                EXPECT_STREQ("Server already running", e.what());
                throw;
            }
        },
        std::logic_error);
}

TEST_F(HttpServerTest, BindAddressThatIsNoIpAddressThrowsInvalidArgument) {
    http::ServerOptions options = baseOptions();
    options.bindAddress = "localhost";
    http::Server server(engine_, options);
    EXPECT_THROW(
        {
            try {
                server.start();
            } catch (const std::invalid_argument& e) {
                EXPECT_STREQ("Invalid bind address", e.what());
                throw;
            }
        },
        std::invalid_argument);
    EXPECT_FALSE(server.running());
}

TEST_F(HttpServerTest, PortInUseThrowsRuntimeError) {
    start();
    http::ServerOptions options = baseOptions();
    options.port = server_->port();
    http::Server second(engine_, options);
    const std::string expected = "Cannot listen on 127.0.0.1 port " + std::to_string(options.port);
    EXPECT_THROW(
        {
            try {
                second.start();
            } catch (const std::runtime_error& e) {
                EXPECT_EQ(expected, e.what());
                throw;
            }
        },
        std::runtime_error);
}

TEST_F(HttpServerTest, ListensOnIpv6Loopback) {
    http::ServerOptions options = baseOptions();
    options.bindAddress = "::1";
    http::Server server(engine_, options);
    try {
        server.start();
    } catch (const std::runtime_error&) {
        GTEST_SKIP() << "no IPv6 loopback on this machine";
    }
    const std::string address = "http://[::1]:" + std::to_string(server.port()) + "/api/name";
    EXPECT_EQ("\"vara\"", httpRequest("GET", address).body);
}

TEST_F(HttpServerTest, EightClientsMaking200RequestsEachAllSucceed) {
    constexpr int CLIENTS = 8;
    constexpr int REQUESTS = 200;
    start();
    std::atomic<int> failures{0};
    std::vector<std::thread> clients;
    for (int c = 0; c < CLIENTS; ++c) {
        clients.emplace_back([this, c, &failures] {
            HttpClient client;
            for (int i = 0; i < REQUESTS; ++i) {
                const HttpReply reply =
                    i % 2 == 0 ? client.request("PUT", url("/api/port"), std::to_string(c))
                               : client.request("GET", url("/api/port"));
                if (reply.status != 200) ++failures;
            }
        });
    }
    for (std::thread& client : clients) client.join();
    EXPECT_EQ(0, failures.load());
    EXPECT_THAT(get("/api/port").body, ::testing::MatchesRegex("[0-7]"));
}

}  // namespace
}  // namespace test
}  // namespace dme
