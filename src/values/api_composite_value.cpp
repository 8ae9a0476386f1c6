#include "dme/api_composite_value.h"

#include <utility>

#include "dme/result.h"

namespace dme {

ApiCompositeValue::ApiCompositeValue(Getter getter, AllowedMethods allowed, bool alwaysExpanded)
    : ApiCompositeValue(std::move(getter), Setter(), allowed, alwaysExpanded) {}

ApiCompositeValue::ApiCompositeValue(Getter getter, Setter setter, AllowedMethods allowed,
                                     bool alwaysExpanded)
    : CompositeValue(allowed, alwaysExpanded),
      getter_(std::move(getter)),
      setter_(std::move(setter)) {}

ApiCompositeValue::~ApiCompositeValue() = default;

cxxtools::SerializationInfo ApiCompositeValue::getValue(Context&) {
    return getter_();
}

int ApiCompositeValue::setValue(Context&, const SerializationInfo& value) {
    if (!setter_) return result::NOT_SUPPORTED;
    return setter_(value);
}

}  // namespace dme
