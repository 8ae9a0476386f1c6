// Fuzzes the HTTP binding's request handling over the example gateway model, without sockets
// (Server::answer). One input is one request: a method byte, a caller byte, then the request
// target, the version and header lines ("Name: value"), separated by NUL bytes, up to an empty
// field; the body is the rest of the input. Every answer must carry a valid status, a
// Content-Type with any body, and the JSON error document with any error status; a write that
// is refused must leave the whole tree as it was. Each input runs on a fresh gateway, so that it
// reproduces on its own.

#include <cxxtools/base64codec.h>
#include <cxxtools/serializationinfo.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "device_model.h"
#include "dme/engine.h"
#include "dme/http/server.h"
#include "dme/json.h"
#include "fuzz_input.h"

namespace {

const char* const METHODS[] = {"GET", "HEAD", "PUT", "PATCH", "POST", "DELETE", "OPTIONS", "TRACE"};
// Who calls: nobody, a built-in user with the right password, or a wrong password.
const char* const CALLERS[] = {"", "guest:guest", "operator:operator", "admin:admin", "admin:x"};

std::optional<dme::SessionInfo> authenticate(const std::string& user, const std::string& password) {
    if (user != password) return std::nullopt;
    return example::builtInSession(user);
}

struct Gateway {
    example::DeviceModel model{DME_FUZZ_FACTORY, fuzz::stoppedClock};
    dme::JsonDataModelEngine engine{model.dataModel(), "fuzz"};
    std::unique_ptr<dme::http::Server> server;

    Gateway() {
        dme::http::ServerOptions options;
        options.authenticator = &authenticate;
        options.allowAnonymous = true;
        options.console = true;
        options.corsOrigins = {"https://portal.example"};
        server = std::make_unique<dme::http::Server>(engine, options);
    }
};

// The whole tree as the admin reads it, expanded.
std::string snapshot(dme::http::Server& server) {
    dme::http::HttpRequest read{"GET", "/api?expand=10", "HTTP/1.1", {{"Host", "device"}}, ""};
    read.headers.emplace_back("Authorization",
                              "Basic " + cxxtools::encode<cxxtools::Base64Codec>("admin:admin"));
    return server.answer(read).body;
}

bool hasHeader(const dme::http::HttpResponse& response, const std::string& name) {
    for (const auto& field : response.headers) {
        if (field.first == name) return true;
    }
    return false;
}

// Whether `body` is {"error":{"code":<integer>,"message":<text>,...}}.
bool isErrorDocument(const std::string& body) {
    try {
        const cxxtools::SerializationInfo document = dme::parseJson(body);
        const cxxtools::SerializationInfo* error = document.findMember("error");
        if (error == nullptr) return false;
        const cxxtools::SerializationInfo* code = error->findMember("code");
        const cxxtools::SerializationInfo* message = error->findMember("message");
        return code != nullptr && (code->isInt() || code->isUInt()) && message != nullptr &&
               (message->isString() || message->isString8());
    } catch (const std::exception&) {
        return false;
    }
}

bool isWrite(const std::string& method) {
    return method == "PUT" || method == "PATCH" || method == "POST" || method == "DELETE";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Gateway gateway;
    fuzz::FuzzInput input(data, size);
    dme::http::HttpRequest request;
    request.method = METHODS[input.byte() % (sizeof METHODS / sizeof METHODS[0])];
    const std::string caller = CALLERS[input.byte() % (sizeof CALLERS / sizeof CALLERS[0])];
    request.target = input.field();
    request.version = input.field();
    for (std::string line = input.field(); !line.empty(); line = input.field()) {
        const std::size_t colon = line.find(':');
        request.headers.emplace_back(line.substr(0, colon),
                                     colon == std::string::npos ? "" : line.substr(colon + 1));
    }
    if (!caller.empty()) {
        request.headers.emplace_back("Authorization",
                                     "Basic " + cxxtools::encode<cxxtools::Base64Codec>(caller));
    }
    request.body = input.rest();

    const std::string before = isWrite(request.method) ? snapshot(*gateway.server) : "";
    const dme::http::HttpResponse response = gateway.server->answer(request);
    fuzz::check(response.status >= 100 && response.status <= 599);
    fuzz::check(response.body.empty() || hasHeader(response, "Content-Type"));
    if (response.status >= 400 && request.method != "HEAD") {
        fuzz::check(isErrorDocument(response.body));
    }
    if (isWrite(request.method) && response.status >= 400) {
        fuzz::check(snapshot(*gateway.server) == before);
    }
    return 0;
}
