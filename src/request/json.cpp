#include "dme/json.h"

#include <cxxtools/decomposer.h>
#include <cxxtools/jsondeserializer.h>
#include <cxxtools/jsonformatter.h>
#include <cxxtools/utf8codec.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace dme {
namespace {

using cxxtools::SerializationInfo;

// A single-pass check of RFC 8259 syntax, run before the text reaches the cxxtools parser,
// which accepts some garbage and ignores trailing text.
class JsonValidator {
  public:
    explicit JsonValidator(const std::string& text) : text_(text) {}

    void validate() {
        skipSpace();
        value(0);
        skipSpace();
        if (pos_ != text_.size()) fail("trailing text after the JSON value");
    }

  private:
    [[noreturn]] void fail(const std::string& reason) const { throw JsonSyntaxError(reason, pos_); }

    bool atEnd() const { return pos_ >= text_.size(); }
    char peek() const { return atEnd() ? '\0' : text_[pos_]; }

    void skipSpace() {
        while (!atEnd() && (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r')) {
            ++pos_;
        }
    }

    void expect(char c) {
        if (peek() != c || atEnd()) fail(std::string("expected '") + c + "'");
        ++pos_;
    }

    void value(unsigned int depth) {
        if (atEnd()) fail("unexpected end of text");
        switch (peek()) {
            case '{':
                return object(depth + 1);
            case '[':
                return array(depth + 1);
            case '"':
                return string();
            case 't':
                return literal("true");
            case 'f':
                return literal("false");
            case 'n':
                return literal("null");
            default:
                return number();
        }
    }

    void enter(unsigned int depth) {
        if (depth > MAX_JSON_DEPTH) fail("nesting too deep");
        ++pos_;
        skipSpace();
    }

    void object(unsigned int depth) {
        enter(depth);
        if (peek() == '}' && !atEnd()) {
            ++pos_;
            return;
        }
        for (;;) {
            if (peek() != '"' || atEnd()) fail("expected a member name");
            string();
            skipSpace();
            expect(':');
            skipSpace();
            value(depth);
            skipSpace();
            if (peek() == ',' && !atEnd()) {
                ++pos_;
                skipSpace();
                continue;
            }
            expect('}');
            return;
        }
    }

    void array(unsigned int depth) {
        enter(depth);
        if (peek() == ']' && !atEnd()) {
            ++pos_;
            return;
        }
        for (;;) {
            value(depth);
            skipSpace();
            if (peek() == ',' && !atEnd()) {
                ++pos_;
                skipSpace();
                continue;
            }
            expect(']');
            return;
        }
    }

    void literal(const char* word) {
        for (const char* c = word; *c != '\0'; ++c) {
            if (atEnd() || peek() != *c) fail(std::string("invalid literal, expected ") + word);
            ++pos_;
        }
    }

    bool digit() const { return !atEnd() && peek() >= '0' && peek() <= '9'; }

    void digits() {
        if (!digit()) fail("expected a digit");
        while (digit()) ++pos_;
    }

    void number() {
        if (peek() == '-' && !atEnd()) ++pos_;
        if (peek() == '0' && !atEnd()) {
            ++pos_;
        } else {
            digits();
        }
        if (peek() == '.' && !atEnd()) {
            ++pos_;
            digits();
        }
        if ((peek() == 'e' || peek() == 'E') && !atEnd()) {
            ++pos_;
            if ((peek() == '+' || peek() == '-') && !atEnd()) ++pos_;
            digits();
        }
    }

    unsigned int hex4() {
        unsigned int code = 0;
        for (int i = 0; i < 4; ++i, ++pos_) {
            const char c = peek();
            code <<= 4;
            if (c >= '0' && c <= '9' && !atEnd()) {
                code |= static_cast<unsigned int>(c - '0');
            } else if (c >= 'a' && c <= 'f') {
                code |= static_cast<unsigned int>(c - 'a' + 10);
            } else if (c >= 'A' && c <= 'F') {
                code |= static_cast<unsigned int>(c - 'A' + 10);
            } else {
                fail("invalid \\u escape");
            }
        }
        return code;
    }

    void escape() {
        ++pos_;  // the backslash
        const char c = peek();
        if (atEnd()) fail("unexpected end of text in a string");
        if (c == 'u') {
            ++pos_;
            const unsigned int code = hex4();
            if (code >= 0xDC00 && code <= 0xDFFF) fail("unpaired surrogate in a string");
            if (code >= 0xD800 && code <= 0xDBFF) {
                if (text_.compare(pos_, 2, "\\u") != 0) fail("unpaired surrogate in a string");
                pos_ += 2;
                const unsigned int low = hex4();
                if (low < 0xDC00 || low > 0xDFFF) fail("unpaired surrogate in a string");
            }
            return;
        }
        if (c != '"' && c != '\\' && c != '/' && c != 'b' && c != 'f' && c != 'n' && c != 'r' &&
            c != 't') {
            fail("invalid escape in a string");
        }
        ++pos_;
    }

    // Checks one UTF-8 encoded character (shortest form, no surrogates, at most U+10FFFF).
    void utf8Character() {
        const unsigned char lead = static_cast<unsigned char>(peek());
        unsigned int length = 0;
        unsigned int code = 0;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 1;
            code = lead & 0x1Fu;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 2;
            code = lead & 0x0Fu;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 3;
            code = lead & 0x07u;
        } else {
            fail("invalid UTF-8 in a string");
        }
        ++pos_;
        for (unsigned int i = 0; i < length; ++i, ++pos_) {
            const unsigned char next = static_cast<unsigned char>(peek());
            if (atEnd() || (next & 0xC0u) != 0x80u) fail("invalid UTF-8 in a string");
            code = (code << 6) | (next & 0x3Fu);
        }
        const bool overlong = (length == 2 && code < 0x800) || (length == 3 && code < 0x10000);
        if (overlong || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF) {
            fail("invalid UTF-8 in a string");
        }
    }

    void string() {
        ++pos_;  // the opening quote
        for (;;) {
            if (atEnd()) fail("unexpected end of text in a string");
            const unsigned char c = static_cast<unsigned char>(peek());
            if (c == '"') {
                ++pos_;
                return;
            }
            if (c == '\\') {
                escape();
            } else if (c < 0x20) {
                fail("control character in a string");
            } else if (c < 0x80) {
                ++pos_;
            } else {
                utf8Character();
            }
        }
    }

    const std::string& text_;
    std::size_t pos_ = 0;
};

// The cxxtools parser keeps every scalar as text tagged with a type name; give each scalar the
// kind its JSON form has, so that consumers can tell a number from a string.
void typeScalars(SerializationInfo& node) {
    if (node.category() != SerializationInfo::Value) {
        for (SerializationInfo& member : node) typeScalars(member);
        return;
    }
    const std::string& type = node.typeName();
    if (type == "bool") {
        std::string text;
        node.getValue(text);
        node.setValue(text == "true");
    } else if (type == "int" || type == "double") {
        std::string text;
        node.getValue(text);
        errno = 0;
        if (type == "double") {
            node.setValue(std::strtod(text.c_str(), nullptr));
        } else if (text[0] == '-') {
            const long long number = std::strtoll(text.c_str(), nullptr, 10);
            if (errno == ERANGE) {
                node.setValue(std::strtod(text.c_str(), nullptr));
            } else {
                node.setValue(number);
            }
        } else {
            const unsigned long long number = std::strtoull(text.c_str(), nullptr, 10);
            if (errno == ERANGE) {
                node.setValue(std::strtod(text.c_str(), nullptr));
            } else {
                node.setValue(number);
            }
        }
    }
}

const char* kindOf(const SerializationInfo& node) {
    switch (node.category()) {
        case SerializationInfo::Object:
            return "object";
        case SerializationInfo::Array:
            return "array";
        default:
            return "value";
    }
}

// The formatter writes an unnamed member of an object without a key, which is not JSON.
void checkNamedMembers(const SerializationInfo& node) {
    const bool isObject = node.category() == SerializationInfo::Object;
    for (const SerializationInfo& member : node) {
        if (isObject && member.name().empty()) {
            throw std::logic_error(std::string("can't serialize ") + kindOf(member) +
                                   " without name into another object");
        }
        checkNamedMembers(member);
    }
}

}  // namespace

JsonSyntaxError::JsonSyntaxError(const std::string& reason, std::size_t offset)
    : std::runtime_error("invalid JSON at byte " + std::to_string(offset) + ": " + reason),
      offset_(offset) {}

SerializationInfo parseJson(const std::string& text) {
    JsonValidator(text).validate();
    std::istringstream in(text);
    cxxtools::JsonDeserializer deserializer(in, new cxxtools::Utf8Codec());
    SerializationInfo document = deserializer.si();
    typeScalars(document);
    return document;
}

std::string formatJson(const SerializationInfo& document, bool beautify) {
    checkNamedMembers(document);
    std::ostringstream text;
    cxxtools::JsonFormatter formatter(text);
    formatter.beautify(beautify);
    // The formatter writes a named top-level value as a member ("name":value), which is not
    // JSON; a document's own name is no part of its text, so a named document is written from an
    // unnamed copy. Any other document is written as it stands, without copying it.
    SerializationInfo unnamed;
    if (!document.name().empty()) unnamed <<= document;
    cxxtools::IDecomposer::formatEach(document.name().empty() ? document : unnamed, formatter);
    formatter.finish();
    return text.str();
}

}  // namespace dme
