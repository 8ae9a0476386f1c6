#pragma once

namespace dme {
namespace internal {

// The value of a hexadecimal digit (either case), or -1 for any other character.
inline int hexDigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

}  // namespace internal
}  // namespace dme
