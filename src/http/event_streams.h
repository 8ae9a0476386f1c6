#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "dme/arguments.h"
#include "dme/engine.h"
#include "dme/http/server.h"
#include "dme/notifier.h"
#include "dme/session.h"

struct MHD_Connection;

namespace dme {
namespace http {

class EventStreams;

// One Server-Sent Events stream: the observer subscribed for one connection and the text that
// waits to be sent on it. The network thread takes text out (read); the event thread puts text
// in (push). While nothing waits the connection is suspended, and push resumes it. Once finished
// or detached, nothing more is taken in. Guarded by its own mutex; not copyable.
class EventStream : public IDataModelObserver {
  public:
    EventStream(unsigned int id, EventStreams& owner, MHD_Connection* connection,
                RequestInfo requestInfo, std::string user, std::string uri, Arguments arguments);
    EventStream(const EventStream&) = delete;
    EventStream& operator=(const EventStream&) = delete;

    // Called on the notifier thread: asks the owner for an event of this stream.
    void notify(const std::string& uri, const Arguments& arguments) override;

    // Network thread, from the response's content reader. Moves at most `max` waiting bytes
    // into `buffer` and returns their number. With nothing waiting, returns the end of the
    // stream once finished, else suspends the connection and returns 0.
    ssize_t read(char* buffer, std::size_t max);
    // Appends `text` to the waiting text (unless finished) and resumes the connection.
    void push(const std::string& text);
    // Ends the stream after the waiting text; resumes the connection so that it ends.
    void finish();
    // Forgets the connection, which has ended: nothing is taken in any more.
    void detach();

    // The bytes taken out by read() so far.
    std::size_t bytesSent() const;
    unsigned int id() const { return id_; }
    const RequestInfo& requestInfo() const { return requestInfo_; }
    // The authenticated user who opened the stream; empty for an anonymous caller.
    const std::string& user() const { return user_; }
    const std::string& uri() const { return uri_; }
    const Arguments& arguments() const { return arguments_; }

  private:
    // Requires the lock. Resumes the connection when it is suspended.
    void resume();

    const unsigned int id_;
    EventStreams& owner_;
    const RequestInfo requestInfo_;
    const std::string user_;
    const std::string uri_;
    const Arguments arguments_;
    mutable std::mutex mutex_;
    MHD_Connection* connection_;
    std::string waiting_;
    std::size_t sent_ = 0;
    bool suspended_ = false;
    bool finished_ = false;
};

// The open event streams of a server and the event thread that feeds them: a notification marks
// its stream due; the event thread reads the stream's uri from the engine (under the engine
// mutex) and pushes "event: change" with the JSON, and every heartbeat interval pushes a comment
// to every stream. open and close run on the network thread; markDue on the notifier thread.
// Thread-safe; not copyable.
class EventStreams {
  public:
    EventStreams(JsonDataModelEngine& engine, std::mutex& engineMutex,
                 const ServerOptions& options);
    // Requires stop() and closeAll() to have run when the thread was started.
    ~EventStreams();
    EventStreams(const EventStreams&) = delete;
    EventStreams& operator=(const EventStreams&) = delete;

    // Starts the event thread.
    void start();
    // Stops the event thread, then ends every stream with a last comment.
    void stop();
    // Waits until every stream is closed, or `patience` has passed.
    void waitUntilClosed(std::chrono::milliseconds patience);

    // Whether maxStreams streams are open.
    bool full() const;
    // The number of open streams of `user` (anonymous callers together are the user "").
    std::size_t countOf(const std::string& user) const;
    // Registers a stream of `user` for `connection` and subscribes it to `uri` with immediate
    // notification. Returns the engine's result; on 0 `stream` is the new stream, otherwise
    // nothing stays registered.
    int open(MHD_Connection* connection, const RequestInfo& requestInfo, const std::string& user,
             const std::string& uri, const Arguments& arguments, std::chrono::milliseconds interval,
             std::shared_ptr<EventStream>& stream);
    // The connection of `stream` has ended: detaches it, unsubscribes it and forgets it.
    void close(EventStream& stream);
    // Closes every stream still registered.
    void closeAll();
    // Notifier thread: the stream `id` has a change to send.
    void markDue(unsigned int id);

  private:
    using Clock = std::chrono::steady_clock;

    void run();
    // Reads the stream's uri and pushes the event.
    void deliver(EventStream& stream);
    std::shared_ptr<EventStream> find(unsigned int id) const;
    std::vector<std::shared_ptr<EventStream>> all() const;
    void forget(unsigned int id);

    JsonDataModelEngine& engine_;
    std::mutex& engineMutex_;
    const ServerOptions& options_;
    mutable std::mutex mutex_;
    std::condition_variable wakeUp_;
    std::condition_variable closed_;
    std::map<unsigned int, std::shared_ptr<EventStream>> streams_;
    std::set<unsigned int> due_;
    unsigned int nextId_ = 1;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace http
}  // namespace dme
