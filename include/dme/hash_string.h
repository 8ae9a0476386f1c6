#pragma once

#include <cstddef>
#include <ostream>
#include <string>

namespace dme {

// The name type of the resource tree: a string that carries its hash, computed once when the
// text is set, so that comparisons decide a mismatch on the hash without touching the bytes.
// The hash is std::hash<std::string> of the text and is never persisted.
// A plain value type: copyable, assignable; not thread-safe for concurrent mutation.
class ConstHashString {
  public:
    ConstHashString();
    ConstHashString(const char* s);         // NOLINT: implicit by design
    ConstHashString(const std::string& s);  // NOLINT: implicit by design
    // The slice s.substr(pos, len); throws std::out_of_range when pos > s.size().
    ConstHashString(const std::string& s, unsigned pos, unsigned len);
    // Copies the text and recomputes the hash from it.
    ConstHashString(const ConstHashString& other);
    // Takes the text over together with its hash.
    ConstHashString(ConstHashString&& other) noexcept = default;
    // The decimal form of n ("%u").
    explicit ConstHashString(unsigned int n);

    // Replaces the text and recomputes the hash.
    ConstHashString& operator=(const std::string& s);
    // Replaces the text and copies the other's hash as it stands.
    ConstHashString& operator=(const ConstHashString& other);
    ConstHashString& operator=(ConstHashString&& other) noexcept = default;

    const std::string& str() const { return text_; }
    std::size_t hash() const { return hash_; }
    bool empty() const { return text_.empty(); }

    // Exact byte equality; a hash mismatch decides without comparing bytes.
    bool operator==(const ConstHashString& other) const;

  private:
    std::string text_;
    std::size_t hash_;
};

// Writes the text's bytes unchanged (embedded NUL bytes included), unquoted.
std::ostream& operator<<(std::ostream& os, const ConstHashString& name);

}  // namespace dme
