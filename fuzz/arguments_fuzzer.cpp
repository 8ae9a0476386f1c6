// Fuzzes the query parser of dme::Arguments with the whole input as the query string. A query
// either parses or is refused with dme::Exception; a parsed one has no empty name, answers every
// typed getter by its documented rules, and comes back unchanged when its pairs are encoded
// again and parsed.

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "dme/arguments.h"
#include "dme/exception.h"
#include "fuzz_input.h"

namespace {

constexpr std::size_t MAX_TYPED_READS = 32;

// Percent-encodes every byte but the unreserved characters of RFC 3986.
std::string encode(const std::string& text) {
    static const char digits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        const unsigned char byte = static_cast<unsigned char>(c);
        const bool unreserved = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                                (byte >= '0' && byte <= '9') || byte == '-' || byte == '.' ||
                                byte == '_' || byte == '~';
        if (unreserved) {
            encoded += c;
        } else {
            encoded += '%';
            encoded += digits[byte >> 4];
            encoded += digits[byte & 0x0F];
        }
    }
    return encoded;
}

std::string encode(const dme::Arguments& arguments) {
    std::string query;
    for (const auto& pair : arguments.pairs()) {
        if (!query.empty()) query += '&';
        query += encode(pair.first) + '=' + encode(pair.second);
    }
    return query;
}

// The value of the first pair named `name`.
const std::string& firstValue(const dme::Arguments& arguments, const std::string& name) {
    for (const auto& pair : arguments.pairs()) {
        if (pair.first == name) return pair.second;
    }
    __builtin_trap();
}

// Reads the argument `name`, which is present, through every typed getter.
void readTyped(const dme::Arguments& arguments, const std::string& name) {
    const std::string& value = firstValue(arguments, name);

    std::string text;
    fuzz::check(arguments.getStringArg(name, text) && text == value);

    bool flag = false;
    try {
        fuzz::check(arguments.getBooleanArg(name, flag));
        fuzz::check((value == "true" && flag) || (value == "false" && !flag));
    } catch (const dme::Exception&) {
        fuzz::check(value != "true" && value != "false");
    }

    long long number = 0;
    try {
        fuzz::check(arguments.getIntegerArg(name, number, -1));
    } catch (const dme::Exception&) {
    }
    unsigned long long unsignedNumber = 0;
    try {
        fuzz::check(arguments.getUnsignedIntegerArg(name, unsignedNumber));
    } catch (const dme::Exception&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string query(reinterpret_cast<const char*>(data), size);
    dme::Arguments arguments;
    try {
        arguments = dme::Arguments(query);
    } catch (const dme::Exception&) {
        return 0;
    }

    std::size_t typedReads = 0;
    for (const auto& pair : arguments.pairs()) {
        fuzz::check(!pair.first.empty());
        // Each lookup scans the pairs: a bound keeps long queries from costing n squared.
        if (typedReads++ < MAX_TYPED_READS) readTyped(arguments, pair.first);
    }
    const dme::Arguments reparsed(encode(arguments));
    fuzz::check(reparsed.pairs() == arguments.pairs());
    fuzz::check(reparsed.hash() == arguments.hash());

    std::ostringstream printed;
    printed << arguments;
    fuzz::check(printed.str().rfind(std::to_string(arguments.size()) + " arguments:", 0) == 0);
    return 0;
}
