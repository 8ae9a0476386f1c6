#pragma once

#include <cxxtools/serializationinfo.h>

#include <functional>

#include "dme/context.h"
#include "dme/methods.h"
#include "dme/structure.h"

namespace dme {

// A composite value whose whole document comes from the application: a getter returns the
// current document and an optional setter takes a new one. Reading, browsing into members and
// updating are those of CompositeValue; the getter is called afresh whenever the document is
// needed (twice per read), so it must have no side effects. Without a setter an UPDATE answers
// 8, whatever the allowed methods say. The setter receives the request's input as it came and
// decides alone; its result is the request's. Not thread-safe; not copyable.
class ApiCompositeValue : public CompositeValue {
  public:
    using Getter = std::function<cxxtools::SerializationInfo()>;
    using Setter = std::function<int(const cxxtools::SerializationInfo&)>;

    // Without a setter. `allowed` and `alwaysExpanded` go to CompositeValue unchanged.
    ApiCompositeValue(Getter getter, AllowedMethods allowed, bool alwaysExpanded);
    ApiCompositeValue(Getter getter, Setter setter, AllowedMethods allowed, bool alwaysExpanded);
    ApiCompositeValue(const ApiCompositeValue&) = delete;
    ApiCompositeValue& operator=(const ApiCompositeValue&) = delete;
    ~ApiCompositeValue() override;

    // The getter's document; an empty getter throws std::bad_function_call.
    SerializationInfo getValue(Context& ctx) override;
    // The setter's result for `value`, or 8 (nothing changed) without a setter.
    int setValue(Context& ctx, const SerializationInfo& value) override;

  private:
    Getter getter_;
    Setter setter_;
};

}  // namespace dme
