// Server::answer: requests answered as on a connection, without any network, for applications
// that bring their own web server.
#include "http_fixture.h"

namespace dme {
namespace test {
namespace {

const std::string ADMIN =
    basicAuthorization("admin", "secret").substr(sizeof "Authorization: " - 1);

class AnswerWithoutNetworkTest : public HttpServerTest {
  protected:
    http::HttpResponse answer(const std::string& method, const std::string& target,
                              std::vector<std::pair<std::string, std::string>> headers = {},
                              const std::string& body = "") {
        headers.emplace(headers.begin(), "Host", "device");
        return server().answer({method, target, "HTTP/1.1", headers, body});
    }

    http::Server& server() {
        if (!server_) server_ = std::make_unique<http::Server>(engine_, baseOptions());
        return *server_;
    }

    static std::string header(const http::HttpResponse& response, const std::string& name) {
        for (const auto& field : response.headers) {
            if (field.first == name) return field.second;
        }
        return "";
    }
};

TEST_F(AnswerWithoutNetworkTest, ReadIsAnsweredWithoutStartingTheServer) {
    const http::HttpResponse response = answer("GET", "/api/name");
    EXPECT_EQ(200u, response.status);
    EXPECT_EQ("\"vara\"", response.body);
    EXPECT_EQ("application/json", header(response, "Content-Type"));
    EXPECT_FALSE(header(response, "ETag").empty());
    EXPECT_FALSE(server().running());
}

TEST_F(AnswerWithoutNetworkTest, WriteChangesTheTree) {
    EXPECT_EQ(200u, answer("PUT", "/api/name", {{"Authorization", ADMIN}}, "\"new\"").status);
    EXPECT_EQ("\"new\"", answer("GET", "/api/name").body);
}

TEST_F(AnswerWithoutNetworkTest, HeadHasTheHeadersButNoBody) {
    const http::HttpResponse response = answer("HEAD", "/api/name");
    EXPECT_EQ(200u, response.status);
    EXPECT_EQ("", response.body);
    EXPECT_EQ("application/json", header(response, "Content-Type"));
}

TEST_F(AnswerWithoutNetworkTest, AmbiguousHeadIsRefused) {
    const http::HttpResponse response =
        answer("PUT", "/api/name", {{"Content-Length", "5"}, {"Content-Length", "6"}}, "\"abc\"");
    EXPECT_EQ(400u, response.status);
    EXPECT_EQ(R"({"error":{"code":400,"message":"Conflicting Content-Length","details":[]}})",
              response.body);
    EXPECT_EQ("\"vara\"", answer("GET", "/api/name").body);
}

TEST_F(AnswerWithoutNetworkTest, BodyOverTheLimitIs413) {
    http::ServerOptions options = baseOptions();
    options.maxBodyBytes = 4;
    server_ = std::make_unique<http::Server>(engine_, options);
    EXPECT_EQ(413u, answer("PUT", "/api/name", {{"Authorization", ADMIN}}, "\"long\"").status);
}

TEST_F(AnswerWithoutNetworkTest, EventStreamNeedsAConnection) {
    const http::HttpResponse response =
        answer("GET", "/api/events/name", {{"Accept", "text/event-stream"}});
    EXPECT_EQ(501u, response.status);
    EXPECT_EQ(0u, subscriptions());
}

TEST_F(AnswerWithoutNetworkTest, EventStreamChecksComeFirst) {
    EXPECT_EQ(404u, answer("GET", "/api/events/missing", {{"Accept", "text/event-stream"}}).status);
    EXPECT_EQ(
        400u,
        answer("GET", "/api/events/name?interval=-1", {{"Accept", "text/event-stream"}}).status);
}

TEST_F(AnswerWithoutNetworkTest, ScriptedRefusalCarriesNoChallenge) {
    const http::HttpResponse plain = answer("GET", "/api/secret");
    const http::HttpResponse scripted =
        answer("GET", "/api/secret", {{"X-Requested-With", "XMLHttpRequest"}});
    EXPECT_EQ(401u, plain.status);
    EXPECT_EQ("Basic realm=\"dme\"", header(plain, "WWW-Authenticate"));
    EXPECT_EQ(401u, scripted.status);
    EXPECT_EQ("", header(scripted, "WWW-Authenticate"));
}

}  // namespace
}  // namespace test
}  // namespace dme
