#include <gtest/gtest.h>

#include <string>

#include "dme/http/server.h"
#include "http_client.h"
#include "http_fixture.h"

namespace dme {
namespace test {
namespace {

const std::string UNAUTHORIZED_DOCUMENT =
    R"({"error":{"code":401,"message":"Unauthorized","details":[]}})";

class AuthenticationTest : public HttpServerTest {
  protected:
    static http::ServerOptions closedOptions() {
        http::ServerOptions options = baseOptions();
        options.allowAnonymous = false;
        return options;
    }
};

TEST_F(AuthenticationTest, RequestWithoutCredentialsIs401WithChallenge) {
    start(closedOptions());
    const HttpReply reply = get("/api/name");
    EXPECT_EQ(401, reply.status);
    EXPECT_EQ("Basic realm=\"dme\"", reply.header("www-authenticate"));
    EXPECT_EQ(UNAUTHORIZED_DOCUMENT, reply.body);
    EXPECT_EQ("application/json", reply.header("content-type"));
}

TEST_F(AuthenticationTest, RefusedAnonymousRequestChangesNothing) {
    start(closedOptions());
    EXPECT_EQ(401, httpRequest("PUT", url("/api/name"), "\"quill\"").status);
    EXPECT_EQ("\"vara\"", get("/api/name", {basicAuthorization("admin", "secret")}).body);
}

TEST_F(AuthenticationTest, ChallengeNamesTheConfiguredRealm) {
    http::ServerOptions options = closedOptions();
    options.realm = "device \"7\"";
    start(options);
    EXPECT_EQ("Basic realm=\"device \\\"7\\\"\"", get("/api/name").header("www-authenticate"));
}

TEST_F(AuthenticationTest, ValidCredentialsAreAccepted) {
    start(closedOptions());
    const HttpReply reply = get("/api/name", {basicAuthorization("guest", "guest")});
    EXPECT_EQ(200, reply.status);
    EXPECT_EQ("\"vara\"", reply.body);
}

TEST_F(AuthenticationTest, WrongPasswordIs401WithChallenge) {
    start(closedOptions());
    const HttpReply reply = get("/api/name", {basicAuthorization("admin", "wrong")});
    EXPECT_EQ(401, reply.status);
    EXPECT_EQ("Basic realm=\"dme\"", reply.header("www-authenticate"));
    EXPECT_EQ(UNAUTHORIZED_DOCUMENT, reply.body);
}

TEST_F(AuthenticationTest, WrongCredentialsAre401EvenWhenAnonymousIsAllowed) {
    start();
    EXPECT_EQ(401, get("/api/name", {basicAuthorization("nobody", "x")}).status);
}

TEST_F(AuthenticationTest, OtherSchemeIs401) {
    start(closedOptions());
    EXPECT_EQ(401, get("/api/name", {"Authorization: Bearer abc"}).status);
}

TEST_F(AuthenticationTest, SchemeNameIsCaseInsensitive) {
    start(closedOptions());
    EXPECT_EQ(200, get("/api/name", {"Authorization: bASIC Z3Vlc3Q6Z3Vlc3Q="}).status);
}

TEST_F(AuthenticationTest, CredentialsThatAreNotBase64Are401) {
    start(closedOptions());
    EXPECT_EQ(401, get("/api/name", {"Authorization: Basic !!!!"}).status);
}

TEST_F(AuthenticationTest, CredentialsWithoutColonAre401) {
    start(closedOptions());
    EXPECT_EQ(401, get("/api/name", {"Authorization: Basic Z3Vlc3Q="}).status);
}

TEST_F(AuthenticationTest, PasswordIsEverythingAfterTheFirstColon) {
    http::ServerOptions options = closedOptions();
    std::string seenUser;
    std::string seenPassword;
    options.authenticator = [&seenUser, &seenPassword](const std::string& user,
                                                       const std::string& password) {
        seenUser = user;
        seenPassword = password;
        return std::optional<SessionInfo>(SessionInfo());
    };
    start(options);
    EXPECT_EQ(200, get("/api/name", {basicAuthorization("ops", "a:b:c")}).status);
    server_->stop();
    EXPECT_EQ("ops", seenUser);
    EXPECT_EQ("a:b:c", seenPassword);
}

TEST_F(AuthenticationTest, CredentialsWithoutAuthenticatorAre401) {
    http::ServerOptions options = baseOptions();
    options.authenticator = nullptr;
    start(options);
    EXPECT_EQ(401, get("/api/name", {basicAuthorization("admin", "secret")}).status);
    EXPECT_EQ(200, get("/api/name").status);
}

TEST_F(AuthenticationTest, AnonymousRequestIsServedWhenAllowed) {
    start();
    EXPECT_EQ("\"vara\"", get("/api/name").body);
}

TEST_F(AuthenticationTest, SessionReachesThePermissionPolicy) {
    start(closedOptions());
    const HttpReply reply = get("/api/secret", {basicAuthorization("admin", "secret")});
    EXPECT_EQ(200, reply.status);
    EXPECT_EQ("\"hidden\"", reply.body);
}

TEST_F(AuthenticationTest, SessionWithoutPermissionIs403) {
    start(closedOptions());
    const HttpReply reply = get("/api/secret", {basicAuthorization("guest", "guest")});
    EXPECT_EQ(403, reply.status);
    EXPECT_EQ(R"({"error":{"code":403,"message":"Forbidden","details":[]}})", reply.body);
    EXPECT_EQ("", reply.header("www-authenticate"));
}

TEST_F(AuthenticationTest, ForbiddenUpdateChangesNothing) {
    start(closedOptions());
    const std::string guest = basicAuthorization("guest", "guest");
    EXPECT_EQ(403, httpRequest("PUT", url("/api/secret"), "\"leaked\"", {guest}).status);
    EXPECT_EQ("\"hidden\"", get("/api/secret", {basicAuthorization("admin", "secret")}).body);
}

TEST_F(AuthenticationTest, AnonymousWithoutPermissionIs401WithChallenge) {
    start();
    const HttpReply reply = get("/api/secret");
    EXPECT_EQ(401, reply.status);
    EXPECT_EQ("Basic realm=\"dme\"", reply.header("www-authenticate"));
    EXPECT_EQ(UNAUTHORIZED_DOCUMENT, reply.body);
}

}  // namespace
}  // namespace test
}  // namespace dme
