#pragma once

#include <cxxtools/serializationinfo.h>

#include "dme/atomic_value.h"
#include "dme/context.h"
#include "dme/smart_pointer.h"
#include "dme/value.h"

namespace dme {

// A read-only node that shows, in place, the content of another node of the same tree: reading
// it reads the target (or the child of the target named by a string value) through the whole
// tree from the root, as if the client had requested the target's own path, under the usual
// permissions, selection and expand rules, with every node on the way expanded. The node has no
// children of its own: a request path that goes on below it is not resolved through it.
// The target is referred to and must outlive the node. Not thread-safe; not copyable.
class ExpandedLink : public Value {
  public:
    // Shows `target` itself.
    explicit ExpandedLink(Value& target);
    // Shows the child of `target` named by `childName`'s current value, which the node owns.
    // With `skipIfEmpty`, an empty child name makes the node read as nothing.
    ExpandedLink(Value& target, AtomicValue<std::string>* childName, bool skipIfEmpty);
    // As above; `childName` stays the caller's and must outlive the node.
    ExpandedLink(Value& target, AtomicValue<std::string>& childName, bool skipIfEmpty);
    ~ExpandedLink() override;

    // -1: any path that reaches this node addresses the node itself.
    int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Runs a READ of the target's path (followed by "/" and the child name, when there is one)
    // from the root of this node's tree, with expansion forced, into `out`, and returns its
    // result; exceptions of that walk pass unchanged. With `skipIfEmpty` and an empty child
    // name: 0 and nothing written.
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;

  private:
    ExpandedLink(Value& target, SmartPointer<AtomicValue<std::string>> childName, bool skipIfEmpty);

    Value& target_;
    SmartPointer<AtomicValue<std::string>> childName_;
    bool skipIfEmpty_;
};

}  // namespace dme
