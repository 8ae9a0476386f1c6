#pragma once

#include "dme/context.h"
#include "dme/hash_string.h"
#include "dme/select.h"

namespace dme {
namespace internal {

// Enters the child `name` of the walk for the lifetime of the object, so that the context is
// stepped back also when an exception passes.
class ContextStep {
  public:
    ContextStep(Context& ctx, const ConstHashString& name) : ctx_(ctx) { ctx_.next(name); }
    ~ContextStep() { ctx_.prev(); }
    ContextStep(const ContextStep&) = delete;
    ContextStep& operator=(const ContextStep&) = delete;

  private:
    Context& ctx_;
};

// Pushes `name` on the selection for the lifetime of the object and tells whether the
// selection takes it; popped also when an exception passes.
class SelectionStep {
  public:
    SelectionStep(Select& select, const ConstHashString& name)
        : select_(select), selected_(select.push(name)) {}
    ~SelectionStep() { select_.pop(); }
    SelectionStep(const SelectionStep&) = delete;
    SelectionStep& operator=(const SelectionStep&) = delete;

    bool selected() const { return selected_; }

  private:
    Select& select_;
    bool selected_;
};

}  // namespace internal
}  // namespace dme
