// An expand level that the request context cannot read leaves JsonDataModelEngine::execute as a
// dme::Exception instead of a result code; the server answers it as the rejected input it is.

#include <gtest/gtest.h>

#include <string>

#include "http_client.h"
#include "http_fixture.h"

namespace dme {
namespace test {
namespace {

TEST_F(HttpServerTest, ExpandLevelThatIsNoNumberAnswers400WithItsErrorDocument) {
    start();
    const HttpReply reply = get("/api?expand=x");
    EXPECT_EQ(400, reply.status);
    EXPECT_EQ(
        R"({"error":{"code":33,"message":"Argument invalid type","details":["x","integer"]}})",
        reply.body);
    EXPECT_EQ("application/json", reply.header("content-type"));
}

TEST_F(HttpServerTest, NegativeExpandLevelAnswers400WithItsErrorDocument) {
    start();
    const HttpReply reply = get("/api/name?expand=-1");
    EXPECT_EQ(400, reply.status);
    EXPECT_EQ(R"({"error":{"code":35,"message":"Argument out of range","details":["-1"]}})",
              reply.body);
}

TEST_F(HttpServerTest, EventStreamWithUnreadableExpandLevelAnswers400) {
    start();
    const HttpReply reply = get("/api/events/name?expand=x", {"Accept: text/event-stream"});
    EXPECT_EQ(400, reply.status);
    EXPECT_EQ(
        R"({"error":{"code":33,"message":"Argument invalid type","details":["x","integer"]}})",
        reply.body);
    EXPECT_EQ(0u, subscriptions());
}

TEST_F(HttpServerTest, ServerGoesOnServingAfterUnreadableExpandLevel) {
    start();
    get("/api?expand=x");
    const HttpReply reply = get("/api/name");
    EXPECT_EQ(200, reply.status);
    EXPECT_EQ("\"vara\"", reply.body);
}

}  // namespace
}  // namespace test
}  // namespace dme
