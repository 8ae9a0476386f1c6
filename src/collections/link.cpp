#include "dme/link.h"

#include <string>
#include <utility>

#include "dme/exception.h"
#include "dme/result.h"

namespace dme {
namespace {

// The base of every target: the parent of the node being visited, joined with `basePath`.
Path resolveBase(const Context& ctx, const Path& basePath) {
    Path path = ctx.currentUri();
    if (!path.empty()) path.pop_back();
    path += basePath;
    return path;
}

// `text`, resolved from the parent of the node being visited, as a path string.
std::string resolveTarget(const Context& ctx, const std::string& text) {
    return ctx.currentUri() + Path::PARENT + Path(text);
}

// Whether `full` is `prefix` itself or lies below it; a path that only starts with the same
// characters ("/devices2" beside "/devices") does not.
bool liesBelow(const std::string& full, const std::string& prefix) {
    if (full.compare(0, prefix.size(), prefix) != 0) return false;
    if (full.size() == prefix.size() || prefix.empty()) return true;
    return prefix.back() == '/' || full[prefix.size()] == '/';
}

// The part of `full` after `prefix` and the separator that follows it.
std::string partBelow(const std::string& full, const std::string& prefix) {
    std::string rest = full.substr(prefix.size());
    if (!rest.empty() && rest.front() == '/') rest.erase(0, 1);
    return rest;
}

}  // namespace

// ---- Link ----

Link::Link(Path basePath, SmartPointer<AtomicValue<std::string>> storage, AllowedMethods methods)
    : AtomicValue<std::string>(methods & AllowedMethods(READ | UPDATE)),
      basePath_(std::move(basePath)),
      storage_(std::move(storage)) {}

Link::Link(Path basePath, AtomicValue<std::string>* storage, AllowedMethods methods)
    : Link(std::move(basePath), SmartPointer<AtomicValue<std::string>>(storage), methods) {}

Link::Link(Path basePath, AtomicValue<std::string>& storage, AllowedMethods methods)
    : Link(std::move(basePath), SmartPointer<AtomicValue<std::string>>(storage), methods) {}

Link::~Link() = default;

std::string Link::getValue(Context& ctx) {
    Path target = resolveBase(ctx, basePath_);
    if (storage_) target += Path(storage_->getValue(ctx));
    return target;
}

// The prefix and the target are built by the same conversion, so that a path that getValue
// produced is always recognised. The storage's updateValue is, unless the storage overrides it,
// its validateValue followed by its setValue.
int Link::setValue(Context& ctx, const std::string& text) {
    const std::string prefix = ctx.currentUri() + Path::PARENT + basePath_;
    const std::string full = resolveTarget(ctx, text);
    if (!liesBelow(full, prefix)) Exception::throwValueOutOfRange(ctx.currentUri().back().str());
    if (!storage_) return result::DONE;
    return storage_->updateValue(ctx, partBelow(full, prefix));
}

// ---- LinkArray ----

LinkArray::LinkArray(Path basePath, SmartPointer<ArrayValue<std::string>> storage,
                     AllowedMethods methods)
    : ArrayValue<std::string>(methods),
      basePath_(std::move(basePath)),
      storage_(std::move(storage)) {}

LinkArray::LinkArray(Path basePath, ArrayValue<std::string>* storage, AllowedMethods methods)
    : LinkArray(std::move(basePath), SmartPointer<ArrayValue<std::string>>(storage), methods) {}

LinkArray::LinkArray(Path basePath, ArrayValue<std::string>& storage, AllowedMethods methods)
    : LinkArray(std::move(basePath), SmartPointer<ArrayValue<std::string>>(storage), methods) {}

LinkArray::~LinkArray() = default;

std::vector<std::string> LinkArray::getValue(Context& ctx) {
    std::vector<std::string> links;
    if (!storage_) return links;
    const Path base = resolveBase(ctx, basePath_);
    for (const std::string& stored : storage_->getValue(ctx)) links.push_back(base + Path(stored));
    return links;
}

int LinkArray::setValue(Context&, const std::vector<std::string>&) {
    return result::NOT_SUPPORTED;
}

}  // namespace dme
