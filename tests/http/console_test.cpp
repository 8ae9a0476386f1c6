// The browser console as the server delivers it: its files, their media types and headers, the
// page's configuration, and what stays as it was when the console is off. What the page does is
// tested in a real browser (tests/browser).
#include "http_fixture.h"

namespace dme {
namespace test {
namespace {

const std::string ADMIN = basicAuthorization("admin", "secret");
constexpr std::size_t CONSOLE_BUDGET_BYTES = 60 * 1024;

class ConsoleTest : public HttpServerTest {
  protected:
    void startWithConsole() {
        http::ServerOptions options = baseOptions();
        options.allowAnonymous = false;
        options.console = true;
        start(options);
    }
};

TEST_F(ConsoleTest, RootIsThePageWithoutCredentials) {
    startWithConsole();
    const HttpReply page = get("/");
    EXPECT_EQ(200, page.status);
    EXPECT_EQ("text/html; charset=utf-8", page.header("content-type"));
    EXPECT_NE(std::string::npos, page.body.find("console/console.js"));
    EXPECT_NE(std::string::npos, page.body.find("console/console.css"));
}

TEST_F(ConsoleTest, ScriptAndStyleHaveTheirMediaTypes) {
    startWithConsole();
    const HttpReply script = get("/console/console.js");
    const HttpReply style = get("/console/console.css");
    EXPECT_EQ(200, script.status);
    EXPECT_EQ("text/javascript; charset=utf-8", script.header("content-type"));
    EXPECT_FALSE(script.body.empty());
    EXPECT_EQ(200, style.status);
    EXPECT_EQ("text/css; charset=utf-8", style.header("content-type"));
    EXPECT_FALSE(style.body.empty());
}

TEST_F(ConsoleTest, FilesTogetherStayUnderTheirBudget) {
    startWithConsole();
    const std::size_t total = get("/").body.size() + get("/console/console.js").body.size() +
                              get("/console/console.css").body.size();
    EXPECT_GT(total, 0u);
    EXPECT_LT(total, CONSOLE_BUDGET_BYTES);
}

TEST_F(ConsoleTest, PageLoadsNothingFromElsewhere) {
    startWithConsole();
    const HttpReply page = get("/");
    const std::string policy = page.header("content-security-policy");
    EXPECT_NE(std::string::npos, policy.find("default-src 'none'"));
    EXPECT_NE(std::string::npos, policy.find("connect-src 'self'"));
    EXPECT_EQ("nosniff", page.header("x-content-type-options"));
    EXPECT_EQ(std::string::npos, page.body.find("http://"));
    EXPECT_EQ(std::string::npos, page.body.find("https://"));
}

TEST_F(ConsoleTest, ConfigurationNamesWhereTheTreeIsServed) {
    http::ServerOptions options = baseOptions();
    options.console = true;
    options.basePath = "/device/";
    options.eventsPrefix = "/changes";
    start(options);
    const HttpReply configuration = get("/console/config.json");
    EXPECT_EQ(200, configuration.status);
    EXPECT_EQ("application/json", configuration.header("content-type"));
    EXPECT_EQ(R"({"api":"/device","schema":"/schema","events":"/changes","limit":"limit",)"
              R"("offset":"offset","keys":{"href":"href","id":"id","count":"count",)"
              R"("items":"items","expand":"expand"}})",
              configuration.body);
}

TEST_F(ConsoleTest, UnchangedFileAnswers304) {
    startWithConsole();
    const HttpReply first = get("/console/console.js");
    ASSERT_FALSE(first.header("etag").empty());
    const HttpReply again = get("/console/console.js", {"If-None-Match: " + first.header("etag")});
    EXPECT_EQ(304, again.status);
    EXPECT_EQ("", again.body);
}

TEST_F(ConsoleTest, UnknownFileAnswers404) {
    startWithConsole();
    const HttpReply missing = get("/console/missing.js");
    EXPECT_EQ(404, missing.status);
    EXPECT_EQ(R"({"error":{"code":404,"message":"Not Found","details":[]}})", missing.body);
}

TEST_F(ConsoleTest, WritingToThePageAnswers405) {
    startWithConsole();
    const HttpReply refused = httpRequest("PUT", url("/"), "{}");
    EXPECT_EQ(405, refused.status);
    EXPECT_EQ("GET, HEAD", refused.header("allow"));
}

TEST_F(ConsoleTest, TreeStillNeedsCredentials) {
    startWithConsole();
    EXPECT_EQ(401, get("/api/name").status);
    EXPECT_EQ(200, get("/api/name", {ADMIN}).status);
}

TEST_F(ConsoleTest, IsOffByDefault) {
    start();
    EXPECT_EQ(404, get("/").status);
    EXPECT_EQ(404, get("/console/console.js").status);
}

TEST_F(ConsoleTest, NeedsABasePath) {
    http::ServerOptions options = baseOptions();
    options.console = true;
    options.basePath = "";
    try {
        http::Server server(engine_, options);
        FAIL() << "a console without a base path was accepted";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ("The console needs a base path", e.what());
    }
}

TEST_F(ConsoleTest, ScriptedRequestGets401WithoutChallenge) {
    startWithConsole();
    const HttpReply scripted = get("/api/name", {"X-Requested-With: XMLHttpRequest"});
    EXPECT_EQ(401, scripted.status);
    EXPECT_EQ("", scripted.header("www-authenticate"));
    EXPECT_EQ("Basic realm=\"dme\"", get("/api/name").header("www-authenticate"));
}

}  // namespace
}  // namespace test
}  // namespace dme
