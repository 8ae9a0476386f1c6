#include "dme/saved_configuration.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "dme/diagnostics.h"
#include "dme/json.h"
#include "dme/result.h"

namespace dme {
namespace {

std::runtime_error writeError(const std::string& file, const std::string& step) {
    return std::runtime_error("Cannot write " + file + " (" + step + "): " + std::strerror(errno));
}

// Writes `text` to `file` so that a crash at any moment leaves either the old or the new file:
// a temporary file in the same directory, synced, renamed over `file`, then the directory
// synced so that the rename itself is durable.
void writeDurably(const std::string& file, const std::string& text) {
    const std::string temporary = file + ".tmp";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) throw writeError(file, "open");
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t n = ::write(fd, text.data() + written, text.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0 || ::fsync(fd) != 0) {
            const std::runtime_error error = writeError(file, n <= 0 ? "write" : "fsync");
            ::close(fd);
            ::unlink(temporary.c_str());
            throw error;
        }
        written += static_cast<std::size_t>(n);
    }
    if (::fsync(fd) != 0 || ::close(fd) != 0) {
        const std::runtime_error error = writeError(file, "fsync");
        ::unlink(temporary.c_str());
        throw error;
    }
    if (::rename(temporary.c_str(), file.c_str()) != 0) {
        const std::runtime_error error = writeError(file, "rename");
        ::unlink(temporary.c_str());
        throw error;
    }
    const std::string::size_type slash = file.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : file.substr(0, slash + 1);
    const int dirFd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0) throw writeError(file, "open directory");
    const int synced = ::fsync(dirFd);
    ::close(dirFd);
    if (synced != 0) throw writeError(file, "fsync directory");
}

const RequestInfo& sessionOf(const SavedConfiguration::Options& options) {
    static const RequestInfo anonymous;
    return options.session != nullptr ? *options.session : anonymous;
}

// The query that reads a subtree whole, if the lexicon has an expand argument.
Arguments fullyExpanded(const Lexicon& lexicon) {
    if (lexicon.expandArgument == nullptr) return Arguments();
    return Arguments(std::string(lexicon.expandArgument) + "=4294967295");
}

}  // namespace

SavedConfiguration::SavedConfiguration(DataModelEngine& engine, std::mutex& engineMutex,
                                       Options options)
    : engine_(engine), engineMutex_(engineMutex), options_(std::move(options)) {}

SavedConfiguration::~SavedConfiguration() {
    stop();
}

std::vector<std::string> SavedConfiguration::restore() {
    std::vector<std::string> problems;
    std::ifstream in(options_.file, std::ios::in | std::ios::binary);
    if (!in) {
        if (errno != ENOENT) problems.push_back("Cannot read " + options_.file);
        return problems;
    }
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    in.close();
    cxxtools::SerializationInfo saved;
    try {
        saved = parseJson(text);
    } catch (const JsonSyntaxError& e) {
        const std::string aside = options_.file + ".corrupt";
        std::rename(options_.file.c_str(), aside.c_str());
        problems.push_back(options_.file + " is not a saved configuration (" + e.what() +
                           "); moved aside to " + aside + ", defaults kept");
        return problems;
    }
    std::lock_guard<std::mutex> lock(engineMutex_);
    const bool allOrNothing = engine_.allOrNothingUpdates();
    engine_.setAllOrNothingUpdates(true);
    for (const std::string& path : options_.paths) {
        const cxxtools::SerializationInfo* state = saved.findMember(path);
        if (state == nullptr) {
            problems.push_back(path + ": nothing saved, defaults kept");
            continue;
        }
        cxxtools::SerializationInfo answer;
        const int status =
            engine_.execute(UPDATE, path, Arguments(), sessionOf(options_), *state, answer);
        if (status != result::DONE && status != result::NOT_ALLOWED) {
            problems.push_back(path + ": not restored (" + std::to_string(status) +
                               "), defaults kept: " + formatJson(answer));
        }
    }
    engine_.setAllOrNothingUpdates(allOrNothing);
    return problems;
}

void SavedConfiguration::start() {
    {
        std::lock_guard<std::mutex> lock(engineMutex_);
        for (const std::string& path : options_.paths) {
            engine_.subscribe(*this, path, Arguments(), options_.interval,
                              ObserverOption::CHANGES_ONLY);
        }
    }
    stopping_ = false;
    writer_ = std::thread(&SavedConfiguration::writeLoop, this);
}

void SavedConfiguration::stop() {
    if (!writer_.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    writer_.join();
    {
        std::lock_guard<std::mutex> lock(engineMutex_);
        engine_.unsubscribe(*this);
    }
    try {
        flush();
    } catch (const std::exception& e) {
        diagnose(std::string("Saved configuration: ") + e.what() + "\n");
    }
}

void SavedConfiguration::flush() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        changed_ = false;
    }
    writeDurably(options_.file, currentState());
}

void SavedConfiguration::notify(const std::string&, const Arguments&) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        changed_ = true;
    }
    wake_.notify_all();
}

std::string SavedConfiguration::currentState() {
    cxxtools::SerializationInfo state;
    state.setCategory(cxxtools::SerializationInfo::Object);
    std::lock_guard<std::mutex> lock(engineMutex_);
    const Arguments arguments = fullyExpanded(*engine_.lexicon());
    for (const std::string& path : options_.paths) {
        cxxtools::SerializationInfo answer;
        if (engine_.execute(READ, path, arguments, sessionOf(options_),
                            cxxtools::SerializationInfo(), answer) == result::DONE) {
            cxxtools::SerializationInfo& member = state.addMember(path);
            member.swap(answer);
            member.setName(path);
        }
    }
    return formatJson(state, true);
}

// Waits for a change, writes, then lets at least the interval pass before the next write.
void SavedConfiguration::writeLoop() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return changed_ || stopping_; });
        if (stopping_) return;
        lock.unlock();
        try {
            flush();
        } catch (const std::exception& e) {
            diagnose(std::string("Saved configuration: ") + e.what() + "\n");
        }
        lock.lock();
        wake_.wait_for(lock, options_.interval, [this] { return stopping_; });
    }
}

}  // namespace dme
