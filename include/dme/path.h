#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "dme/hash_string.h"

namespace dme {

// A uri parsed into hashed segments, with an absolute mark and a hash combined from the segment
// hashes. Parsing keeps "." and ".." segments as they are; only operator+= resolves them.
// Equality looks at the segments only, never at the absolute mark.
// Every operation except clear() leaves the hash consistent with the segments.
// A plain value type: copyable and movable; const access from several threads is safe,
// mutation is not.
class Path {
  public:
    // Relative paths of the single segment "." and "..".
    static const Path CURRENT;
    static const Path PARENT;

    // The empty name, returned by reference where a segment is read out of range.
    static const ConstHashString& emptyName();
    // The segment names "." and "..".
    static const ConstHashString& currentName();
    static const ConstHashString& parentName();

    // The root: absolute, no segments, hash 0.
    Path();
    // Parses the NUL-terminated `uri` as a whole.
    explicit Path(const char* uri);
    // Parses `uri` up to its first NUL byte.
    explicit Path(const std::string& uri);
    // Parses `len` characters of `uri` from `pos`, see below.
    Path(const std::string& uri, unsigned pos, unsigned len);
    // Parses `len` characters of `uri` from `pos`. With `len` 0 the result is the empty relative
    // path and `uri` is not read. The path is absolute when the text starts with '/'; empty
    // segments from leading or trailing slashes are dropped.
    // Throws std::out_of_range when `pos` lies beyond the end of `uri`, and
    // std::invalid_argument when the text contains "//".
    Path(const char* uri, unsigned pos, unsigned len);

    bool empty() const { return segments_.empty(); }
    unsigned size() const { return static_cast<unsigned>(segments_.size()); }
    bool isAbsolute() const { return absolute_; }
    std::size_t hash() const { return hash_; }

    // First / last segment, or emptyName() when the path has no segments.
    const ConstHashString& front() const;
    const ConstHashString& back() const;
    // Segment `i`, or emptyName() when `i >= size()`.
    const ConstHashString& operator[](unsigned i) const;
    // Segment `i`; throws std::out_of_range when `i >= size()`.
    const ConstHashString& at(unsigned i) const;

    // Append a segment. Both forms keep the hash current at constant cost; a caller building a
    // path segment by segment may use the _nohash form and call updateHash() once at the end.
    void push_back(const ConstHashString& segment);
    void push_back_nohash(const ConstHashString& segment);
    // Remove the last segment and recompute the hash. On an empty path both throw
    // std::out_of_range("Trying to remove segment on root path") and change nothing.
    void pop_back();
    void pop_back_nohash();
    // Recomputes the hash from the segments (0 without segments).
    void updateHash();
    // Removes all segments; the hash and the absolute mark are left as they were until the
    // next updateHash().
    void clear();
    // Makes room for `count` segments, so that appending up to that many allocates nothing.
    // Changes neither the segments nor the hash.
    void reserve(unsigned count);

    // Equal when the segments are equal; the hash decides a mismatch first.
    bool operator==(const Path& other) const;

    // Joins `other` onto this path. An absolute `other` replaces this path; a relative one is
    // appended and "." and ".." segments of the joined list are resolved, keeping this path's
    // absolute mark. Throws std::invalid_argument("trying to move above root path") when ".."
    // climbs above the first segment; the appended segments then stay unresolved.
    Path& operator+=(const Path& other);

    // The path that leads from `from` to this path: `prefix` parsed, then one ".." for each
    // segment of `from` below the common part, then this path's segments below it.
    Path buildRelative(const Path& from, const char* prefix) const;

    // "/" when absolute, then the segments joined by '/': the root is "/", the empty relative
    // path "".
    operator std::string() const;  // NOLINT: implicit by design

  private:
    std::vector<ConstHashString> segments_;
    bool absolute_;
    std::size_t hash_;
};

// `lhs += rhs`.
Path operator+(Path lhs, const Path& rhs);
// Writes the string form of `path`.
std::ostream& operator<<(std::ostream& os, const Path& path);

// Cuts `text` at every '/', dropping empty segments: "/a/b/" and "a/b" both give "a", "b".
std::vector<ConstHashString> split(std::string text);
// `path` with every byte that RFC 3986 does not allow in a path segment written as "%XX"
// (upper-case hex): letters, digits, "-._~!$&'()*+,;=:@" and the '/' between segments stay as
// they are, so "/schedules/a b" gives "/schedules/a%20b" and "/café" gives "/caf%C3%A9".
std::string percentEncodePath(const std::string& path);
// `text` with every "%XX" replaced by its byte; a '%' not followed by two hex digits makes it
// throw std::invalid_argument("Malformed percent-encoding"). '+' stays '+'.
std::string percentDecode(const std::string& text);
// Resolves "." (dropped) and ".." (removes the previous segment). Throws
// std::invalid_argument("trying to move above root path") for a ".." with nothing before it.
std::vector<ConstHashString> consolidate(const std::vector<ConstHashString>& segments);

// The cursor of a request's walk from the root towards the requested path. It holds the
// requested path, the path walked so far (`current`), the way from the request to `current`
// as ".." segments followed by names (`currentRelative`), and the depth of `current`.
// Copyable; not thread-safe.
class PathBrowser {
  public:
    // Requests the root and stands on it.
    PathBrowser();
    // Requests the path parsed from `uri` and stands on the root.
    explicit PathBrowser(const std::string& uri);
    // Requests `request` and stands on the root: `currentRelative` holds one ".." for each
    // requested segment.
    explicit PathBrowser(Path request);

    const Path& request() const { return request_; }
    const Path& current() const { return current_; }
    const Path& currentRelative() const { return currentRelative_; }
    // True when the requested path had no segments at construction.
    bool requestIsRoot() const { return requestIsRoot_; }

    // The requested segment at the current depth, or the empty name once the walk has reached
    // the end of the request.
    const ConstHashString& requested() const { return request_[index_]; }
    // The last segment of the current path (the empty name at the root).
    const ConstHashString& back() const { return current_.back(); }
    // The walk stands at the requested depth.
    bool isRequested() const { return current_.size() == request_.size(); }
    // The walk stands below the requested depth.
    bool isBeyondRequested() const { return current_.size() > request_.size(); }

    // Descends along the request. Throws std::out_of_range when `currentRelative` is empty
    // (the walk has reached the requested node itself), leaving the browser unchanged.
    void push();
    // Descends to the child `name`, which may lie beside or below the request.
    void push_back(const ConstHashString& name);
    // Goes up one level. Throws std::out_of_range at the root, leaving the browser unchanged.
    void pop_back();

  private:
    Path request_;
    Path current_;
    Path currentRelative_;
    unsigned index_;
    bool requestIsRoot_;
};

}  // namespace dme
