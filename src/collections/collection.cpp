#include "dme/collection.h"

#include <climits>
#include <utility>

#include "../request/utf8.h"
#include "../tree/document.h"
#include "dme/exception.h"
#include "dme/result.h"

namespace dme {
namespace {

using SerializationInfo = cxxtools::SerializationInfo;

// The list of items in a bulk update's body: the items-key member, or the body itself.
const SerializationInfo* findItemList(const Context& ctx, const SerializationInfo& in) {
    const std::string& itemsKey = ctx.lexicon().itemsKey;
    return itemsKey.empty() ? &in : in.findMember(itemsKey);
}

void addIdSchema(SerializationInfo& out, const std::string& idKey) {
    SerializationInfo& schema = out.addMember(idKey);
    schema.addMember("type").setValue("string");
    schema.addMember("default").setValue(std::string());
    schema.addMember("minSize").setValue(0);
    schema.addMember("maxSize").setValue(65536);
}

}  // namespace

// ---- Collection ----

Collection::Collection(AllowedMethods methods, bool alwaysExpanded)
    : Value(methods - DELETE, alwaysExpanded) {}

Collection::~Collection() {
    delete schemaReferenceItem_;
}

void Collection::findPermissionPolicyHolders(const ConstHashString& name,
                                             std::vector<PermissionPolicyHolder*>& out) const {
    if (name == wildcard()) out.push_back(schemaReferenceItem_);
}

const char* Collection::getType() const {
    return "array";
}

bool Collection::isModifiable() const {
    return isMethodAllowed(CREATE) || isMethodAllowed(DELETE);
}

int Collection::serializeReadOnly(Context& ctx, const SerializationInfo&, SerializationInfo& out) {
    out.addMember("fixedSize").setValue(getDefaultSize(ctx));
    return result::DONE;
}

int Collection::serializeSchemaFormat(Context& ctx, const SerializationInfo&,
                                      SerializationInfo& out) {
    out.addMember("minSize").setValue(getMinSize(ctx));
    out.addMember("maxSize").setValue(getMaxSize(ctx));
    return result::DONE;
}

int Collection::serializeChildSchema(Context& ctx, const SerializationInfo& in,
                                     SerializationInfo& out) {
    CollectionItem* reference = getSchemaReferenceItem(ctx);
    SerializationInfo itemSchema;
    int rc = result::DONE;
    if (reference != nullptr) rc = processItem(ctx, in, itemSchema, reference);
    out.addMember("items") <<= itemSchema;
    return rc;
}

int Collection::browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    const ConstHashString& segment = ctx.getUrl();
    if (segment.empty()) return result::PATH_ENDS_HERE;
    return processItem(ctx, in, out, segment);
}

namespace {

// The items [first, first + size) that a READ lists: all of them unless the request is paged
// and addresses this collection.
struct Page {
    unsigned long long first = 0;
    unsigned long long size = ULLONG_MAX;
};

// The paging argument `name` (none when empty), or `otherwise` when the query lacks it.
unsigned long long pagingArgument(const Context& ctx, const std::string& name,
                                  unsigned long long otherwise) {
    long long value = 0;
    if (name.empty() || !ctx.arguments().getIntegerArg(name, value)) return otherwise;
    if (value < 0) Exception::throwArgumentOutOfRange(name, std::to_string(value), "");
    return static_cast<unsigned long long>(value);
}

Page pageOf(const Context& ctx) {
    if (!ctx.pathBrowser().isRequested()) return Page();
    const auto paging = ctx.customs().find<PagingArguments>();
    if (!paging) return Page();
    return Page{pagingArgument(ctx, paging->offset, 0),
                pagingArgument(ctx, paging->limit, ULLONG_MAX)};
}

}  // namespace

// The bound is re-evaluated on every pass: the items an item's read may add or hide are seen.
int Collection::read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    const Lexicon& lexicon = ctx.lexicon();
    const Page page = pageOf(ctx);
    SerializationInfo* list = &out;
    if (!lexicon.itemsKey.empty()) {
        if (!lexicon.countKey.empty()) out.addMember(lexicon.countKey).setValue(count(ctx));
        list = &out.addMember(lexicon.itemsKey);
    }
    list->setCategory(SerializationInfo::Array);
    int rc = result::DONE;
    for (unsigned long long i = page.first; i < contextualCount(ctx) && i - page.first < page.size;
         ++i) {
        SerializationInfo element;
        rc = processItem(ctx, in, element, static_cast<unsigned int>(i));
        internal::appendMember(*list, std::string(), element);
    }
    return rc;
}

// Replaces every item. The items are created by the application's create(), which only the
// applying pass of an all-or-nothing UPDATE runs.
int Collection::update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    if (isValidationPass(ctx)) return result::DONE;
    if (clear() != result::DONE) return result::FAILED;
    const SerializationInfo* list = findItemList(ctx, in);
    if (list == nullptr) return result::DONE;
    const std::string& idKey = ctx.lexicon().idKey;
    for (const SerializationInfo& element : *list) {
        const SerializationInfo* id = idKey.empty() ? nullptr : element.findMember(idKey);
        if (id != nullptr) {
            create(ctx, element, out, utf8::textOf(*id));
        } else {
            create(ctx, element, out);
        }
    }
    return result::DONE;
}

int Collection::create(Context&, const SerializationInfo&, SerializationInfo&) {
    return result::NOT_SUPPORTED;
}

unsigned int Collection::totalCount(Context& ctx) {
    return count(ctx);
}

int Collection::destroyItem(Context&, unsigned int) {
    return result::NOT_SUPPORTED;
}

int Collection::processItem(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                            CollectionItem* item) {
    if (item == nullptr) return result::NOT_FOUND;
    WalkStep step(ctx, item->id(), WalkStep::ITEM);
    return item->process(ctx, in, out);
}

// The id is taken by value in the virtual's signature, which applications override.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int Collection::create(Context&, const SerializationInfo&, SerializationInfo&, std::string) {
    return result::NOT_SUPPORTED;
}

CollectionItem* Collection::getSchemaReferenceItem(Context&) {
    return schemaReferenceItem_;
}

int Collection::clear() {
    return result::NOT_SUPPORTED;
}

int Collection::processItem(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                            const ConstHashString& id) {
    return processItem(ctx, in, out, getFromId(ctx, id));
}

int Collection::processItem(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                            unsigned int index) {
    return processItem(ctx, in, out, at(ctx, index));
}

int Collection::populateNewItem(Context& ctx, const SerializationInfo& in, SerializationInfo& out,
                                unsigned int index, bool skipRead) {
    CollectionItem* item = at(ctx, index);
    {
        ParametersScope update(ctx, UPDATE, false);
        const int rc = processItem(ctx, in, out, item);
        if (rc != result::DONE || skipRead) return rc;
    }
    ParametersScope read(ctx, READ, true);
    return processItem(ctx, in, out, item);
}

const ConstHashString& Collection::wildcard() {
    static const ConstHashString name("+");
    return name;
}

void Collection::setSchemaReferenceItem(CollectionItem* item) {
    if (item == schemaReferenceItem_) return;
    delete schemaReferenceItem_;
    schemaReferenceItem_ = item;
}

// ---- CollectionItem ----

CollectionItem::CollectionItem(const ConstHashString& id, const std::vector<Element*>& elements,
                               AllowedMethods methods, bool alwaysExpanded)
    : Structure(elements, methods, alwaysExpanded), id_(id) {}

CollectionItem::CollectionItem(const std::vector<Element*>& elements, AllowedMethods methods,
                               bool alwaysExpanded)
    : CollectionItem(ConstHashString(), elements, methods, alwaysExpanded) {}

CollectionItem::~CollectionItem() = default;

bool CollectionItem::isResourcePathNeeded() const {
    return true;
}

const ConstHashString& CollectionItem::getOwnKey() {
    return id();
}

int CollectionItem::read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    const std::string& idKey = ctx.lexicon().idKey;
    if (!idKey.empty()) {
        SelectionStep selection(ctx.select(), ConstHashString(idKey));
        if (selection.selected()) out.addMember(idKey).setValue(ctx.currentUri().back().str());
    }
    return Structure::read(ctx, in, out);
}

int CollectionItem::destroy(Context& ctx, const SerializationInfo&, SerializationInfo&) {
    auto* collection = dynamic_cast<Collection*>(parent());
    if (collection == nullptr) return result::FAILED;
    return collection->destroyItem(ctx, index_);
}

int CollectionItem::serializeSchemaProperties(Context& ctx, const SerializationInfo& in,
                                              SerializationInfo& out) {
    const int rc = Structure::serializeSchemaProperties(ctx, in, out);
    if (rc != result::DONE) return rc;
    const std::string& idKey = ctx.lexicon().idKey;
    if (!idKey.empty()) addIdSchema(out, idKey);
    return rc;
}

const ConstHashString& CollectionItem::id() {
    return id_;
}

void CollectionItem::setAdditionalInfo(unsigned int index, const ConstHashString& id) {
    index_ = index;
    id_ = id;
}

// ---- CollectionItemWithId ----

CollectionItemWithId::CollectionItemWithId(const std::string& id,
                                           const std::vector<Element*>& elements,
                                           AllowedMethods methods, bool alwaysExpanded)
    : CollectionItem(ConstHashString(id), elements, methods, alwaysExpanded) {}

CollectionItemWithId::CollectionItemWithId(IdGenerator idGenerator,
                                           const std::vector<Element*>& elements,
                                           AllowedMethods methods, bool alwaysExpanded)
    : CollectionItem(elements, methods, alwaysExpanded), idGenerator_(std::move(idGenerator)) {}

CollectionItemWithId::~CollectionItemWithId() = default;

const ConstHashString& CollectionItemWithId::id() {
    if (idGenerator_) setId(ConstHashString(idGenerator_()));
    return CollectionItem::id();
}

void CollectionItemWithId::setAdditionalInfo(unsigned int index, const ConstHashString&) {
    setIndex(index);
}

}  // namespace dme
