#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace dme {

// The query arguments of one request: an ordered list of decoded name/value pairs. Names need
// not be unique; a lookup finds the first pair whose name equals the one asked for, byte for
// byte. A plain value type: copyable and movable; const use may be shared between threads.
class Arguments {
  public:
    using Pair = std::pair<std::string, std::string>;

    // No arguments.
    Arguments();
    // Parses a query string "name=value&name=value" with '+' and "%XY" decoding. The last '='
    // of a segment splits it (so "a=b=c" is name "a=b", value "c"); a segment without '=' is a
    // name with an empty value. An empty name or a bad '%' escape throws dme::Exception
    // "Malformed query" with the whole query as detail.
    explicit Arguments(const std::string& query);
    // Copy the pairs as given, without any check.
    explicit Arguments(const std::vector<Pair>& pairs);
    Arguments(std::initializer_list<Pair> pairs);

    const std::vector<Pair>& pairs() const { return pairs_; }
    std::size_t size() const { return pairs_.size(); }
    bool empty() const { return pairs_.empty(); }

    // Typed getters. Each returns true and sets `out` when an argument `name` is present, and
    // returns false when it is absent: the form without a default then leaves `out` untouched,
    // the form with one assigns the default. A present value that does not convert (see sto)
    // throws dme::Exception "Argument invalid type" with the value and the type word
    // ("boolean", "integer", "unsigned integer", "string") as details.
    bool getBooleanArg(const std::string& name, bool& out) const;
    bool getBooleanArg(const std::string& name, bool& out, bool def) const;
    bool getIntegerArg(const std::string& name, long long& out) const;
    bool getIntegerArg(const std::string& name, long long& out, long long def) const;
    bool getUnsignedIntegerArg(const std::string& name, unsigned long long& out) const;
    bool getUnsignedIntegerArg(const std::string& name, unsigned long long& out,
                               unsigned long long def) const;
    bool getStringArg(const std::string& name, std::string& out) const;
    bool getStringArg(const std::string& name, std::string& out, const std::string& def) const;

    // An order-sensitive 32-bit hash of all pairs; 0 for no pairs. Equal lists hash equally.
    // Built on std::hash<std::string>, so it is only stable within one build of the library.
    std::uint32_t hash() const;

  private:
    // The value of the first pair named `name`, or null.
    const std::string* find(const std::string& name) const;
    template <typename T>
    bool get(const std::string& name, T& out, const char* typeWord) const;

    std::vector<Pair> pairs_;
};

// Writes "<n> arguments:" and then one line per pair, `  "name" = "value"`, flushing each line.
std::ostream& operator<<(std::ostream& os, const Arguments& arguments);

// Converts an argument text into T. Defined for:
// - bool: exactly "true" or "false"; anything else throws std::invalid_argument
//   ("Argument cannot be converted to boolean").
// - long long / unsigned long long: strtoll / strtoull in base 10, trailing text ignored; no
//   digits throws std::invalid_argument, overflow std::out_of_range, with the text "stoll" or
//   "stoull". errno keeps its previous value unless the conversion sets it.
// - std::string: a copy of the text.
template <typename T>
T sto(const std::string& text);

template <>
bool sto<bool>(const std::string& text);
template <>
long long sto<long long>(const std::string& text);
template <>
unsigned long long sto<unsigned long long>(const std::string& text);
template <>
std::string sto<std::string>(const std::string& text);

}  // namespace dme
