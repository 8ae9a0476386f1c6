#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <pwd.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace dme {
namespace mqtt {
namespace test {

// A real Mosquitto broker on a free loopback port, started with a generated configuration in a
// temporary directory and killed with its owner. restart() starts it again on the same port,
// with nothing retained (no persistence), as a broker that lost power comes back.
class Broker {
  public:
    // `security` holds the configuration lines that decide who may connect and what they may
    // do; by default anyone may do anything. prepare() is given the broker's directory before
    // the broker starts, to write the files that those lines name (relative to it).
    explicit Broker(const std::string& security = "allow_anonymous true\n",
                    const std::function<void(const std::string& directory)>& prepare = {})
        : directory_(makeDirectory()), port_(freePort()) {
        if (prepare) prepare(directory_);
        std::ofstream config(directory_ + "/mosquitto.conf");
        config << "listener " << port_ << " 127.0.0.1\n"
               << security << "persistence false\n"
               << "max_queued_messages 100000\n"
               << "log_dest file " << directory_ << "/mosquitto.log\n"
               << "user " << currentUser() << "\n";
        config.close();
        start();
    }
    ~Broker() {
        stop();
        std::system(("rm -rf '" + directory_ + "'").c_str());
    }
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;

    unsigned short port() const { return port_; }

    // The broker's resident memory in kB (VmRSS), 0 when it cannot be read.
    long residentKilobytes() const {
        std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
        std::string line;
        while (std::getline(status, line)) {
            if (line.compare(0, 6, "VmRSS:") == 0) return std::stol(line.substr(6));
        }
        return 0;
    }

    void stop() {
        if (pid_ <= 0) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

    void restart() {
        stop();
        start();
    }

  private:
    static std::string makeDirectory() {
        char name[] = "/tmp/dme-broker-XXXXXX";
        if (mkdtemp(name) == nullptr) throw std::runtime_error("Cannot make a broker directory");
        return name;
    }

    static std::string currentUser() {
        const passwd* entry = getpwuid(getuid());
        return entry != nullptr ? entry->pw_name : "root";
    }

    static unsigned short freePort() {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        socklen_t length = sizeof address;
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        close(fd);
        return ntohs(address.sin_port);
    }

    bool accepting() const {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port_);
        const bool connected =
            connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        close(fd);
        return connected;
    }

    void start() {
        const std::string config = directory_ + "/mosquitto.conf";
        pid_ = fork();
        if (pid_ == 0) {
            // Killed with the test, even one that a sanitizer ends; its output (such as its
            // complaint about running as root) goes to a file, not to the test's.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            // Relative paths of the configuration name files of the broker's directory.
            if (chdir(directory_.c_str()) != 0) _exit(126);
            const int log = open("output.log", O_WRONLY | O_CREAT | O_APPEND, 0644);
            if (log < 0 || dup2(log, STDOUT_FILENO) < 0 || dup2(log, STDERR_FILENO) < 0) {
                _exit(126);
            }
            execlp("mosquitto", "mosquitto", "-c", config.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        // A port taken between freePort() and now would never accept: give up after 20 s.
        for (int attempt = 0; attempt < 400; ++attempt) {
            if (accepting()) return;
            if (waitpid(pid_, nullptr, WNOHANG) == pid_) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        stop();
        throw std::runtime_error("mosquitto did not start on port " + std::to_string(port_));
    }

    std::string directory_;
    unsigned short port_;
    pid_t pid_ = -1;
};

}  // namespace test
}  // namespace mqtt
}  // namespace dme
