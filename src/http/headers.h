#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dme/methods.h"

namespace dme {
namespace http {

// Readings of request headers and the values of answer headers that the server computes.
// Stateless functions, safe from any thread. Header values are read as RFC 9110 lists: items
// separated by commas, parameters after ';', optional whitespace around both.

// A strong entity tag of `body`: a quoted 64-bit FNV-1a hash of its bytes in hexadecimal.
std::string entityTag(const std::string& body);

// Whether the If-None-Match `header` names `tag` (weak comparison: a "W/" prefix is ignored)
// or is "*".
bool noneMatchHolds(const std::string& header, const std::string& tag);

// Whether the If-Match `header` names `tag` (strong comparison: a weak tag never matches) or is
// "*"; `tag` is empty when the resource cannot be read, which "*" does not match either.
bool matchHolds(const std::string& header, const std::string& tag);

// Whether an answer of "application/json" is acceptable to the Accept `header`: it is empty,
// or names application/json, application/* or */* with a quality above 0.
bool acceptsJson(const std::string& header);

// Whether a body of Content-Type `header` may be read as JSON: the header is empty, or
// "application/json" with no parameter but "charset=utf-8" (any case).
bool isJsonContentType(const std::string& header);

// The HTTP methods that the engine methods in `allowed` stand for, after "OPTIONS":
// READ → GET, HEAD; UPDATE → PUT, PATCH; CREATE → POST; DELETE → DELETE.
std::string allowHeader(AllowedMethods allowed);

// Whether `origin` is among `allowed` ("*" allows any origin).
bool originAllowed(const std::vector<std::string>& allowed, const std::string& origin);

// The value of the first field named `name` (in any case) of `fields`, or "".
std::string fieldValue(const std::vector<std::pair<std::string, std::string>>& fields,
                       const std::string& name);

// Why a request's head cannot be served safely, as the status and message of its refusal.
struct HeadFault {
    unsigned int status;
    const char* message;
};

// The fault of a request head of HTTP `version` with the header fields `headers` (name, value;
// in the order received), or nothing when it may be served. Refused, because a proxy in front
// of the server could read the request otherwise than the server does: an HTTP/1.1 request
// without exactly one Host (400 "Missing Host" / "Duplicate Host"), Content-Length fields that
// differ (400 "Conflicting Content-Length"), a Content-Length with a Transfer-Encoding (400
// "Content-Length with Transfer-Encoding"), a transfer coding other than "chunked" (501
// "Unsupported Transfer-Encoding"), more than one Authorization (400 "Duplicate
// Authorization").
std::optional<HeadFault> headFault(const std::string& version,
                                   const std::vector<std::pair<std::string, std::string>>& headers);

// `query` with every argument named `name` removed and "<name>=<value>" appended.
std::string withArgument(const std::string& query, const std::string& name,
                         const std::string& value);

}  // namespace http
}  // namespace dme
