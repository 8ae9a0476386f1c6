#include "dme/json.h"

#include <cxxtools/string.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>

#include "utf8.h"

namespace dme {
namespace {

using cxxtools::SerializationInfo;

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Reads RFC 8259 JSON text in one pass, building the document as it goes. Scalars are typed as
// the plain cxxtools parser's type names say they are ("string", "int", "double", "bool",
// "null"), with the value stored in its own kind: non-negative integers unsigned, negative
// ones signed, an integer beyond 64 bits as a double. Text that is pure ASCII is stored as
// 8-bit text, other text as a wide string.
class JsonReader {
  public:
    explicit JsonReader(const std::string& text) : text_(text) {}

    void read(SerializationInfo& document) {
        skipSpace();
        value(0, document);
        skipSpace();
        if (pos_ != text_.size()) fail("trailing text after the JSON value");
    }

  private:
    [[noreturn]] void fail(const std::string& reason) const { throw JsonSyntaxError(reason, pos_); }

    bool atEnd() const { return pos_ >= text_.size(); }
    char peek() const { return atEnd() ? '\0' : text_[pos_]; }
    // True when the next character is `c`; a NUL byte in the text is never a JSON token.
    bool next(char c) const { return !atEnd() && text_[pos_] == c; }

    void skipSpace() {
        while (!atEnd() && isSpace(text_[pos_])) ++pos_;
    }

    void expect(char c) {
        if (!next(c)) fail(std::string("expected '") + c + "'");
        ++pos_;
    }

    void value(unsigned int depth, SerializationInfo& node) {
        if (atEnd()) fail("unexpected end of text");
        switch (peek()) {
            case '{':
                return object(depth + 1, node);
            case '[':
                return array(depth + 1, node);
            case '"':
                return text(node);
            case 't':
                literal("true");
                return typed(node, true, "bool");
            case 'f':
                literal("false");
                return typed(node, false, "bool");
            case 'n':
                literal("null");
                node.setCategory(SerializationInfo::Value);
                node.setTypeName("null");
                return;
            default:
                return number(node);
        }
    }

    template <class T>
    static void typed(SerializationInfo& node, const T& value, const char* typeName) {
        node.setValue(value);
        node.setTypeName(typeName);
    }

    void enter(unsigned int depth) {
        if (depth > MAX_JSON_DEPTH) fail("nesting too deep");
        ++pos_;
        skipSpace();
    }

    // Steps over the separator after a member or element: true when another one follows.
    bool more(char close) {
        skipSpace();
        if (next(',')) {
            ++pos_;
            skipSpace();
            return true;
        }
        expect(close);
        return false;
    }

    void object(unsigned int depth, SerializationInfo& node) {
        enter(depth);
        node.setCategory(SerializationInfo::Object);
        if (next('}')) {
            ++pos_;
            return;
        }
        std::string name;
        do {
            if (!next('"')) fail("expected a member name");
            name.clear();
            string(name);
            skipSpace();
            expect(':');
            skipSpace();
            value(depth, node.addMember(name));
        } while (more('}'));
    }

    void array(unsigned int depth, SerializationInfo& node) {
        enter(depth);
        node.setCategory(SerializationInfo::Array);
        if (next(']')) {
            ++pos_;
            return;
        }
        do {
            value(depth, node.addMember());
        } while (more(']'));
    }

    void literal(const char* word) {
        for (const char* c = word; *c != '\0'; ++c) {
            if (!next(*c)) fail(std::string("invalid literal, expected ") + word);
            ++pos_;
        }
    }

    bool digit() const { return !atEnd() && text_[pos_] >= '0' && text_[pos_] <= '9'; }

    void digits() {
        if (!digit()) fail("expected a digit");
        while (digit()) ++pos_;
    }

    void number(SerializationInfo& node) {
        const std::size_t start = pos_;
        const bool negative = next('-');
        if (negative) ++pos_;
        if (next('0')) {
            ++pos_;
        } else {
            digits();
        }
        bool integral = true;
        if (next('.')) {
            ++pos_;
            digits();
            integral = false;
        }
        if (next('e') || next('E')) {
            ++pos_;
            if (next('+') || next('-')) ++pos_;
            digits();
            integral = false;
        }
        const char* first = text_.data() + start;
        const char* last = text_.data() + pos_;
        if (integral && (negative ? storeInteger<long long>(node, first, last)
                                  : storeInteger<unsigned long long>(node, first, last))) {
            return;
        }
        typed(node, floating(first, last), "double");
    }

    // Stores the integer text [first, last) as a T; false when it does not fit.
    template <class T>
    static bool storeInteger(SerializationInfo& node, const char* first, const char* last) {
        T value = 0;
        if (std::from_chars(first, last, value).ec != std::errc()) return false;
        typed(node, value, "int");
        return true;
    }

    // The double nearest to the number text [first, last): infinite beyond the range of
    // doubles, zero (with the sign) below it, as strtod gives them.
    static double floating(const char* first, const char* last) {
        double value = 0;
        if (std::from_chars(first, last, value).ec == std::errc()) return value;
        return std::strtod(std::string(first, last).c_str(), nullptr);
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

    void escape(std::string& out) {
        ++pos_;  // the backslash
        if (atEnd()) fail("unexpected end of text in a string");
        const char c = text_[pos_];
        if (c == 'u') {
            ++pos_;
            unsigned int code = hex4();
            if (code >= 0xDC00 && code <= 0xDFFF) fail("unpaired surrogate in a string");
            if (code >= 0xD800 && code <= 0xDBFF) {
                if (text_.compare(pos_, 2, "\\u") != 0) fail("unpaired surrogate in a string");
                pos_ += 2;
                const unsigned int low = hex4();
                if (low < 0xDC00 || low > 0xDFFF) fail("unpaired surrogate in a string");
                code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
            }
            utf8::append(code, out);
            return;
        }
        static const char* const escapes = "\"\"\\\\//b\bf\fn\nr\rt\t";
        for (const char* e = escapes; *e != '\0'; e += 2) {
            if (c == e[0]) {
                out += e[1];
                ++pos_;
                return;
            }
        }
        fail("invalid escape in a string");
    }

    // Reads a string token into `out` as UTF-8; returns true when it was pure ASCII.
    bool string(std::string& out) {
        ++pos_;  // the opening quote
        bool ascii = true;
        for (;;) {
            const std::size_t run = pos_;
            while (!atEnd()) {
                const unsigned char c = static_cast<unsigned char>(text_[pos_]);
                if (c == '"' || c == '\\' || c < 0x20 || c >= 0x80) break;
                ++pos_;
            }
            out.append(text_, run, pos_ - run);
            if (atEnd()) fail("unexpected end of text in a string");
            const unsigned char c = static_cast<unsigned char>(text_[pos_]);
            if (c == '"') {
                ++pos_;
                return ascii;
            }
            if (c == '\\') {
                const std::size_t size = out.size();
                escape(out);
                if (static_cast<unsigned char>(out[size]) >= 0x80) ascii = false;
            } else if (c < 0x20) {
                fail("control character in a string");
            } else {
                unsigned int code = 0;
                const std::size_t length = utf8::decode(text_, pos_, code);
                if (length == 0) fail("invalid UTF-8 in a string");
                out.append(text_, pos_, length);
                pos_ += length;
                ascii = false;
            }
        }
    }

    void text(SerializationInfo& node) {
        std::string value;
        if (string(value)) {
            node.setValue(value);
        } else {
            node.setValue(utf8::toWide(value));
        }
        node.setTypeName("string");
    }

    const std::string& text_;
    std::size_t pos_ = 0;
};

// Writes a document as JSON text into one string: compact, or indented with a tab per level,
// a space after each member name's colon and a line break after the top-level value.
class JsonWriter {
  public:
    JsonWriter(std::string& out, bool beautify) : out_(out), beautify_(beautify) {}

    void write(const SerializationInfo& document) {
        value(document, 0);
        if (beautify_) out_ += '\n';
    }

  private:
    static bool isObject(const SerializationInfo& node) {
        return node.category() == SerializationInfo::Object ||
               (node.category() != SerializationInfo::Array && node.memberCount() > 0);
    }

    void value(const SerializationInfo& node, unsigned int level) {
        if (node.category() == SerializationInfo::Array) {
            container(node, level, '[', ']', false);
        } else if (isObject(node)) {
            container(node, level, '{', '}', true);
        } else {
            scalar(node);
        }
    }

    void newLine(unsigned int level) {
        out_ += '\n';
        out_.append(level, '\t');
    }

    // An object member without a name cannot be written as JSON; one that holds an object is
    // refused, as the document model's own formatter refuses it. A scalar or an array without
    // a name is written under the empty name "", which is how the reader stores that name.
    static void checkMemberName(const SerializationInfo& member) {
        if (member.name().empty() && isObject(member)) {
            throw std::logic_error("can't serialize object without name into another object");
        }
    }

    void container(const SerializationInfo& node, unsigned int level, char open, char close,
                   bool named) {
        out_ += open;
        bool first = true;
        for (const SerializationInfo& member : node) {
            if (!first) out_ += ',';
            first = false;
            if (beautify_) newLine(level + 1);
            if (named) {
                checkMemberName(member);
                quoted(member.name());
                out_ += beautify_ ? ": " : ":";
            }
            value(member, level + 1);
        }
        if (beautify_) {
            if (first) out_ += '\n';
            newLine(level);
        }
        out_ += close;
    }

    void scalar(const SerializationInfo& node) {
        if (node.isString8()) {
            std::string text;
            node.getValue(text);
            quoted(text);
        } else if (node.isString()) {
            cxxtools::String text;
            node.getValue(text);
            quoted(text);
        } else if (node.isInt()) {
            long long number = 0;
            node.getValue(number);
            integer(number);
        } else if (node.isUInt()) {
            unsigned long long number = 0;
            node.getValue(number);
            integer(number);
        } else if (node.isBool()) {
            bool flag = false;
            node.getValue(flag);
            out_ += flag ? "true" : "false";
        } else if (node.isDouble()) {
            double number = 0;
            node.getValue(number);
            floating(number);
        } else if (node.isFloat()) {
            float number = 0;
            node.getValue(number);
            floating(number);
        } else if (node.isLongDouble()) {
            long double number = 0;
            node.getValue(number);
            floating(number);
        } else if (node.isChar()) {
            char c = 0;
            node.getValue(c);
            quoted(std::string(1, c));
        } else {
            out_ += "null";
        }
    }

    template <class T>
    void integer(T number) {
        char buffer[24];
        const std::to_chars_result end = std::to_chars(buffer, buffer + sizeof buffer, number);
        out_.append(buffer, end.ptr);
    }

    // The shortest text that reads back as the same value. JSON has no infinities and no NaN:
    // they are written as null. A negative zero keeps its sign as "-0.0", since "-0" reads
    // back as the integer 0.
    template <class T>
    void floating(T number) {
        if (!std::isfinite(number)) {
            out_ += "null";
            return;
        }
        if (number == 0 && std::signbit(number)) {
            out_ += "-0.0";
            return;
        }
        char buffer[64];
        const std::to_chars_result end = std::to_chars(buffer, buffer + sizeof buffer, number);
        out_.append(buffer, end.ptr);
    }

    void escaped(unsigned int code) {
        static const char* const hex = "0123456789abcdef";
        char buffer[6] = {'\\',
                          'u',
                          hex[(code >> 12) & 0xF],
                          hex[(code >> 8) & 0xF],
                          hex[(code >> 4) & 0xF],
                          hex[code & 0xF]};
        out_.append(buffer, sizeof buffer);
    }

    // Writes one character: ASCII as itself or its short escape, anything else as \u escapes
    // (a surrogate pair beyond U+FFFF), so that the text is pure ASCII.
    void character(unsigned int code) {
        switch (code) {
            case '"':
                out_ += "\\\"";
                return;
            case '\\':
                out_ += "\\\\";
                return;
            case '\b':
                out_ += "\\b";
                return;
            case '\f':
                out_ += "\\f";
                return;
            case '\n':
                out_ += "\\n";
                return;
            case '\r':
                out_ += "\\r";
                return;
            case '\t':
                out_ += "\\t";
                return;
            default:
                break;
        }
        if (code >= 0x20 && code < 0x80) {
            out_ += static_cast<char>(code);
        } else if (code < 0x10000) {
            escaped(code);
        } else {
            escaped(0xD800 + ((code - 0x10000) >> 10));
            escaped(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
    }

    static bool plain(unsigned char c) { return c >= 0x20 && c < 0x80 && c != '"' && c != '\\'; }

    // 8-bit text (member names and text stored as bytes) is taken as UTF-8; a byte that starts
    // no valid UTF-8 character stands for the character of its own value.
    void quoted(const std::string& text) {
        out_ += '"';
        std::size_t pos = 0;
        while (pos < text.size()) {
            const std::size_t run = pos;
            while (pos < text.size() && plain(static_cast<unsigned char>(text[pos]))) ++pos;
            out_.append(text, run, pos - run);
            if (pos == text.size()) break;
            unsigned int code = 0;
            const std::size_t length = utf8::decode(text, pos, code);
            if (length == 0) {
                code = static_cast<unsigned char>(text[pos]);
                ++pos;
            } else {
                pos += length;
            }
            character(code);
        }
        out_ += '"';
    }

    void quoted(const cxxtools::String& text) {
        out_ += '"';
        for (const cxxtools::Char c : text) character(static_cast<unsigned int>(c.value()));
        out_ += '"';
    }

    std::string& out_;
    bool beautify_;
};

}  // namespace

JsonSyntaxError::JsonSyntaxError(const std::string& reason, std::size_t offset)
    : std::runtime_error("invalid JSON at byte " + std::to_string(offset) + ": " + reason),
      offset_(offset) {}

SerializationInfo parseJson(const std::string& text) {
    SerializationInfo document;
    JsonReader(text).read(document);
    return document;
}

std::string formatJson(const SerializationInfo& document, bool beautify) {
    std::string text;
    JsonWriter(text, beautify).write(document);
    return text;
}

}  // namespace dme
