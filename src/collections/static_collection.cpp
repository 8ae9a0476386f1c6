#include "dme/static_collection.h"

#include <climits>
#include <stdexcept>
#include <string>

namespace dme {
namespace {

// The 0-based index that the id `text` numbers, as std::stoul reads it. An id without digits,
// "0", and a number that no index can hold give CollectionItem::NO_INDEX. An overlong number
// lets stoul's std::out_of_range("stoul") pass.
unsigned int indexFromId(const std::string& text) {
    unsigned long number;
    try {
        number = std::stoul(text);
    } catch (const std::invalid_argument&) {
        return CollectionItem::NO_INDEX;
    }
    if (number == 0 || number > UINT_MAX) return CollectionItem::NO_INDEX;
    return static_cast<unsigned int>(number - 1);
}

}  // namespace

// ---- StaticCollection ----

StaticCollection::StaticCollection(AllowedMethods methods, bool alwaysExpanded)
    : Collection(methods, alwaysExpanded) {}

// Delegating first makes the object complete, so the destructor deletes the items added so far
// when an addition throws. An item is stored before it is told anything, so the failing one is
// among them.
StaticCollection::StaticCollection(const std::vector<CollectionItem*>& items,
                                   AllowedMethods methods, bool alwaysExpanded)
    : StaticCollection(methods, alwaysExpanded) {
    for (CollectionItem* item : items) addItem(item);
}

StaticCollection::~StaticCollection() {
    for (CollectionItem* item : items_) delete item;
}

void StaticCollection::findPermissionPolicyHolders(
    const ConstHashString& name, std::vector<PermissionPolicyHolder*>& out) const {
    if (name == wildcard()) {
        out.insert(out.end(), items_.begin(), items_.end());
        return;
    }
    const unsigned int index = indexFromId(name.str());
    if (index < items_.size()) out.push_back(items_[index]);
}

void StaticCollection::setParent(Value* parent) {
    Value::setParent(parent);
    for (CollectionItem* item : items_) item->setParent(this);
}

unsigned int StaticCollection::getDefaultSize(Context&) const {
    return static_cast<unsigned int>(items_.size());
}

unsigned int StaticCollection::getMinSize(Context&) const {
    return static_cast<unsigned int>(items_.size());
}

unsigned int StaticCollection::getMaxSize(Context&) const {
    return static_cast<unsigned int>(items_.size());
}

CollectionItem* StaticCollection::getFromId(Context& ctx, const ConstHashString& id) {
    return at(ctx, indexFromId(id.str()));
}

CollectionItem* StaticCollection::at(Context&, unsigned int index) {
    return index < items_.size() ? items_[index] : nullptr;
}

unsigned int StaticCollection::count(Context&) {
    return static_cast<unsigned int>(items_.size());
}

unsigned int StaticCollection::contextualCount(Context& ctx) {
    return count(ctx);
}

CollectionItem* StaticCollection::getSchemaReferenceItem(Context&) {
    return items_.empty() ? nullptr : items_.front();
}

void StaticCollection::addItem(CollectionItem* item) {
    if (item == nullptr) return;
    const auto number = static_cast<unsigned int>(items_.size());
    items_.push_back(item);
    item->setAdditionalInfo(number, ConstHashString(number + 1));
    item->setParent(this);
}

// ---- StaticCollectionWithId ----

StaticCollectionWithId::StaticCollectionWithId(const std::vector<CollectionItemWithId*>& items,
                                               AllowedMethods methods, bool alwaysExpanded)
    : StaticCollection(methods, alwaysExpanded) {
    for (CollectionItemWithId* item : items) addItem(item);
}

CollectionItem* StaticCollectionWithId::getFromId(Context&, const ConstHashString& id) {
    for (CollectionItem* item : items()) {
        if (item->id() == id) return item;
    }
    return nullptr;
}

CollectionItem* StaticCollectionWithId::at(Context&, unsigned int index) {
    if (index >= items().size()) return nullptr;
    unsigned int visible = 0;
    for (CollectionItem* item : items()) {
        if (item->id().empty()) continue;
        if (visible == index) return item;
        ++visible;
    }
    return nullptr;
}

unsigned int StaticCollectionWithId::count(Context&) {
    unsigned int visible = 0;
    for (CollectionItem* item : items()) {
        if (!item->id().empty()) ++visible;
    }
    return visible;
}

}  // namespace dme
