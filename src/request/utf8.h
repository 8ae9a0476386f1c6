#pragma once

#include <cxxtools/serializationinfo.h>
#include <cxxtools/string.h>

#include <cstddef>
#include <string>

namespace dme {
namespace utf8 {

// UTF-8 text as the library reads and writes it: well-formed means shortest forms only, no
// surrogates and nothing above U+10FFFF. Stateless functions, safe from any thread.

// Decodes the character that starts at `text[pos]` (pos < text.size()): returns its length in
// bytes and sets `code`, or returns 0 when the bytes there are no well-formed character.
std::size_t decode(const std::string& text, std::size_t pos, unsigned int& code);

// Appends the encoding of `code` (at most U+10FFFF) to `out`.
void append(unsigned int code, std::string& out);

bool isAscii(const std::string& text);

bool isWellFormed(const std::string& text);

// The characters of well-formed `text`. Unlike the codec's decoder this keeps a leading
// U+FEFF, which is a character of the text like any other.
cxxtools::String toWide(const std::string& text);

// The text of a scalar node as UTF-8, whether it holds 8-bit or wide text (cxxtools' own
// conversion of wide text to std::string narrows it to Latin-1).
std::string textOf(const cxxtools::SerializationInfo& node);

}  // namespace utf8
}  // namespace dme
