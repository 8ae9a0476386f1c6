#pragma once

#include <vector>

#include "dme/collection.h"
#include "dme/context.h"
#include "dme/hash_string.h"
#include "dme/methods.h"

namespace dme {

// A collection whose items are fixed when the tree is built: they are handed over at
// construction (or added with `addItem` before the model is served) and numbered 1, 2, 3... in
// the path, in insertion order. Requests can neither create nor delete items, and an UPDATE of
// the whole collection answers 1. Its size is fixed: the default, minimum and maximum sizes are
// all the number of items.
//
// Ids are read as `std::stoul` reads them: leading white space and a sign are accepted and the
// number ends at the first non-digit ("2abc" is item 2); an id without digits, "0", or a number
// beyond the last item is not found. A number too large for an unsigned long makes `stoul` throw
// std::out_of_range("stoul"), which is not caught: such a request ends as an unhandled error,
// unlike a non-numeric id. Owns its items. Not thread-safe; not copyable.
class StaticCollection : public Collection {
  public:
    // Takes ownership of the items and adds each non-null one in order (`addItem`). When an
    // addition throws, the items added so far (the failing one included) are deleted and the
    // exception passes; the items after it are left to the caller.
    StaticCollection(const std::vector<CollectionItem*>& items, AllowedMethods methods,
                     bool alwaysExpanded);

    // Deletes the items.
    ~StaticCollection() override;
    // "+" appends every item in order; a number appends that item (1-based) when it exists; a
    // name without digits appends nothing; an overlong number throws std::out_of_range.
    void findPermissionPolicyHolders(const ConstHashString& name,
                                     std::vector<PermissionPolicyHolder*>& out) const override;
    // Attaches the collection below `parent`, then every item below the collection.
    void setParent(Value* parent) override;
    // The number of items, each of them.
    unsigned int getDefaultSize(Context& ctx) const override;
    unsigned int getMinSize(Context& ctx) const override;
    unsigned int getMaxSize(Context& ctx) const override;
    // The item numbered by `id` (see above), or null.
    CollectionItem* getFromId(Context& ctx, const ConstHashString& id) override;
    // The item at `index`, or null past the end.
    CollectionItem* at(Context& ctx, unsigned int index) override;
    // The number of items.
    unsigned int count(Context& ctx) override;
    // `count(ctx)`.
    unsigned int contextualCount(Context& ctx) override;
    // The first item, or null when there is none.
    CollectionItem* getSchemaReferenceItem(Context& ctx) override;

    // Takes ownership of `item` (null is ignored), appends it, tells it its index and its id
    // (the decimal text of its 1-based number) and attaches it below the collection. A
    // CollectionItemWithId keeps its own id.
    void addItem(CollectionItem* item);

  protected:
    // An empty collection.
    StaticCollection(AllowedMethods methods, bool alwaysExpanded);

    const std::vector<CollectionItem*>& items() const { return items_; }

  private:
    std::vector<CollectionItem*> items_;
};

// A static collection of items that bring their own ids, fixed or computed (see
// CollectionItemWithId). An item whose id is currently empty is hidden: not counted, not listed,
// not reached. Positions of the visible items shift when an id becomes empty or non-empty.
// Permission configuration addresses items as StaticCollection does: "+" for all (hidden ones
// included), or by 1-based position. Owns its items. Not thread-safe; not copyable.
class StaticCollectionWithId : public StaticCollection {
  public:
    // Takes ownership of the items and adds each non-null one in order.
    StaticCollectionWithId(const std::vector<CollectionItemWithId*>& items, AllowedMethods methods,
                           bool alwaysExpanded);

    // The first item whose current id equals `id`, or null.
    CollectionItem* getFromId(Context& ctx, const ConstHashString& id) override;
    // The (index + 1)-th visible item, or null.
    CollectionItem* at(Context& ctx, unsigned int index) override;
    // The number of visible items.
    unsigned int count(Context& ctx) override;
};

}  // namespace dme
