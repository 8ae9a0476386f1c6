#pragma once

#include <cxxtools/serializationinfo.h>

#include <functional>
#include <string>
#include <vector>

#include "dme/context.h"
#include "dme/hash_string.h"
#include "dme/smart_pointer.h"
#include "dme/value.h"

namespace dme {

// A member descriptor of a structure. Elements are not nodes: they have no path, no policy and
// no methods of their own. They route a request to the right child value and put the child's
// output under the member's name. The order of the virtual operations is part of the binary
// interface. Not thread-safe; not copyable.
class Element {
  public:
    using SerializationInfo = cxxtools::SerializationInfo;

    Element() = default;
    Element(const Element&) = delete;
    Element& operator=(const Element&) = delete;

    virtual ~Element();
    // Hands `parent`, the structure holding this element, to the child values.
    virtual void setParent(Value* parent) = 0;
    // The member name under which `value` is held here, or null.
    virtual const ConstHashString* getValueName(const Value* value) const = 0;
    // Whether a member called `name` is held here.
    virtual bool contains(const ConstHashString& name) const = 0;
    // The child value called `name`, or null.
    virtual Value* findValue(const ConstHashString& name) const = 0;
    // Serves the request for the member `name`, or for every member when `name` is empty.
    // Returns a result code; 3 when no member of that name is held here.
    virtual int process(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                        const ConstHashString& name) = 0;
};

// A group of elements that share a rule. Owns its elements (null ones are allowed and skipped).
// A name is served by the first element that holds it. Not thread-safe; not copyable.
class Container : public Element {
  public:
    // Takes ownership of every non-null element of `elements`.
    explicit Container(const std::vector<Element*>& elements);
    ~Container() override;

    void setParent(Value* parent) override;
    // The first answer of the elements, in order; null when none holds `value`.
    const ConstHashString* getValueName(const Value* value) const override;
    // Whether `find(name)` finds an element.
    bool contains(const ConstHashString& name) const override;
    Value* findValue(const ConstHashString& name) const override;
    // With a name: the result of the element that holds it, 3 when none does. Without a name:
    // processes every element in order, ignores their results and returns 0.
    int process(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                const ConstHashString& name) override;

    // The direct element under which `name` lives (an entry, or a nested group holding it),
    // first match wins; null when there is none.
    Element* find(const ConstHashString& name) const;

  private:
    std::vector<Element*> elements_;
};

// Binds one member name to one child value. The value is owned when given by pointer and only
// referred to when given by reference. When `alwaysSerialized` is false, a child whose result
// is empty (a void node, or a scalar whose text is empty; null included) is left out of the
// listing of a structure; objects and arrays, even without members, are never empty.
// Not thread-safe; not copyable.
class Entry : public Element {
  public:
    // The pointer forms take ownership of `value`; every form requires a value.
    Entry(const char* name, Value* value);
    Entry(const char* name, Value& value);
    Entry(const std::string& name, Value* value);
    Entry(const std::string& name, Value& value);
    Entry(const std::string& name, Value* value, bool alwaysSerialized);
    Entry(const std::string& name, Value& value, bool alwaysSerialized);
    ~Entry() override;

    // Attaches the value below `parent`, which rebuilds the value's path.
    void setParent(Value* parent) override;
    // The entry's name when `value` is its value, else null.
    const ConstHashString* getValueName(const Value* value) const override;
    bool contains(const ConstHashString& name) const override;
    // The value when `contains(name)`, else null.
    Value* findValue(const ConstHashString& name) const override;
    // 3 for a name other than the entry's. Otherwise steps the context into the member. When
    // listing (no name) a READ or SCHEMA, the member is left out when the selection does not
    // take it (0), when the child throws std::invalid_argument (1), when the child fails (its
    // result), or when its result is empty and it need not be serialised (3); else it is added
    // to `out` under the entry's name (0). Other requests go to the child on `out` itself.
    // The context and the selection are restored on return, also when an exception passes.
    int process(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                const ConstHashString& name) override;
    virtual Value* getValue() const;
    // A copy of the member name.
    virtual std::string getName() const;
    // Replaces the member name (and its hash).
    virtual void reName(const std::string& name);

    bool alwaysSerialized() const { return alwaysSerialized_; }

  private:
    int processListed(Context& ctx, const SerializationInfo& in, SerializationInfo& out);

    ConstHashString name_;
    SmartPointer<Value> value_;
    bool alwaysSerialized_;
};

// A member that can be written but never read back: a READ shows it as null without asking the
// child; any other request needs a body and hands it to the child whole.
// Not thread-safe; not copyable.
class UpdateOnlyEntry : public Entry {
  public:
    using Entry::Entry;

    // READ: listing adds the member as null, the member itself reads as null (0); another name
    // gives 3. Other methods: 3 without a body (a null `in`), else the child processes `in`.
    int process(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                const ConstHashString& name) override;
};

// A group whose members take part in a request only when a condition on the request holds.
// Lookups (`find`, `contains`, `findValue`, `getValueName`) always see the members.
// Not thread-safe; not copyable.
class ConditionalContainer : public Container {
  public:
    ConditionalContainer(std::function<bool(Context&)> condition,
                         const std::vector<Element*>& elements);

    // 3 when the condition is false; else `Container::process`. An empty condition throws
    // std::bad_function_call.
    int process(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                const ConstHashString& name) override;

  private:
    std::function<bool(Context&)> condition_;
};

// A group that changes how its members appear in the schema: hidden altogether when not
// `inSchema`, or marked "bulkApplicable": false when not `bulkApplicable`. Other requests are
// served as by any container. Not thread-safe; not copyable.
class SchemaCustomisationContainer : public Container {
  public:
    SchemaCustomisationContainer(const std::vector<Element*>& elements, bool bulkApplicable,
                                 bool inSchema);

    // SCHEMA: nothing (0) when not in the schema; unchanged when bulk applicable; else every
    // member's schema gets "bulkApplicable": false (when a member is addressed by name, its own
    // schema does). A member's failure is returned and nothing is written.
    int process(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                const ConstHashString& name) override;

  private:
    bool bulkApplicable_;
    bool inSchema_;
};

}  // namespace dme
