#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dme/engine.h"
#include "dme/methods.h"
#include "dme/session.h"

namespace dme {
namespace http {

// Turns an engine result code into the HTTP status of the answer. A plain value type: copyable;
// const use may be shared between threads.
struct StatusTable {
    // The status of each result code.
    std::map<int, unsigned int> statuses;
    // The status of a successful CREATE (result 0), whatever `statuses` says of 0.
    unsigned int created = 201;
    // The status of a result code that `statuses` does not name.
    unsigned int otherwise = 500;

    // The binding's table: 0 → 200, 1 → 500, 2 → 405, 3 and 4 → 404, 6 → 403, 7 → 400,
    // 8 → 501, 10 → 400, 12 → 500; created 201, otherwise 500.
    static StatusTable defaults();

    // Returns the status of `resultCode` for a request of `method`.
    unsigned int statusOf(int resultCode, Method method) const;
};

// Checks the credentials of HTTP Basic authentication. Returns the caller's session, or nothing
// to refuse them. Called on the server's thread, one call at a time, never under the engine
// lock: it must not block for long, and it may itself use the engine through
// Server::engineMutex().
using Authenticator =
    std::function<std::optional<SessionInfo>(const std::string& user, const std::string& password)>;

// One finished exchange, as an access log records it.
struct AccessLogEntry {
    std::string method;  // as sent: "GET", "PUT", ...
    std::string target;  // the request target as sent, query string included
    unsigned int status = 0;
    // The bytes of the answer's body: of an event stream, every byte sent on it.
    std::size_t bytes = 0;
    // From the request line to the end of the answer (for an event stream, its whole life).
    std::chrono::microseconds duration{0};
    std::string user;  // the authenticated user, empty for anonymous or refused callers
};

// Called once per finished exchange, on the server's network thread: it must not block for
// long, and must not use the engine without Server::engineMutex().
using AccessLog = std::function<void(const AccessLogEntry&)>;

// How a Server listens and answers. A plain value type: copy it, change what you need, hand it
// to the Server's constructor.
struct ServerOptions {
    // The IPv4 or IPv6 address to listen on.
    std::string bindAddress = "127.0.0.1";
    // The TCP port; 0 lets the system pick a free one (see Server::port()).
    unsigned short port = 0;
    // The path under which the tree is served: "<basePath>/<uri>". Trailing slashes are ignored;
    // an empty path serves the tree at the server's root.
    std::string basePath = "/api";
    // Below the base path: GET "<schemaPrefix>/<uri>" answers the schema of <uri>.
    std::string schemaPrefix = "/schema";
    // Below the base path: GET "<eventsPrefix>/<uri>?interval=<ms>&..." with
    // "Accept: text/event-stream" opens a stream of change events of <uri>.
    std::string eventsPrefix = "/events";
    // Result codes to HTTP statuses.
    StatusTable statusTable = StatusTable::defaults();
    // Checks Basic credentials; without one every request that carries credentials is refused.
    Authenticator authenticator;
    // Whether a request without credentials runs as the anonymous session; when false it is
    // answered 401.
    bool allowAnonymous = false;
    // The realm named in the WWW-Authenticate challenge of a 401 answer.
    std::string realm = "dme";
    // Request bodies longer than this are answered 413.
    std::size_t maxBodyBytes = std::size_t{1024} * 1024;
    // Event streams open at once; one more is answered 503.
    unsigned int maxStreams = 8;
    // Event streams that one user (all anonymous callers together count as one) may hold at
    // once; one more is answered 429. Keep it below maxStreams, so that one user cannot take
    // every stream.
    unsigned int maxStreamsPerUser = 4;
    // Connections open at once (event streams included); further ones wait in the system's
    // accept queue until a slot comes free.
    unsigned int maxConnections = 256;
    // Connections open at once from one client address; further ones are closed as soon as
    // they are accepted. 0: no limit but maxConnections.
    unsigned int maxConnectionsPerAddress = 64;
    // A request must arrive whole (request line, headers and body) within this time of its
    // connection's opening or of the end of the previous answer on it; otherwise the connection
    // is closed. This bounds how long any client, however slow or silent, holds a slot. 0: no
    // limit but idleTimeout.
    std::chrono::milliseconds requestTimeout{5000};
    // The memory of one connection, in which its request head must fit (the request line, the
    // header fields and the query's arguments taken apart); a longer request line is answered
    // 414, a larger head 431. Above 32 KiB the HTTP library maps each connection's memory on its
    // own and gives it back to the system when the connection closes; at 32 KiB or less it takes
    // it from the heap, which connections opened and closed by the thousand leave fragmented, so
    // that the resident memory of a long-running server keeps growing.
    std::size_t connectionMemoryBytes = std::size_t{36} * 1024;
    // A connection on which nothing is received or sent for this long is closed (a client that
    // does not read its answer). Whole seconds; 0 never closes.
    std::chrono::seconds idleTimeout{30};
    // The minimal interval between two events of a stream whose query has no "interval".
    std::chrono::milliseconds defaultInterval{1000};
    // How often an idle event stream is sent a comment line, which also finds streams whose
    // client has gone away.
    std::chrono::milliseconds heartbeatInterval{15000};
    // Whether JSON answers are indented (event data never is).
    bool beautify = false;
    // HTTPS: the server's certificate (with any intermediate certificates after it) and its
    // private key, in PEM, given as text or as files (a file is read when the server is
    // constructed; std::runtime_error when it cannot be). With neither the server speaks plain
    // HTTP; a certificate without a key, or a key without one, is std::invalid_argument.
    std::string tlsCertificatePem;
    std::string tlsKeyPem;
    std::string tlsCertificateFile;
    std::string tlsKeyFile;
    // Whether a PUT or PATCH that fails changes nothing: the server turns the engine's
    // all-or-nothing updates on (DataModelEngine::setAllOrNothingUpdates). When false, the
    // engine is left as the application set it.
    bool allOrNothingUpdates = true;
    // Origins (as browsers send them: "https://portal.example.com") whose pages may call the
    // server from a browser (CORS); "*" allows every origin. Empty: no CORS headers at all.
    std::vector<std::string> corsOrigins;
    // The query arguments that page a collection's GET ("?limit=20&offset=40"); both empty
    // turn paging off (DataModelEngine::setPagingArguments, set by the server's constructor).
    std::string limitArgument = "limit";
    std::string offsetArgument = "offset";
    // Called once per finished exchange; none by default.
    AccessLog accessLog;
    // Whether the browser console is served: "/" is a page that logs in, draws the tree from
    // its schema and values, writes changes and follows event streams; its files come from the
    // library itself ("/console/..."). Requires a base path other than "" (std::invalid_argument
    // "The console needs a base path" otherwise).
    bool console = false;
};

// One HTTP request as a web server receives it. A plain value type.
struct HttpRequest {
    std::string method;  // "GET", "PUT", ...
    std::string target;  // as sent: the path and the query string ("/api/system?expand=1")
    std::string version = "HTTP/1.1";
    // The header fields in the order received, names in any case.
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
};

// The answer to an HttpRequest. A plain value type.
struct HttpResponse {
    unsigned int status = 0;
    // Every header field of the answer, Content-Type included (Date and Content-Length are the
    // web server's).
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
};

// Serves one JsonDataModelEngine over HTTP/1.1.
//
// Requests under the base path run against the engine: GET and HEAD → READ, PUT and PATCH →
// UPDATE, POST → CREATE, DELETE → DELETE, GET under the schema prefix → SCHEMA; OPTIONS answers
// the node's Allow (DataModelEngine::allowedMethods). The path is percent-decoded, the query
// string is handed to Arguments as it is and the body is JSON text (415 for another media type,
// 406 when Accept excludes JSON). GET answers carry an ETag (304 for If-None-Match) and writes
// honour If-Match (412); resource paths in answers are percent-encoded; a collection's GET is
// paged by limitArgument and offsetArgument, with a Link to the next page. The result code becomes
// a status through the status table; a successful answer carries the engine's JSON, an error answer
// the engine's error document when it wrote one (see defaultExceptionHandler) and else the
// binding's (see error_document.h). Every JSON answer has "Content-Type: application/json".
// A status 403 given to a request without credentials becomes 401 with a challenge.
//
// Event streams (Server-Sent Events): each stream subscribes one observer to its uri with
// immediate notification, so that its first event comes at once; each notification sends
// "event: change" with the current READ of the uri as one line of JSON (or "event: error" with
// an error document when that READ fails). Closing the connection unsubscribes.
//
// Hostile clients: connections are limited in total and per client address, a request must
// arrive whole within requestTimeout, heads that a proxy could read otherwise are refused, and
// one user holds at most maxStreamsPerUser streams (see docs/http.md).
//
// Threads: the server runs one network thread, one event thread and one watch thread, however
// many connections and streams are open. Every engine call that the server makes (requests,
// notification reads, subscribing and unsubscribing) holds engineMutex(), so that the engine serves
// one request at a time; the application must hold it too around its own engine calls while the
// server runs. start(), stop() and port() are called from the application's thread, not
// concurrently. Neither copyable nor movable; the engine must outlive the server.
class Server {
  public:
    // Keeps `engine` by reference and `options` by copy; does not listen yet.
    Server(JsonDataModelEngine& engine, ServerOptions options);
    // Stops the server when it runs.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Starts listening. Requires that the server is not running (std::logic_error
    // "Server already running" otherwise). Throws std::invalid_argument("Invalid bind address")
    // when bindAddress is no IP address and std::runtime_error("Cannot listen on <address> port
    // <port>") when the server cannot listen there.
    void start();
    // Ends every event stream with a last comment and the end of its chunked body (waiting up
    // to a second for them to be sent; their observers are unsubscribed), closes every
    // connection and stops listening. Does nothing when the server is not running. Must not be
    // called while holding engineMutex().
    void stop();
    // Starts the server unless it runs, then blocks until SIGINT or SIGTERM arrives or stop()
    // is called from another thread, and stops the server. Returns the signal's number, or 0
    // after stop(). While it blocks, the two signals are handled by the server (the handlers
    // in place before come back on return), so it must run on a thread that does not block
    // them. At most one run() at a time in a process: std::logic_error("Server::run() already
    // running") otherwise; start() may throw as above.
    int run();
    // Answers `request` as the server answers it on a connection, without any network: the same
    // checks of the head and the body, authentication, routing, statuses and headers. For
    // applications that bring their own web server, and for tests and fuzzing. An event stream
    // needs a connection: a request that would open one is answered 501 after the same checks.
    // Works whether the server runs or not; not recorded in the access log. Holds
    // engineMutex() for its engine calls, so it must not be called while holding it. Safe from
    // any thread.
    HttpResponse answer(const HttpRequest& request);
    // The port listened on while running (the one picked for port 0); 0 when not running.
    unsigned short port() const;
    // Whether start() succeeded and stop() was not called since.
    bool running() const;
    // The lock around every engine call.
    std::mutex& engineMutex();

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace http
}  // namespace dme
