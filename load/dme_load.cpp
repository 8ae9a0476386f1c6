// dme-load: drives a running example device service (dme-device-server) for a bounded time and
// reports its throughput, latency, errors and memory.
//
//     dme-load --url http://127.0.0.1:PORT/api --pid PID [--seconds 60] [--connections 32]
//              [--streams 3] [--max-rss-growth 10] [--report-every 0] [--slow 0]
//
// `connections` keep-alive connections run at once: `streams` of them hold event streams (each
// for STREAM_HOLD, then it is reopened) and count the events that arrive; one creates an account
// and deletes it again, over and over; the others send a fixed mix of reads (with expand and
// select), schema reads, updates by the users allowed to make them, and requests that the
// service must refuse with a known status. An answer with any other status, a transport failure
// or an "event: error" is an error. `slow` more connections, from the loopback address
// 127.0.0.2, each send one byte of a request a second and open again when the service drops
// them. The resident memory of the service (VmRSS of /proc/PID/status) is sampled before the
// load, every second during it and after it. With `report-every` N, a line every N seconds gives
// that period's requests per second and latency percentiles, the errors so far, the service's
// VmRSS and its open file descriptors.
//
// The first seconds of load (WARM_UP, at most a quarter of the run) cost the service a one-off
// amount of memory: buffers for every connection and the allocator's pools for its threads.
// Growth is therefore judged from the end of the warm-up to the end of the run, and reported
// from the idle start as well.
//
// Exit status: 0 when there was no error and the memory grew by less than `max-rss-growth` per
// cent after the warm-up; 1 otherwise; 2 for a usage error.

#include <arpa/inet.h>
#include <curl/curl.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// How long a stream connection keeps one stream before it opens the next.
constexpr std::chrono::seconds STREAM_HOLD{20};

constexpr std::chrono::seconds WARM_UP{5};

enum class Kind { READ, UPDATE, REFUSED };

// One request of the mix and the status that it must answer.
struct Request {
    Kind kind;
    const char* method;
    const char* user;  // "user:password"
    std::string path;  // below the base url
    std::string body;
    long expected;
    unsigned weight;
};

// The mix. Updates write values that are always valid (the worker's number goes into them);
// each refused request names why it is refused.
std::vector<Request> requestMix(unsigned worker) {
    const std::string n = std::to_string(worker);
    return {
        {Kind::READ, "GET", "guest:guest", "/system?select=hostname,logLevel", "", 200, 6},
        {Kind::READ, "GET", "guest:guest", "?expand=3", "", 200, 3},
        {Kind::READ, "GET", "operator:operator", "/network?expand=2", "", 200, 4},
        {Kind::READ, "GET", "admin:admin", "/users?expand=2&select=name,role", "", 200, 4},
        {Kind::READ, "GET", "guest:guest", "/network/interfaces?expand=2&select=id,mtu", "", 200,
         4},
        {Kind::READ, "GET", "guest:guest", "/status", "", 200, 4},
        {Kind::READ, "GET", "guest:guest", "/factory?expand=1", "", 200, 2},
        {Kind::READ, "GET", "guest:guest", "/schema/network", "", 200, 2},
        {Kind::UPDATE, "PUT", "admin:admin", "/system/location", "\"rack " + n + "\"", 200, 3},
        {Kind::UPDATE, "PATCH", "admin:admin", "/system",
         "{\"timezoneOffset\":" + std::to_string(worker * 15) + ",\"ntpEnabled\":true}", 200, 2},
        {Kind::UPDATE, "PUT", "admin:admin", "/labels/room", "\"room-" + n + "\"", 200, 2},
        {Kind::UPDATE, "PUT", "operator:operator", "/network/interfaces/lan/mtu",
         std::to_string(1400 + worker), 200, 2},
        // A guest may not write.
        {Kind::REFUSED, "PUT", "guest:guest", "/system/hostname", "\"intruder\"", 403, 1},
        // Wrong password.
        {Kind::REFUSED, "GET", "admin:wrong", "/system", "", 401, 1},
        // No such node.
        {Kind::REFUSED, "GET", "guest:guest", "/system/nonexistent", "", 404, 1},
        // Value above the maximum of 840.
        {Kind::REFUSED, "PUT", "admin:admin", "/system/timezoneOffset", "900", 400, 1},
        // An expand level that is not a number.
        {Kind::REFUSED, "GET", "guest:guest", "/system?expand=x", "", 400, 1},
        // The node does not allow DELETE.
        {Kind::REFUSED, "DELETE", "admin:admin", "/system", "", 405, 1},
        // An event stream asked for without "Accept: text/event-stream".
        {Kind::REFUSED, "GET", "guest:guest", "/events/system", "", 406, 1},
    };
}

// What every connection saw in the current reporting period, and the errors so far.
struct Period {
    std::mutex mutex;
    std::vector<double> latenciesMs;
    std::atomic<unsigned long long> errors{0};

    void add(double latencyMs) {
        const std::lock_guard<std::mutex> lock(mutex);
        latenciesMs.push_back(latencyMs);
    }

    std::vector<double> take() {
        const std::lock_guard<std::mutex> lock(mutex);
        std::vector<double> taken;
        taken.swap(latenciesMs);
        return taken;
    }
};

Period period;

// What one connection saw.
struct Tally {
    unsigned long long reads = 0;
    unsigned long long updates = 0;
    std::map<long, unsigned long long> refused;  // by status
    unsigned long long failedRequests = 0;
    std::map<std::string, unsigned long long> errors;  // by what went wrong, streams included
    std::vector<double> latenciesMs;
    unsigned long long streamsOpened = 0;
    unsigned long long events = 0;
    unsigned long long heartbeats = 0;
    unsigned long long accountsCycled = 0;
    unsigned long long slowDropped = 0;

    void error(const std::string& what) {
        ++errors[what];
        ++period.errors;
    }

    void latency(double ms) {
        latenciesMs.push_back(ms);
        period.add(ms);
    }

    unsigned long long errorCount() const {
        unsigned long long count = 0;
        for (const auto& entry : errors) count += entry.second;
        return count;
    }
};

size_t discard(char*, size_t size, size_t count, void*) {
    return size * count;
}

// One keep-alive connection that sends requests of the mix until the deadline.
void runRequests(const std::string& base, unsigned worker, Clock::time_point deadline,
                 Tally& tally) {
    const std::vector<Request> mix = requestMix(worker);
    std::vector<unsigned> deck;
    for (unsigned i = 0; i < mix.size(); ++i) deck.insert(deck.end(), mix[i].weight, i);
    std::minstd_rand random(worker + 1);

    CURL* curl = curl_easy_init();
    curl_slist* json = curl_slist_append(nullptr, "Content-Type: application/json");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, discard);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 10000L);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, json);
    while (Clock::now() < deadline) {
        const Request& request = mix[deck[random() % deck.size()]];
        const std::string url = base + request.path;
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_USERPWD, request.user);
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method);
        if (request.body.empty()) {
            curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
            curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method);
        } else {
            curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.c_str());
            curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.body.size()));
        }
        const Clock::time_point start = Clock::now();
        const CURLcode sent = curl_easy_perform(curl);
        tally.latency(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        const std::string what = std::string(request.method) + " " + request.path;
        if (sent != CURLE_OK || status != request.expected) ++tally.failedRequests;
        if (sent != CURLE_OK) {
            tally.error(what + ": " + curl_easy_strerror(sent));
        } else if (status != request.expected) {
            tally.error(what + ": status " + std::to_string(status) + " instead of " +
                        std::to_string(request.expected));
        } else if (request.kind == Kind::READ) {
            ++tally.reads;
        } else if (request.kind == Kind::UPDATE) {
            ++tally.updates;
        } else {
            ++tally.refused[status];
        }
    }
    curl_slist_free_all(json);
    curl_easy_cleanup(curl);
}

size_t keep(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

// One connection that creates an account as the admin and deletes it again until the deadline.
void runAccounts(const std::string& base, Clock::time_point deadline, Tally& tally) {
    CURL* curl = curl_easy_init();
    curl_slist* json = curl_slist_append(nullptr, "Content-Type: application/json");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 10000L);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, json);
    curl_easy_setopt(curl, CURLOPT_USERPWD, "admin:admin");
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, keep);
    const std::string account = R"({"name":"soak","role":"guest"})";
    auto send = [&](const char* method, const std::string& url, const std::string& body,
                    long expected, std::string& answer) {
        answer.clear();
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method);
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
        const Clock::time_point start = Clock::now();
        const CURLcode sent = curl_easy_perform(curl);
        tally.latency(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        if (sent == CURLE_OK && status == expected) return true;
        tally.error(
            std::string(method) + " account: " +
            (sent != CURLE_OK ? curl_easy_strerror(sent) : "status " + std::to_string(status)));
        ++tally.failedRequests;
        return false;
    };
    std::string answer;
    while (Clock::now() < deadline) {
        if (!send("POST", base + "/users", account, 201, answer)) continue;
        const std::string key = "\"href\":\"";
        const std::size_t at = answer.find(key);
        const std::string href =
            at == std::string::npos
                ? ""
                : answer.substr(at + key.size(),
                                answer.find('"', at + key.size()) - at - key.size());
        if (send("DELETE", base + href, "", 204, answer)) ++tally.accountsCycled;
    }
    curl_slist_free_all(json);
    curl_easy_cleanup(curl);
}

// A connection from 127.0.0.2 to the service at `url`, connecting in the background; -1 when no
// socket could be made.
int slowConnection(const sockaddr_in& service) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    if (fd < 0) return -1;
    sockaddr_in from{};
    from.sin_family = AF_INET;
    ::inet_pton(AF_INET, "127.0.0.2", &from.sin_addr);
    ::bind(fd, reinterpret_cast<const sockaddr*>(&from), sizeof from);
    ::connect(fd, reinterpret_cast<const sockaddr*>(&service), sizeof service);
    return fd;
}

// `count` clients that each send one byte of a request a second until the deadline, and open
// again when the service drops them (which it must, once a request takes too long to arrive).
void runSlowClients(unsigned short port, unsigned count, Clock::time_point deadline, Tally& tally) {
    sockaddr_in service{};
    service.sin_family = AF_INET;
    service.sin_port = htons(port);
    ::inet_pton(AF_INET, "127.0.0.1", &service.sin_addr);
    const std::string request = "GET /api/system HTTP/1.1\r\nHost: device\r\nX-Slow: ";
    std::vector<int> sockets(count, -1);
    std::vector<std::size_t> sent(count, 0);
    while (Clock::now() < deadline) {
        for (unsigned i = 0; i < count; ++i) {
            if (sockets[i] < 0) sockets[i] = slowConnection(service);
            const char byte = request[sent[i] % request.size()];
            if (::send(sockets[i], &byte, 1, MSG_NOSIGNAL) == 1) {
                ++sent[i];
            } else if (errno != EAGAIN && errno != ENOTCONN) {
                ::close(sockets[i]);
                sockets[i] = -1;
                sent[i] = 0;
                ++tally.slowDropped;
            }
        }
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    for (int fd : sockets) {
        if (fd >= 0) ::close(fd);
    }
}

// The state of one event stream: the text not yet cut into events, and when to stop reading.
struct Stream {
    Tally& tally;
    Clock::time_point until;
    std::string pending;
};

// Counts the events of the text that has arrived; an event ends with an empty line.
size_t takeEvents(char* data, size_t size, size_t count, void* context) {
    Stream& stream = *static_cast<Stream*>(context);
    stream.pending.append(data, size * count);
    std::string::size_type end;
    while ((end = stream.pending.find("\n\n")) != std::string::npos) {
        const std::string event = stream.pending.substr(0, end);
        stream.pending.erase(0, end + 2);
        if (event.rfind("event: change\ndata: ", 0) == 0) {
            ++stream.tally.events;
        } else if (event.rfind(": heartbeat", 0) == 0) {
            ++stream.tally.heartbeats;
        } else {
            stream.tally.error("event stream: " + event.substr(0, 200));
        }
    }
    return size * count;
}

// Ends the transfer once the stream has been held long enough.
int holdUntil(void* context, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return Clock::now() < static_cast<Stream*>(context)->until ? 0 : 1;
}

// One connection that holds event streams on `path` until the deadline.
void runStreams(const std::string& base, const std::string& path, const char* user,
                Clock::time_point deadline, Tally& tally) {
    curl_slist* accept = curl_slist_append(nullptr, "Accept: text/event-stream");
    while (Clock::now() < deadline) {
        Stream stream{tally, std::min(deadline, Clock::now() + STREAM_HOLD), ""};
        const std::string url = base + "/events" + path + "?interval=200";
        CURL* curl = curl_easy_init();
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_USERPWD, user);
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, accept);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, takeEvents);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &stream);
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, holdUntil);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &stream);
        const CURLcode ended = curl_easy_perform(curl);
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        if (status != 200) {
            tally.error("event stream " + path + ": status " + std::to_string(status));
        } else if (ended != CURLE_ABORTED_BY_CALLBACK) {
            tally.error("event stream " + path + ": " + curl_easy_strerror(ended));
        } else {
            ++tally.streamsOpened;
        }
        curl_easy_cleanup(curl);
    }
    curl_slist_free_all(accept);
}

// VmRSS of the process, in kB.
long residentKb(long pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    }
    throw std::runtime_error("no VmRSS for process " + std::to_string(pid));
}

// The open file descriptors of the process.
long openDescriptors(long pid) {
    long count = 0;
    if (DIR* directory = ::opendir(("/proc/" + std::to_string(pid) + "/fd").c_str())) {
        while (const dirent* entry = ::readdir(directory)) {
            if (entry->d_name[0] != '.') ++count;
        }
        ::closedir(directory);
    }
    return count;
}

double percentile(const std::vector<double>& sorted, double p) {
    if (sorted.empty()) return 0;
    const std::size_t index = static_cast<std::size_t>(p / 100.0 * (sorted.size() - 1) + 0.5);
    return sorted[index];
}

struct Options {
    std::string url;
    long pid = 0;
    unsigned seconds = 60;
    unsigned connections = 32;
    unsigned streams = 3;
    double maxRssGrowth = 10;
    unsigned reportEvery = 0;
    unsigned slow = 0;
};

Options parseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const std::string value = argv[i + 1];
        if (name == "--url") {
            options.url = value;
        } else if (name == "--pid") {
            options.pid = std::stol(value);
        } else if (name == "--seconds") {
            options.seconds = static_cast<unsigned>(std::stoul(value));
        } else if (name == "--connections") {
            options.connections = static_cast<unsigned>(std::stoul(value));
        } else if (name == "--streams") {
            options.streams = static_cast<unsigned>(std::stoul(value));
        } else if (name == "--max-rss-growth") {
            options.maxRssGrowth = std::stod(value);
        } else if (name == "--report-every") {
            options.reportEvery = static_cast<unsigned>(std::stoul(value));
        } else if (name == "--slow") {
            options.slow = static_cast<unsigned>(std::stoul(value));
        } else {
            throw std::invalid_argument(name);
        }
    }
    if (argc % 2 == 0 || options.url.empty() || options.pid <= 0 ||
        options.streams + 1 >= options.connections) {
        throw std::invalid_argument("--url and --pid are required, streams + 1 < connections");
    }
    return options;
}

void printTotals(const Tally& total, double seconds) {
    const unsigned long long refused = [&total] {
        unsigned long long sum = 0;
        for (const auto& entry : total.refused) sum += entry.second;
        return sum;
    }();
    const unsigned long long requests =
        total.reads + total.updates + refused + total.failedRequests;
    std::printf("requests: %llu in %.1f s: %.0f requests/s\n", requests, seconds,
                requests / seconds);
    std::printf("  reads %llu, updates %llu, refused as expected %llu (", total.reads,
                total.updates, refused);
    const char* separator = "";
    for (const auto& entry : total.refused) {
        std::printf("%s%ld: %llu", separator, entry.first, entry.second);
        separator = ", ";
    }
    std::printf(")\n");
    std::vector<double> sorted = total.latenciesMs;
    std::sort(sorted.begin(), sorted.end());
    std::printf("latency: p50 %.2f ms, p90 %.2f ms, p99 %.2f ms, p99.9 %.2f ms, max %.2f ms\n",
                percentile(sorted, 50), percentile(sorted, 90), percentile(sorted, 99),
                percentile(sorted, 99.9), sorted.empty() ? 0.0 : sorted.back());
    std::printf("event streams: %llu held, %llu change events, %llu heartbeats\n",
                total.streamsOpened, total.events, total.heartbeats);
    std::printf(
        "accounts created and deleted: %llu; slow connections dropped by the service: %llu\n",
        total.accountsCycled, total.slowDropped);
    std::printf("errors: %llu (%llu of them requests)\n", total.errorCount(), total.failedRequests);
    for (const auto& entry : total.errors) {
        std::printf("  %llu x %s\n", entry.second, entry.first.c_str());
    }
}

// The port of an "http://host:port/..." url.
unsigned short portOf(const std::string& url) {
    const std::size_t colon = url.find(':', url.find("//") + 2);
    return static_cast<unsigned short>(std::stoul(url.substr(colon + 1)));
}

// One line on the period since `periodStart`: its requests per second and latencies, the errors
// since the start, and the service's memory and descriptors.
void report(Clock::time_point start, Clock::time_point periodStart, long pid) {
    std::vector<double> latencies = period.take();
    std::sort(latencies.begin(), latencies.end());
    const double seconds = std::chrono::duration<double>(Clock::now() - periodStart).count();
    std::printf(
        "at %4.0f s: %.0f requests/s, p50 %.2f ms, p99 %.2f ms, p99.9 %.2f ms, errors %llu, "
        "VmRSS %ld kB, descriptors %ld\n",
        std::chrono::duration<double>(Clock::now() - start).count(), latencies.size() / seconds,
        percentile(latencies, 50), percentile(latencies, 99), percentile(latencies, 99.9),
        period.errors.load(), residentKb(pid), openDescriptors(pid));
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    try {
        options = parseOptions(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << "dme-load: invalid arguments (" << e.what() << ")\n"
                  << "usage: dme-load --url URL --pid PID [--seconds N] [--connections N] "
                     "[--streams N] [--max-rss-growth PERCENT] [--report-every SECONDS] "
                     "[--slow N]\n";
        return 2;
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);
    // Each stream its own user: one user may hold only a few streams at once.
    const char* const streamPaths[] = {"/system", "/network/interfaces/lan", "/status"};
    const char* const streamUsers[] = {"guest:guest", "operator:operator", "admin:admin"};
    const unsigned requestConnections = options.connections - options.streams - 1;
    std::printf(
        "load: %u connections (%u sending requests, %u holding event streams, 1 creating and "
        "deleting accounts), %u slow clients, for %u s against %s\n",
        options.connections, requestConnections, options.streams, options.slow, options.seconds,
        options.url.c_str());

    const long idleKb = residentKb(options.pid);
    long peakKb = idleKb;
    long warmKb = 0;
    const Clock::time_point start = Clock::now();
    const Clock::time_point deadline = start + std::chrono::seconds(options.seconds);
    const Clock::time_point warm = start + std::min<std::chrono::milliseconds>(
                                               WARM_UP, std::chrono::seconds(options.seconds) / 4);
    std::vector<Tally> tallies(options.connections + 1);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < options.connections; ++i) {
        if (i < options.streams) {
            threads.emplace_back(runStreams, options.url, streamPaths[i % 3], streamUsers[i % 3],
                                 deadline, std::ref(tallies[i]));
        } else if (i == options.streams) {
            threads.emplace_back(runAccounts, options.url, deadline, std::ref(tallies[i]));
        } else {
            threads.emplace_back(runRequests, options.url, i, deadline, std::ref(tallies[i]));
        }
    }
    if (options.slow > 0) {
        threads.emplace_back(runSlowClients, portOf(options.url), options.slow, deadline,
                             std::ref(tallies.back()));
    }
    std::this_thread::sleep_until(warm);
    warmKb = residentKb(options.pid);
    peakKb = std::max(peakKb, warmKb);
    Clock::time_point nextReport = start + std::chrono::seconds(options.reportEvery);
    Clock::time_point periodStart = start;
    while (Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        peakKb = std::max(peakKb, residentKb(options.pid));
        if (options.reportEvery > 0 && Clock::now() >= nextReport) {
            report(start, periodStart, options.pid);
            periodStart = Clock::now();
            nextReport += std::chrono::seconds(options.reportEvery);
        }
    }
    for (std::thread& thread : threads) thread.join();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const long endKb = residentKb(options.pid);
    peakKb = std::max(peakKb, endKb);
    curl_global_cleanup();

    Tally total;
    for (const Tally& tally : tallies) {
        total.reads += tally.reads;
        total.updates += tally.updates;
        for (const auto& entry : tally.refused) total.refused[entry.first] += entry.second;
        total.failedRequests += tally.failedRequests;
        for (const auto& entry : tally.errors) total.errors[entry.first] += entry.second;
        total.latenciesMs.insert(total.latenciesMs.end(), tally.latenciesMs.begin(),
                                 tally.latenciesMs.end());
        total.streamsOpened += tally.streamsOpened;
        total.accountsCycled += tally.accountsCycled;
        total.slowDropped += tally.slowDropped;
        total.events += tally.events;
        total.heartbeats += tally.heartbeats;
    }
    printTotals(total, seconds);
    const double growth = 100.0 * (endKb - warmKb) / warmKb;
    std::printf(
        "service VmRSS: idle start %ld kB, after %.0f s of warm-up %ld kB, end %ld kB, "
        "peak %ld kB\n",
        idleKb, std::chrono::duration<double>(warm - start).count(), warmKb, endKb, peakKb);
    std::printf(
        "  growth after the warm-up %+.1f %% (limit %.0f %%), from the idle start %+.1f %%\n",
        growth, options.maxRssGrowth, 100.0 * (endKb - idleKb) / idleKb);

    const bool passed = total.errorCount() == 0 && growth < options.maxRssGrowth;
    std::printf("load: %s\n", passed ? "passed" : "FAILED");
    return passed ? 0 : 1;
}
