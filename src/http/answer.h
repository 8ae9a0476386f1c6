#pragma once

#include <cxxtools/serializationinfo.h>

#include <string>
#include <utility>
#include <vector>

#include "dme/http/server.h"
#include "dme/methods.h"

namespace dme {
namespace http {

// An HTTP answer with a JSON body: its status, the body and any headers besides Content-Type.
struct Answer {
    unsigned int status;
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
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
// `table` and the engine's JSON `body`. An error status whose body is not an error document (an
// object with an "error" member, as defaultExceptionHandler writes) gets the binding's error
// document instead, so that every error answer has the same shape; the details of an engine's
// error document are cut to MAX_DETAIL_BYTES, whichever exception handler wrote them.
Answer engineAnswer(int resultCode, Method method, std::string body, const StatusTable& table,
                    bool beautify);

}  // namespace http
}  // namespace dme
