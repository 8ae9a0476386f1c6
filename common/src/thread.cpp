#include "quill/common/thread.h"

#include <algorithm>
#include <chrono>

namespace quill {
namespace common {

Thread::~Thread() {
    if (thread_.joinable() && isCurrentThread()) {
        thread_.detach();
        return;
    }
    wait(INFINITE);
}

bool Thread::start(std::function<void(void*)> function, void* argument) {
    if (!function || thread_.joinable()) return false;
    // The new thread takes the state lock before running `function`, so it never runs before
    // `thread_` is assigned (the function may call wait or destroy this object).
    std::lock_guard<std::mutex> lock(state_->mutex);
    thread_ = std::thread([state = state_, function = std::move(function), argument] {
        { std::lock_guard<std::mutex> started(state->mutex); }
        try {
            function(argument);
        } catch (...) {
            // Ends the thread only: nobody on this thread could handle the exception.
        }
        std::lock_guard<std::mutex> finished(state->mutex);
        state->finished = true;
        state->finishedChanged.notify_all();
    });
    state_->finished = false;
    return true;
}

bool Thread::wait(long long timeoutMs) {
    if (!thread_.joinable()) return true;
    if (isCurrentThread() || !waitFinished(timeoutMs)) return false;
    thread_.join();
    return true;
}

bool Thread::waitFinished(long long timeoutMs) {
    using Clock = std::chrono::steady_clock;
    std::unique_lock<std::mutex> lock(state_->mutex);
    auto finished = [this] { return state_->finished; };
    const Clock::time_point now = Clock::now();
    const auto longest =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - now);
    if (timeoutMs >= longest.count()) {
        state_->finishedChanged.wait(lock, finished);
        return true;
    }
    const std::chrono::milliseconds timeout(std::max(timeoutMs, 0LL));
    return state_->finishedChanged.wait_until(lock, now + timeout, finished);
}

}  // namespace common
}  // namespace quill
