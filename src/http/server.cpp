#include "dme/http/server.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "answer.h"
#include "basic_auth.h"
#include "connection_watch.h"
#include "console.h"
#include "dme/arguments.h"
#include "dme/diagnostics.h"
#include "dme/exception.h"
#include "dme/http/error_document.h"
#include "dme/json.h"
#include "dme/path.h"
#include "dme/result.h"
#include "event_streams.h"
#include "headers.h"
#include "run_waker.h"

namespace dme {
namespace http {
namespace {

// The media type of every answer of the binding but the console's files.
constexpr const char* JSON_MEDIA_TYPE = "application/json";

// An event stream that a request asks for and may have: what it subscribes to, for whom.
struct StreamOpening {
    RequestInfo requestInfo;
    bool anonymous;
    std::string uri;
    Arguments arguments;
    std::chrono::milliseconds interval;
};

// The state of one request on a connection, from its request line to its completion.
struct Exchange {
    HttpRequest request;  // as received so far: the head, then the body
    bool begun = false;   // whether the access handler has seen the request's headers
    bool tooLarge = false;
    std::optional<StreamOpening> opening;  // set when the request may open an event stream
    std::shared_ptr<EventStream> stream;   // set when the request opened an event stream
    // What the access log records.
    std::chrono::steady_clock::time_point received = std::chrono::steady_clock::now();
    std::string user;
    unsigned int status = 0;
    std::size_t bytes = 0;
};

// Who makes a request: the request info handed to the engine, and whether the request carried
// credentials at all.
struct Caller {
    RequestInfo requestInfo;
    bool anonymous = true;
};

// Which part of the base path a request addresses.
enum class Area { OUTSIDE, RESOURCES, SCHEMA, EVENTS };

struct Route {
    Area area;
    std::string uri;
};

using Fields = std::vector<std::pair<std::string, std::string>>;

constexpr std::size_t STREAM_BLOCK_SIZE = 4096;
constexpr char ALLOW_ALL[] = "OPTIONS, GET, HEAD, PUT, PATCH, POST, DELETE";
constexpr char ALLOW_GET[] = "OPTIONS, GET, HEAD";
constexpr char ALLOW_STREAM[] = "OPTIONS, GET";
constexpr char EVENT_STREAM[] = "text/event-stream";
constexpr char INTERVAL[] = "interval";
constexpr char ALLOWED_REQUEST_HEADERS[] =
    "Authorization, Content-Type, Accept, If-Match, If-None-Match, Last-Event-ID, "
    "X-Requested-With";
constexpr char EXPOSED_HEADERS[] = "ETag, Location, Link, Retry-After, Allow, WWW-Authenticate";
constexpr char PREFLIGHT_MAX_AGE[] = "600";
// The most arguments that a query string may have.
constexpr long MAX_QUERY_ARGUMENTS = 128;
// The longest interval that an event stream may ask for: a day.
constexpr std::chrono::milliseconds MAX_STREAM_INTERVAL = std::chrono::hours(24);
// How long stop() waits for ending event streams to be sent.
constexpr std::chrono::seconds STREAM_END_PATIENCE{1};

std::string withoutTrailingSlashes(std::string path) {
    while (!path.empty() && path.back() == '/') path.pop_back();
    return path;
}

// Whether `path` is `prefix` or continues it with '/'; `rest` is what follows, "/" for nothing.
bool strip(const std::string& path, const std::string& prefix, std::string& rest) {
    if (path.compare(0, prefix.size(), prefix) != 0) return false;
    if (path.size() > prefix.size() && path[prefix.size()] != '/') return false;
    rest = path.size() == prefix.size() ? "/" : path.substr(prefix.size());
    return true;
}

std::string queryOf(const std::string& target) {
    const std::size_t mark = target.find('?');
    return mark == std::string::npos ? "" : target.substr(mark + 1);
}

std::string pathOf(const std::string& target) {
    return target.substr(0, target.find('?'));
}

// Whether the query of `target` has more than MAX_QUERY_ARGUMENTS arguments.
bool hasTooManyArguments(const std::string& target) {
    const std::string query = queryOf(target);
    return std::count(query.begin(), query.end(), '&') >= MAX_QUERY_ARGUMENTS;
}

bool carriesBody(const std::string& method) {
    return method == MHD_HTTP_METHOD_PUT || method == MHD_HTTP_METHOD_PATCH ||
           method == MHD_HTTP_METHOD_POST;
}

std::optional<Method> resourceMethod(const std::string& method) {
    // HEAD answers what GET answers; the HTTP library leaves out the body.
    if (method == MHD_HTTP_METHOD_GET || method == MHD_HTTP_METHOD_HEAD) return READ;
    if (method == MHD_HTTP_METHOD_PUT || method == MHD_HTTP_METHOD_PATCH) return UPDATE;
    if (method == MHD_HTTP_METHOD_POST) return CREATE;
    if (method == MHD_HTTP_METHOD_DELETE) return DELETE;
    return std::nullopt;
}

bool containsIgnoringCase(const std::string& text, const std::string& word) {
    std::string lower;
    for (char c : text) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower.find(word) != std::string::npos;
}

// The header fields of the request on `connection`, in the order received.
Fields headerFields(MHD_Connection* connection) {
    Fields fields;
    MHD_get_connection_values(
        connection, MHD_HEADER_KIND,
        [](void* target, MHD_ValueKind, const char* name, const char* value) {
            static_cast<Fields*>(target)->emplace_back(name, value == nullptr ? "" : value);
            return MHD_YES;
        },
        &fields);
    return fields;
}

std::string header(const HttpRequest& request, const char* name) {
    return fieldValue(request.headers, name);
}

bool declaredLongerThan(const HttpRequest& request, std::size_t limit) {
    const std::string length = header(request, MHD_HTTP_HEADER_CONTENT_LENGTH);
    if (length.empty()) return false;
    try {
        return std::stoull(length) > limit;
    } catch (const std::exception&) {
        return false;
    }
}

bool hasHeader(const Answer& answer, const char* name) {
    return std::any_of(answer.headers.begin(), answer.headers.end(),
                       [name](const auto& item) { return item.first == name; });
}

// A request made by a page's script ("X-Requested-With: XMLHttpRequest"): its 401 answers carry
// no challenge, so that the browser shows no login dialog of its own over the page's.
bool isScripted(const HttpRequest& request) {
    return header(request, "X-Requested-With") == "XMLHttpRequest";
}

Answer withHeader(Answer answer, const char* name, std::string value) {
    answer.headers.emplace_back(name, std::move(value));
    return answer;
}

MHD_Result queue(MHD_Connection* connection, MHD_Response* response, unsigned int status) {
    const MHD_Result queued = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return queued;
}

void addHeaders(MHD_Response* response, const Fields& headers) {
    for (const auto& field : headers) {
        MHD_add_response_header(response, field.first.c_str(), field.second.c_str());
    }
}

ssize_t readStream(void* holder, std::uint64_t, char* buffer, std::size_t max) {
    return (*static_cast<std::shared_ptr<EventStream>*>(holder))->read(buffer, max);
}

void releaseStream(void* holder) {
    delete static_cast<std::shared_ptr<EventStream>*>(holder);
}

// An IPv4 or IPv6 socket address; throws std::invalid_argument for anything else.
struct SocketAddress {
    sockaddr_storage storage{};
    bool ipv6 = false;

    SocketAddress(const std::string& address, unsigned short port) {
        auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
        auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
        if (inet_pton(AF_INET, address.c_str(), &v4->sin_addr) == 1) {
            v4->sin_family = AF_INET;
            v4->sin_port = htons(port);
        } else if (inet_pton(AF_INET6, address.c_str(), &v6->sin6_addr) == 1) {
            v6->sin6_family = AF_INET6;
            v6->sin6_port = htons(port);
            ipv6 = true;
        } else {
            throw std::invalid_argument("Invalid bind address");
        }
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

}  // namespace

// The network side: libmicrohttpd runs one polling thread that calls the handlers below;
// EventStreams runs the event thread.
class Server::Impl {
  public:
    Impl(JsonDataModelEngine& engine, ServerOptions options)
        : engine_(engine),
          options_(normalized(std::move(options))),
          streams_(engine, engineMutex_, options_) {}

    ~Impl() { stop(); }

    void start() {
        if (daemon_ != nullptr) throw std::logic_error("Server already running");
        const SocketAddress address(options_.bindAddress, options_.port);
        unsigned int flags =
            MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_AUTO | MHD_ALLOW_SUSPEND_RESUME;
        if (address.ipv6) flags |= MHD_USE_IPv6;
        if (!options_.tlsCertificatePem.empty()) flags |= MHD_USE_TLS;
        std::vector<MHD_OptionItem> tls = tlsOptions();
        daemon_ = MHD_start_daemon(
            flags, options_.port, nullptr, nullptr, &Impl::onRequest, this, MHD_OPTION_SOCK_ADDR,
            address.get(), MHD_OPTION_URI_LOG_CALLBACK, &Impl::onRequestLine, this,
            MHD_OPTION_NOTIFY_COMPLETED, &Impl::onCompleted, this, MHD_OPTION_NOTIFY_CONNECTION,
            &Impl::onConnection, this, MHD_OPTION_CONNECTION_LIMIT, options_.maxConnections,
            MHD_OPTION_PER_IP_CONNECTION_LIMIT, options_.maxConnectionsPerAddress,
            MHD_OPTION_CONNECTION_TIMEOUT, static_cast<unsigned int>(options_.idleTimeout.count()),
            MHD_OPTION_CONNECTION_MEMORY_LIMIT, options_.connectionMemoryBytes, MHD_OPTION_ARRAY,
            tls.data(), MHD_OPTION_END);
        if (daemon_ == nullptr) {
            throw std::runtime_error("Cannot listen on " + options_.bindAddress + " port " +
                                     std::to_string(options_.port));
        }
        port_ = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT)->port;
        streams_.start();
        watch_.start();
    }

    // The event thread stops first and ends every stream, whose last bytes the daemon gets a
    // moment to send; streams still open then are resumed, which the daemon requires before it
    // stops.
    void stop() {
        if (daemon_ == nullptr) return;
        streams_.stop();
        streams_.waitUntilClosed(STREAM_END_PATIENCE);
        MHD_stop_daemon(daemon_);
        watch_.stop();
        daemon_ = nullptr;
        port_ = 0;
        streams_.closeAll();
        runWaker_.wake(0);
    }

    // A wake-up by a stop() made before this run (when the server was not running) is not
    // for it: only a stop signal, or a stop() that leaves the server stopped, ends the wait.
    int run() {
        const StopSignals signals(runWaker_);
        if (!running()) start();
        int signal = 0;
        while ((signal = runWaker_.wait()) == 0 && running()) {
        }
        stop();
        return signal;
    }

    unsigned short port() const { return port_.load(); }
    bool running() const { return port_.load() != 0; }
    std::mutex& engineMutex() { return engineMutex_; }

  private:
    static ServerOptions normalized(ServerOptions options) {
        options.basePath = withoutTrailingSlashes(options.basePath);
        options.schemaPrefix = withoutTrailingSlashes(options.schemaPrefix);
        options.eventsPrefix = withoutTrailingSlashes(options.eventsPrefix);
        if (!options.tlsCertificateFile.empty()) {
            options.tlsCertificatePem = pemFile(options.tlsCertificateFile);
        }
        if (!options.tlsKeyFile.empty()) options.tlsKeyPem = pemFile(options.tlsKeyFile);
        if (options.console && options.basePath.empty()) {
            throw std::invalid_argument("The console needs a base path");
        }
        if (options.tlsCertificatePem.empty() != options.tlsKeyPem.empty()) {
            throw std::invalid_argument("HTTPS needs both a certificate and a private key");
        }
        return options;
    }

    static std::string pemFile(const std::string& path) {
        std::ifstream file(path, std::ios::in | std::ios::binary);
        if (!file) throw std::runtime_error("Cannot read " + path);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

    // The TLS options of the daemon, ended by MHD_OPTION_END (only that for plain HTTP).
    std::vector<MHD_OptionItem> tlsOptions() const {
        std::vector<MHD_OptionItem> items;
        if (!options_.tlsCertificatePem.empty()) {
            items.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0,
                             const_cast<char*>(options_.tlsCertificatePem.c_str())});
            items.push_back(
                {MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(options_.tlsKeyPem.c_str())});
        }
        items.push_back({MHD_OPTION_END, 0, nullptr});
        return items;
    }

    // A query of too many arguments is answered 414, but the HTTP library may run out of its
    // per-connection memory taking the arguments apart and never hand the request over: the
    // watch then answers 414 itself (over plain HTTP; over HTTPS it cannot write to the socket)
    // and closes the connection.
    static void* onRequestLine(void* self, const char* target, MHD_Connection* connection) {
        auto* impl = static_cast<Impl*>(self);
        auto* exchange = new Exchange;
        exchange->request.target = target;
        if (hasTooManyArguments(exchange->request.target)) {
            const bool plain = impl->options_.tlsCertificatePem.empty();
            impl->watch_.expire(connection,
                                plain ? impl->closingAnswer(MHD_HTTP_URI_TOO_LONG) : "");
        }
        return exchange;
    }

    // The whole HTTP/1.1 answer, head and error document, of `status` on a connection that
    // closes after it.
    std::string closingAnswer(unsigned int status) const {
        const Answer answer = statusAnswer(status, options_.beautify);
        return "HTTP/1.1 " + std::to_string(status) + " " + MHD_get_reason_phrase_for(status) +
               "\r\nContent-Type: " + JSON_MEDIA_TYPE +
               "\r\nContent-Length: " + std::to_string(answer.body.size()) +
               "\r\nConnection: close\r\n\r\n" + answer.body;
    }

    static void onConnection(void* self, MHD_Connection* connection, void** context,
                             MHD_ConnectionNotificationCode code) {
        ConnectionWatch& watch = static_cast<Impl*>(self)->watch_;
        if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
            watch.closed(*context);
            return;
        }
        const MHD_ConnectionInfo* info =
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
        if (info != nullptr) watch.opened(info->connect_fd, context);
    }

    static void onCompleted(void* self, MHD_Connection* connection, void** context,
                            MHD_RequestTerminationCode) {
        auto* impl = static_cast<Impl*>(self);
        impl->watch_.awaiting(connection);
        auto* exchange = static_cast<Exchange*>(*context);
        if (exchange == nullptr) return;
        if (exchange->stream) {
            exchange->bytes = exchange->stream->bytesSent();
            impl->streams_.close(*exchange->stream);
        }
        impl->log(*exchange);
        delete exchange;
        *context = nullptr;
    }

    void log(const Exchange& exchange) const {
        if (!options_.accessLog || exchange.status == 0) return;
        AccessLogEntry entry;
        entry.method = exchange.request.method;
        entry.target = exchange.request.target;
        entry.status = exchange.status;
        entry.bytes = exchange.bytes;
        entry.duration = std::chrono::duration_cast<std::chrono::microseconds>(
            std::chrono::steady_clock::now() - exchange.received);
        entry.user = exchange.user;
        try {
            options_.accessLog(entry);
        } catch (const std::exception& e) {
            diagnose(std::string("Access log: ") + e.what() + "\n");
        }
    }

    static MHD_Result onRequest(void* self, MHD_Connection* connection, const char*,
                                const char* method, const char* version, const char* data,
                                std::size_t* size, void** context) {
        auto* exchange = static_cast<Exchange*>(*context);
        if (exchange == nullptr) return MHD_NO;
        auto* impl = static_cast<Impl*>(self);
        try {
            return impl->receive(connection, method, version, data, size, *exchange);
        } catch (const std::exception&) {
            return impl->send(connection, *exchange,
                              statusAnswer(MHD_HTTP_INTERNAL_SERVER_ERROR, false));
        }
    }

    // Called first for the headers, then once per piece of body, then once more to answer.
    // A head that could be read otherwise by a proxy, or a body declared too long, is refused at
    // once; a body that turns out too long is read to its end and dropped, so that the client
    // sees the answer rather than a reset connection.
    MHD_Result receive(MHD_Connection* connection, const char* method, const char* version,
                       const char* data, std::size_t* size, Exchange& exchange) {
        HttpRequest& request = exchange.request;
        if (!exchange.begun) {
            exchange.begun = true;
            request.method = method;
            request.version = version;
            request.headers = headerFields(connection);
            const std::optional<Answer> refusal = headRefusal(request);
            return refusal ? send(connection, exchange, *refusal) : MHD_YES;
        }
        if (*size != 0) {
            exchange.tooLarge =
                exchange.tooLarge || request.body.size() + *size > options_.maxBodyBytes;
            if (!exchange.tooLarge) request.body.append(data, *size);
            *size = 0;
            return MHD_YES;
        }
        if (exchange.tooLarge) {
            return send(connection, exchange,
                        statusAnswer(MHD_HTTP_CONTENT_TOO_LARGE, options_.beautify));
        }
        const Answer answer = respond(exchange);
        if (exchange.opening) return startStream(connection, exchange);
        return send(connection, exchange, answer);
    }

    // The refusal of a request whose head could be read otherwise by a proxy, or whose body is
    // declared too long; nothing for a head that may be served.
    std::optional<Answer> headRefusal(const HttpRequest& request) const {
        if (const std::optional<HeadFault> fault = headFault(request.version, request.headers)) {
            return documentAnswer(fault->status, errorDocument(fault->status, fault->message, {}),
                                  options_.beautify);
        }
        if (declaredLongerThan(request, options_.maxBodyBytes)) {
            return statusAnswer(MHD_HTTP_CONTENT_TOO_LARGE, options_.beautify);
        }
        return std::nullopt;
    }

  public:
    // Server::answer: the whole exchange at once, without a connection.
    HttpResponse answerWhole(const HttpRequest& request) {
        Exchange exchange;
        exchange.request = request;
        std::optional<Answer> answer = headRefusal(request);
        if (!answer && request.body.size() > options_.maxBodyBytes) {
            answer = statusAnswer(MHD_HTTP_CONTENT_TOO_LARGE, options_.beautify);
        }
        if (!answer) answer = respond(exchange);
        if (exchange.opening) answer = statusAnswer(MHD_HTTP_NOT_IMPLEMENTED, options_.beautify);
        HttpResponse response;
        response.status = answer->status;
        response.headers = answerHeaders(request, *answer);
        if (request.method != MHD_HTTP_METHOD_HEAD) response.body = std::move(answer->body);
        return response;
    }

  private:
    // The answer to a whole request. A request that may open an event stream answers nothing
    // (status 0) and leaves exchange.opening set.
    Answer respond(Exchange& exchange) {
        const HttpRequest& http = exchange.request;
        const std::string& method = http.method;
        if (hasTooManyArguments(http.target)) {
            return withHeader(statusAnswer(MHD_HTTP_URI_TOO_LONG, options_.beautify),
                              MHD_HTTP_HEADER_CONNECTION, "close");
        }
        if (method == MHD_HTTP_METHOD_OPTIONS && isPreflight(http)) return preflight();
        std::string path;
        try {
            path = percentDecode(pathOf(http.target));
        } catch (const std::invalid_argument& e) {
            return badRequest(e.what(), pathOf(http.target));
        }
        const Route route = routeOf(path);
        if (route.area == Area::OUTSIDE) return outside(http, path);
        Caller caller;
        if (!authenticate(http, caller)) return challenge();
        if (!caller.anonymous) exchange.user = caller.requestInfo.session().name();
        if (method == MHD_HTTP_METHOD_OPTIONS) return options(route, caller);
        std::optional<Method> request = resourceMethod(method);
        if (route.area == Area::EVENTS && method != MHD_HTTP_METHOD_GET) {
            return notAllowed(ALLOW_STREAM);
        }
        if (route.area != Area::RESOURCES && request != READ) return notAllowed(ALLOW_GET);
        if (!request) return notAllowed(ALLOW_ALL);
        if (route.area == Area::SCHEMA) request = SCHEMA;
        Arguments arguments;
        try {
            arguments = Arguments(queryOf(http.target));
        } catch (const Exception& rejected) {
            return rejection(rejected);
        }
        if (route.area == Area::EVENTS) {
            return prepareStream(http, caller, route.uri, arguments, exchange);
        }
        if (!acceptsJson(header(http, MHD_HTTP_HEADER_ACCEPT))) {
            return statusAnswer(MHD_HTTP_NOT_ACCEPTABLE, options_.beautify);
        }
        if (carriesBody(method) && !http.body.empty() &&
            !isJsonContentType(header(http, MHD_HTTP_HEADER_CONTENT_TYPE))) {
            return statusAnswer(MHD_HTTP_UNSUPPORTED_MEDIA_TYPE, options_.beautify);
        }
        const Request call{*request, route.uri, arguments, caller, http.body, queryOf(http.target)};
        if (*request == READ || *request == SCHEMA) return read(http, call);
        return write(http, call);
    }

    // A path outside the base path: a page of the console when it is served, else 404. Both
    // without credentials, since the console's page is where a user logs in.
    Answer outside(const HttpRequest& http, const std::string& path) const {
        if (!options_.console || !isConsolePath(path)) {
            return statusAnswer(MHD_HTTP_NOT_FOUND, options_.beautify);
        }
        return consoleAnswer(path, http.method, header(http, MHD_HTTP_HEADER_IF_NONE_MATCH),
                             options_, *engine_.lexicon());
    }

    // What a request asks of the engine.
    struct Request {
        Method method;
        const std::string& uri;
        const Arguments& arguments;
        const Caller& caller;
        const std::string& body;
        std::string query;
    };

    // GET and HEAD: the answer carries its entity tag, and is 304 without a body when the
    // client's copy is current.
    Answer read(const HttpRequest& http, const Request& call) {
        Answer answer = run(call);
        if (answer.status != MHD_HTTP_OK) return answer;
        const std::string tag = entityTag(answer.body);
        if (call.method == READ) addPageLink(answer, call);
        answer.headers.emplace_back(MHD_HTTP_HEADER_ETAG, tag);
        if (noneMatchHolds(header(http, MHD_HTTP_HEADER_IF_NONE_MATCH), tag)) {
            answer.status = MHD_HTTP_NOT_MODIFIED;
            answer.body.clear();
        }
        return answer;
    }

    // PUT, PATCH, POST and DELETE, run only when an If-Match precondition holds: the entity
    // tag of the uri's GET answer (read under the same lock, so that no other request comes
    // between) must be one that the client names.
    Answer write(const HttpRequest& http, const Request& call) {
        const std::string condition = header(http, MHD_HTTP_HEADER_IF_MATCH);
        std::lock_guard<std::mutex> lock(engineMutex_);
        if (!condition.empty()) {
            const Answer current = runLocked({READ, call.uri, call.arguments, call.caller, "", ""});
            const std::string tag =
                current.status == MHD_HTTP_OK ? entityTag(current.body) : std::string();
            if (!matchHolds(condition, tag)) {
                return statusAnswer(MHD_HTTP_PRECONDITION_FAILED, options_.beautify);
            }
        }
        return runLocked(call);
    }

    Answer run(const Request& call) {
        std::lock_guard<std::mutex> lock(engineMutex_);
        return runLocked(call);
    }

    // Requires engineMutex_.
    Answer runLocked(const Request& call) {
        Answer answer =
            runOnEngine(engine_, call.method, call.uri, call.arguments, call.caller.requestInfo,
                        call.body, options_.statusTable, options_.beautify);
        completeForHttp(answer, call.method, call.caller);
        if (answer.status == MHD_HTTP_METHOD_NOT_ALLOWED) {
            answer.headers.emplace_back(MHD_HTTP_HEADER_ALLOW, allowedAt(call.uri, call.caller));
        }
        return answer;
    }

    // Requires engineMutex_. The Allow header of the node at `uri` for the caller.
    std::string allowedAt(const std::string& uri, const Caller& caller) {
        AllowedMethods allowed;
        engine_.allowedMethods(uri, caller.requestInfo, allowed);
        return allowHeader(allowed);
    }

    // A paged collection's answer links to the next page while items remain after this one.
    void addPageLink(Answer& answer, const Request& call) const {
        const std::string& countKey = engine_.lexicon()->countKey;
        long long limit = 0;
        long long offset = 0;
        if (countKey.empty() || options_.limitArgument.empty() ||
            !call.arguments.getIntegerArg(options_.limitArgument, limit) || limit <= 0) {
            return;
        }
        if (!options_.offsetArgument.empty()) {
            call.arguments.getIntegerArg(options_.offsetArgument, offset, 0);
        }
        const long long count = countOf(answer.body, countKey);
        if (offset < 0 || count <= offset + limit) return;
        const std::string query =
            withArgument(call.query, options_.offsetArgument, std::to_string(offset + limit));
        answer.headers.emplace_back("Link", "<" + options_.basePath + percentEncodePath(call.uri) +
                                                "?" + query + ">; rel=\"next\"");
    }

    // The integer member `key` of the JSON object `body`, or -1.
    static long long countOf(const std::string& body, const std::string& key) {
        try {
            const cxxtools::SerializationInfo document = parseJson(body);
            const cxxtools::SerializationInfo* count = document.findMember(key);
            long long value = -1;
            if (count != nullptr && (count->isInt() || count->isUInt())) count->getValue(value);
            return value;
        } catch (const std::exception&) {
            return -1;
        }
    }

    // OPTIONS: 204 with the methods that the caller may use on the addressed node.
    Answer options(const Route& route, const Caller& caller) {
        Answer answer{MHD_HTTP_NO_CONTENT, "", {}};
        if (route.area == Area::SCHEMA) return withHeader(answer, MHD_HTTP_HEADER_ALLOW, ALLOW_GET);
        if (route.area == Area::EVENTS) {
            return withHeader(answer, MHD_HTTP_HEADER_ALLOW, ALLOW_STREAM);
        }
        std::lock_guard<std::mutex> lock(engineMutex_);
        AllowedMethods allowed;
        const int code = engine_.allowedMethods(route.uri, caller.requestInfo, allowed);
        if (code != result::DONE) return answerFor(code, READ, "", caller);
        return withHeader(answer, MHD_HTTP_HEADER_ALLOW, allowHeader(allowed));
    }

    // A CORS preflight: an OPTIONS request from a browser, which carries no credentials.
    bool isPreflight(const HttpRequest& http) const {
        return originAllowed(options_.corsOrigins, header(http, "Origin")) &&
               !header(http, "Access-Control-Request-Method").empty();
    }

    Answer preflight() const {
        return {MHD_HTTP_NO_CONTENT,
                "",
                {{"Access-Control-Allow-Methods", ALLOW_ALL},
                 {"Access-Control-Allow-Headers", ALLOWED_REQUEST_HEADERS},
                 {"Access-Control-Max-Age", PREFLIGHT_MAX_AGE}}};
    }

    // An answer from an allowed origin tells the browser that the page may see it.
    Fields corsHeaders(const HttpRequest& http) const {
        if (options_.corsOrigins.empty()) return {};
        Fields headers{{"Vary", "Origin"}};
        const std::string origin = header(http, "Origin");
        if (!originAllowed(options_.corsOrigins, origin)) return headers;
        headers.insert(headers.end(), {{"Access-Control-Allow-Origin", origin},
                                       {"Access-Control-Allow-Credentials", "true"},
                                       {"Access-Control-Expose-Headers", EXPOSED_HEADERS}});
        return headers;
    }

    // Every header of `answer` to `http`: its Content-Type (JSON unless the answer names one),
    // its own headers but a challenge to a script's request (see isScripted), the CORS headers.
    Fields answerHeaders(const HttpRequest& http, const Answer& answer) const {
        Fields headers;
        if (!answer.body.empty() && !hasHeader(answer, MHD_HTTP_HEADER_CONTENT_TYPE)) {
            headers.emplace_back(MHD_HTTP_HEADER_CONTENT_TYPE, JSON_MEDIA_TYPE);
        }
        const bool scripted = isScripted(http);
        for (const auto& field : answer.headers) {
            if (!scripted || field.first != MHD_HTTP_HEADER_WWW_AUTHENTICATE) {
                headers.push_back(field);
            }
        }
        const Fields cors = corsHeaders(http);
        headers.insert(headers.end(), cors.begin(), cors.end());
        return headers;
    }

    // Queues `answer` and records it for the access log.
    MHD_Result send(MHD_Connection* connection, Exchange& exchange, const Answer& answer) {
        watch_.answering(connection);
        exchange.status = answer.status;
        exchange.bytes = answer.body.size();
        MHD_Response* response = MHD_create_response_from_buffer(
            answer.body.size(), const_cast<char*>(answer.body.data()), MHD_RESPMEM_MUST_COPY);
        if (response == nullptr) return MHD_NO;
        addHeaders(response, answerHeaders(exchange.request, answer));
        return queue(connection, response, answer.status);
    }

    // Without credentials the caller is anonymous when that is allowed; credentials that do
    // not parse, or that the authenticator refuses, are refused.
    bool authenticate(const HttpRequest& http, Caller& caller) const {
        const std::string authorization = header(http, MHD_HTTP_HEADER_AUTHORIZATION);
        if (authorization.empty()) {
            caller = Caller{RequestInfo(), true};
            return options_.allowAnonymous;
        }
        const std::optional<Credentials> credentials = parseBasicAuthorization(authorization);
        if (!credentials || !options_.authenticator) return false;
        const std::optional<SessionInfo> session =
            options_.authenticator(credentials->user, credentials->password);
        if (!session) return false;
        caller = Caller{RequestInfo(*session, {}), false};
        return true;
    }

    Route routeOf(const std::string& path) const {
        std::string below;
        if (!strip(path, options_.basePath, below)) return {Area::OUTSIDE, ""};
        std::string uri;
        if (strip(below, options_.schemaPrefix, uri)) return {Area::SCHEMA, uri};
        if (strip(below, options_.eventsPrefix, uri)) return {Area::EVENTS, uri};
        return {Area::RESOURCES, below};
    }

    // Prepares the stream once the caller may read the uri and may open one more stream; the
    // interval argument is the stream's own and is not handed to the engine.
    Answer prepareStream(const HttpRequest& http, const Caller& caller, const std::string& uri,
                         const Arguments& query, Exchange& exchange) {
        if (!containsIgnoringCase(header(http, MHD_HTTP_HEADER_ACCEPT), EVENT_STREAM)) {
            return statusAnswer(MHD_HTTP_NOT_ACCEPTABLE, options_.beautify);
        }
        long long interval = 0;
        try {
            interval = streamInterval(query);
        } catch (const Exception& rejected) {
            return rejection(rejected);
        }
        std::vector<Arguments::Pair> kept;
        for (const Arguments::Pair& pair : query.pairs()) {
            if (pair.first != INTERVAL) kept.push_back(pair);
        }
        const Arguments arguments(kept);
        Answer check = run({READ, uri, arguments, caller, "", ""});
        if (check.status >= MHD_HTTP_BAD_REQUEST) return check;
        if (streams_.full()) return streamsFull();
        if (streams_.countOf(exchange.user) >= options_.maxStreamsPerUser) return userStreamsFull();
        exchange.opening = StreamOpening{caller.requestInfo, caller.anonymous, uri, arguments,
                                         std::chrono::milliseconds(interval)};
        return Answer{0, "", {}};
    }

    // Subscribes the prepared stream and queues its answer, or sends the engine's refusal.
    MHD_Result startStream(MHD_Connection* connection, Exchange& exchange) {
        const StreamOpening& opening = *exchange.opening;
        const int code = streams_.open(connection, opening.requestInfo, exchange.user, opening.uri,
                                       opening.arguments, opening.interval, exchange.stream);
        if (code != result::DONE) {
            return send(connection, exchange,
                        answerFor(code, READ, "", Caller{opening.requestInfo, opening.anonymous}));
        }
        watch_.streaming(connection, exchange.stream);
        exchange.status = MHD_HTTP_OK;
        auto* holder = new std::shared_ptr<EventStream>(exchange.stream);
        MHD_Response* response = MHD_create_response_from_callback(
            MHD_SIZE_UNKNOWN, STREAM_BLOCK_SIZE, &readStream, holder, &releaseStream);
        if (response == nullptr) {
            delete holder;
            exchange.stream.reset();
            return MHD_NO;
        }
        Fields headers{{MHD_HTTP_HEADER_CONTENT_TYPE, EVENT_STREAM},
                       {MHD_HTTP_HEADER_CACHE_CONTROL, "no-cache"}};
        const Fields cors = corsHeaders(exchange.request);
        headers.insert(headers.end(), cors.begin(), cors.end());
        addHeaders(response, headers);
        return queue(connection, response, MHD_HTTP_OK);
    }

    // A 403 for a caller without credentials asks for them instead. A DELETE that succeeded
    // answers 204 without a body; a CREATE that succeeded names the new resource in Location.
    Answer answerFor(int code, Method method, std::string body, const Caller& caller) const {
        Answer answer =
            engineAnswer(code, method, std::move(body), options_.statusTable, options_.beautify);
        completeForHttp(answer, method, caller);
        return answer;
    }

    // What HTTP adds to the engine's answer: a challenge for a forbidden anonymous caller, 204
    // for a DELETE and the Location of what a POST created.
    void completeForHttp(Answer& answer, Method method, const Caller& caller) const {
        if (answer.status == MHD_HTTP_FORBIDDEN && caller.anonymous) {
            answer = challenge();
            return;
        }
        if (method == DELETE && answer.status == MHD_HTTP_OK) {
            answer.status = MHD_HTTP_NO_CONTENT;
            answer.body.clear();
        }
        if (method == CREATE && answer.status == MHD_HTTP_CREATED) {
            const std::string created = resourcePathOf(answer.body);
            if (!created.empty()) {
                answer.headers.emplace_back(MHD_HTTP_HEADER_LOCATION,
                                            options_.basePath + (created == "/" ? "" : created));
            }
        }
    }

    // The resource path member of a JSON answer (the lexicon's resource path key), or "".
    std::string resourcePathOf(const std::string& body) const {
        const std::string& key = engine_.lexicon()->resourcePathKey;
        if (key.empty() || body.empty()) return std::string();
        try {
            const cxxtools::SerializationInfo document = parseJson(body);
            const cxxtools::SerializationInfo* path = document.findMember(key);
            std::string text;
            if (path != nullptr && (path->isString() || path->isString8())) path->getValue(text);
            return text.rfind('/', 0) == 0 ? text : std::string();
        } catch (const JsonSyntaxError&) {
            return std::string();
        }
    }

    // The stream's interval in milliseconds: the default without an "interval" argument;
    // dme::Exception "Argument invalid type" for one that is no integer, "Argument out of
    // range" for one below 0 or over MAX_STREAM_INTERVAL.
    long long streamInterval(const Arguments& query) const {
        long long interval = 0;
        query.getIntegerArg(INTERVAL, interval, options_.defaultInterval.count());
        if (interval < 0 || interval > MAX_STREAM_INTERVAL.count()) {
            std::string value;
            query.getStringArg(INTERVAL, value);
            Exception::throwArgumentOutOfRange(
                INTERVAL, value, "[0, " + std::to_string(MAX_STREAM_INTERVAL.count()) + "]");
        }
        return interval;
    }

    // Every event-stream slot is taken: slots come free when streams end, which a client that
    // hangs up does at once, so Retry-After asks for a second.
    Answer streamsFull() const {
        return withHeader(statusAnswer(MHD_HTTP_SERVICE_UNAVAILABLE, options_.beautify),
                          MHD_HTTP_HEADER_RETRY_AFTER, "1");
    }

    // The caller holds as many streams as one user may.
    Answer userStreamsFull() const {
        return withHeader(statusAnswer(MHD_HTTP_TOO_MANY_REQUESTS, options_.beautify),
                          MHD_HTTP_HEADER_RETRY_AFTER, "1");
    }

    Answer challenge() const {
        return withHeader(statusAnswer(MHD_HTTP_UNAUTHORIZED, options_.beautify),
                          MHD_HTTP_HEADER_WWW_AUTHENTICATE,
                          "Basic realm=\"" + quoted(options_.realm) + "\"");
    }

    Answer notAllowed(const char* allowed) const {
        return withHeader(statusAnswer(MHD_HTTP_METHOD_NOT_ALLOWED, options_.beautify),
                          MHD_HTTP_HEADER_ALLOW, allowed);
    }

    Answer rejection(const Exception& rejected) const {
        return documentAnswer(MHD_HTTP_BAD_REQUEST, errorDocument(rejected), options_.beautify);
    }

    Answer badRequest(const std::string& message, const std::string& detail) const {
        return documentAnswer(MHD_HTTP_BAD_REQUEST,
                              errorDocument(MHD_HTTP_BAD_REQUEST, message, {detail}),
                              options_.beautify);
    }

    // `text` with '"' and '\' escaped, for a quoted header parameter.
    static std::string quoted(const std::string& text) {
        std::string escaped;
        for (char c : text) {
            if (c == '"' || c == '\\') escaped += '\\';
            escaped += c;
        }
        return escaped;
    }

    JsonDataModelEngine& engine_;
    const ServerOptions options_;
    std::mutex engineMutex_;
    EventStreams streams_;
    ConnectionWatch watch_{options_.requestTimeout};
    MHD_Daemon* daemon_ = nullptr;
    // Read from any thread: set once listening, 0 when stopped.
    std::atomic<unsigned short> port_{0};
    RunWaker runWaker_;
};

Server::Server(JsonDataModelEngine& engine, ServerOptions options) {
    if (options.allOrNothingUpdates) engine.setAllOrNothingUpdates(true);
    engine.setPagingArguments(options.limitArgument, options.offsetArgument);
    engine.setPercentEncodedResourcePaths(true);
    impl_ = std::make_unique<Impl>(engine, std::move(options));
}

Server::~Server() = default;

void Server::start() {
    impl_->start();
}

void Server::stop() {
    impl_->stop();
}

int Server::run() {
    return impl_->run();
}

HttpResponse Server::answer(const HttpRequest& request) {
    return impl_->answerWhole(request);
}

unsigned short Server::port() const {
    return impl_->port();
}

bool Server::running() const {
    return impl_->running();
}

std::mutex& Server::engineMutex() {
    return impl_->engineMutex();
}

}  // namespace http
}  // namespace dme
