#include "event_streams.h"

#include <microhttpd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "answer.h"
#include "dme/result.h"

namespace dme {
namespace http {
namespace {

// A comment line: clients ignore it, and writing it shows whether the client is still there.
constexpr char HEARTBEAT[] = ": heartbeat\n\n";
// The last lines of every stream when the server stops.
constexpr char FAREWELL[] = ": server stopping\n\n";

std::string eventText(const char* name, const std::string& data) {
    return std::string("event: ") + name + "\ndata: " + data + "\n\n";
}

}  // namespace

EventStream::EventStream(unsigned int id, EventStreams& owner, MHD_Connection* connection,
                         RequestInfo requestInfo, std::string user, std::string uri,
                         Arguments arguments)
    : id_(id),
      owner_(owner),
      requestInfo_(std::move(requestInfo)),
      user_(std::move(user)),
      uri_(std::move(uri)),
      arguments_(std::move(arguments)),
      connection_(connection) {}

void EventStream::notify(const std::string&, const Arguments&) {
    owner_.markDue(id_);
}

ssize_t EventStream::read(char* buffer, std::size_t max) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (waiting_.empty()) {
        if (finished_ || connection_ == nullptr) return MHD_CONTENT_READER_END_OF_STREAM;
        suspended_ = true;
        MHD_suspend_connection(connection_);
        return 0;
    }
    const std::size_t count = std::min(max, waiting_.size());
    std::memcpy(buffer, waiting_.data(), count);
    waiting_.erase(0, count);
    sent_ += count;
    return static_cast<ssize_t>(count);
}

std::size_t EventStream::bytesSent() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return sent_;
}

void EventStream::push(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (finished_) return;
    waiting_ += text;
    resume();
}

void EventStream::finish() {
    std::lock_guard<std::mutex> lock(mutex_);
    finished_ = true;
    resume();
}

void EventStream::detach() {
    std::lock_guard<std::mutex> lock(mutex_);
    finished_ = true;
    connection_ = nullptr;
}

void EventStream::resume() {
    if (!suspended_ || connection_ == nullptr) return;
    suspended_ = false;
    MHD_resume_connection(connection_);
}

EventStreams::EventStreams(JsonDataModelEngine& engine, std::mutex& engineMutex,
                           const ServerOptions& options)
    : engine_(engine), engineMutex_(engineMutex), options_(options) {}

EventStreams::~EventStreams() {
    stop();
    closeAll();
}

void EventStreams::start() {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = false;
    due_.clear();
    thread_ = std::thread([this] { run(); });
}

void EventStreams::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wakeUp_.notify_all();
    if (thread_.joinable()) thread_.join();
    for (const auto& stream : all()) {
        stream->push(FAREWELL);
        stream->finish();
    }
}

void EventStreams::waitUntilClosed(std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> lock(mutex_);
    closed_.wait_for(lock, patience, [this] { return streams_.empty(); });
}

bool EventStreams::full() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return streams_.size() >= options_.maxStreams;
}

std::size_t EventStreams::countOf(const std::string& user) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<std::size_t>(
        std::count_if(streams_.begin(), streams_.end(),
                      [&user](const auto& entry) { return entry.second->user() == user; }));
}

int EventStreams::open(MHD_Connection* connection, const RequestInfo& requestInfo,
                       const std::string& user, const std::string& uri, const Arguments& arguments,
                       std::chrono::milliseconds interval, std::shared_ptr<EventStream>& stream) {
    std::shared_ptr<EventStream> created;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        created = std::make_shared<EventStream>(nextId_++, *this, connection, requestInfo, user,
                                                uri, arguments);
        streams_.emplace(created->id(), created);
    }
    int code = result::FAILED;
    try {
        std::lock_guard<std::mutex> lock(engineMutex_);
        code = engine_.subscribe(*created, uri, arguments, interval,
                                 ObserverOption::IMMEDIATE_NOTIFICATION);
    } catch (const std::invalid_argument&) {
        code = result::INVALID_ARGUMENT;
    } catch (const std::exception&) {
        code = result::FAILED;
    }
    if (code != result::DONE) {
        forget(created->id());
        return code;
    }
    stream = std::move(created);
    return code;
}

void EventStreams::close(EventStream& stream) {
    stream.detach();
    {
        std::lock_guard<std::mutex> lock(engineMutex_);
        engine_.unsubscribe(stream);
    }
    forget(stream.id());
}

void EventStreams::closeAll() {
    for (const auto& stream : all()) close(*stream);
}

void EventStreams::markDue(unsigned int id) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        due_.insert(id);
    }
    wakeUp_.notify_one();
}

// Due streams are served first; the heartbeat goes out once per interval even while events
// keep the thread busy, so that every stream is written to regularly.
void EventStreams::run() {
    Clock::time_point nextHeartbeat = Clock::now() + options_.heartbeatInterval;
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        wakeUp_.wait_until(lock, nextHeartbeat, [this] { return stopping_ || !due_.empty(); });
        if (stopping_) break;
        std::set<unsigned int> due;
        due.swap(due_);
        lock.unlock();
        for (unsigned int id : due) {
            if (const auto stream = find(id)) deliver(*stream);
        }
        if (Clock::now() >= nextHeartbeat) {
            for (const auto& stream : all()) stream->push(HEARTBEAT);
            nextHeartbeat = Clock::now() + options_.heartbeatInterval;
        }
        lock.lock();
    }
}

void EventStreams::deliver(EventStream& stream) {
    std::string body;
    int code = result::FAILED;
    try {
        std::lock_guard<std::mutex> lock(engineMutex_);
        code = engine_.execute(READ, stream.uri(), stream.arguments(), stream.requestInfo(), "",
                               body, false);
    } catch (const std::exception&) {
        code = result::FAILED;
    }
    if (code == result::DONE) {
        stream.push(eventText("change", body));
    } else {
        const Answer answer = engineAnswer(code, READ, body, options_.statusTable, false);
        stream.push(eventText("error", answer.body));
    }
}

std::shared_ptr<EventStream> EventStreams::find(unsigned int id) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = streams_.find(id);
    return found == streams_.end() ? nullptr : found->second;
}

std::vector<std::shared_ptr<EventStream>> EventStreams::all() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::shared_ptr<EventStream>> streams;
    for (const auto& entry : streams_) streams.push_back(entry.second);
    return streams;
}

void EventStreams::forget(unsigned int id) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        streams_.erase(id);
    }
    closed_.notify_all();
}

}  // namespace http
}  // namespace dme
