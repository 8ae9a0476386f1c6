#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>

namespace dme {
namespace test {

// A TCP connection to a loopback port that sends and receives bytes as a test chooses, for
// requests that no HTTP client library would send. Its source address may be another loopback
// address (127.0.0.2, ...), so that a test can play several clients. Not copyable.
class RawConnection {
  public:
    // Connects from `source` to 127.0.0.1:`port`; `blocking` false returns at once with the
    // connection under way. connected() tells whether the socket could be made.
    RawConnection(unsigned short port, const std::string& source = "127.0.0.1",
                  bool blocking = true)
        : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
        if (fd_ < 0) return;
        sockaddr_in from{};
        from.sin_family = AF_INET;
        ::inet_pton(AF_INET, source.c_str(), &from.sin_addr);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        ::inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
        if (!blocking) ::fcntl(fd_, F_SETFL, O_NONBLOCK);
        if (::bind(fd_, reinterpret_cast<sockaddr*>(&from), sizeof from) != 0 ||
            (::connect(fd_, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0 &&
             errno != EINPROGRESS)) {
            close();
        }
    }
    ~RawConnection() { close(); }
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;

    bool connected() const { return fd_ >= 0; }

    // Sends `bytes` without waiting; false when the connection refuses them.
    bool send(const std::string& bytes) {
        return fd_ >= 0 && ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
                               static_cast<ssize_t>(bytes.size());
    }

    // Reads until the server closes the connection or `patience` passes; returns what arrived.
    // closedByServer() then tells which of the two ended the wait.
    std::string receiveUntilClosed(std::chrono::milliseconds patience) {
        return receive(patience, "");
    }

    // Reads until `text` has arrived, the server closes or `patience` passes.
    std::string receiveUntil(const std::string& text, std::chrono::milliseconds patience) {
        return receive(patience, text);
    }

    bool closedByServer() const { return closedByServer_; }

    void close() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

  private:
    std::string receive(std::chrono::milliseconds patience, const std::string& text) {
        std::string received;
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (fd_ >= 0 && (text.empty() || received.find(text) == std::string::npos)) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) break;
            pollfd watched{fd_, POLLIN, 0};
            if (::poll(&watched, 1, static_cast<int>(left.count())) <= 0) continue;
            char buffer[4096];
            const ssize_t count = ::recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
            if (count > 0) {
                received.append(buffer, static_cast<std::size_t>(count));
            } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
                closedByServer_ = true;
                break;
            }
        }
        return received;
    }

    int fd_;
    bool closedByServer_ = false;
};

}  // namespace test
}  // namespace dme
