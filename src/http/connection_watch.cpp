#include "connection_watch.h"

#include <microhttpd.h>
#include <poll.h>
#include <sys/socket.h>

namespace dme {
namespace http {
namespace {

// How often the watch looks at the connections: the longest a hung-up stream keeps its slot.
constexpr std::chrono::milliseconds SWEEP_PERIOD{200};

// Whether the client of socket `fd` has closed its side (or the socket failed).
bool hungUp(int fd) {
    pollfd watched{fd, POLLRDHUP, 0};
    return ::poll(&watched, 1, 0) > 0 && (watched.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

}  // namespace

ConnectionWatch::ConnectionWatch(std::chrono::milliseconds requestTimeout)
    : requestTimeout_(requestTimeout) {}

ConnectionWatch::~ConnectionWatch() {
    stop();
}

void ConnectionWatch::start() {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = false;
    thread_ = std::thread([this] { run(); });
}

void ConnectionWatch::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wakeUp_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void ConnectionWatch::opened(int fd, void** context) {
    auto record =
        std::make_unique<Record>(Record{fd, State::AWAITING, Clock::now(), false, {}, false, {}});
    *context = record.get();
    std::lock_guard<std::mutex> lock(mutex_);
    records_.emplace(record.get(), std::move(record));
}

void ConnectionWatch::closed(void* context) {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.erase(static_cast<Record*>(context));
}

void ConnectionWatch::answering(MHD_Connection* connection) {
    setState(connection, State::ANSWERING);
}

void ConnectionWatch::streaming(MHD_Connection* connection,
                                const std::shared_ptr<EventStream>& stream) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (Record* record = recordOf(connection)) {
        record->state = State::STREAMING;
        record->stream = stream;
    }
}

void ConnectionWatch::awaiting(MHD_Connection* connection) {
    setState(connection, State::AWAITING);
}

void ConnectionWatch::expire(MHD_Connection* connection, std::string farewell) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (Record* record = recordOf(connection)) {
        record->expired = true;
        record->farewell = std::move(farewell);
    }
}

// Requires the lock (the record may be closed otherwise).
ConnectionWatch::Record* ConnectionWatch::recordOf(MHD_Connection* connection) const {
    const MHD_ConnectionInfo* info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    if (info == nullptr) return nullptr;
    auto* record = static_cast<Record*>(info->socket_context);
    return records_.count(record) != 0 ? record : nullptr;
}

void ConnectionWatch::setState(MHD_Connection* connection, State state) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (Record* record = recordOf(connection)) {
        if (record->state == State::ENDING) return;
        record->state = state;
        record->since = Clock::now();
        record->expired = false;
        record->farewell.clear();
        record->hungUp = false;
        record->stream.reset();
    }
}

// A client that has hung up before its request arrived whole will never complete it; the HTTP
// library would keep its slot until the deadline. Seen at two looks in a row, so that a request
// that arrived whole just before its client closed its side is handed over first.
bool ConnectionWatch::gone(Record& record) {
    const bool hungUpNow = hungUp(record.fd);
    const bool seenBefore = record.hungUp;
    record.hungUp = hungUpNow;
    return hungUpNow && seenBefore;
}

// The HTTP library has written nothing of an answer on an awaiting connection, so a farewell
// is the first thing the client reads; it is small enough for an empty socket buffer.
void ConnectionWatch::end(Record& record) {
    if (record.expired && !record.farewell.empty()) {
        // A client that does not take it is shut down all the same.
        static_cast<void>(::send(record.fd, record.farewell.data(), record.farewell.size(),
                                 MSG_DONTWAIT | MSG_NOSIGNAL));
    }
    ::shutdown(record.fd, SHUT_RDWR);
    record.state = State::ENDING;
}

void ConnectionWatch::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        wakeUp_.wait_for(lock, SWEEP_PERIOD, [this] { return stopping_; });
        if (!stopping_) sweep();
    }
}

// A record is closed (and its socket with it) only by the network thread, after closed() has
// taken the lock: a socket of a record found here is still the connection's own.
void ConnectionWatch::sweep() {
    const Clock::time_point now = Clock::now();
    for (auto& entry : records_) {
        Record& record = *entry.second;
        const bool overdue = requestTimeout_.count() > 0 && now - record.since >= requestTimeout_;
        if (record.state == State::AWAITING && (record.expired || overdue || gone(record))) {
            end(record);
        } else if (record.state == State::STREAMING && hungUp(record.fd)) {
            if (const auto stream = record.stream.lock()) stream->finish();
            record.state = State::ENDING;
        }
    }
}

}  // namespace http
}  // namespace dme
