#include "utf8.h"

#include <cxxtools/utf8codec.h>

namespace dme {
namespace utf8 {

std::size_t decode(const std::string& text, std::size_t pos, unsigned int& code) {
    const unsigned char lead = static_cast<unsigned char>(text[pos]);
    std::size_t length = 0;
    if (lead < 0x80) {
        code = lead;
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        code = lead & 0x1Fu;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        code = lead & 0x0Fu;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        code = lead & 0x07u;
    } else {
        return 0;
    }
    if (text.size() - pos < length) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned char next = static_cast<unsigned char>(text[pos + i]);
        if ((next & 0xC0u) != 0x80u) return 0;
        code = (code << 6) | (next & 0x3Fu);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    if (overlong || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF) return 0;
    return length;
}

void append(unsigned int code, std::string& out) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

bool isAscii(const std::string& text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    }
    return true;
}

bool isWellFormed(const std::string& text) {
    unsigned int code = 0;
    for (std::size_t pos = 0; pos < text.size();) {
        const std::size_t length = decode(text, pos, code);
        if (length == 0) return false;
        pos += length;
    }
    return true;
}

cxxtools::String toWide(const std::string& text) {
    cxxtools::String out;
    out.reserve(text.size());
    unsigned int code = 0;
    for (std::size_t pos = 0; pos < text.size();) {
        pos += decode(text, pos, code);
        out += cxxtools::Char(static_cast<cxxtools::Char::value_type>(code));
    }
    return out;
}

std::string textOf(const cxxtools::SerializationInfo& node) {
    std::string text;
    if (node.isString8()) {
        node.getValue(text);
        return text;
    }
    cxxtools::String wide;
    node.getValue(wide);
    return cxxtools::Utf8Codec::encode(wide);
}

}  // namespace utf8
}  // namespace dme
