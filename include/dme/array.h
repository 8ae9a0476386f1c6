#pragma once

#include <cxxtools/serializationinfo.h>

#include <string>
#include <vector>

#include "dme/atomic_value.h"
#include "dme/context.h"
#include "dme/hash_string.h"
#include "dme/methods.h"
#include "dme/value.h"

namespace dme {

// A node whose children are addressed by their position: the segment after the array is the
// decimal index of an item ("/list/2" is the third item). Reads, updates, browsing and schema
// output are expressed through `size` and `at` and the three size limits, which derived classes
// provide. An array never accepts CREATE or DELETE and is always expanded. Items are addressed
// through the request path only: their own key in the array is the empty name.
//
// Index segments are parsed as std::stoul does: leading blanks and a sign are accepted,
// trailing text is ignored and "-1" wraps to the largest value. A segment without digits gives
// 3; an index that names no item (also one beyond the range of unsigned int) raises "Index is
// out of the array bounds" naming the segment.
// Not thread-safe; not copyable.
class Array : public Value {
  public:
    // `allowed` less CREATE and DELETE; the browse bit is kept as given.
    explicit Array(AllowedMethods allowed);
    ~Array() override;

    // Attaches the array below `parent`, then attaches every item below the array. Requires
    // `at(i)` to yield an item for every i below `size()`.
    void setParent(Value* parent) override;
    // "array".
    const char* getType() const override;
    // Adds "fixedSize" = getDefaultSize (in place of "readonly"); returns 0.
    int serializeReadOnly(Context& ctx, const SerializationInfo& in,
                          SerializationInfo& out) override;
    // Adds "minSize" = getMinSize, then "maxSize" = getMaxSize; returns 0.
    int serializeSchemaFormat(Context& ctx, const SerializationInfo& in,
                              SerializationInfo& out) override;
    // Adds "items" holding the schema of getSchemaReferenceItem (empty without one); returns the
    // reference item's result, 0 without one.
    int serializeChildSchema(Context& ctx, const SerializationInfo& in,
                             SerializationInfo& out) override;
    // -1 when no segment remains; 3 for a segment without digits; else the item at the index
    // serves the request under the segment's name, and its result is returned. An index past
    // the end, or a std::out_of_range from the item, raises "Index is out of the array bounds";
    // a std::invalid_argument from the item gives 3. The context is stepped back in every case.
    int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // The empty name, for every child.
    const ConstHashString& getChildKey(Value* child) override;
    // Makes `out` an array and appends one element per item (null items are skipped), each
    // produced by the item under the request's method. A failing item does not stop the loop.
    // Returns the last item's result, 0 for an empty array.
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Element k of `in` goes to item k; surplus elements are ignored and items beyond the
    // input's length are left as they are. No size limit is checked. Returns the last item's
    // result, 0 when `in` has no elements.
    int update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;

    // The size shown in the schema of a read-only array.
    virtual unsigned int getDefaultSize(Context& ctx) const = 0;
    virtual unsigned int getMinSize(Context& ctx) const = 0;
    virtual unsigned int getMaxSize(Context& ctx) const = 0;
    // The number of items.
    virtual unsigned int size() = 0;
    // The item at `index`, or null past the end.
    virtual Value* at(unsigned int index) = 0;
    // The item whose schema stands for every item: `at(0)`.
    virtual Value* getSchemaReferenceItem();
};

// An array of a fixed list of nodes of any kind, which it owns. Not thread-safe; not copyable.
class StaticArray : public Array {
  public:
    // Takes ownership of every non-null node of `items`. The items are attached when the array
    // itself is attached.
    StaticArray(const std::vector<Value*>& items, AllowedMethods allowed);
    // Deletes the items.
    ~StaticArray() override;

    // All three are the number of items.
    unsigned int getDefaultSize(Context& ctx) const override;
    unsigned int getMinSize(Context& ctx) const override;
    unsigned int getMaxSize(Context& ctx) const override;
    unsigned int size() override;
    // `items[index]`, or null past the end.
    Value* at(unsigned int index) override;

  private:
    std::vector<Value*> items_;
};

// An array of plain scalars of type T (one of the fourteen types of AtomicValue) that are not
// nodes: the whole list is fetched with getValue and replaced with setValue, which derived
// classes provide. One template leaf, a StaticAtomicValue<T> with T's default value and the
// array's allowed methods, describes every element in schema output.
//
// Elements are written with serializeValue<T> and read with deserializeValue<T>, except that a
// std::string element is written as its bytes are, without UTF-8 decoding.
// Not thread-safe; not copyable.
template <class T>
class ArrayValue : public Array {
  public:
    // `allowed` is passed to Array unchanged.
    explicit ArrayValue(AllowedMethods allowed);
    ~ArrayValue() override;

    // -1 when no segment remains. For a request other than READ: 0, nothing written. Otherwise
    // the element at the index named by the segment is written as the scalar of `out` (0); any
    // further segment is not looked at. A segment without digits gives 3; an index past the list
    // raises "Index is out of the array bounds" naming the segment; a number beyond the range of
    // unsigned long passes std::out_of_range to the caller.
    int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Makes `out` an array of the current elements, in order; returns 0.
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Converts every element of `in`, in order, and returns setValue's result for the new list;
    // `out` is not written and no size limit is checked. Input that is not an array raises
    // "Invalid type" (this value's name, "array"); an element that T does not accept raises
    // "Invalid type" (this value's name, the element's type word); a number that does not fit T
    // raises "Value out of range" (this value's name). Nothing is stored after a failure.
    int update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // 0.
    unsigned int getDefaultSize(Context& ctx) const override;
    // 0.
    unsigned int getMinSize(Context& ctx) const override;
    // 0xFFFFFFFF.
    unsigned int getMaxSize(Context& ctx) const override;
    // 0: the elements are not nodes.
    unsigned int size() override;
    // The template leaf, for every index.
    Value* at(unsigned int index) override;
    // The template leaf.
    Value* getSchemaReferenceItem() override;

    // The current list.
    virtual std::vector<T> getValue(Context& ctx) = 0;
    // Replaces the list; returns a result code.
    virtual int setValue(Context& ctx, const std::vector<T>& value) = 0;

  private:
    StaticAtomicValue<T> itemTemplate_;
};

// The library provides the instantiations for the fourteen atomic types.
extern template class ArrayValue<bool>;
extern template class ArrayValue<char>;
extern template class ArrayValue<unsigned char>;
extern template class ArrayValue<short>;
extern template class ArrayValue<unsigned short>;
extern template class ArrayValue<int>;
extern template class ArrayValue<unsigned int>;
extern template class ArrayValue<long>;
extern template class ArrayValue<unsigned long>;
extern template class ArrayValue<long long>;
extern template class ArrayValue<unsigned long long>;
extern template class ArrayValue<float>;
extern template class ArrayValue<double>;
extern template class ArrayValue<std::string>;

}  // namespace dme
