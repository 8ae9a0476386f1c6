#include "dme/arguments.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <stdexcept>

#include "../tree/names/hex_digit.h"
#include "dme/exception.h"

namespace dme {

namespace {

constexpr std::uint32_t GOLDEN_RATIO = 0x9E3779B9u;

// The hex digit at `pos` of the query; a position past its end is no digit either.
int hexDigitAt(const std::string& query, std::size_t pos) {
    const int value = pos < query.size() ? internal::hexDigitValue(query[pos]) : -1;
    if (value < 0) Exception::throwArgumentMalformedQuery(query);
    return value;
}

// Decodes query[begin, end): '+' is a blank, "%XY" the byte 0xXY. The digits of an escape are
// read from the whole query, so an escape cut short by the slice's end sees the separator.
std::string decode(const std::string& query, std::size_t begin, std::size_t end) {
    std::string text;
    std::size_t pos = begin;
    while (pos < end) {
        const char c = query[pos];
        if (c == '%') {
            const int high = hexDigitAt(query, pos + 1);
            const int low = hexDigitAt(query, pos + 2);
            text.push_back(static_cast<char>(high * 16 + low));
            pos += 3;
        } else {
            text.push_back(c == '+' ? ' ' : c);
            ++pos;
        }
    }
    return text;
}

// The byte hash behind std::hash<std::string>, cut to 32 bits.
std::uint32_t byteHash(const std::string& text) {
    return static_cast<std::uint32_t>(std::_Hash_bytes(text.data(), text.size(), 0xC70F6907u));
}

// Sets errno to 0 for a conversion and puts the caller's value back if the conversion left it 0.
class ErrnoGuard {
  public:
    ErrnoGuard() : saved_(errno) { errno = 0; }
    ~ErrnoGuard() {
        if (errno == 0) errno = saved_;
    }
    ErrnoGuard(const ErrnoGuard&) = delete;
    ErrnoGuard& operator=(const ErrnoGuard&) = delete;

  private:
    int saved_;
};

template <typename T, typename Convert>
T convertNumber(const std::string& text, Convert convert, const char* word) {
    ErrnoGuard guard;
    char* end = nullptr;
    const T value = convert(text.c_str(), &end, 10);
    if (end == text.c_str()) throw std::invalid_argument(word);
    if (errno == ERANGE) throw std::out_of_range(word);
    return value;
}

}  // namespace

Arguments::Arguments() = default;

Arguments::Arguments(const std::string& query) {
    if (query.empty()) return;
    std::size_t pos = 0;
    for (;;) {
        const std::size_t amp = std::min(query.find('&', pos), query.size());
        const std::size_t eq = query.rfind('=', amp);
        const bool split = eq != std::string::npos && eq >= pos;
        const std::size_t nameEnd = split ? eq : amp;
        if (nameEnd == pos) Exception::throwArgumentMalformedQuery(query);
        std::string name = decode(query, pos, nameEnd);
        std::string value = split ? decode(query, eq + 1, amp) : std::string();
        pairs_.emplace_back(std::move(name), std::move(value));
        if (amp == query.size()) break;
        pos = amp + 1;
    }
}

Arguments::Arguments(const std::vector<Pair>& pairs) : pairs_(pairs) {}

Arguments::Arguments(std::initializer_list<Pair> pairs) : pairs_(pairs) {}

const std::string* Arguments::find(const std::string& name) const {
    auto it = std::find_if(pairs_.begin(), pairs_.end(),
                           [&name](const Pair& pair) { return pair.first == name; });
    return it == pairs_.end() ? nullptr : &it->second;
}

template <typename T>
bool Arguments::get(const std::string& name, T& out, const char* typeWord) const {
    const std::string* value = find(name);
    if (value == nullptr) return false;
    try {
        out = sto<T>(*value);
    } catch (const std::exception&) {
        Exception::throwArgumentInvalidType(name, *value, typeWord);
    }
    return true;
}

bool Arguments::getBooleanArg(const std::string& name, bool& out) const {
    return get(name, out, "boolean");
}

bool Arguments::getBooleanArg(const std::string& name, bool& out, bool def) const {
    if (getBooleanArg(name, out)) return true;
    out = def;
    return false;
}

bool Arguments::getIntegerArg(const std::string& name, long long& out) const {
    return get(name, out, "integer");
}

bool Arguments::getIntegerArg(const std::string& name, long long& out, long long def) const {
    if (getIntegerArg(name, out)) return true;
    out = def;
    return false;
}

bool Arguments::getUnsignedIntegerArg(const std::string& name, unsigned long long& out) const {
    return get(name, out, "unsigned integer");
}

bool Arguments::getUnsignedIntegerArg(const std::string& name, unsigned long long& out,
                                      unsigned long long def) const {
    if (getUnsignedIntegerArg(name, out)) return true;
    out = def;
    return false;
}

bool Arguments::getStringArg(const std::string& name, std::string& out) const {
    return get(name, out, "string");
}

bool Arguments::getStringArg(const std::string& name, std::string& out,
                             const std::string& def) const {
    if (getStringArg(name, out)) return true;
    out = def;
    return false;
}

std::uint32_t Arguments::hash() const {
    std::uint32_t h = 0;
    for (const Pair& pair : pairs_) {
        const std::uint32_t a = byteHash(pair.first) + GOLDEN_RATIO;
        const std::uint32_t b = byteHash(pair.second) + GOLDEN_RATIO;
        const std::uint32_t p = (b + (a << 6) + (a >> 2)) ^ a;
        h ^= p + (h >> 2) + (h << 6) + GOLDEN_RATIO;
    }
    return h;
}

std::ostream& operator<<(std::ostream& os, const Arguments& arguments) {
    os << arguments.size() << " arguments:" << std::endl;
    for (const Arguments::Pair& pair : arguments.pairs()) {
        os << "  \"" << pair.first << "\" = \"" << pair.second << "\"" << std::endl;
    }
    return os;
}

template <>
bool sto<bool>(const std::string& text) {
    if (text == "true") return true;
    if (text == "false") return false;
    throw std::invalid_argument("Argument cannot be converted to boolean");
}

template <>
long long sto<long long>(const std::string& text) {
    return convertNumber<long long>(text, std::strtoll, "stoll");
}

template <>
unsigned long long sto<unsigned long long>(const std::string& text) {
    return convertNumber<unsigned long long>(text, std::strtoull, "stoull");
}

template <>
std::string sto<std::string>(const std::string& text) {
    return text;
}

}  // namespace dme
