#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

// Reads one fuzz input as the parts a target needs: single bytes and NUL-terminated fields.
// Reading past the end is allowed: bytes read as 0 and fields as empty. Not copyable.
class FuzzInput {
  public:
    // Refers to `data`, which must outlive the reader.
    FuzzInput(const std::uint8_t* data, std::size_t size)
        : data_(reinterpret_cast<const char*>(data)), size_(size) {}
    FuzzInput(const FuzzInput&) = delete;
    FuzzInput& operator=(const FuzzInput&) = delete;

    bool empty() const { return pos_ >= size_; }

    // The next byte, or 0 when the input is used up.
    std::uint8_t byte() { return empty() ? 0 : static_cast<std::uint8_t>(data_[pos_++]); }

    // The text up to the next NUL byte or the end of the input; the NUL is consumed.
    std::string field() {
        const std::size_t begin = pos_;
        while (pos_ < size_ && data_[pos_] != '\0') ++pos_;
        std::string text(data_ + begin, pos_ - begin);
        if (pos_ < size_) ++pos_;
        return text;
    }

    // Everything not read yet.
    std::string rest() {
        std::string text(data_ + pos_, size_ - pos_);
        pos_ = size_;
        return text;
    }

  private:
    const char* data_;
    std::size_t size_;
    std::size_t pos_ = 0;
};

// Stops the run with a crash that libFuzzer reports and saves, when a property that must hold
// for every input does not.
inline void check(bool holds) {
    if (!holds) __builtin_trap();
}

// A clock that stands still, so that the example gateway's status reads the same on every model
// and at every moment.
inline std::chrono::seconds stoppedClock() {
    return std::chrono::seconds(1000);
}

}  // namespace fuzz
