#pragma once

#include <cxxtools/serializationinfo.h>

#include <cstddef>
#include <string>
#include <vector>

#include "dme/exception.h"

namespace dme {
namespace http {

// The error documents of the HTTP binding and the exception handler that writes them.
//
// Every error answer of the binding is one JSON object:
//   {"error": {"code": N, "message": "...", "details": ["...", ...]}}
// For a rejected input (a dme::Exception) "code" is its Error::Id, "message" its message and
// "details" its detail strings; for an answer that the engine gave no body for, the binding
// fills in the HTTP status, its reason phrase and no details.
// The functions are stateless and may be called from any thread.

// Returns the document {"error": {"code": code, "message": message, "details": details}}.
cxxtools::SerializationInfo errorDocument(long long code, const std::string& message,
                                          const std::vector<std::string>& details);

// The longest detail that an error document echoes: a longer one (a rejected text is echoed in
// its detail) is cut to at most this many bytes, at a character boundary, and ends with "…".
constexpr std::size_t MAX_DETAIL_BYTES = 128;

// Returns the document of a rejected input: its id, its message, then detail1 and, when it is
// not empty, detail2 as the details, each cut to MAX_DETAIL_BYTES.
cxxtools::SerializationInfo errorDocument(const Exception& exception);

// An exception handler for dme::Exception (and types derived from it): replaces the answer by
// errorDocument(exception) and returns 10 (invalid argument), which the binding answers with
// 400. Declines any other exception (returns ExceptionHandlers::NOT_HANDLED). Register it on the
// DataModel that the server serves.
ExceptionHandlers::Entry defaultExceptionHandler();

// A table holding defaultExceptionHandler() only, for the DataModel constructors.
ExceptionHandlers defaultExceptionHandlers();

}  // namespace http
}  // namespace dme
