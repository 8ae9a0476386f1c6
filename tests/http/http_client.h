#pragma once

#include <curl/curl.h>
#include <cxxtools/base64codec.h>
#include <cxxtools/textcodec.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace dme {
namespace test {

// A small HTTP client for the binding's tests, on libcurl. Every transfer has a time-out, so
// that a broken server fails a test instead of hanging it.

// Long enough for any loaded machine; only a broken server makes a test wait this long.
constexpr std::chrono::seconds HTTP_PATIENCE{20};

// Initialises libcurl once, from the first test that needs it (on the main thread).
inline void initCurl() {
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    (void)initialised;
}

// An answer: its status, its body and its headers (names in lower case). Status 0 means that
// the transfer failed; `error` then says why.
struct HttpReply {
    long status = 0;
    std::string body;
    std::map<std::string, std::string> headers;
    std::string error;

    std::string header(const std::string& name) const {
        const auto found = headers.find(name);
        return found == headers.end() ? "" : found->second;
    }
};

// The value of an Authorization header for Basic credentials.
inline std::string basicAuthorization(const std::string& user, const std::string& password) {
    return "Authorization: Basic " + cxxtools::encode<cxxtools::Base64Codec>(user + ":" + password);
}

namespace detail {

inline std::size_t appendBody(char* data, std::size_t size, std::size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

inline std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

inline std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

inline std::size_t appendHeader(char* data, std::size_t size, std::size_t count, void* target) {
    const std::string line(data, size * count);
    const std::size_t colon = line.find(':');
    if (colon != std::string::npos) {
        const std::string name = lowerCase(line.substr(0, colon));
        (*static_cast<std::map<std::string, std::string>*>(target))[name] =
            trimmed(line.substr(colon + 1));
    }
    return size * count;
}

}  // namespace detail

// One client connection, reused from request to request (keep-alive). Used by one thread.
class HttpClient {
  public:
    HttpClient() : curl_(curl_easy_init()) {}
    ~HttpClient() { curl_easy_cleanup(curl_); }
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    // Sends `method` to `url` with `body` (none when empty and not `withBody`) and the extra
    // header lines `headers`.
    HttpReply request(const std::string& method, const std::string& url,
                      const std::string& body = "", const std::vector<std::string>& headers = {},
                      bool withBody = false) {
        HttpReply reply;
        curl_easy_reset(curl_);
        curl_slist* list = nullptr;
        bool typed = false;
        for (const std::string& line : headers) {
            list = curl_slist_append(list, line.c_str());
            typed = typed || detail::lowerCase(line).rfind("content-type:", 0) == 0;
        }
        // A body is JSON unless the test says otherwise (curl would call it a form).
        if ((!body.empty() || withBody) && !typed) {
            list = curl_slist_append(list, "Content-Type: application/json");
        }
        curl_easy_setopt(curl_, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl_, CURLOPT_CUSTOMREQUEST, method.c_str());
        // A HEAD answer has a Content-Length but no body to wait for.
        if (method == "HEAD") curl_easy_setopt(curl_, CURLOPT_NOBODY, 1L);
        if (!body.empty() || withBody) {
            curl_easy_setopt(curl_, CURLOPT_POSTFIELDS, body.data());
            curl_easy_setopt(curl_, CURLOPT_POSTFIELDSIZE_LARGE,
                             static_cast<curl_off_t>(body.size()));
        }
        curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, list);
        curl_easy_setopt(curl_, CURLOPT_WRITEFUNCTION, &detail::appendBody);
        curl_easy_setopt(curl_, CURLOPT_WRITEDATA, &reply.body);
        curl_easy_setopt(curl_, CURLOPT_HEADERFUNCTION, &detail::appendHeader);
        curl_easy_setopt(curl_, CURLOPT_HEADERDATA, &reply.headers);
        curl_easy_setopt(curl_, CURLOPT_TIMEOUT, static_cast<long>(HTTP_PATIENCE.count()));
        curl_easy_setopt(curl_, CURLOPT_NOSIGNAL, 1L);
        const CURLcode done = curl_easy_perform(curl_);
        if (done == CURLE_OK) {
            curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &reply.status);
        } else {
            reply.error = curl_easy_strerror(done);
        }
        curl_slist_free_all(list);
        return reply;
    }

  private:
    CURL* curl_;
};

// Sends one request on a connection of its own.
inline HttpReply httpRequest(const std::string& method, const std::string& url,
                             const std::string& body = "",
                             const std::vector<std::string>& headers = {}) {
    HttpClient client;
    return client.request(method, url, body, headers);
}

// One Server-Sent Events event.
struct SseEvent {
    std::string name;
    std::string data;
};

// A client of an event stream, run on a thread of its own: it collects what arrives and lets the
// test wait for events. close() (or the destructor) aborts the transfer within about a second.
class EventStreamClient {
  public:
    // Opens `url` with "Accept: text/event-stream" and the extra header lines `headers`.
    explicit EventStreamClient(const std::string& url, std::vector<std::string> headers = {})
        : thread_([this, url, headers] { run(url, headers); }) {}
    ~EventStreamClient() { close(); }
    EventStreamClient(const EventStreamClient&) = delete;
    EventStreamClient& operator=(const EventStreamClient&) = delete;

    // Waits until `count` events have arrived, at most HTTP_PATIENCE; true when they have.
    bool waitForEvents(std::size_t count) {
        return waitUntil([this, count] { return parsedEvents().size() >= count; });
    }
    // Waits until the received text contains `text`; true when it does.
    bool waitForText(const std::string& text) {
        return waitUntil([this, &text] { return received_.find(text) != std::string::npos; });
    }
    // Waits until the transfer has ended (by the server or by close()); true when it has.
    bool waitForEnd() {
        return waitUntil([this] { return ended_; });
    }

    // Whether the transfer has ended as a complete HTTP answer (for a chunked body: its last,
    // empty chunk arrived).
    bool endedCleanly() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return ended_ && result_ == CURLE_OK;
    }
    // Everything received so far, comments included.
    std::string text() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return received_;
    }

    // The complete events received so far; comment lines are skipped.
    std::vector<SseEvent> events() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return parsedEvents();
    }
    std::string contentType() const {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto found = headers_.find("content-type");
        return found == headers_.end() ? "" : found->second;
    }

    // Aborts the transfer, which closes the connection, and waits for the thread.
    void close() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
    }

  private:
    static std::size_t onData(char* data, std::size_t size, std::size_t count, void* self) {
        auto* client = static_cast<EventStreamClient*>(self);
        std::lock_guard<std::mutex> lock(client->mutex_);
        client->received_.append(data, size * count);
        client->changed_.notify_all();
        return client->stop_ ? 0 : size * count;
    }

    static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* self) {
        auto* client = static_cast<EventStreamClient*>(self);
        std::lock_guard<std::mutex> lock(client->mutex_);
        return detail::appendHeader(data, size, count, &client->headers_);
    }

    static int onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
        return static_cast<EventStreamClient*>(self)->stop_ ? 1 : 0;
    }

    void run(const std::string& url, std::vector<std::string> headers) {
        headers.push_back("Accept: text/event-stream");
        curl_slist* list = nullptr;
        for (const std::string& line : headers) list = curl_slist_append(list, line.c_str());
        CURL* curl = curl_easy_init();
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &EventStreamClient::onData);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, this);
        curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &EventStreamClient::onHeader);
        curl_easy_setopt(curl, CURLOPT_HEADERDATA, this);
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &EventStreamClient::onProgress);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, this);
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_TIMEOUT, static_cast<long>(4 * HTTP_PATIENCE.count()));
        const CURLcode done = curl_easy_perform(curl);
        curl_easy_cleanup(curl);
        curl_slist_free_all(list);
        std::lock_guard<std::mutex> lock(mutex_);
        result_ = done;
        ended_ = true;
        changed_.notify_all();
    }

    bool waitUntil(const std::function<bool()>& condition) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, HTTP_PATIENCE, condition);
    }

    // Requires the lock. Splits the text at blank lines and reads "event:" and "data:" fields.
    std::vector<SseEvent> parsedEvents() const {
        std::vector<SseEvent> events;
        std::size_t start = 0;
        for (std::size_t end; (end = received_.find("\n\n", start)) != std::string::npos;
             start = end + 2) {
            SseEvent event;
            std::size_t lineStart = start;
            while (lineStart < end) {
                const std::size_t lineEnd = std::min(received_.find('\n', lineStart), end);
                const std::string line = received_.substr(lineStart, lineEnd - lineStart);
                if (line.rfind("event: ", 0) == 0) event.name = line.substr(7);
                if (line.rfind("data: ", 0) == 0) event.data = line.substr(6);
                lineStart = lineEnd + 1;
            }
            if (!event.name.empty() || !event.data.empty()) events.push_back(event);
        }
        return events;
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::string received_;
    std::map<std::string, std::string> headers_;
    bool ended_ = false;
    CURLcode result_ = CURLE_OK;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace test
}  // namespace dme
