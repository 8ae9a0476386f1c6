#include "dme/array.h"

#include <cxxtools/serializationerror.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "dme/exception.h"
#include "dme/path.h"
#include "dme/result.h"

namespace dme {
namespace {

using cxxtools::SerializationInfo;

// Parses an index segment the way std::stoul does; std::invalid_argument when it has no
// digits, std::out_of_range when the number exceeds unsigned long.
unsigned long parseIndex(const ConstHashString& segment) {
    return std::stoul(segment.str());
}

// Writes one element of an ArrayValue. Texts are written as their bytes are: the application's
// list is shown unchanged, also when it is not valid UTF-8.
template <class T>
void writeElement(const T& value, SerializationInfo& si) {
    if constexpr (std::is_same_v<T, std::string>) {
        si.setValue(value);
        si.setTypeName("string");
    } else {
        serializeValue<T>(value, si);
    }
}

// The name of the node being visited: the last segment of the current uri.
const std::string& valueName(const Context& ctx) {
    return ctx.currentUri().back().str();
}

}  // namespace

// ---- Array ----

Array::Array(AllowedMethods allowed) : Value(allowed - CREATE - DELETE, true) {}

Array::~Array() = default;

void Array::setParent(Value* parent) {
    Value::setParent(parent);
    for (unsigned int i = 0; i < size(); ++i) at(i)->setParent(this);
}

const char* Array::getType() const {
    return "array";
}

int Array::serializeReadOnly(Context& ctx, const SerializationInfo&, SerializationInfo& out) {
    out.addMember("fixedSize").setValue(getDefaultSize(ctx));
    return result::DONE;
}

int Array::serializeSchemaFormat(Context& ctx, const SerializationInfo&, SerializationInfo& out) {
    out.addMember("minSize").setValue(getMinSize(ctx));
    out.addMember("maxSize").setValue(getMaxSize(ctx));
    return result::DONE;
}

// The context is not stepped: the reference item answers the SCHEMA request as if addressed.
int Array::serializeChildSchema(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    Value* reference = getSchemaReferenceItem();
    SerializationInfo itemSchema;
    int rc = result::DONE;
    if (reference != nullptr) rc = reference->process(ctx, in, itemSchema);
    out.addMember("items") <<= itemSchema;
    return rc;
}

// Parsing, lookup and the item's processing form one guarded block, so that the item's own
// std::invalid_argument and std::out_of_range are answered like a bad or too large index.
int Array::browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    const ConstHashString segment = ctx.getUrl();
    if (segment.empty()) return result::PATH_ENDS_HERE;
    try {
        const unsigned long index = parseIndex(segment);
        Value* item = index <= std::numeric_limits<unsigned int>::max()
                          ? at(static_cast<unsigned int>(index))
                          : nullptr;
        if (item == nullptr) Exception::throwIndexOutOfBounds(segment.str());
        WalkStep step(ctx, segment);
        return item->process(ctx, in, out);
    } catch (const std::invalid_argument&) {
        return result::NOT_FOUND;
    } catch (const std::out_of_range&) {
        Exception::throwIndexOutOfBounds(segment.str());
    }
}

const ConstHashString& Array::getChildKey(Value*) {
    return Path::emptyName();
}

// The bound is re-evaluated on every pass, so an item's read may change the array's size.
int Array::read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    out.setCategory(SerializationInfo::Array);
    int rc = result::DONE;
    for (unsigned int i = 0; i < size(); ++i) {
        Value* item = at(i);
        if (item == nullptr) continue;
        SerializationInfo element;
        {
            WalkStep step(ctx, ConstHashString(i));
            rc = item->process(ctx, in, element);
        }
        out.addMember() <<= element;
    }
    return rc;
}

int Array::update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    int rc = result::DONE;
    unsigned int index = 0;
    for (const SerializationInfo& element : in) {
        Value* item = at(index);
        if (item == nullptr) continue;
        WalkStep step(ctx, ConstHashString(index));
        ++index;
        rc = item->process(ctx, element, out);
    }
    return rc;
}

Value* Array::getSchemaReferenceItem() {
    return at(0);
}

// ---- StaticArray ----

StaticArray::StaticArray(const std::vector<Value*>& items, AllowedMethods allowed)
    : Array(allowed), items_(items) {}

StaticArray::~StaticArray() {
    for (Value* item : items_) delete item;
}

unsigned int StaticArray::getDefaultSize(Context&) const {
    return static_cast<unsigned int>(items_.size());
}

unsigned int StaticArray::getMinSize(Context&) const {
    return static_cast<unsigned int>(items_.size());
}

unsigned int StaticArray::getMaxSize(Context&) const {
    return static_cast<unsigned int>(items_.size());
}

unsigned int StaticArray::size() {
    return static_cast<unsigned int>(items_.size());
}

Value* StaticArray::at(unsigned int index) {
    return index < items_.size() ? items_[index] : nullptr;
}

// ---- ArrayValue ----

template <class T>
ArrayValue<T>::ArrayValue(AllowedMethods allowed) : Array(allowed), itemTemplate_(T{}, allowed) {}

template <class T>
ArrayValue<T>::~ArrayValue() = default;

// Only a READ of one element is served below the array: the elements are not nodes, so there is
// nothing to hand another method to.
template <class T>
int ArrayValue<T>::browse(Context& ctx, const SerializationInfo&, SerializationInfo& out) {
    const ConstHashString& segment = ctx.getUrl();
    if (segment.empty()) return result::PATH_ENDS_HERE;
    if (ctx.method() != READ) return result::DONE;
    unsigned long index = 0;
    try {
        index = parseIndex(segment);
    } catch (const std::invalid_argument&) {
        return result::NOT_FOUND;
    }
    const std::vector<T> list = getValue(ctx);
    if (index >= list.size()) Exception::throwIndexOutOfBounds(segment.str());
    writeElement<T>(list[index], out);
    return result::DONE;
}

template <class T>
int ArrayValue<T>::read(Context& ctx, const SerializationInfo&, SerializationInfo& out) {
    out.setCategory(SerializationInfo::Array);
    for (const auto& element : getValue(ctx)) writeElement<T>(element, out.addMember());
    return result::DONE;
}

template <class T>
int ArrayValue<T>::update(Context& ctx, const SerializationInfo& in, SerializationInfo&) {
    if (in.category() != SerializationInfo::Array) {
        Exception::throwInvalidType(valueName(ctx), getType());
    }
    std::vector<T> list;
    list.reserve(in.memberCount());
    try {
        for (const SerializationInfo& element : in) {
            T value{};
            deserializeValue<T>(element, value);
            list.push_back(value);
        }
    } catch (const cxxtools::SerializationConversionError&) {
        Exception::throwInvalidType(valueName(ctx), itemTemplate_.getType());
    } catch (const std::range_error&) {
        Exception::throwValueOutOfRange(valueName(ctx));
    }
    if (isValidationPass(ctx)) return result::DONE;
    return setValue(ctx, list);
}

template <class T>
unsigned int ArrayValue<T>::getDefaultSize(Context&) const {
    return 0;
}

template <class T>
unsigned int ArrayValue<T>::getMinSize(Context&) const {
    return 0;
}

template <class T>
unsigned int ArrayValue<T>::getMaxSize(Context&) const {
    return 0xFFFFFFFF;
}

template <class T>
unsigned int ArrayValue<T>::size() {
    return 0;
}

template <class T>
Value* ArrayValue<T>::at(unsigned int) {
    return &itemTemplate_;
}

template <class T>
Value* ArrayValue<T>::getSchemaReferenceItem() {
    return &itemTemplate_;
}

template class ArrayValue<bool>;
template class ArrayValue<char>;
template class ArrayValue<unsigned char>;
template class ArrayValue<short>;
template class ArrayValue<unsigned short>;
template class ArrayValue<int>;
template class ArrayValue<unsigned int>;
template class ArrayValue<long>;
template class ArrayValue<unsigned long>;
template class ArrayValue<long long>;
template class ArrayValue<unsigned long long>;
template class ArrayValue<float>;
template class ArrayValue<double>;
template class ArrayValue<std::string>;

}  // namespace dme
