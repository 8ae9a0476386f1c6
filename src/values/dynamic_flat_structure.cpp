#include "dme/dynamic_flat_structure.h"

#include <cxxtools/serializationerror.h>

#include <stdexcept>
#include <utility>

#include "dme/exception.h"
#include "dme/result.h"

namespace dme {

// ---- DynamicFlatStructureEntry ----

DynamicFlatStructure::DynamicFlatStructureEntry::~DynamicFlatStructureEntry() = default;

// ---- DynamicFlatStructureAtomicValue ----

DynamicFlatStructure::DynamicFlatStructureAtomicValue::DynamicFlatStructureAtomicValue(
    std::function<Map()> getter, std::function<void(const Map&)> setter, AllowedMethods allowed)
    : AtomicValue<std::string>(allowed), getter_(std::move(getter)), setter_(std::move(setter)) {}

DynamicFlatStructure::DynamicFlatStructureAtomicValue::~DynamicFlatStructureAtomicValue() = default;

std::string DynamicFlatStructure::DynamicFlatStructureAtomicValue::getValue(Context&) {
    const Map map = getter_();
    return map.at(getOwnKey().str());
}

int DynamicFlatStructure::DynamicFlatStructureAtomicValue::setValue(Context&,
                                                                    const std::string& value) {
    Map map = getter_();
    map.at(getOwnKey().str()) = value;
    setter_(map);
    return result::DONE;
}

// ---- DynamicFlatStructure ----

DynamicFlatStructure::DynamicFlatStructure(std::function<Map()> getter, AllowedMethods allowed,
                                           bool alwaysExpanded)
    : DynamicFlatStructure(std::move(getter), std::function<void(const Map&)>(), AllowedMethods::R,
                           allowed, alwaysExpanded) {}

DynamicFlatStructure::DynamicFlatStructure(std::function<Map()> getter,
                                           std::function<void(const Map&)> setter,
                                           AllowedMethods allowed, bool alwaysExpanded)
    : DynamicFlatStructure(std::move(getter), std::move(setter),
                           AllowedMethods::R | AllowedMethods::U, allowed, alwaysExpanded) {}

DynamicFlatStructure::DynamicFlatStructure(std::function<Map()> getter,
                                           std::function<void(const Map&)> setter,
                                           AllowedMethods memberAllowed, AllowedMethods allowed,
                                           bool alwaysExpanded)
    : Value(allowed, alwaysExpanded),
      getter_(std::move(getter)),
      setter_(std::move(setter)),
      entry_("", new DynamicFlatStructureAtomicValue(getter_, setter_, memberAllowed)) {
    entry_.setParent(this);
}

DynamicFlatStructure::~DynamicFlatStructure() = default;

int DynamicFlatStructure::browse(Context& ctx, const SerializationInfo& in,
                                 SerializationInfo& out) {
    const ConstHashString key = ctx.getUrl();
    try {
        entry_.reName(key.str());
        return entry_.process(ctx, in, out, key);
    } catch (const std::out_of_range&) {
        return result::NOT_FOUND;
    }
}

const ConstHashString& DynamicFlatStructure::getChildKey(Value* child) {
    const ConstHashString* key = entry_.getValueName(child);
    if (key == nullptr) {
        throw std::runtime_error("Cannot find child key in dynamic flat structure");
    }
    return *key;
}

int DynamicFlatStructure::read(Context&, const SerializationInfo&, SerializationInfo& out) {
    out.setCategory(SerializationInfo::Object);
    for (const auto& member : getter_()) out.addMember(member.first).setValue(member.second);
    return result::DONE;
}

// The body replaces the whole map. A body that is not an object, or a member that is not a
// text, is refused with "Invalid type" rather than wiping or half-writing the stored map.
int DynamicFlatStructure::update(Context& ctx, const SerializationInfo& in, SerializationInfo&) {
    if (!setter_) return result::NOT_ALLOWED;
    if (in.category() != SerializationInfo::Object) {
        Exception::throwInvalidType(ctx.currentUri().back().str(), "object");
    }
    Map map;
    for (const SerializationInfo& member : in) {
        std::string text;
        try {
            deserializeValue<std::string>(member, text);
        } catch (const cxxtools::SerializationConversionError&) {
            Exception::throwInvalidType(member.name(), "string");
        }
        map.emplace(member.name(), text);
    }
    if (isValidationPass(ctx)) return result::DONE;
    setter_(map);
    return result::DONE;
}

}  // namespace dme
