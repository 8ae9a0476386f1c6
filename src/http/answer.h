#pragma once

#include <cxxtools/serializationinfo.h>

#include <string>
#include <utility>
#include <vector>

#include "dme/arguments.h"
#include "dme/engine.h"
#include "dme/http/server.h"
#include "dme/methods.h"
#include "dme/session.h"

namespace dme {
namespace http {

// An HTTP answer with a JSON body: its status, the body and any headers besides Content-Type.
struct Answer {
    unsigned int status;
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
    // The engine's result code when the engine ran the request; otherwise the code that the
    // answer stands for (FORBIDDEN for a refused caller, INVALID_ARGUMENT for a refused input).
    int resultCode = 0;
};

// `detail` cut to MAX_DETAIL_BYTES, ending with "…", never inside a UTF-8 character.
std::string shortenedDetail(const std::string& detail);

// The answer of the binding itself for `status`: the error document with the status as code,
// its reason phrase as message and no details.
Answer statusAnswer(unsigned int status, bool beautify);

// The answer carrying `document` with `status`.
Answer documentAnswer(unsigned int status, const cxxtools::SerializationInfo& document,
                      bool beautify);

// The answer to a request of `method` that the engine ran: the status of `resultCode` in
// `table`, the engine's JSON `body` and `resultCode`. An error status whose body is not an error
// document (an object with an "error" member, as defaultExceptionHandler writes) gets the binding's
// error document instead, so that every error answer has the same shape; the details of an engine's
// error document are cut to MAX_DETAIL_BYTES, whichever exception handler wrote them.
Answer engineAnswer(int resultCode, Method method, std::string body, const StatusTable& table,
                    bool beautify);

// Runs one request on `engine` (the caller holds the engine's lock) and returns engineAnswer of
// its result. An argument that the request context cannot read (a dme::Exception leaving
// execute) is answered 400 with its error document, and a body that is no JSON gets the
// parser's reason and offset as the details of its error document.
Answer runOnEngine(JsonDataModelEngine& engine, Method method, const std::string& uri,
                   const Arguments& arguments, const RequestInfo& requestInfo,
                   const std::string& body, const StatusTable& table, bool beautify);

}  // namespace http
}  // namespace dme
