#pragma once

#include <string>
#include <vector>

#include "dme/array.h"
#include "dme/atomic_value.h"
#include "dme/context.h"
#include "dme/methods.h"
#include "dme/path.h"
#include "dme/smart_pointer.h"

namespace dme {

// A string value whose text is the path of another node of the same tree. The application
// stores only the part of the target's path below a fixed base path; the link shows clients the
// full path and accepts a full path on update, checking that it lies below the base.
//
// The base path is taken relative to the link's parent node: it may climb with ".." segments or
// be absolute. A read answers the link's parent path (the current path less its last segment),
// joined with the base path and then with the stored part parsed as a path. Without storage the
// link reads as its base path and keeps nothing that is written to it.
//
// A link is never created or deleted by a request: its allowed methods are those given,
// restricted to READ and UPDATE. Not thread-safe; not copyable.
class Link : public AtomicValue<std::string> {
  public:
    Link(Path basePath, SmartPointer<AtomicValue<std::string>> storage, AllowedMethods methods);
    // Owns `storage` (which may be null).
    Link(Path basePath, AtomicValue<std::string>* storage, AllowedMethods methods);
    // Refers to `storage`, which must outlive the link.
    Link(Path basePath, AtomicValue<std::string>& storage, AllowedMethods methods);
    ~Link() override;

    // The full path of the target, in the normal form of Path's string conversion.
    std::string getValue(Context& ctx) override;
    // Resolves `text` like the value is shown (a relative text starts at the link's parent) and
    // stores the part of it below the base path through the storage's updateValue, so that
    // the storage validates it as it would validate any update. Throws "Value out of range"
    // (the link's name) when the target does not lie at or below the base path; nothing is
    // stored then. Returns the storage's result, 0 without storage.
    int setValue(Context& ctx, const std::string& text) override;

  private:
    Path basePath_;
    SmartPointer<AtomicValue<std::string>> storage_;
};

// A read-only array of links: each string of the storage's list is the stored part of one
// link, shown as a full path like a Link shows it. Writing the array is not supported.
// Not thread-safe; not copyable.
class LinkArray : public ArrayValue<std::string> {
  public:
    // `methods` is passed to the array unchanged.
    LinkArray(Path basePath, SmartPointer<ArrayValue<std::string>> storage, AllowedMethods methods);
    // Owns `storage` (which may be null).
    LinkArray(Path basePath, ArrayValue<std::string>* storage, AllowedMethods methods);
    // Refers to `storage`, which must outlive the link array.
    LinkArray(Path basePath, ArrayValue<std::string>& storage, AllowedMethods methods);
    ~LinkArray() override;

    // One full path per stored string, in order; empty without storage.
    std::vector<std::string> getValue(Context& ctx) override;
    // 8: a link array cannot be written.
    int setValue(Context& ctx, const std::vector<std::string>& value) override;

  private:
    Path basePath_;
    SmartPointer<ArrayValue<std::string>> storage_;
};

}  // namespace dme
