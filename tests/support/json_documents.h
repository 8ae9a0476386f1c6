#pragma once

#include <cxxtools/serializationinfo.h>
#include <cxxtools/utf8codec.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <string>

namespace dme {
namespace test {

// The text of a scalar as UTF-8, whether it is stored as 8-bit or wide text.
inline std::string utf8Text(const cxxtools::SerializationInfo& node) {
    if (node.isString()) {
        cxxtools::String wide;
        node.getValue(wide);
        return cxxtools::Utf8Codec::encode(wide);
    }
    std::string text;
    node.getValue(text);
    return text;
}

inline bool isNumber(const cxxtools::SerializationInfo& node) {
    return node.isInt() || node.isUInt() || node.isDouble();
}

inline long double numberOf(const cxxtools::SerializationInfo& node) {
    long double number = 0;
    if (node.isInt()) {
        long long value = 0;
        node.getValue(value);
        number = static_cast<long double>(value);
    } else if (node.isUInt()) {
        unsigned long long value = 0;
        node.getValue(value);
        number = static_cast<long double>(value);
    } else {
        double value = 0;
        node.getValue(value);
        number = value;
    }
    return number;
}

inline bool isText(const cxxtools::SerializationInfo& node) {
    return node.isString() || node.isString8();
}

// True when two scalars that are not both numbers are the same text, boolean or null.
inline bool sameScalar(const cxxtools::SerializationInfo& a, const cxxtools::SerializationInfo& b) {
    if (isText(a) && isText(b)) return utf8Text(a) == utf8Text(b);
    if (a.isBool() && b.isBool()) {
        bool x = false;
        bool y = false;
        a.getValue(x);
        b.getValue(y);
        return x == y;
    }
    return a.isNull() && b.isNull();
}

// True when two documents hold the same JSON value: the same structure, member names and
// order, texts, booleans and nulls, and numbers of the same value and sign (a floating value
// that is a whole number may come back as an integer of that value, since JSON text does not
// tell them apart). JSON has no infinities: one in `a` matches a null in `b`, which is how
// the writer writes it. Describes the first difference in `why`.
inline bool sameDocument(const cxxtools::SerializationInfo& a, const cxxtools::SerializationInfo& b,
                         std::string& why, const std::string& where = "/") {
    const bool aComposite = a.category() == cxxtools::SerializationInfo::Object ||
                            a.category() == cxxtools::SerializationInfo::Array;
    if (aComposite || b.category() == cxxtools::SerializationInfo::Object ||
        b.category() == cxxtools::SerializationInfo::Array) {
        if (a.category() != b.category() || a.memberCount() != b.memberCount()) {
            why = "structure differs at " + where;
            return false;
        }
        auto other = b.begin();
        for (const cxxtools::SerializationInfo& member : a) {
            if (member.name() != other->name()) {
                why = "member name differs at " + where;
                return false;
            }
            if (!sameDocument(member, *other, why, where + member.name() + "/")) return false;
            ++other;
        }
        return true;
    }
    if (isNumber(a) && !std::isfinite(numberOf(a)) && b.isNull()) return true;
    if (isNumber(a) && isNumber(b)) {
        const long double x = numberOf(a);
        const long double y = numberOf(b);
        if (x == y && std::signbit(x) == std::signbit(y)) return true;
        why = "number differs at " + where;
        return false;
    }
    if (!sameScalar(a, b)) {
        why = "scalar differs at " + where;
        return false;
    }
    return true;
}

// The whole content of the file at `path`, read as bytes.
inline std::string fileContent(const std::string& path) {
    std::ifstream file(path, std::ios::in | std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace test
}  // namespace dme
