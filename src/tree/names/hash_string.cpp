#include "dme/hash_string.h"

#include <cstring>
#include <functional>

namespace dme {
namespace {

std::size_t hashOf(const std::string& text) {
    return std::hash<std::string>{}(text);
}

}  // namespace

ConstHashString::ConstHashString() : hash_(hashOf(text_)) {}

ConstHashString::ConstHashString(const char* s) : text_(s), hash_(hashOf(text_)) {}

ConstHashString::ConstHashString(const std::string& s) : text_(s), hash_(hashOf(text_)) {}

ConstHashString::ConstHashString(const std::string& s, unsigned pos, unsigned len)
    : text_(s.substr(pos, len)), hash_(hashOf(text_)) {}

ConstHashString::ConstHashString(const ConstHashString& other)
    : text_(other.text_), hash_(hashOf(text_)) {}

ConstHashString::ConstHashString(unsigned int n) : text_(std::to_string(n)), hash_(hashOf(text_)) {}

ConstHashString& ConstHashString::operator=(const std::string& s) {
    text_ = s;
    hash_ = hashOf(text_);
    return *this;
}

ConstHashString& ConstHashString::operator=(const ConstHashString& other) = default;

bool ConstHashString::operator==(const ConstHashString& other) const {
    if (hash_ != other.hash_) return false;
    const std::size_t length = text_.size();
    if (length != other.text_.size()) return false;
    if (length == 0) return true;
    return std::memcmp(text_.data(), other.text_.data(), length) == 0;
}

std::ostream& operator<<(std::ostream& os, const ConstHashString& name) {
    return os.write(name.str().data(), static_cast<std::streamsize>(name.str().size()));
}

}  // namespace dme
