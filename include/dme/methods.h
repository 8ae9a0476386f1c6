#pragma once

#include <cstdint>
#include <ostream>

namespace dme {

// A request method. The values are bit patterns: the four data methods each own one low bit,
// the three service methods share bit 15 and differ in bits 8 and 9.
enum Method : std::uint32_t {
    CREATE = 0x0001,
    READ = 0x0002,
    UPDATE = 0x0004,
    DELETE = 0x0008,
    SCHEMA = 0x8000,
    SUBSCRIBE = 0x8100,
    UNSUBSCRIBE = 0x8200,
};

// Union of every valid method pattern; a method sharing no bit with it is invalid.
constexpr std::uint32_t METHOD_MASK = 0x830F;

// The set of methods that a node accepts: bits C (0x01), R (0x02), U (0x04), D (0x08) coincide
// with the data methods; B (0x10) allows a request to pass through the node to a child.
// A plain value type, copyable, passed by value.
class AllowedMethods {
  public:
    static constexpr std::uint32_t C = 0x01;
    static constexpr std::uint32_t R = 0x02;
    static constexpr std::uint32_t U = 0x04;
    static constexpr std::uint32_t D = 0x08;
    static constexpr std::uint32_t B = 0x10;

    constexpr AllowedMethods() : bits_(0) {}
    constexpr AllowedMethods(std::uint32_t bits) : bits_(bits) {}  // NOLINT: implicit by design

    constexpr std::uint32_t bits() const { return bits_; }
    // True when the set is not empty, so that `if (method & allowed)` tests for a shared bit.
    constexpr explicit operator bool() const { return bits_ != 0; }
    constexpr bool empty() const { return bits_ == 0; }

    friend constexpr bool operator==(AllowedMethods a, AllowedMethods b) {
        return a.bits_ == b.bits_;
    }
    friend constexpr bool operator!=(AllowedMethods a, AllowedMethods b) {
        return a.bits_ != b.bits_;
    }

  private:
    std::uint32_t bits_;
};

// Union.
constexpr AllowedMethods operator+(AllowedMethods a, AllowedMethods b) {
    return AllowedMethods(a.bits() | b.bits());
}
// The bits of `a` that are not in `b`.
constexpr AllowedMethods operator-(AllowedMethods a, AllowedMethods b) {
    return AllowedMethods(a.bits() & ~b.bits());
}
// Intersection; "true" when non-zero.
constexpr AllowedMethods operator&(AllowedMethods a, AllowedMethods b) {
    return AllowedMethods(a.bits() & b.bits());
}
inline AllowedMethods& operator&=(AllowedMethods& a, AllowedMethods b) {
    a = a & b;
    return a;
}
// Mixed forms, so that `method & allowed` and `READ + UPDATE` read naturally. (`READ | UPDATE`
// is the built-in integer operation; its result converts to AllowedMethods.)
constexpr AllowedMethods operator&(Method m, AllowedMethods a) {
    return AllowedMethods(m) & a;
}
constexpr AllowedMethods operator&(AllowedMethods a, Method m) {
    return a & AllowedMethods(m);
}
constexpr AllowedMethods operator+(Method a, Method b) {
    return AllowedMethods(a) + AllowedMethods(b);
}
constexpr AllowedMethods operator-(AllowedMethods a, Method m) {
    return a - AllowedMethods(m);
}

// Writes exactly five characters, C R U D B or '_' for each absent bit (e.g. "_RU__").
std::ostream& operator<<(std::ostream& os, AllowedMethods methods);
// Writes the method's name, or "UNDEFINED (n)" for any other value.
std::ostream& operator<<(std::ostream& os, Method method);

}  // namespace dme
