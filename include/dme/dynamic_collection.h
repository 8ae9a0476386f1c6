#pragma once

#include <climits>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "dme/collection.h"
#include "dme/context.h"
#include "dme/hash_string.h"
#include "dme/methods.h"

namespace dme {

// A collection that requests can change: CREATE on the collection adds an item, DELETE of an
// item removes it, UPDATE of the collection replaces every item (Collection::update). Items are
// made by the application's factory, then owned by the collection; the factory is also called
// once at construction for the schema reference item, whose id is "+".
//
// Ids. When the lexicon's id key is set and a CREATE body carries that member, its text is the
// new item's id: an id that is empty, "+", "." or "..", or that holds a '/', cannot be a path
// segment and is refused with Exception::throwStringInvalidFormat(id); an id that an item
// already has is refused with Exception::throwValueOutOfRange(id). Otherwise the collection
// chooses the id: the decimal text of a counter that starts at 1 and only goes up, skipping the
// ids that items hold now. An id freed by DELETE is thus not given out again by the collection
// (a client may still choose it).
//
// Sizes. Adding an item to a collection that holds getMaxSize items already is refused with
// Exception::throwMaxSizeReached(the collection's path). The minimum and default sizes are only
// announced by the schema ("minSize", and "fixedSize" when the collection is read-only).
//
// Creation. The new item is appended, filled from the body as an UPDATE of the item would be
// (Collection::populateNewItem) and, in a CREATE request, answered in `out` as a read of it shows
// it. When the filling fails, by result or by exception, the item is removed again and `out` is
// left untouched. During an UPDATE of the whole collection the items are filled but not answered.
//
// Policies configured through "+" reach the schema reference item and the items present at that
// time; items created later carry what the factory gives them. Membership changes are not
// notified to observers. Not thread-safe; not copyable.
class DynamicCollection : public Collection {
  public:
    // Makes a new item, owned by the caller until handed to the collection; never null.
    using ItemFactory = std::function<CollectionItem*()>;

    // Calls `factory` once for the schema reference item. Throws std::invalid_argument("A
    // dynamic collection needs an item factory") for an empty factory. Whenever the factory
    // makes no item, std::runtime_error("The item factory of a dynamic collection made no item")
    // is thrown.
    DynamicCollection(ItemFactory factory, AllowedMethods methods, bool alwaysExpanded,
                      unsigned int minSize = 0, unsigned int maxSize = UINT_MAX,
                      unsigned int defaultSize = 0);

    ~DynamicCollection() override;
    // "+" appends the schema reference item, then every item in order; any other name appends
    // the item of that id, if there is one.
    void findPermissionPolicyHolders(const ConstHashString& name,
                                     std::vector<PermissionPolicyHolder*>& out) const override;
    // Attaches the collection below `parent`, then the reference item and every item below it.
    void setParent(Value* parent) override;
    // Adds an item under the body's id member when the lexicon names one and the body has it,
    // else under an id of the collection's choice; see the class comment. Returns the filling's
    // result (0 on success). Throws dme::Exception when the collection is full or the client's
    // id is refused, and lets the filling's exceptions pass after removing the item.
    int create(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Removes the item at `index` and tells the later items their new indexes; 3 when there is
    // no item at `index`, else 0.
    int destroyItem(Context& ctx, unsigned int index) override;
    // The sizes given at construction.
    unsigned int getDefaultSize(Context& ctx) const override;
    unsigned int getMinSize(Context& ctx) const override;
    unsigned int getMaxSize(Context& ctx) const override;
    // The item whose id is `id`, or null.
    CollectionItem* getFromId(Context& ctx, const ConstHashString& id) override;
    // The item at `index`, or null past the end.
    CollectionItem* at(Context& ctx, unsigned int index) override;
    // The number of items.
    unsigned int count(Context& ctx) override;
    // `count(ctx)`.
    unsigned int contextualCount(Context& ctx) override;
    // Adds an item under the client's `id`, as `create` does.
    int create(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
               std::string id) override;
    // Removes every item; returns 0.
    int clear() override;

    // Adds an item made by the factory, without a request, under an id of the collection's
    // choice or under `id`; the same checks as for a request apply, against the maximum size
    // given at construction. Returns the new item, which the collection owns.
    CollectionItem& addItem();
    CollectionItem& addItem(const std::string& id);
    // The number of items.
    unsigned int size() const { return static_cast<unsigned int>(items_.size()); }

  private:
    CollectionItem* makeItem();
    CollectionItem* findItem(const ConstHashString& id) const;
    // Throws Exception::throwMaxSizeReached when `maxSize` items are held already.
    void checkRoom(unsigned int maxSize) const;
    // Throws when `id` cannot be a path segment or is taken.
    void checkClientId(const std::string& id) const;
    std::string nextFreeId();
    // Appends a new item under `id`; returns its index.
    unsigned int append(const std::string& id);
    void removeAt(unsigned int index);
    // Fills the item at `index` from `in`; removes it again when that fails.
    int populate(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                 unsigned int index);

    ItemFactory factory_;
    unsigned int minSize_;
    unsigned int maxSize_;
    unsigned int defaultSize_;
    unsigned long long nextId_ = 1;
    std::vector<std::unique_ptr<CollectionItem>> items_;
};

}  // namespace dme
