#include "dme/container.h"

#include <stdexcept>
#include <utility>

#include "dme/path.h"
#include "dme/result.h"
#include "document.h"

namespace dme {
namespace {

using SerializationInfo = cxxtools::SerializationInfo;

// A void node, or a scalar whose text is empty (a null scalar has no text). Objects and arrays
// are not empty even without members: "{}" and "[]" still say something.
bool isEmptyResult(const SerializationInfo& result) {
    if (result.category() == SerializationInfo::Void) return true;
    if (result.category() != SerializationInfo::Value) return false;
    std::string text;
    result.getValue(text);
    return text.empty();
}

bool isListing(const Context& ctx, const ConstHashString& name) {
    return name.empty() && (ctx.method() == READ || ctx.method() == SCHEMA);
}

void markNotBulkApplicable(SerializationInfo& schema) {
    schema.addMember("bulkApplicable").setValue(false);
}

}  // namespace

Element::~Element() = default;

// ---- Container ----

Container::Container(const std::vector<Element*>& elements) : elements_(elements) {}

Container::~Container() {
    for (Element* element : elements_) delete element;
}

void Container::setParent(Value* parent) {
    for (Element* element : elements_) {
        if (element != nullptr) element->setParent(parent);
    }
}

const ConstHashString* Container::getValueName(const Value* value) const {
    for (const Element* element : elements_) {
        if (element == nullptr) continue;
        if (const ConstHashString* name = element->getValueName(value)) return name;
    }
    return nullptr;
}

// A nested group that keeps Container::contains answers through its own find, so asking each
// element's contains serves entries and groups alike.
Element* Container::find(const ConstHashString& name) const {
    for (Element* element : elements_) {
        if (element != nullptr && element->contains(name)) return element;
    }
    return nullptr;
}

bool Container::contains(const ConstHashString& name) const {
    return find(name) != nullptr;
}

Value* Container::findValue(const ConstHashString& name) const {
    const Element* element = find(name);
    return element != nullptr ? element->findValue(name) : nullptr;
}

int Container::process(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                       const ConstHashString& name) {
    if (!name.empty()) {
        Element* element = find(name);
        if (element == nullptr) return result::NOT_FOUND;
        return element->process(ctx, in, out, name);
    }
    for (Element* element : elements_) {
        if (element != nullptr) element->process(ctx, in, out, name);
    }
    return result::DONE;
}

// ---- Entry ----

Entry::Entry(const char* name, Value* value) : Entry(std::string(name), value, true) {}
Entry::Entry(const char* name, Value& value) : Entry(std::string(name), value, true) {}
Entry::Entry(const std::string& name, Value* value) : Entry(name, value, true) {}
Entry::Entry(const std::string& name, Value& value) : Entry(name, value, true) {}
Entry::Entry(const std::string& name, Value* value, bool alwaysSerialized)
    : name_(name), value_(value), alwaysSerialized_(alwaysSerialized) {}
Entry::Entry(const std::string& name, Value& value, bool alwaysSerialized)
    : name_(name), value_(value), alwaysSerialized_(alwaysSerialized) {}

Entry::~Entry() = default;

void Entry::setParent(Value* parent) {
    value_->setParent(parent);
}

const ConstHashString* Entry::getValueName(const Value* value) const {
    return value == value_.get() ? &name_ : nullptr;
}

bool Entry::contains(const ConstHashString& name) const {
    return name == name_;
}

Value* Entry::findValue(const ConstHashString& name) const {
    return contains(name) ? value_.get() : nullptr;
}

int Entry::process(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                   const ConstHashString& name) {
    if (!name.empty() && !(name == name_)) return result::NOT_FOUND;
    if (isListing(ctx, name)) return processListed(ctx, in, out);
    WalkStep step(ctx, name_);
    return value_->process(ctx, in, out);
}

// The child answers into a document of its own, which joins `out` only when it is worth showing.
// The selection is asked before the walk enters the member, which it does not depend on: a
// member left out costs no step of the walk.
int Entry::processListed(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    SelectionStep selection(ctx.select(), name_);
    if (!selection.selected()) return result::DONE;
    WalkStep step(ctx, name_);
    SerializationInfo member;
    int rc;
    try {
        rc = value_->process(ctx, in, member);
    } catch (const std::invalid_argument&) {
        return result::FAILED;
    }
    if (rc != result::DONE) return rc;
    if (!alwaysSerialized_ && isEmptyResult(member)) return result::NOT_FOUND;
    internal::appendMember(out, name_.str(), member);
    return result::DONE;
}

Value* Entry::getValue() const {
    return value_.get();
}

std::string Entry::getName() const {
    return name_.str();
}

void Entry::reName(const std::string& name) {
    name_ = name;
}

// ---- UpdateOnlyEntry ----

int UpdateOnlyEntry::process(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                             const ConstHashString& name) {
    if (ctx.method() != READ) {
        if (in.isNull()) return result::NOT_FOUND;
        return Entry::process(ctx, in, out, Path::emptyName());
    }
    if (name.empty()) {
        out.addMember(getName()).setNull();
        return result::DONE;
    }
    if (!contains(name)) return result::NOT_FOUND;
    out.setNull();
    return result::DONE;
}

// ---- ConditionalContainer ----

ConditionalContainer::ConditionalContainer(std::function<bool(Context&)> condition,
                                           const std::vector<Element*>& elements)
    : Container(elements), condition_(std::move(condition)) {}

int ConditionalContainer::process(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                                  const ConstHashString& name) {
    if (!condition_(ctx)) return result::NOT_FOUND;
    return Container::process(ctx, in, out, name);
}

// ---- SchemaCustomisationContainer ----

SchemaCustomisationContainer::SchemaCustomisationContainer(const std::vector<Element*>& elements,
                                                           bool bulkApplicable, bool inSchema)
    : Container(elements), bulkApplicable_(bulkApplicable), inSchema_(inSchema) {}

// A listing gives one schema per member, each marked; a member addressed by name gives its own
// schema document, which is marked itself.
int SchemaCustomisationContainer::process(Context& ctx, const SerializationInfo& in,
                                          SerializationInfo& out, const ConstHashString& name) {
    if (ctx.method() != SCHEMA) return Container::process(ctx, in, out, name);
    if (!inSchema_) return result::DONE;
    if (bulkApplicable_) return Container::process(ctx, in, out, name);
    SerializationInfo schemas;
    const int rc = Container::process(ctx, in, schemas, name);
    if (rc != result::DONE) return rc;
    if (!name.empty()) {
        markNotBulkApplicable(schemas);
        out <<= schemas;
        return result::DONE;
    }
    for (SerializationInfo& schema : schemas) {
        markNotBulkApplicable(schema);
        out.addMember(schema.name()) <<= schema;
    }
    return result::DONE;
}

}  // namespace dme
