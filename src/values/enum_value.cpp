#include "dme/enum_value.h"

#include "dme/exception.h"
#include "dme/result.h"

namespace dme {

EnumValue::EnumValue(const List& list, AtomicValue<unsigned int>& value, AllowedMethods allowed)
    : AtomicValue<std::string>(allowed), atomicValue_(value), list_(&list) {}

EnumValue::EnumValue(const List& list, AtomicValue<unsigned int>* value, AllowedMethods allowed)
    : AtomicValue<std::string>(allowed), atomicValue_(value), list_(&list) {}

EnumValue::~EnumValue() = default;

int EnumValue::serializeReadOnly(Context& ctx, const SerializationInfo& in,
                                 SerializationInfo& out) {
    const int rc = Value::serializeReadOnly(ctx, in, out);
    if (rc != result::DONE) return rc;
    return serializeSchemaFormat(ctx, in, out);
}

int EnumValue::serializeSchemaFormat(Context&, const SerializationInfo&, SerializationInfo& out) {
    SerializationInfo& names = out.addMember("enum");
    names.setCategory(SerializationInfo::Array);
    for (const auto& pair : *list_) {
        SerializationInfo& name = names.addMember();
        serializeValue<std::string>(pair.first, name);
        name.setTypeName("string");
    }
    return result::DONE;
}

int EnumValue::subscribe(Context& ctx, ISubscribable::IObserver& observer) {
    return atomicValue_->subscribe(ctx, observer);
}

int EnumValue::unsubscribe(Context& ctx, ISubscribable::IObserver& observer) {
    return atomicValue_->unsubscribe(ctx, observer);
}

std::string EnumValue::getValue(Context& ctx) {
    return intToString(ctx, atomicValue_->getValue(ctx));
}

// The name is checked when it is stored (setValue). The checking pass of an all-or-nothing
// UPDATE stores nothing, so there the name and the number it stands for are checked here.
void EnumValue::validateValue(Context& ctx, const std::string& value) {
    if (isValidationPass(ctx)) atomicValue_->updateValue(ctx, stringToInt(ctx, value));
}

int EnumValue::setValue(Context& ctx, const std::string& value) {
    const unsigned int number = stringToInt(ctx, value);
    return atomicValue_->updateValue(ctx, number);
}

std::string EnumValue::intToString(Context&, unsigned int number) {
    for (const auto& pair : *list_) {
        if (pair.second == number) return pair.first;
    }
    return std::string();
}

unsigned int EnumValue::stringToInt(Context&, const std::string& name) {
    for (const auto& pair : *list_) {
        if (name == pair.first) return pair.second;
    }
    Exception::throwValueNotInList(name);
}

}  // namespace dme
