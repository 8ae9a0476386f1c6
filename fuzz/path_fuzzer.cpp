// Fuzzes dme::Path and dme::PathBrowser. The input is a uri, a second uri and a range (two
// bytes) for the other parsing forms, then a walk of at most MAX_STEPS steps, one byte each:
// push, push_back of a name, or pop_back. Only the documented exceptions may come out, a failed
// step must leave the browser as it was, and the walk must keep the browser's paths consistent.
// Names pushed beside or below the request are single letters, never "." or "..".

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "dme/hash_string.h"
#include "dme/path.h"
#include "fuzz_input.h"

namespace {

constexpr unsigned MAX_STEPS = 64;
constexpr unsigned MAX_DEPTH = 32;

bool hasDotSegment(const dme::Path& path) {
    for (unsigned i = 0; i < path.size(); ++i) {
        if (path[i] == dme::Path::currentName() || path[i] == dme::Path::parentName()) return true;
    }
    return false;
}

bool samePath(const dme::Path& a, const dme::Path& b) {
    return a == b && a.isAbsolute() == b.isAbsolute() && a.hash() == b.hash();
}

bool sameBrowser(const dme::PathBrowser& a, const dme::PathBrowser& b) {
    return samePath(a.request(), b.request()) && samePath(a.current(), b.current()) &&
           samePath(a.currentRelative(), b.currentRelative());
}

// The hash of a path must be the one recomputed from its segments.
void checkHash(const dme::Path& path) {
    dme::Path recomputed = path;
    recomputed.updateHash();
    fuzz::check(recomputed.hash() == path.hash());
}

// A parsed uri: its string form parses back to it, and it equals the path built segment by
// segment; reading past the end gives the empty name or std::out_of_range.
void checkParsed(const dme::Path& path) {
    checkHash(path);
    const dme::Path again{static_cast<std::string>(path)};
    fuzz::check(samePath(again, path));

    dme::Path built;
    for (unsigned i = 0; i < path.size(); ++i) {
        fuzz::check(!path.at(i).empty());
        built.push_back(path[i]);
    }
    fuzz::check(built == path);
    fuzz::check(path[path.size()].empty());
    try {
        path.at(path.size());
        __builtin_trap();
    } catch (const std::out_of_range&) {
    }
}

void checkRange(const std::string& uri, unsigned pos, unsigned len) {
    try {
        checkHash(dme::Path(uri, pos, len));
    } catch (const std::out_of_range&) {
        fuzz::check(len != 0 && pos > uri.size());
    } catch (const std::invalid_argument&) {
        fuzz::check(len != 0 && uri.find("//") != std::string::npos);
    }
}

void checkJoin(const dme::Path& base, const std::string& other) {
    dme::Path joined = base;
    try {
        joined += dme::Path(other);
    } catch (const std::invalid_argument&) {
        // Either "//" in the text or a ".." above the root; the join has still kept its hash.
    }
    checkHash(joined);
}

// The walk. `beside` holds, for each level walked, whether that step left the requested path;
// while no level did and the request has no dot segment, the request joined with the relative
// path leads to the current one.
class Walk {
  public:
    explicit Walk(dme::PathBrowser browser) : browser_(std::move(browser)) {}

    void step(std::uint8_t op, std::uint8_t arg) {
        switch (op % 3) {
            case 0:
                push();
                break;
            case 1:
                pushBack(arg);
                break;
            default:
                popBack();
                break;
        }
        fuzz::check(browser_.current().size() == beside_.size());
        fuzz::check(browser_.isRequested() == (beside_.size() == browser_.request().size()));
        checkRelative();
    }

  private:
    void push() {
        if (browser_.isBeyondRequested() || beside_.size() >= MAX_DEPTH) return;
        const bool mustThrow = browser_.currentRelative().empty();
        const dme::PathBrowser before = browser_;
        try {
            browser_.push();
            fuzz::check(!mustThrow);
            beside_.push_back(false);
        } catch (const std::out_of_range&) {
            fuzz::check(mustThrow && sameBrowser(before, browser_));
        }
    }

    void pushBack(std::uint8_t arg) {
        if (beside_.size() >= MAX_DEPTH) return;
        const dme::ConstHashString along = browser_.requested();
        const dme::ConstHashString name =
            arg % 2 == 0 && !along.empty() ? along
                                           : dme::ConstHashString(std::string(1, 'a' + arg % 26));
        const bool atRequest = browser_.current().size() < browser_.request().size();
        browser_.push_back(name);
        beside_.push_back(atRequest && !(name == along));
    }

    void popBack() {
        const dme::PathBrowser before = browser_;
        try {
            browser_.pop_back();
            fuzz::check(!beside_.empty());
            beside_.pop_back();
        } catch (const std::out_of_range&) {
            fuzz::check(beside_.empty() && sameBrowser(before, browser_));
        }
    }

    void checkRelative() const {
        for (const bool left : beside_) {
            if (left) return;
        }
        if (hasDotSegment(browser_.request())) return;
        dme::Path reached = browser_.request();
        reached += browser_.currentRelative();
        fuzz::check(reached == browser_.current());
    }

    dme::PathBrowser browser_;
    std::vector<bool> beside_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    const std::string uri = input.field();
    const std::string other = input.field();
    const unsigned pos = input.byte();
    const unsigned len = input.byte();

    checkRange(uri, pos, len);
    dme::Path path;
    try {
        path = dme::Path(uri);
    } catch (const std::invalid_argument&) {
        fuzz::check(uri.find("//") != std::string::npos);
        return 0;
    }
    fuzz::check(uri.find("//") == std::string::npos);
    checkParsed(path);
    checkJoin(path, other);

    Walk walk{dme::PathBrowser(uri)};
    for (unsigned i = 0; i < MAX_STEPS && !input.empty(); ++i) {
        const std::uint8_t op = input.byte();
        walk.step(op, input.byte());
    }
    return 0;
}
