#include "dme/http/server.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
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
#include "dme/arguments.h"
#include "dme/exception.h"
#include "dme/http/error_document.h"
#include "dme/json.h"
#include "dme/result.h"
#include "event_streams.h"

namespace dme {
namespace http {
namespace {

// The state of one request on a connection, from its request line to its completion.
struct Exchange {
    std::string target;  // the request target as sent, query string included
    bool begun = false;  // whether the access handler has seen the request's headers
    std::string body;
    bool tooLarge = false;
    std::shared_ptr<EventStream> stream;  // set when the request opened an event stream
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

constexpr std::size_t STREAM_BLOCK_SIZE = 4096;
constexpr char ALLOW_ALL[] = "GET, HEAD, PUT, PATCH, POST, DELETE";
constexpr char ALLOW_GET[] = "GET, HEAD";
constexpr char ALLOW_STREAM[] = "GET";
constexpr char EVENT_STREAM[] = "text/event-stream";
constexpr char INTERVAL[] = "interval";

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

std::string header(MHD_Connection* connection, const char* name) {
    const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value == nullptr ? "" : value;
}

bool declaredLongerThan(MHD_Connection* connection, std::size_t limit) {
    const std::string length = header(connection, MHD_HTTP_HEADER_CONTENT_LENGTH);
    if (length.empty()) return false;
    try {
        return std::stoull(length) > limit;
    } catch (const std::exception&) {
        return false;
    }
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

MHD_Result send(MHD_Connection* connection, const Answer& answer) {
    MHD_Response* response = MHD_create_response_from_buffer(
        answer.body.size(), const_cast<char*>(answer.body.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) return MHD_NO;
    if (!answer.body.empty()) {
        MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "application/json");
    }
    for (const auto& extra : answer.headers) {
        MHD_add_response_header(response, extra.first.c_str(), extra.second.c_str());
    }
    return queue(connection, response, answer.status);
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
        daemon_ = MHD_start_daemon(flags, options_.port, nullptr, nullptr, &Impl::onRequest, this,
                                   MHD_OPTION_SOCK_ADDR, address.get(), MHD_OPTION_URI_LOG_CALLBACK,
                                   &Impl::onRequestLine, this, MHD_OPTION_NOTIFY_COMPLETED,
                                   &Impl::onCompleted, this, MHD_OPTION_CONNECTION_LIMIT,
                                   options_.maxConnections, MHD_OPTION_CONNECTION_TIMEOUT,
                                   static_cast<unsigned int>(options_.idleTimeout.count()),
                                   MHD_OPTION_ARRAY, tls.data(), MHD_OPTION_END);
        if (daemon_ == nullptr) {
            throw std::runtime_error("Cannot listen on " + options_.bindAddress + " port " +
                                     std::to_string(options_.port));
        }
        port_ = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT)->port;
        streams_.start();
    }

    // The event thread stops first so that no stream is resumed behind the daemon's back;
    // finished streams are resumed, which the daemon requires before it stops.
    void stop() {
        if (daemon_ == nullptr) return;
        streams_.stop();
        MHD_stop_daemon(daemon_);
        daemon_ = nullptr;
        port_ = 0;
        streams_.closeAll();
    }

    unsigned short port() const { return port_; }
    bool running() const { return daemon_ != nullptr; }
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

    static void* onRequestLine(void*, const char* target, MHD_Connection*) {
        auto* exchange = new Exchange;
        exchange->target = target;
        return exchange;
    }

    static void onCompleted(void* self, MHD_Connection*, void** context,
                            MHD_RequestTerminationCode) {
        auto* exchange = static_cast<Exchange*>(*context);
        if (exchange == nullptr) return;
        if (exchange->stream) static_cast<Impl*>(self)->streams_.close(*exchange->stream);
        delete exchange;
        *context = nullptr;
    }

    static MHD_Result onRequest(void* self, MHD_Connection* connection, const char* url,
                                const char* method, const char*, const char* data,
                                std::size_t* size, void** context) {
        auto* exchange = static_cast<Exchange*>(*context);
        if (exchange == nullptr) return MHD_NO;
        try {
            return static_cast<Impl*>(self)->receive(connection, url, method, data, size,
                                                     *exchange);
        } catch (const std::exception&) {
            return send(connection, statusAnswer(MHD_HTTP_INTERNAL_SERVER_ERROR, false));
        }
    }

    // Called first for the headers, then once per piece of body, then once more to answer.
    // A body declared too long is refused at once; one that turns out too long is read to its
    // end and dropped, so that the client sees the answer rather than a reset connection.
    MHD_Result receive(MHD_Connection* connection, const char* url, const char* method,
                       const char* data, std::size_t* size, Exchange& exchange) {
        if (!exchange.begun) {
            exchange.begun = true;
            if (!declaredLongerThan(connection, options_.maxBodyBytes)) return MHD_YES;
            return send(connection, statusAnswer(MHD_HTTP_CONTENT_TOO_LARGE, options_.beautify));
        }
        if (*size != 0) {
            exchange.tooLarge =
                exchange.tooLarge || exchange.body.size() + *size > options_.maxBodyBytes;
            if (!exchange.tooLarge) exchange.body.append(data, *size);
            *size = 0;
            return MHD_YES;
        }
        if (exchange.tooLarge) {
            return send(connection, statusAnswer(MHD_HTTP_CONTENT_TOO_LARGE, options_.beautify));
        }
        return respond(connection, url, method, exchange);
    }

    MHD_Result respond(MHD_Connection* connection, const std::string& path,
                       const std::string& method, Exchange& exchange) {
        Caller caller;
        if (!authenticate(connection, caller)) return send(connection, challenge());
        const Route route = routeOf(path);
        if (route.area == Area::OUTSIDE) {
            return send(connection, statusAnswer(MHD_HTTP_NOT_FOUND, options_.beautify));
        }
        std::optional<Method> request = resourceMethod(method);
        if (route.area == Area::EVENTS && method != MHD_HTTP_METHOD_GET) {
            return send(connection, notAllowed(ALLOW_STREAM));
        }
        if (route.area != Area::RESOURCES && request != READ) {
            return send(connection, notAllowed(ALLOW_GET));
        }
        if (!request) return send(connection, notAllowed(ALLOW_ALL));
        if (route.area == Area::SCHEMA) request = SCHEMA;
        Arguments arguments;
        try {
            arguments = Arguments(queryOf(exchange.target));
        } catch (const Exception& rejected) {
            return send(connection, rejection(rejected));
        }
        if (route.area == Area::EVENTS) {
            return openStream(connection, caller, route.uri, arguments, exchange);
        }
        return send(connection, run(*request, route.uri, arguments, caller, exchange.body));
    }

    // Without credentials the caller is anonymous when that is allowed; credentials that do
    // not parse, or that the authenticator refuses, are refused.
    bool authenticate(MHD_Connection* connection, Caller& caller) const {
        const std::string authorization = header(connection, MHD_HTTP_HEADER_AUTHORIZATION);
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

    Answer run(Method method, const std::string& uri, const Arguments& arguments,
               const Caller& caller, const std::string& body) {
        std::string out;
        int code = result::FAILED;
        try {
            std::lock_guard<std::mutex> lock(engineMutex_);
            code = engine_.execute(method, uri, arguments, caller.requestInfo, body, out,
                                   options_.beautify);
        } catch (const Exception& rejected) {
            // An argument that the request context cannot read (a bad expand level) leaves
            // execute instead of becoming a result code: it is rejected input all the same.
            return rejection(rejected);
        }
        return answerFor(code, method, std::move(out), caller);
    }

    // Opens the stream once the caller may read the uri; the interval argument is the stream's
    // own and is not handed to the engine.
    MHD_Result openStream(MHD_Connection* connection, const Caller& caller, const std::string& uri,
                          const Arguments& query, Exchange& exchange) {
        if (!containsIgnoringCase(header(connection, MHD_HTTP_HEADER_ACCEPT), EVENT_STREAM)) {
            return send(connection, statusAnswer(MHD_HTTP_NOT_ACCEPTABLE, options_.beautify));
        }
        unsigned long long interval = 0;
        try {
            query.getUnsignedIntegerArg(INTERVAL, interval, options_.defaultInterval.count());
        } catch (const Exception& rejected) {
            return send(connection, rejection(rejected));
        }
        std::vector<Arguments::Pair> kept;
        for (const Arguments::Pair& pair : query.pairs()) {
            if (pair.first != INTERVAL) kept.push_back(pair);
        }
        const Arguments arguments(kept);
        const Answer check = run(READ, uri, arguments, caller, "");
        if (check.status >= MHD_HTTP_BAD_REQUEST) return send(connection, check);
        if (streams_.full()) return send(connection, streamsFull());
        const auto longest =
            static_cast<unsigned long long>(std::chrono::milliseconds::max().count());
        const std::chrono::milliseconds period(static_cast<long long>(std::min(interval, longest)));
        const int code =
            streams_.open(connection, caller.requestInfo, uri, arguments, period, exchange.stream);
        if (code != result::DONE) return send(connection, answerFor(code, READ, "", caller));
        return sendStream(connection, exchange.stream);
    }

    static MHD_Result sendStream(MHD_Connection* connection,
                                 const std::shared_ptr<EventStream>& stream) {
        auto* holder = new std::shared_ptr<EventStream>(stream);
        MHD_Response* response = MHD_create_response_from_callback(
            MHD_SIZE_UNKNOWN, STREAM_BLOCK_SIZE, &readStream, holder, &releaseStream);
        if (response == nullptr) {
            delete holder;
            return MHD_NO;
        }
        MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, EVENT_STREAM);
        MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-cache");
        return queue(connection, response, MHD_HTTP_OK);
    }

    // A 403 for a caller without credentials asks for them instead. A DELETE that succeeded
    // answers 204 without a body; a CREATE that succeeded names the new resource in Location.
    Answer answerFor(int code, Method method, std::string body, const Caller& caller) const {
        Answer answer =
            engineAnswer(code, method, std::move(body), options_.statusTable, options_.beautify);
        if (answer.status == MHD_HTTP_FORBIDDEN && caller.anonymous) return challenge();
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
        return answer;
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

    // Every event-stream slot is taken: a closed stream's slot is freed at its next heartbeat
    // at the latest, which Retry-After tells the client to wait for.
    Answer streamsFull() const {
        const auto seconds =
            std::chrono::ceil<std::chrono::seconds>(options_.heartbeatInterval).count();
        return withHeader(statusAnswer(MHD_HTTP_SERVICE_UNAVAILABLE, options_.beautify),
                          MHD_HTTP_HEADER_RETRY_AFTER,
                          std::to_string(std::max<long long>(1, seconds)));
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
    MHD_Daemon* daemon_ = nullptr;
    unsigned short port_ = 0;
};

Server::Server(JsonDataModelEngine& engine, ServerOptions options) {
    if (options.allOrNothingUpdates) engine.setAllOrNothingUpdates(true);
    impl_ = std::make_unique<Impl>(engine, std::move(options));
}

Server::~Server() = default;

void Server::start() {
    impl_->start();
}

void Server::stop() {
    impl_->stop();
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
