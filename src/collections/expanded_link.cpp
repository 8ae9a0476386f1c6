#include "dme/expanded_link.h"

#include <string>
#include <utility>

#include "dme/methods.h"
#include "dme/path.h"
#include "dme/result.h"

namespace dme {

ExpandedLink::ExpandedLink(Value& target) : ExpandedLink(target, nullptr, false) {}

ExpandedLink::ExpandedLink(Value& target, AtomicValue<std::string>* childName, bool skipIfEmpty)
    : ExpandedLink(target, SmartPointer<AtomicValue<std::string>>(childName), skipIfEmpty) {}

ExpandedLink::ExpandedLink(Value& target, AtomicValue<std::string>& childName, bool skipIfEmpty)
    : ExpandedLink(target, SmartPointer<AtomicValue<std::string>>(childName), skipIfEmpty) {}

ExpandedLink::ExpandedLink(Value& target, SmartPointer<AtomicValue<std::string>> childName,
                           bool skipIfEmpty)
    : Value(AllowedMethods(READ), true),
      target_(target),
      childName_(std::move(childName)),
      skipIfEmpty_(skipIfEmpty) {}

ExpandedLink::~ExpandedLink() = default;

int ExpandedLink::browse(Context&, const SerializationInfo&, SerializationInfo&) {
    return result::PATH_ENDS_HERE;
}

// The child name is joined with one separator: the root's path already ends with one.
int ExpandedLink::read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    std::string uri = target_.path();
    if (childName_) {
        const std::string name = childName_->getValue(ctx);
        if (skipIfEmpty_ && name.empty()) return result::DONE;
        if (uri.empty() || uri.back() != '/') uri += '/';
        uri += name;
    }
    Context nested(ctx, READ, uri, true);
    return rootParent()->process(nested, in, out);
}

}  // namespace dme
