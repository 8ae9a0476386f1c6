#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "event_streams.h"

struct MHD_Connection;

namespace dme {
namespace http {

// Watches the open connections of a server from a thread of its own, so that no client holds a
// connection slot without using it:
// - a request must arrive whole (request line, headers and body) within `requestTimeout` of the
//   connection's opening or of the end of the previous answer on it; otherwise the connection is
//   shut down, whatever keeps it from completing (a client sending one byte a second, a body
//   shorter than its Content-Length, a chunked body that never ends); a client that hangs up
//   before its request is whole has its connection shut down at once;
// - an event stream whose client has hung up is ended at once, rather than at its next write.
// The network thread reports each connection's state; the watch thread acts on it. Thread-safe;
// not copyable.
class ConnectionWatch {
  public:
    explicit ConnectionWatch(std::chrono::milliseconds requestTimeout);
    // Requires stop() to have run when the thread was started.
    ~ConnectionWatch();
    ConnectionWatch(const ConnectionWatch&) = delete;
    ConnectionWatch& operator=(const ConnectionWatch&) = delete;

    void start();
    void stop();

    // Network thread. A connection on socket `fd` opened: it waits for a request, and
    // `*context` holds its record until closed() is called with it.
    void opened(int fd, void** context);
    // The connection has closed: its record goes.
    void closed(void* context);
    // The connection's request is complete and being answered: no deadline until it ends.
    void answering(MHD_Connection* connection);
    // The connection's answer is an event stream: it is ended when the client hangs up.
    void streaming(MHD_Connection* connection, const std::shared_ptr<EventStream>& stream);
    // The connection's exchange has ended: it waits for its next request.
    void awaiting(MHD_Connection* connection);
    // The connection's request may never arrive whole (the HTTP library may stall on it): unless
    // it is being answered by the watch's next look, `farewell` (a whole HTTP answer, or nothing)
    // is sent on its socket and the connection is shut down then.
    void expire(MHD_Connection* connection, std::string farewell);

  private:
    using Clock = std::chrono::steady_clock;
    enum class State { AWAITING, ANSWERING, STREAMING, ENDING };
    struct Record {
        int fd;
        State state;
        Clock::time_point since;
        bool expired;
        std::string farewell;  // sent before an expired connection is shut down
        bool hungUp;           // whether the client had hung up at the last look
        std::weak_ptr<EventStream> stream;
    };

    Record* recordOf(MHD_Connection* connection) const;
    void setState(MHD_Connection* connection, State state);
    void run();
    // Requires the lock. Whether the record's client has hung up before its request arrived.
    static bool gone(Record& record);
    // Requires the lock. Shuts the record's connection down.
    void end(Record& record);
    // Requires the lock. Shuts down overdue connections and ends streams whose client is gone.
    void sweep();

    const std::chrono::milliseconds requestTimeout_;
    std::mutex mutex_;
    std::condition_variable wakeUp_;
    std::map<Record*, std::unique_ptr<Record>> records_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace http
}  // namespace dme
