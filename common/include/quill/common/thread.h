#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace quill {
namespace common {

// One background thread of execution. `start` runs a function with an argument on a new
// thread; `wait` joins it with a time-out. The destructor joins a thread still running, so no
// thread outlives its Thread object. An exception that escapes the function ends the thread
// quietly instead of ending the process.
// Neither copyable nor movable. `start`, `wait` and the destructor are meant to be called from
// one controlling thread; the function itself may call `wait` (refused) or destroy its own
// Thread object (the thread is then detached and finishes on its own).
class Thread {
  public:
    // The time-out value of `wait` that means "no limit".
    static constexpr long long INFINITE = 0x7FFFFFFFFFFFFFFFLL;

    Thread() = default;
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Runs function(argument) on a new thread. Returns false (and does nothing) when `function`
    // is empty or when a thread started earlier has not been joined yet. Throws
    // std::system_error when no thread can be created.
    bool start(std::function<void(void*)> function, void* argument);

    // Waits up to `timeoutMs` milliseconds (INFINITE, or any time-out too long for the steady
    // clock: no limit) for the thread to finish and joins it. Returns true when no thread is left
    // running (also when none was started); false on time-out and when called from the thread
    // itself, which cannot join itself.
    bool wait(long long timeoutMs);

    // True while a started thread has not been joined.
    bool joinable() const { return thread_.joinable(); }

  private:
    // What the running thread and its Thread object share; it outlives a Thread object that
    // its own thread destroys.
    struct State {
        std::mutex mutex;
        std::condition_variable finishedChanged;
        bool finished = true;
    };

    // Waits until the thread has finished or `timeoutMs` has passed; true when it finished.
    bool waitFinished(long long timeoutMs);
    bool isCurrentThread() const { return thread_.get_id() == std::this_thread::get_id(); }

    std::shared_ptr<State> state_ = std::make_shared<State>();
    std::thread thread_;
};

}  // namespace common
}  // namespace quill
