#include "dme/atomic_value.h"

#include <cxxtools/serializationerror.h>
#include <cxxtools/string.h>

#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string>

#include "../request/utf8.h"
#include "dme/exception.h"
#include "dme/result.h"

namespace dme {
namespace {

using cxxtools::SerializationInfo;

template <class T>
constexpr bool isNumber = std::is_arithmetic_v<T> && !std::is_same_v<T, bool>;

template <class T>
constexpr bool isInteger = isNumber<T>&& std::is_integral_v<T>;

// The one empty text that the string defaults are copied from; never destroyed.
const std::string& emptyText() {
    static const std::string* const empty = new std::string();
    return *empty;
}

// What a document scalar holds, as far as the conversions care.
enum class Kind { Null, Boolean, Integer, Floating, Text, Composite };

const char* kindWord(Kind kind) {
    switch (kind) {
        case Kind::Null:
            return "null";
        case Kind::Boolean:
            return "boolean";
        case Kind::Integer:
            return "integer";
        case Kind::Floating:
            return "float";
        case Kind::Text:
            return "string";
        case Kind::Composite:
            break;
    }
    return "object or array";
}

// The JSON parser stores every scalar as a text and records its JSON type in the type name.
Kind textKind(const std::string& typeName) {
    if (typeName == "int") return Kind::Integer;
    if (typeName == "double") return Kind::Floating;
    if (typeName == "bool") return Kind::Boolean;
    if (typeName == "null") return Kind::Null;
    return Kind::Text;
}

Kind kindOf(const SerializationInfo& si) {
    if (si.category() == SerializationInfo::Object || si.category() == SerializationInfo::Array)
        return Kind::Composite;
    if (si.isBool()) return Kind::Boolean;
    if (si.isInt() || si.isUInt()) return Kind::Integer;
    if (si.isFloat() || si.isDouble() || si.isLongDouble()) return Kind::Floating;
    if (si.isString() || si.isString8() || si.isChar()) return textKind(si.typeName());
    return Kind::Null;
}

template <class T>
const char* typeWord() {
    if constexpr (std::is_same_v<T, bool>) {
        return "boolean";
    } else if constexpr (std::is_same_v<T, std::string>) {
        return "string";
    } else if constexpr (isInteger<T>) {
        return "integer";
    } else {
        return "float";
    }
}

template <class T>
bool accepts(Kind kind) {
    if constexpr (std::is_same_v<T, bool>) {
        return kind == Kind::Boolean;
    } else if constexpr (std::is_same_v<T, std::string>) {
        return kind == Kind::Text;
    } else if constexpr (isInteger<T>) {
        return kind == Kind::Integer;
    } else {
        return kind == Kind::Integer || kind == Kind::Floating;
    }
}

[[noreturn]] void throwDoesNotFit(const char* type) {
    throw std::range_error(std::string("value does not fit into ") + type);
}

[[noreturn]] void throwNotConvertible(const std::string& what, const char* type) {
    throw cxxtools::SerializationConversionError("cannot convert " + what + " to " + type);
}

// An integer of any width as its sign and magnitude.
struct WideInteger {
    bool negative;
    unsigned long long magnitude;
};

// Parses the text of a JSON integer: an optional minus sign and at least one digit.
WideInteger parseInteger(const std::string& text) {
    const bool negative = !text.empty() && text[0] == '-';
    const std::size_t first = negative ? 1 : 0;
    if (text.size() == first) throwNotConvertible("\"" + text + "\"", "integer");
    constexpr unsigned long long largest = std::numeric_limits<unsigned long long>::max();
    unsigned long long magnitude = 0;
    for (std::size_t i = first; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9') throwNotConvertible("\"" + text + "\"", "integer");
        const unsigned digit = static_cast<unsigned>(text[i] - '0');
        if (magnitude > (largest - digit) / 10) throwDoesNotFit("unsigned long long");
        magnitude = magnitude * 10 + digit;
    }
    return WideInteger{negative, magnitude};
}

WideInteger readInteger(const SerializationInfo& si) {
    if (si.isUInt()) {
        unsigned long long value = 0;
        si.getValue(value);
        return WideInteger{false, value};
    }
    if (si.isInt()) {
        long long value = 0;
        si.getValue(value);
        if (value >= 0) return WideInteger{false, static_cast<unsigned long long>(value)};
        return WideInteger{true, static_cast<unsigned long long>(-(value + 1)) + 1};
    }
    std::string text;
    si.getValue(text);
    return parseInteger(text);
}

template <class T>
T fitInteger(const WideInteger& n) {
    using Limits = std::numeric_limits<T>;
    if (n.negative && n.magnitude != 0) {
        if constexpr (std::is_unsigned_v<T>) {
            throwDoesNotFit("an unsigned type");
        } else {
            const unsigned long long lowest =
                static_cast<unsigned long long>(-(Limits::min() + 1)) + 1;
            if (n.magnitude > lowest) throwDoesNotFit("the type");
            return static_cast<T>(-static_cast<long long>(n.magnitude - 1) - 1);
        }
    }
    if (n.magnitude > static_cast<unsigned long long>(Limits::max())) throwDoesNotFit("the type");
    return static_cast<T>(n.magnitude);
}

// Values from the largest float up to this bound round to the largest float; beyond it, to
// infinity.
constexpr double FLOAT_OVERFLOW = 0x1.ffffffp127;

template <class T>
T readFloating(const SerializationInfo& si) {
    double value = 0;
    si.getValue(value);
    if constexpr (std::is_same_v<T, float>) {
        if (!(std::fabs(value) < FLOAT_OVERFLOW)) throwDoesNotFit("float");
        return static_cast<float>(value);
    } else {
        if (!std::isfinite(value)) throwDoesNotFit("double");
        return value;
    }
}

bool readBoolean(const SerializationInfo& si) {
    if (si.isBool()) {
        bool value = false;
        si.getValue(value);
        return value;
    }
    std::string text;
    si.getValue(text);
    if (text == "true") return true;
    if (text == "false") return false;
    throwNotConvertible("\"" + text + "\"", "boolean");
}

// The shortest decimal text that reads back as `value`.
template <class T>
std::string shortestText(T value, std::chars_format format) {
    char text[400];
    const std::to_chars_result written = std::to_chars(text, text + sizeof text, value, format);
    return std::string(text, written.ptr);
}

double widenFloat(float value) {
    const std::string text = shortestText(value, std::chars_format::general);
    double wide = 0;
    std::from_chars(text.data(), text.data() + text.size(), wide);
    return wide;
}

// A numeric limit for an error report, in plain decimal notation.
template <class T>
std::string decimalText(T value) {
    if constexpr (std::is_floating_point_v<T>) {
        return shortestText(value, std::chars_format::fixed);
    } else if constexpr (std::is_signed_v<T>) {
        return std::to_string(static_cast<long long>(value));
    } else {
        return std::to_string(static_cast<unsigned long long>(value));
    }
}

// A refused text as an error may show it: not at all for a secret node.
std::string echoedText(const Value& node, const std::string& text) {
    return node.isSecret() ? Value::SECRET_TEXT : text;
}

// The name of the value being visited: the last segment of the current uri.
const std::string& valueName(const Context& ctx) {
    return ctx.currentUri().back().str();
}

}  // namespace

template <class T>
void validateSerializationType(const SerializationInfo& si) {
    const Kind kind = kindOf(si);
    if (!accepts<T>(kind)) throwNotConvertible(kindWord(kind), typeWord<T>());
}

template <class T>
void serializeValue(const T& value, SerializationInfo& si) {
    if constexpr (std::is_same_v<T, std::string>) {
        // An ASCII text decodes to the same characters, which the formatter escapes alike in
        // both forms; the 8-bit form spares decoding it and writing it character by character.
        if (utf8::isAscii(value)) {
            si.setValue(value);
            return;
        }
        try {
            if (!utf8::isWellFormed(value)) throw std::runtime_error("invalid UTF-8");
            si.setValue(utf8::toWide(value));
        } catch (const std::runtime_error&) {
            si.setValue(std::string());
        }
    } else if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, double>) {
        si.setValue(value);
    } else if constexpr (std::is_same_v<T, float>) {
        si.setValue(widenFloat(value));
    } else if constexpr (std::is_signed_v<T>) {
        si.setValue(static_cast<long long>(value));
    } else {
        si.setValue(static_cast<unsigned long long>(value));
    }
}

template <class T>
void deserializeValue(const SerializationInfo& si, T& value) {
    validateSerializationType<T>(si);
    if constexpr (std::is_same_v<T, std::string>) {
        value = utf8::textOf(si);
    } else if constexpr (std::is_same_v<T, bool>) {
        value = readBoolean(si);
    } else if constexpr (isInteger<T>) {
        value = fitInteger<T>(readInteger(si));
    } else {
        value = readFloating<T>(si);
    }
}

template <class T>
AtomicValue<T>::AtomicValue(AllowedMethods allowed) : Value(allowed - AllowedMethods::B, true) {}

template <class T>
AtomicValue<T>::~AtomicValue() = default;

template <class T>
const char* AtomicValue<T>::getType() const {
    return typeWord<T>();
}

template <class T>
int AtomicValue<T>::serializeSchemaFormat(Context& ctx, const SerializationInfo&,
                                          SerializationInfo& out) {
    serializeValue<T>(getDefaultValue(ctx), out.addMember("default"));
    if constexpr (std::is_same_v<T, std::string>) {
        out.addMember("minSize").setValue(getMinAllowedLength(ctx));
        out.addMember("maxSize").setValue(getMaxAllowedLength(ctx));
    } else if constexpr (isNumber<T>) {
        serializeValue<T>(getMinAllowedValue(ctx), out.addMember("minimum"));
        serializeValue<T>(getMaxAllowedValue(ctx), out.addMember("maximum"));
    }
    return result::DONE;
}

template <class T>
int AtomicValue<T>::serializeChildSchema(Context&, const SerializationInfo&, SerializationInfo&) {
    return result::DONE;
}

template <class T>
int AtomicValue<T>::browse(Context& ctx, const SerializationInfo&, SerializationInfo&) {
    return ctx.getUrl().empty() ? result::PATH_ENDS_HERE : result::NO_CHILDREN;
}

template <class T>
int AtomicValue<T>::read(Context& ctx, const SerializationInfo&, SerializationInfo& out) {
    if (!ctx.getUrl().empty()) return result::NO_CHILDREN;
    serializeValue<T>(getValue(ctx), out);
    return result::DONE;
}

template <class T>
int AtomicValue<T>::update(Context& ctx, const SerializationInfo& in, SerializationInfo&) {
    if (!ctx.getUrl().empty()) return result::NO_CHILDREN;
    try {
        validateSerializationType<T>(in);
        T value{};
        deserializeValue<T>(in, value);
        updateValue(ctx, value);
    } catch (const cxxtools::SerializationConversionError&) {
        Exception::throwInvalidType(valueName(ctx), getType());
    } catch (const std::range_error&) {
        Exception::throwValueOutOfRange(valueName(ctx));
    }
    return result::DONE;
}

template <class T>
int AtomicValue<T>::updateValue(Context& ctx, const T& value) {
    validateValue(ctx, value);
    if (isValidationPass(ctx)) return result::DONE;
    return setValue(ctx, value);
}

template <class T>
void AtomicValue<T>::validateValue(Context& ctx, const T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
        const unsigned int min = getMinAllowedLength(ctx);
        if (value.length() < min) Exception::throwStringTooShort(echoedText(*this, value), min);
        const unsigned int max = getMaxAllowedLength(ctx);
        if (value.length() > max) Exception::throwStringTooLong(echoedText(*this, value), max);
    } else if constexpr (isNumber<T>) {
        const T min = getMinAllowedValue(ctx);
        if (value < min) Exception::throwValueBelowMin(valueName(ctx), decimalText(min));
        const T max = getMaxAllowedValue(ctx);
        if (value > max) Exception::throwValueAboveMax(valueName(ctx), decimalText(max));
    }
}

template <class T>
T AtomicValue<T>::getDefaultValue(Context&) {
    if constexpr (std::is_same_v<T, std::string>) {
        return emptyText();
    } else {
        return T{};
    }
}

template <class T>
T AtomicValue<T>::getMinAllowedValue(Context&) {
    if constexpr (std::is_same_v<T, std::string>) {
        return emptyText();
    } else {
        return std::numeric_limits<T>::lowest();
    }
}

template <class T>
T AtomicValue<T>::getMaxAllowedValue(Context&) {
    if constexpr (std::is_same_v<T, std::string>) {
        return emptyText();
    } else {
        return std::numeric_limits<T>::max();
    }
}

template <class T>
unsigned int AtomicValue<T>::getMinAllowedLength(Context&) {
    return 0;
}

template <class T>
unsigned int AtomicValue<T>::getMaxAllowedLength(Context&) {
    return std::is_same_v<T, std::string> ? 65535 : 0;
}

template <class T>
StaticAtomicValue<T>::StaticAtomicValue(const T& value, AllowedMethods allowed, const T& minValue,
                                        const T& maxValue, unsigned int minLength,
                                        unsigned int maxLength, const std::string& annotation)
    : AtomicValue<T>(allowed),
      value_(value),
      minValue_(minValue),
      maxValue_(maxValue),
      minLength_(minLength),
      maxLength_(maxLength),
      annotation_(annotation) {}

template <class T>
StaticAtomicValue<T>::~StaticAtomicValue() = default;

template <class T>
int StaticAtomicValue<T>::subscribeToValue(Context&) {
    return result::DONE;
}

template <class T>
int StaticAtomicValue<T>::unsubscribeToValue(Context&) {
    return result::DONE;
}

template <class T>
T StaticAtomicValue<T>::getValue(Context&) {
    return value_;
}

template <class T>
int StaticAtomicValue<T>::setValue(Context&, const T& value) {
    value_ = value;
    this->notifyChange();
    return result::DONE;
}

template <class T>
T StaticAtomicValue<T>::getMinAllowedValue(Context&) {
    return minValue_;
}

template <class T>
T StaticAtomicValue<T>::getMaxAllowedValue(Context&) {
    return maxValue_;
}

template <class T>
unsigned int StaticAtomicValue<T>::getMinAllowedLength(Context&) {
    return minLength_;
}

template <class T>
unsigned int StaticAtomicValue<T>::getMaxAllowedLength(Context&) {
    return maxLength_;
}

// T names a type, which parentheses would not allow.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define DME_INSTANTIATE_ATOMIC_TYPE(T)                                    \
    template void validateSerializationType<T>(const SerializationInfo&); \
    template void serializeValue<T>(const T&, SerializationInfo&);        \
    template void deserializeValue<T>(const SerializationInfo&, T&);      \
    template class AtomicValue<T>;                                        \
    template class StaticAtomicValue<T>;
// NOLINTEND(bugprone-macro-parentheses)

DME_INSTANTIATE_ATOMIC_TYPE(bool)
DME_INSTANTIATE_ATOMIC_TYPE(char)
DME_INSTANTIATE_ATOMIC_TYPE(unsigned char)
DME_INSTANTIATE_ATOMIC_TYPE(short)
DME_INSTANTIATE_ATOMIC_TYPE(unsigned short)
DME_INSTANTIATE_ATOMIC_TYPE(int)
DME_INSTANTIATE_ATOMIC_TYPE(unsigned int)
DME_INSTANTIATE_ATOMIC_TYPE(long)
DME_INSTANTIATE_ATOMIC_TYPE(unsigned long)
DME_INSTANTIATE_ATOMIC_TYPE(long long)
DME_INSTANTIATE_ATOMIC_TYPE(unsigned long long)
DME_INSTANTIATE_ATOMIC_TYPE(float)
DME_INSTANTIATE_ATOMIC_TYPE(double)
DME_INSTANTIATE_ATOMIC_TYPE(std::string)

#undef DME_INSTANTIATE_ATOMIC_TYPE

}  // namespace dme
