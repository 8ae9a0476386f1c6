#pragma once

namespace dme {
namespace http {

// What ends Server::run(): a stop signal (its number) or a call of Server::stop() (0). A pipe
// that the waker writes one byte into, since a signal handler may do no more than that.
// wake() may be called from any thread and from a signal handler; wait() from one thread at a
// time. Not copyable.
class RunWaker {
  public:
    // Throws std::runtime_error when no pipe can be made.
    RunWaker();
    ~RunWaker();
    RunWaker(const RunWaker&) = delete;
    RunWaker& operator=(const RunWaker&) = delete;

    // Async-signal-safe: writes `reason` (0 to 255) as one byte.
    void wake(int reason) const;
    // Blocks until a byte arrives and returns it.
    int wait() const;

  private:
    int readEnd_ = -1;
    int writeEnd_ = -1;
};

// While it lives, SIGINT and SIGTERM wake `waker` with their number instead of their previous
// handling, which comes back at destruction. One at a time in a process: a second one throws
// std::logic_error("Server::run() already running"). Not copyable.
class StopSignals {
  public:
    explicit StopSignals(const RunWaker& waker);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
};

}  // namespace http
}  // namespace dme
