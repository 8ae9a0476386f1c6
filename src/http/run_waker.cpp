#include "run_waker.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <stdexcept>

namespace dme {
namespace http {
namespace {

constexpr int STOP_SIGNALS[] = {SIGINT, SIGTERM};

// The waker that the signal handler writes to, while a StopSignals lives.
std::atomic<const RunWaker*> signalled{nullptr};
struct sigaction previous[2];

void onStopSignal(int number) {
    const int saved = errno;
    if (const RunWaker* waker = signalled.load()) waker->wake(number);
    errno = saved;
}

}  // namespace

RunWaker::RunWaker() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("Cannot make a pipe");
    readEnd_ = ends[0];
    writeEnd_ = ends[1];
}

RunWaker::~RunWaker() {
    close(readEnd_);
    close(writeEnd_);
}

void RunWaker::wake(int reason) const {
    const auto byte = static_cast<unsigned char>(reason);
    // A full pipe already holds a reason to wake up: nothing is lost by dropping this one.
    [[maybe_unused]] const ssize_t written = write(writeEnd_, &byte, 1);
}

int RunWaker::wait() const {
    unsigned char byte = 0;
    for (;;) {
        pollfd readable{readEnd_, POLLIN, 0};
        if (poll(&readable, 1, -1) < 0 && errno != EINTR) throw std::runtime_error("poll failed");
        if (read(readEnd_, &byte, 1) == 1) return byte;
    }
}

StopSignals::StopSignals(const RunWaker& waker) {
    const RunWaker* none = nullptr;
    if (!signalled.compare_exchange_strong(none, &waker)) {
        throw std::logic_error("Server::run() already running");
    }
    struct sigaction handling {};
    handling.sa_handler = &onStopSignal;
    sigemptyset(&handling.sa_mask);
    handling.sa_flags = SA_RESTART;
    for (int i = 0; i < 2; ++i) sigaction(STOP_SIGNALS[i], &handling, &previous[i]);
}

StopSignals::~StopSignals() {
    for (int i = 0; i < 2; ++i) sigaction(STOP_SIGNALS[i], &previous[i], nullptr);
    signalled.store(nullptr);
}

}  // namespace http
}  // namespace dme
