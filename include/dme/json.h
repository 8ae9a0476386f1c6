#pragma once

#include <cxxtools/serializationinfo.h>

#include <stdexcept>
#include <string>

namespace dme {

// Raised by parseJson for text that is not exactly one well-formed JSON value.
class JsonSyntaxError : public std::runtime_error {
  public:
    JsonSyntaxError(const std::string& reason, std::size_t offset);
    // The byte offset in the text at which the error was found.
    std::size_t offset() const { return offset_; }

  private:
    std::size_t offset_;
};

// The deepest nesting of arrays and objects that parseJson accepts.
constexpr unsigned int MAX_JSON_DEPTH = 256;

// Parses `text` as one JSON value (RFC 8259, UTF-8) into a document. Unlike the plain cxxtools
// parser this refuses garbage, trailing text, invalid UTF-8, unpaired surrogates and nesting
// deeper than MAX_JSON_DEPTH, throwing JsonSyntaxError. Scalars come out typed: integers as
// signed or unsigned integers (a magnitude beyond 64 bits as a floating value), other numbers
// as doubles, booleans as booleans, strings as text, null as a null value.
cxxtools::SerializationInfo parseJson(const std::string& text);

// Formats `document` as JSON text, compact or indented; the whole document is the top-level
// value and an empty document is written as `null`. Throws std::logic_error for an unnamed
// member of an object ("can't serialize object without name into another object" when that
// member is an object), which would not be JSON.
std::string formatJson(const cxxtools::SerializationInfo& document, bool beautify = false);

}  // namespace dme
