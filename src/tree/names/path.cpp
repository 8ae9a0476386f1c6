#include "dme/path.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "hex_digit.h"
#include "walk_room.h"

namespace dme {
namespace {

const unsigned kWholeText = static_cast<unsigned>(std::string::npos);
const char kAboveRoot[] = "trying to move above root path";
const char kPopOnRoot[] = "Trying to remove segment on root path";

// One hash-combine step. The running value depends only on the segments before, so appending a
// segment extends the hash without revisiting the others.
std::size_t combine(std::size_t h, std::size_t segmentHash) {
    return h ^ (segmentHash + 0x9e3779b9 + (h << 6) + (h >> 2));
}

// Appends the non-empty stretches of `text[0, count)` between slashes to `segments`.
void appendSegments(const char* text, std::size_t count, std::vector<ConstHashString>& segments) {
    const char* const end = text + count;
    segments.reserve(segments.size() + static_cast<std::size_t>(std::count(text, end, '/')) + 1);
    const char* start = text;
    while (start < end) {
        const char* const slash = std::find(start, end, '/');
        if (slash > start) segments.emplace_back(std::string(start, slash));
        start = slash + 1;
    }
}

}  // namespace

const Path Path::CURRENT(".");
const Path Path::PARENT("..");

const ConstHashString& Path::emptyName() {
    static const ConstHashString name;
    return name;
}

const ConstHashString& Path::currentName() {
    static const ConstHashString name(".");
    return name;
}

const ConstHashString& Path::parentName() {
    static const ConstHashString name("..");
    return name;
}

Path::Path() : absolute_(true), hash_(0) {}

Path::Path(const char* uri) : Path(uri, 0, kWholeText) {}

Path::Path(const std::string& uri) : Path(uri.c_str()) {}

Path::Path(const std::string& uri, unsigned pos, unsigned len) : Path(uri.c_str(), pos, len) {}

Path::Path(const char* uri, unsigned pos, unsigned len) : absolute_(false), hash_(0) {
    if (len == 0) return;
    const std::size_t size = std::strlen(uri);
    // std::string's own check, so that the exception carries the standard message.
    if (pos > size) std::string(uri, size).substr(pos);
    const char* const text = uri + pos;
    const std::size_t count = std::min<std::size_t>(len, size - pos);
    if (count == 0) return;
    if (std::search_n(text, text + count, 2, '/') != text + count) {
        throw std::invalid_argument("ERROR - Invalid empty segment ('//') in path: " +
                                    std::string(text, count));
    }
    appendSegments(text, count, segments_);
    absolute_ = text[0] == '/';
    updateHash();
}

const ConstHashString& Path::front() const {
    return empty() ? emptyName() : segments_.front();
}

const ConstHashString& Path::back() const {
    return empty() ? emptyName() : segments_.back();
}

const ConstHashString& Path::operator[](unsigned i) const {
    return i < segments_.size() ? segments_[i] : emptyName();
}

const ConstHashString& Path::at(unsigned i) const {
    return segments_.at(i);
}

void Path::push_back(const ConstHashString& segment) {
    push_back_nohash(segment);
}

void Path::push_back_nohash(const ConstHashString& segment) {
    // clear() may have left a stale hash behind; a path without segments hashes to 0.
    if (segments_.empty()) hash_ = 0;
    segments_.push_back(segment);
    hash_ = combine(hash_, segments_.back().hash());
}

void Path::pop_back() {
    pop_back_nohash();
}

void Path::pop_back_nohash() {
    if (segments_.empty()) throw std::out_of_range(kPopOnRoot);
    segments_.pop_back();
    updateHash();
}

void Path::updateHash() {
    std::size_t h = 0;
    for (const ConstHashString& segment : segments_) h = combine(h, segment.hash());
    hash_ = h;
}

void Path::clear() {
    segments_.clear();
}

void Path::reserve(unsigned count) {
    segments_.reserve(count);
}

bool Path::operator==(const Path& other) const {
    if (hash_ != other.hash_) return false;
    if (segments_.size() != other.segments_.size()) return false;
    return std::equal(segments_.begin(), segments_.end(), other.segments_.begin());
}

Path& Path::operator+=(const Path& other) {
    if (other.absolute_) {
        *this = other;
    } else {
        // Counted before appending, so that `path += path` appends each segment once.
        const std::size_t count = other.segments_.size();
        segments_.reserve(segments_.size() + count);
        for (std::size_t i = 0; i < count; ++i) push_back_nohash(other.segments_[i]);
        segments_ = consolidate(segments_);
    }
    updateHash();
    return *this;
}

Path Path::buildRelative(const Path& from, const char* prefix) const {
    Path result(prefix);
    const unsigned shared = std::min(size(), from.size());
    unsigned common = 0;
    while (common < shared && segments_[common] == from.segments_[common]) ++common;
    result.reserve(result.size() + (from.size() - common) + (size() - common));
    for (unsigned i = common; i < from.size(); ++i) result.push_back_nohash(parentName());
    for (unsigned i = common; i < size(); ++i) result.push_back_nohash(segments_[i]);
    return result;
}

Path::operator std::string() const {
    std::string text = absolute_ ? "/" : "";
    for (std::size_t i = 0; i < segments_.size(); ++i) {
        if (i > 0) text += '/';
        text += segments_[i].str();
    }
    return text;
}

Path operator+(Path lhs, const Path& rhs) {
    lhs += rhs;
    return lhs;
}

std::ostream& operator<<(std::ostream& os, const Path& path) {
    return os << static_cast<std::string>(path);
}

std::vector<ConstHashString> split(std::string text) {
    std::vector<ConstHashString> segments;
    appendSegments(text.data(), text.size(), segments);
    return segments;
}

namespace {

bool isPathByte(unsigned char c) {
    static constexpr char KEPT[] = "-._~!$&'()*+,;=:@/";
    if (c == 0 || c >= 0x80) return false;
    return std::isalnum(c) != 0 || std::strchr(KEPT, c) != nullptr;
}

}  // namespace

std::string percentEncodePath(const std::string& path) {
    static constexpr char HEX[] = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(path.size());
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (isPathByte(byte)) {
            encoded += c;
        } else {
            encoded += '%';
            encoded += HEX[byte >> 4];
            encoded += HEX[byte & 0x0F];
        }
    }
    return encoded;
}

std::string percentDecode(const std::string& text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? internal::hexDigitValue(text[i + 1]) : -1;
        const int low = high < 0 ? -1 : internal::hexDigitValue(text[i + 2]);
        if (low < 0) throw std::invalid_argument("Malformed percent-encoding");
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return decoded;
}

std::vector<ConstHashString> consolidate(const std::vector<ConstHashString>& segments) {
    std::vector<ConstHashString> resolved;
    resolved.reserve(segments.size());
    for (const ConstHashString& segment : segments) {
        if (segment == Path::parentName()) {
            if (resolved.empty()) throw std::invalid_argument(kAboveRoot);
            resolved.pop_back();
        } else if (!(segment == Path::currentName())) {
            resolved.push_back(segment);
        }
    }
    return resolved;
}

PathBrowser::PathBrowser() : index_(0), requestIsRoot_(true) {}

PathBrowser::PathBrowser(const std::string& uri) : PathBrowser(Path(uri)) {}

PathBrowser::PathBrowser(Path request)
    : request_(std::move(request)),
      currentRelative_(current_.buildRelative(request_, "")),
      index_(0),
      requestIsRoot_(request_.empty()) {
    // currentRelative_ already has room for as many segments as the request has: the ".." it
    // holds are popped on the way down before names below the request are pushed.
    current_.reserve(internal::walkRoom(request_.size()));
}

void PathBrowser::push() {
    currentRelative_.pop_back();
    current_.push_back(request_[index_]);
    ++index_;
}

void PathBrowser::push_back(const ConstHashString& name) {
    current_.push_back(name);
    if (index_ >= request_.size()) {
        currentRelative_.push_back(name);
    } else {
        currentRelative_.pop_back();
    }
    ++index_;
}

void PathBrowser::pop_back() {
    current_.pop_back();
    if (index_ > request_.size()) {
        currentRelative_.pop_back();
    } else {
        currentRelative_.push_back(Path::parentName());
    }
    --index_;
}

}  // namespace dme
