#pragma once

#include <cxxtools/serializationinfo.h>

#include <limits>
#include <string>
#include <type_traits>

#include "dme/context.h"
#include "dme/methods.h"
#include "dme/value.h"

namespace dme {

// Conversions between a scalar and a document node, for the fourteen scalar types of atomic
// values: bool, the ten integer types (char included: it is a number, not a character), float,
// double and std::string. Other types are not provided.
//
// The kind of a document scalar is taken from how it is stored and, for the texts that the JSON
// parser produces, from their JSON type name ("int", "double", "bool", "null", "string"):
// boolean, integer, floating point, text, null, or composite (object or array). Conversions are
// strict, so that a client's mistake is refused instead of being guessed at:
// - bool accepts a boolean only ("abc", 1 and {} are refused);
// - an integer type accepts an integer only; a floating-point number is refused even when it has
//   no fraction (2.0, 1e3), because whether a parsed floating value is integral cannot be told
//   reliably once its digits exceed a double's precision;
// - float and double accept an integer or a floating-point number;
// - std::string accepts a text only; numbers and booleans are refused, clients send strings;
// - null, an empty document, an object and an array are refused by every type.
// A refused kind is reported as cxxtools::SerializationConversionError; a number of the right
// kind that does not fit the type (300 for unsigned char, -1 for unsigned int, 1e39 for float,
// 1e400 for double) as std::range_error. Nothing is truncated, wrapped or rounded to an integer.

// Throws cxxtools::SerializationConversionError when the kind of `si` is not one that T accepts
// (see above); does nothing otherwise.
template <class T>
void validateSerializationType(const cxxtools::SerializationInfo& si);

// Writes `value` as the scalar of `si`: bool as a boolean; signed integer types through the
// document's signed setter and unsigned ones through its unsigned setter (char by its own
// signedness); double as a double; float as the double nearest to its shortest decimal form, so
// that the JSON formatter, which prints a float with five significant digits only, shows it in
// full. std::string is decoded as UTF-8 into a wide text; a text that is not valid UTF-8
// (malformed, truncated, overlong or a surrogate) is written as the empty 8-bit text instead.
// A pure ASCII text is written as the 8-bit text itself: it reads back and formats as JSON
// exactly as its wide form would.
template <class T>
void serializeValue(const T& value, cxxtools::SerializationInfo& si);

// Reads the scalar of `si` into `value`, after the check of validateSerializationType<T>; throws
// cxxtools::SerializationConversionError or std::range_error as described above and leaves
// `value` unchanged then. A float input is rounded to the nearest float. A wide text is encoded
// as UTF-8; an 8-bit text is taken byte for byte (the library's own 8-bit texts hold UTF-8).
template <class T>
void deserializeValue(const cxxtools::SerializationInfo& si, T& value);

// A leaf of the resource tree that holds one scalar of type T. It answers READ with the scalar,
// UPDATE with a converted, validated and stored scalar, and SCHEMA with its type word ("boolean",
// "integer", "float" or "string"), its default and its limits. Where the scalar lives is left to
// derived classes through getValue and setValue; every accessor takes the request's context so
// that a derived class may answer per request.
//
// UPDATE converts the input with validateSerializationType<T> and deserializeValue<T>, then calls
// updateValue. A refused kind becomes "Invalid type" (the value's name, the type word), a number
// that does not fit T or a std::range_error from setValue becomes "Value out of range" (the
// value's name); the name is the last segment of the current uri. Validation errors pass as they
// are. The stored value is unchanged after any failure.
//
// Limits and schema, by type:
// - bool: default false, limits false and true, lengths 0 and 0; every value is valid; schema
//   member "default".
// - std::string: default, minimum and maximum "", lengths 0 and 65535; the length in bytes must
//   lie within the length limits ("String too short" / "String too long" naming the text and the
//   limit); schema members "default", "minSize", "maxSize".
// - numbers: default 0, minimum and maximum the type's lowest and highest value, lengths 0 and 0;
//   a value below the minimum or above the maximum is refused with "Value below minimum" /
//   "Value above maximum" naming the value and the limit in decimal; schema members "default",
//   "minimum", "maximum".
//
// Leaves are always expanded and never allow browsing: the browse bit is removed from the
// allowed methods. Not thread-safe; not copyable.
template <class T>
class AtomicValue : public Value {
  public:
    explicit AtomicValue(AllowedMethods allowed);
    AtomicValue(const AtomicValue&) = delete;
    AtomicValue& operator=(const AtomicValue&) = delete;
    ~AtomicValue() override;

    // "boolean", "integer", "float" or "string".
    const char* getType() const override;
    // Adds the schema members of the type (see above); returns 0.
    int serializeSchemaFormat(Context& ctx, const SerializationInfo& in,
                              SerializationInfo& out) override;
    // Adds nothing: a leaf has no children. Returns 0.
    int serializeChildSchema(Context& ctx, const SerializationInfo& in,
                             SerializationInfo& out) override;
    // -1 when the requested path ends here, 4 when it goes on below this leaf.
    int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Writes getValue(ctx) as the scalar of `out` itself; 4 and nothing written when the
    // requested path goes on below this leaf, else 0.
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Converts `in` and passes it to updateValue; 4 and nothing changed when the requested path
    // goes on below this leaf, else 0. Throws dme::Exception as described above. `out` is not
    // written.
    int update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;

    // The current value.
    virtual T getValue(Context& ctx) = 0;
    // Calls validateValue, then returns setValue's result. Derived classes may store without
    // validating or validate differently; UPDATE always goes through here.
    virtual int updateValue(Context& ctx, const T& value);
    // Returns when `value` may be stored; throws dme::Exception otherwise (see above).
    virtual void validateValue(Context& ctx, const T& value);
    // Stores `value`; returns a result code, which UPDATE does not look at.
    virtual int setValue(Context& ctx, const T& value) = 0;
    virtual T getDefaultValue(Context& ctx);
    virtual T getMinAllowedValue(Context& ctx);
    virtual T getMaxAllowedValue(Context& ctx);
    virtual unsigned int getMinAllowedLength(Context& ctx);
    virtual unsigned int getMaxAllowedLength(Context& ctx);
};

// An atomic value that stores its scalar in the node and tells the attached observer of every
// store, also of a value equal to the old one. Its limits are fixed at construction; the
// annotation is kept for the application and read by nothing in the library.
//
// Constructors, by type:
// - bool: (value, allowed); limits false and true, both lengths 0xFFFFFFFF (not consulted).
// - std::string: (value, allowed), lengths 0 and 65535; or (value, allowed, minLength,
//   maxLength, annotation). The value limits are "".
// - numbers: (value, allowed, minValue, maxValue, annotation); the limits default to the type's
//   lowest and highest value and the lengths are 0. The initial value is not checked against
//   the limits.
// Not thread-safe: stores are plain assignments; not copyable.
template <class T>
class StaticAtomicValue : public AtomicValue<T> {
    static constexpr bool isNumber = std::is_arithmetic_v<T> && !std::is_same_v<T, bool>;

  public:
    template <class U = T, std::enable_if_t<std::is_same_v<U, bool>, int> = 0>
    StaticAtomicValue(const bool& value, AllowedMethods allowed)
        : StaticAtomicValue(value, allowed, false, true, 0xFFFFFFFFu, 0xFFFFFFFFu, "") {}

    template <class U = T, std::enable_if_t<std::is_same_v<U, std::string>, int> = 0>
    StaticAtomicValue(const std::string& value, AllowedMethods allowed)
        : StaticAtomicValue(value, allowed, 0, 65535) {}

    template <class U = T, std::enable_if_t<std::is_same_v<U, std::string>, int> = 0>
    StaticAtomicValue(const std::string& value, AllowedMethods allowed, unsigned int minLength,
                      unsigned int maxLength, const std::string& annotation = "")
        : StaticAtomicValue(value, allowed, "", "", minLength, maxLength, annotation) {}

    template <class U = T, std::enable_if_t<isNumber && std::is_same_v<U, T>, int> = 0>
    StaticAtomicValue(const T& value, AllowedMethods allowed,
                      const T& minValue = std::numeric_limits<U>::lowest(),
                      const T& maxValue = std::numeric_limits<U>::max(),
                      const std::string& annotation = "")
        : StaticAtomicValue(value, allowed, minValue, maxValue, 0, 0, annotation) {}

    StaticAtomicValue(const StaticAtomicValue&) = delete;
    StaticAtomicValue& operator=(const StaticAtomicValue&) = delete;
    ~StaticAtomicValue() override;

    // A stored value can always be observed: both return 0.
    int subscribeToValue(Context& ctx) override;
    int unsubscribeToValue(Context& ctx) override;
    T getValue(Context& ctx) override;
    // Stores `value` and notifies the attached observer; returns 0.
    int setValue(Context& ctx, const T& value) override;
    T getMinAllowedValue(Context& ctx) override;
    T getMaxAllowedValue(Context& ctx) override;
    unsigned int getMinAllowedLength(Context& ctx) override;
    unsigned int getMaxAllowedLength(Context& ctx) override;

    const std::string& annotation() const { return annotation_; }

  private:
    StaticAtomicValue(const T& value, AllowedMethods allowed, const T& minValue, const T& maxValue,
                      unsigned int minLength, unsigned int maxLength,
                      const std::string& annotation);

    T value_;
    T minValue_;
    T maxValue_;
    unsigned int minLength_;
    unsigned int maxLength_;
    std::string annotation_;
};

// The library provides the fourteen instantiations in its own translation unit. T names a
// type, which parentheses would not allow.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define DME_DECLARE_ATOMIC_TYPE(T)                                                         \
    extern template void validateSerializationType<T>(const cxxtools::SerializationInfo&); \
    extern template void serializeValue<T>(const T&, cxxtools::SerializationInfo&);        \
    extern template void deserializeValue<T>(const cxxtools::SerializationInfo&, T&);      \
    extern template class AtomicValue<T>;                                                  \
    extern template class StaticAtomicValue<T>;
// NOLINTEND(bugprone-macro-parentheses)

DME_DECLARE_ATOMIC_TYPE(bool)
DME_DECLARE_ATOMIC_TYPE(char)
DME_DECLARE_ATOMIC_TYPE(unsigned char)
DME_DECLARE_ATOMIC_TYPE(short)
DME_DECLARE_ATOMIC_TYPE(unsigned short)
DME_DECLARE_ATOMIC_TYPE(int)
DME_DECLARE_ATOMIC_TYPE(unsigned int)
DME_DECLARE_ATOMIC_TYPE(long)
DME_DECLARE_ATOMIC_TYPE(unsigned long)
DME_DECLARE_ATOMIC_TYPE(long long)
DME_DECLARE_ATOMIC_TYPE(unsigned long long)
DME_DECLARE_ATOMIC_TYPE(float)
DME_DECLARE_ATOMIC_TYPE(double)
DME_DECLARE_ATOMIC_TYPE(std::string)

#undef DME_DECLARE_ATOMIC_TYPE

}  // namespace dme
