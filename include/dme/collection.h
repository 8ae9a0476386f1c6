#pragma once

#include <cxxtools/serializationinfo.h>

#include <functional>
#include <string>
#include <vector>

#include "dme/container.h"
#include "dme/context.h"
#include "dme/hash_string.h"
#include "dme/methods.h"
#include "dme/structure.h"
#include "dme/value.h"

namespace dme {

class CollectionItem;

// A node whose children are items addressed by an id in the request path (in devices/3/name,
// devices is the collection and 3 the item id). The collection owns the request logic:
// addressing an item by id or index, listing, bulk replacement and schema output. Storage is
// left to subclasses through the pure operations; a subclass that overrides `create`,
// `destroyItem` and `clear` makes the collection modifiable through requests.
//
// A collection itself is never deleted by a request (DELETE is removed from its allowed
// methods); its items are. The order of the virtual operations is part of the binary interface.
// Owns its schema reference item. Not thread-safe; not copyable.
class Collection : public Value {
  public:
    // `alwaysExpanded` is passed on to Value unchanged. No schema reference item.
    Collection(AllowedMethods methods, bool alwaysExpanded);

    // Deletes the schema reference item.
    ~Collection() override;
    // "+" (the wildcard for every item) appends the schema reference item as it is, null
    // included, so callers skip null holders; any other name appends nothing.
    void findPermissionPolicyHolders(const ConstHashString& name,
                                     std::vector<PermissionPolicyHolder*>& out) const override;
    // "array".
    const char* getType() const override;
    // True when CREATE or DELETE is allowed.
    bool isModifiable() const override;
    // Adds "fixedSize" = getDefaultSize; returns 0.
    int serializeReadOnly(Context& ctx, const SerializationInfo& in,
                          SerializationInfo& out) override;
    // Adds "minSize" = getMinSize, then "maxSize" = getMaxSize; returns 0.
    int serializeSchemaFormat(Context& ctx, const SerializationInfo& in,
                              SerializationInfo& out) override;
    // Adds "items" holding the schema of the schema reference item (empty without one);
    // returns that schema's result, 0 without a reference item.
    int serializeChildSchema(Context& ctx, const SerializationInfo& in,
                             SerializationInfo& out) override;
    // -1 when no segment remains; else the item whose id is the next segment serves the request
    // (3 when there is none).
    int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Lists the first contextualCount items as an array, written under the lexicon's items key
    // (preceded by count under its count key, when both keys are set) or, without an items key,
    // into `out` itself. An item that cannot be found adds an empty element. Returns the result
    // of the last item (0 for an empty collection).
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Replaces the whole content: `clear`, then one `create` for each element of the list found
    // under the lexicon's items key (or of `in` itself without an items key). An element holding
    // the lexicon's id key goes to the id-taking `create`. The creations' results are ignored;
    // the base `create`s do nothing and answer 8, so calling them amounts to skipping them.
    // Returns 1 when `clear` fails (nothing else is done), else 0 (also when the list is absent,
    // which leaves the collection empty). Exceptions from `create` pass.
    int update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Creates an item with an id of the collection's choice; 8 (not supported) here.
    int create(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;

    // The number of items; `count` here.
    virtual unsigned int totalCount(Context& ctx);
    // Removes the item at `index`; 8 (not supported) here.
    virtual int destroyItem(Context& ctx, unsigned int index);
    // The size announced as "fixedSize" by the schema of a read-only collection.
    virtual unsigned int getDefaultSize(Context& ctx) const = 0;
    // The size limits announced by the schema of a modifiable collection.
    virtual unsigned int getMinSize(Context& ctx) const = 0;
    virtual unsigned int getMaxSize(Context& ctx) const = 0;
    // The item reached under `id`, or null.
    virtual CollectionItem* getFromId(Context& ctx, const ConstHashString& id) = 0;
    // The item at `index`, or null.
    virtual CollectionItem* at(Context& ctx, unsigned int index) = 0;
    // The number of items.
    virtual unsigned int count(Context& ctx) = 0;
    // The number of items this request may see; a listing shows that many.
    virtual unsigned int contextualCount(Context& ctx) = 0;
    // 3 for a null item. Otherwise steps the context into the item's id, lets the item process
    // the request and steps back, also when an exception passes; returns the item's result.
    virtual int processItem(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                            CollectionItem* item);
    // Creates an item under the client's `id`; 8 (not supported) here.
    virtual int create(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                       std::string id);
    // The item that describes every item in the schema; the stored reference item here.
    virtual CollectionItem* getSchemaReferenceItem(Context& ctx);
    // Removes every item; 8 (not supported) here.
    virtual int clear();

    // `processItem` of the item reached under `id`.
    int processItem(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                    const ConstHashString& id);
    // `processItem` of the item at `index`.
    int processItem(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                    unsigned int index);
    // Fills the item just made at `index` from `in` (an UPDATE of the item) and, unless
    // `skipRead` or the update failed, answers it in `out` as a read shows it (a forced READ).
    // Returns the update's result when non-zero, else 0 with `skipRead`, else the read's
    // result; 3 when there is no item at `index`. Concrete `create`s call it after adding the
    // item.
    int populateNewItem(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                        unsigned int index, bool skipRead);

    // The path segment "+", which stands for every item when policies are configured by path.
    static const ConstHashString& wildcard();

  protected:
    // The stored schema reference item, or null.
    CollectionItem* schemaReferenceItem() const { return schemaReferenceItem_; }
    // Replaces the schema reference item by `item` (may be null) and takes ownership of it.
    void setSchemaReferenceItem(CollectionItem* item);

  private:
    CollectionItem* schemaReferenceItem_ = nullptr;
};

// The structure that stands for one item of a collection. It knows its position in the
// collection (`index`, all ones until told) and the id under which it is reached, both told by
// the collection through `setAdditionalInfo`. Its path is its collection's path followed by its
// id. A READ writes the id, under the lexicon's id key, before the members; the schema lists the
// id member among the properties. DELETE of an item asks its collection to remove it.
// Owns its member descriptors. Not thread-safe; not copyable.
class CollectionItem : public Structure {
  public:
    // Takes ownership of every non-null element of `elements`.
    CollectionItem(const ConstHashString& id, const std::vector<Element*>& elements,
                   AllowedMethods methods, bool alwaysExpanded);
    // As above with the empty id.
    CollectionItem(const std::vector<Element*>& elements, AllowedMethods methods,
                   bool alwaysExpanded);
    ~CollectionItem() override;

    // True: an item is always listed with its resource path, when the lexicon names one.
    bool isResourcePathNeeded() const override;
    // The item's id, as `id()` gives it now.
    const ConstHashString& getOwnKey() override;
    // Adds the lexicon's id key, when set and selected, holding the last segment of the current
    // path (the id under which the item was reached); then reads the members. Returns 0.
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // The parent collection's `destroyItem` for this item's index; 1 when the parent is not a
    // collection (or there is none).
    int destroy(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // The members' schemas, then, when the lexicon's id key is set, the id member's schema:
    // {"type": "string", "default": "", "minSize": 0, "maxSize": 65536}. A non-zero result of
    // the members is returned before the id is added.
    int serializeSchemaProperties(Context& ctx, const SerializationInfo& in,
                                  SerializationInfo& out) override;
    // The id under which the item is reached.
    virtual const ConstHashString& id();
    // Stores the item's position and id, as its collection tells them.
    virtual void setAdditionalInfo(unsigned int index, const ConstHashString& id);

    // The position last told by the collection; all ones before.
    unsigned int index() const { return index_; }

    // The index of an item not yet told its position.
    static constexpr unsigned int NO_INDEX = 0xFFFFFFFFu;

  protected:
    void setIndex(unsigned int index) { index_ = index; }
    void setId(const ConstHashString& id) { id_ = id; }

  private:
    unsigned int index_ = NO_INDEX;
    ConstHashString id_;
};

// An item that carries its own id: fixed at construction, or computed by an application
// function at every `id()` call (so its path segment may change while it lives; an empty id
// hides it in a StaticCollectionWithId). The collection tells it only its index.
// Not thread-safe; not copyable.
class CollectionItemWithId : public CollectionItem {
  public:
    using IdGenerator = std::function<std::string()>;

    // A fixed id; no generator.
    CollectionItemWithId(const std::string& id, const std::vector<Element*>& elements,
                         AllowedMethods methods, bool alwaysExpanded);
    // The id is `idGenerator()`, asked anew at every `id()` call; empty until the first call.
    CollectionItemWithId(IdGenerator idGenerator, const std::vector<Element*>& elements,
                         AllowedMethods methods, bool alwaysExpanded);
    ~CollectionItemWithId() override;

    // With a generator, stores and returns its current answer; else the fixed id.
    const ConstHashString& id() override;
    // Stores `index` only; the item keeps its own id.
    void setAdditionalInfo(unsigned int index, const ConstHashString& id) override;

  private:
    IdGenerator idGenerator_;
};

}  // namespace dme
