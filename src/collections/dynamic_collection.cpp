#include "dme/dynamic_collection.h"

#include <stdexcept>
#include <utility>

#include "../request/utf8.h"
#include "dme/exception.h"
#include "dme/result.h"

namespace dme {
namespace {

// Whether `id` can stand as one segment of a request path and be told apart from the wildcard
// of policy configuration.
bool isUsableId(const std::string& id) {
    return !id.empty() && id != "+" && id != "." && id != ".." && id.find('/') == std::string::npos;
}

// The body's member named by the lexicon's id key, or null.
const cxxtools::SerializationInfo* findClientId(const Context& ctx,
                                                const cxxtools::SerializationInfo& in) {
    const std::string& idKey = ctx.lexicon().idKey;
    return idKey.empty() ? nullptr : in.findMember(idKey);
}

}  // namespace

DynamicCollection::DynamicCollection(ItemFactory factory, AllowedMethods methods,
                                     bool alwaysExpanded, unsigned int minSize,
                                     unsigned int maxSize, unsigned int defaultSize)
    : Collection(methods, alwaysExpanded),
      factory_(std::move(factory)),
      minSize_(minSize),
      maxSize_(maxSize),
      defaultSize_(defaultSize) {
    if (!factory_) throw std::invalid_argument("A dynamic collection needs an item factory");
    setSchemaReferenceItem(makeItem());
    schemaReferenceItem()->setAdditionalInfo(CollectionItem::NO_INDEX, wildcard());
}

DynamicCollection::~DynamicCollection() = default;

void DynamicCollection::findPermissionPolicyHolders(
    const ConstHashString& name, std::vector<PermissionPolicyHolder*>& out) const {
    if (!(name == wildcard())) {
        if (CollectionItem* item = findItem(name)) out.push_back(item);
        return;
    }
    Collection::findPermissionPolicyHolders(name, out);
    for (const auto& item : items_) out.push_back(item.get());
}

void DynamicCollection::setParent(Value* parent) {
    Value::setParent(parent);
    schemaReferenceItem()->setParent(this);
    for (const auto& item : items_) item->setParent(this);
}

int DynamicCollection::create(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    if (const SerializationInfo* id = findClientId(ctx, in)) {
        return create(ctx, in, out, utf8::textOf(*id));
    }
    checkRoom(getMaxSize(ctx));
    return populate(ctx, in, out, append(nextFreeId()));
}

int DynamicCollection::destroyItem(Context&, unsigned int index) {
    if (index >= items_.size()) return result::NOT_FOUND;
    removeAt(index);
    return result::DONE;
}

unsigned int DynamicCollection::getDefaultSize(Context&) const {
    return defaultSize_;
}

unsigned int DynamicCollection::getMinSize(Context&) const {
    return minSize_;
}

unsigned int DynamicCollection::getMaxSize(Context&) const {
    return maxSize_;
}

CollectionItem* DynamicCollection::getFromId(Context&, const ConstHashString& id) {
    return findItem(id);
}

CollectionItem* DynamicCollection::at(Context&, unsigned int index) {
    return index < items_.size() ? items_[index].get() : nullptr;
}

unsigned int DynamicCollection::count(Context&) {
    return size();
}

unsigned int DynamicCollection::contextualCount(Context& ctx) {
    return count(ctx);
}

int DynamicCollection::create(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                              std::string id) {
    checkRoom(getMaxSize(ctx));
    checkClientId(id);
    return populate(ctx, in, out, append(id));
}

int DynamicCollection::clear() {
    items_.clear();
    return result::DONE;
}

CollectionItem& DynamicCollection::addItem() {
    checkRoom(maxSize_);
    return *items_[append(nextFreeId())];
}

CollectionItem& DynamicCollection::addItem(const std::string& id) {
    checkRoom(maxSize_);
    checkClientId(id);
    return *items_[append(id)];
}

CollectionItem* DynamicCollection::makeItem() {
    CollectionItem* item = factory_();
    if (item == nullptr) {
        throw std::runtime_error("The item factory of a dynamic collection made no item");
    }
    return item;
}

CollectionItem* DynamicCollection::findItem(const ConstHashString& id) const {
    for (const auto& item : items_) {
        if (item->id() == id) return item.get();
    }
    return nullptr;
}

void DynamicCollection::checkRoom(unsigned int maxSize) const {
    if (items_.size() >= maxSize) Exception::throwMaxSizeReached(static_cast<std::string>(path()));
}

void DynamicCollection::checkClientId(const std::string& id) const {
    if (!isUsableId(id)) Exception::throwStringInvalidFormat(id);
    if (findItem(ConstHashString(id)) != nullptr) Exception::throwValueOutOfRange(id);
}

std::string DynamicCollection::nextFreeId() {
    std::string id;
    do {
        id = std::to_string(nextId_++);
    } while (findItem(ConstHashString(id)) != nullptr);
    return id;
}

unsigned int DynamicCollection::append(const std::string& id) {
    std::unique_ptr<CollectionItem> item(makeItem());
    const unsigned int index = size();
    item->setAdditionalInfo(index, ConstHashString(id));
    item->setParent(this);
    items_.push_back(std::move(item));
    return index;
}

void DynamicCollection::removeAt(unsigned int index) {
    items_.erase(items_.begin() + index);
    for (unsigned int i = index; i < size(); ++i) {
        const ConstHashString id = items_[i]->id();
        items_[i]->setAdditionalInfo(i, id);
    }
}

// The item is filled into a document of its own, so that a failure leaves `out` as it was.
int DynamicCollection::populate(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                                unsigned int index) {
    const bool answer = ctx.method() == CREATE;
    SerializationInfo created;
    int rc;
    try {
        rc = populateNewItem(ctx, in, created, index, !answer);
    } catch (...) {
        removeAt(index);
        throw;
    }
    if (rc != result::DONE) {
        removeAt(index);
        return rc;
    }
    if (answer) out <<= created;
    return rc;
}

}  // namespace dme
