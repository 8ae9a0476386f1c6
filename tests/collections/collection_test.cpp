#include "dme/collection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "dme/engine.h"
#include "dme/json.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "leaf_nodes.h"
#include "request.h"

namespace dme {
namespace {

using test::ALL_METHODS;
using test::attachRoot;
using test::FunctionLeaf;
using test::Request;
using test::StringLeaf;
using ::testing::ElementsAre;
using SerializationInfo = cxxtools::SerializationInfo;

// Read, update and browse; no create, no delete.
constexpr std::uint32_t READ_UPDATE_BROWSE =
    AllowedMethods::R | AllowedMethods::U | AllowedMethods::B;

// Lexicons for requests through the engine: one that names every member, one that names none
// (a collection is then written as a bare array).
const Lexicon& namingLexicon() {
    static const Lexicon lexicon{"href", "id", "count", "members", "expand", "select"};
    return lexicon;
}
const Lexicon& silentLexicon() {
    static const Lexicon lexicon{"", "", "", "", "expand", "select"};
    return lexicon;
}

// An item with one text member, "name".
CollectionItem* namedItem(const std::string& name, AllowedMethods methods = ALL_METHODS) {
    return new CollectionItem({new Entry("name", new StringLeaf(name))}, methods, false);
}

// A collection over items kept in insertion order and numbered 1, 2, 3..., with sizes 5
// (default), 1 (minimum) and 9 (maximum). The number of items that a request sees can be set
// apart from the items held, so that a listing meets missing items or leaves items out.
// It keeps every modification operation of Collection.
class TestCollection : public Collection {
  public:
    explicit TestCollection(AllowedMethods methods = ALL_METHODS, bool alwaysExpanded = false)
        : Collection(methods, alwaysExpanded) {}
    ~TestCollection() override {
        for (CollectionItem* item : items_) delete item;
    }

    void add(CollectionItem* item) {
        const auto index = static_cast<unsigned int>(items_.size());
        items_.push_back(item);
        item->setAdditionalInfo(index, ConstHashString(index + 1));
    }
    void setVisible(unsigned int visible) { visible_ = visible; }
    void useReferenceItem(CollectionItem* item) { setSchemaReferenceItem(item); }

    void setParent(Value* parent) override {
        Value::setParent(parent);
        for (CollectionItem* item : items_) item->setParent(this);
    }
    unsigned int getDefaultSize(Context&) const override { return 5; }
    unsigned int getMinSize(Context&) const override { return 1; }
    unsigned int getMaxSize(Context&) const override { return 9; }
    CollectionItem* getFromId(Context&, const ConstHashString& id) override {
        for (CollectionItem* item : items_) {
            if (item->id() == id) return item;
        }
        return nullptr;
    }
    CollectionItem* at(Context&, unsigned int index) override {
        return index < items_.size() ? items_[index] : nullptr;
    }
    unsigned int count(Context&) override { return static_cast<unsigned int>(items_.size()); }
    unsigned int contextualCount(Context& ctx) override {
        return visible_ == ALL ? count(ctx) : visible_;
    }

  private:
    static constexpr unsigned int ALL = 0xFFFFFFFFu;
    std::vector<CollectionItem*> items_;
    unsigned int visible_ = ALL;
};

// A collection that records the calls of its modification operations instead of changing
// anything; `clear` answers the status given.
class RecordingCollection : public TestCollection {
  public:
    explicit RecordingCollection(int clearStatus = result::DONE) : clearStatus_(clearStatus) {}

    const std::vector<std::string>& calls() const { return calls_; }

    int create(Context&, const SerializationInfo& in, SerializationInfo&) override {
        calls_.push_back("create " + formatJson(in));
        return result::DONE;
    }
    int create(Context&, const SerializationInfo& in, SerializationInfo&, std::string id) override {
        calls_.push_back("create(" + id + ") " + formatJson(in));
        return result::DONE;
    }
    int destroyItem(Context&, unsigned int index) override {
        calls_.push_back("destroyItem " + std::to_string(index));
        return result::DONE;
    }
    int clear() override {
        calls_.push_back("clear");
        return clearStatus_;
    }

  private:
    int clearStatus_;
    std::vector<std::string> calls_;
};

struct Answer {
    int status;
    std::string body;
};

// A data model whose root structure holds the collection under "devices", served by the JSON
// engine with every right.
class Model {
  public:
    Model(Collection* devices, const Lexicon& lexicon)
        : model_(new Structure({new Entry("devices", devices)}, ALL_METHODS, true), lexicon,
                 ALL_METHODS),
          engine_(model_, "collections") {}

    Answer run(Method method, const std::string& uri, const std::string& query = "",
               const std::string& body = "") {
        Answer answer{0, ""};
        answer.status = engine_.execute(method, uri, Arguments(query), body, answer.body, false);
        return answer;
    }

  private:
    DataModel model_;
    JsonDataModelEngine engine_;
};

// A collection of the named items attached below a root structure, for direct calls.
struct Tree {
    explicit Tree(const std::vector<std::string>& names, AllowedMethods methods = ALL_METHODS) {
        collection = new TestCollection(methods);
        for (const std::string& name : names) collection->add(namedItem(name));
        root = std::make_unique<Structure>(std::vector<Element*>{new Entry("devices", collection)},
                                           ALL_METHODS, true);
        attachRoot(*root);
    }
    std::unique_ptr<Structure> root;
    TestCollection* collection;
};

// A node whose schema records the path under which it was asked for.
class SchemaUriProbe : public Value {
  public:
    explicit SchemaUriProbe(std::string& seen) : Value(ALL_METHODS, true), seen_(seen) {}
    int browse(Context&, const SerializationInfo&, SerializationInfo&) override {
        return result::NO_CHILDREN;
    }
    int serializeChildSchema(Context& ctx, const SerializationInfo&, SerializationInfo&) override {
        seen_ = static_cast<std::string>(ctx.currentUri());
        return result::DONE;
    }

  private:
    std::string& seen_;
};

// A context standing on the collection of a Tree, requesting `uri`.
struct WalkAtCollection {
    explicit WalkAtCollection(Method method, const std::string& uri = "/devices",
                              const Lexicon& lexicon = namingLexicon())
        : ctx(lexicon, method, uri, Arguments(""), false) {
        ctx.next(ConstHashString("devices"));
    }
    Context ctx;
};

// ---- Construction and type ----

TEST(Collection, RemovesDeleteFromTheAllowedMethods) {
    TestCollection collection(ALL_METHODS);
    EXPECT_EQ(collection.allowedMethods(), AllowedMethods(0x17));
}

TEST(Collection, KeepsTheAlwaysExpandedFlag) {
    EXPECT_TRUE(TestCollection(ALL_METHODS, true).alwaysExpanded());
    EXPECT_FALSE(TestCollection(ALL_METHODS, false).alwaysExpanded());
}

TEST(Collection, TypeIsArray) {
    EXPECT_STREQ(TestCollection().getType(), "array");
}

TEST(Collection, IsNotModifiableWithReadAndUpdateOnly) {
    EXPECT_FALSE(TestCollection(READ + UPDATE).isModifiable());
}

TEST(Collection, IsModifiableWithCreate) {
    EXPECT_TRUE(TestCollection(READ + CREATE).isModifiable());
}

TEST(Collection, IsNotModifiableByDeleteSinceDeleteIsRemoved) {
    EXPECT_FALSE(TestCollection(READ + DELETE).isModifiable());
}

TEST(Collection, TotalCountIsTheCount) {
    Tree tree({"a", "b", "c"});
    WalkAtCollection walk(READ);
    EXPECT_EQ(tree.collection->totalCount(walk.ctx), 3u);
}

// ---- Reading ----

TEST(CollectionRead, EmptyCollectionWithItemsAndCountKeysGivesCountZeroAndEmptyArray) {
    Model model(new TestCollection(), namingLexicon());
    const Answer answer = model.run(READ, "/devices");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, R"({"href":"/devices","count":0,"members":[]})");
}

TEST(CollectionRead, EmptyCollectionWithoutItemsAndCountKeysGivesBareEmptyArray) {
    Model model(new TestCollection(), silentLexicon());
    const Answer answer = model.run(READ, "/devices");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, "[]");
}

TEST(CollectionRead, ItemsKeyWithoutCountKeyWritesNoCount) {
    static const Lexicon lexicon{"", "", "", "members", nullptr, nullptr};
    Model model(new TestCollection(), lexicon);
    EXPECT_EQ(model.run(READ, "/devices").body, R"({"members":[]})");
}

TEST(CollectionRead, CountKeyWithoutItemsKeyIsIgnored) {
    static const Lexicon lexicon{"", "", "count", "", nullptr, nullptr};
    Model model(new TestCollection(), lexicon);
    EXPECT_EQ(model.run(READ, "/devices").body, "[]");
}

TEST(CollectionRead, ListsItemsUnderTheItemsKeyByTheirPaths) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    devices->add(namedItem("b"));
    Model model(devices, namingLexicon());
    const Answer answer = model.run(READ, "/devices");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, R"({"href":"/devices","count":2,"members":[{"href":"/devices/1"},)"
                           R"({"href":"/devices/2"}]})");
}

TEST(CollectionRead, ListsItemsAsBareArrayWithoutItemsKey) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    devices->add(namedItem("b"));
    Model model(devices, silentLexicon());
    const Answer answer = model.run(READ, "/devices", "expand=2");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, R"([{"name":"a"},{"name":"b"}])");
}

TEST(CollectionRead, SmallerContextualCountListsFirstItemsButReportsFullCount) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    devices->add(namedItem("b"));
    devices->add(namedItem("c"));
    devices->setVisible(2);
    Model model(devices, namingLexicon());
    EXPECT_EQ(model.run(READ, "/devices").body,
              R"({"href":"/devices","count":3,"members":[{"href":"/devices/1"},)"
              R"({"href":"/devices/2"}]})");
}

TEST(CollectionRead, MissingItemAddsEmptyElementAndAnswersNotFound) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    devices->setVisible(2);
    Model model(devices, namingLexicon());
    const Answer answer = model.run(READ, "/devices");
    EXPECT_EQ(answer.status, dme::result::NOT_FOUND);
    EXPECT_EQ(answer.body,
              R"({"href":"/devices","count":1,"members":[{"href":"/devices/1"},null]})");
}

TEST(CollectionRead, AnswersTheStatusOfTheLastItem) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a", AllowedMethods::B));
    devices->add(namedItem("b"));
    Model model(devices, silentLexicon());
    const Answer answer = model.run(READ, "/devices", "expand=2");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, R"([null,{"name":"b"}])");
}

TEST(CollectionRead, LastItemNotReadableAnswersNotAllowed) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    devices->add(namedItem("b", AllowedMethods::B));
    Model model(devices, silentLexicon());
    const Answer answer = model.run(READ, "/devices", "expand=2");
    EXPECT_EQ(answer.status, dme::result::NOT_ALLOWED);
    EXPECT_EQ(answer.body, R"([{"name":"a"},null])");
}

// An always expanded item with the member "name" = "n" that names the document it answers
// into.
class SelfNamingItem : public CollectionItem {
  public:
    SelfNamingItem()
        : CollectionItem({new Entry("name", new StringLeaf("n"))}, ALL_METHODS, true) {}
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override {
        out.setName("self");
        return CollectionItem::read(ctx, in, out);
    }
};

TEST(CollectionRead, ListedItemsStayUnnamedWhenAnItemNamesItsAnswer) {
    auto* devices = new TestCollection();
    devices->add(new SelfNamingItem());
    Structure root({new Entry("devices", devices)}, ALL_METHODS, true);
    attachRoot(root);
    WalkAtCollection walk(READ);
    SerializationInfo out;
    EXPECT_EQ(devices->read(walk.ctx, SerializationInfo(), out), dme::result::DONE);
    const SerializationInfo& items = out.getMember("members");
    ASSERT_EQ(items.memberCount(), 1u);
    EXPECT_EQ(items.begin()->name(), "");
    EXPECT_EQ(formatJson(out),
              R"({"count":1,"members":[{"href":"/devices/1","id":"1","name":"n"}]})");
}

// ---- Addressing items ----

TEST(CollectionBrowse, ReachesTheItemNamedByTheSegment) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    devices->add(namedItem("b"));
    Model model(devices, namingLexicon());
    const Answer answer = model.run(READ, "/devices/2");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, R"({"href":"/devices/2","id":"2","name":"b"})");
}

TEST(CollectionBrowse, ReachesAMemberOfAnItem) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    Model model(devices, namingLexicon());
    const Answer answer = model.run(READ, "/devices/1/name");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, R"("a")");
}

TEST(CollectionBrowse, SegmentNamingNoItemAnswersNotFound) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    Model model(devices, namingLexicon());
    const Answer answer = model.run(READ, "/devices/7");
    EXPECT_EQ(answer.status, dme::result::NOT_FOUND);
    EXPECT_EQ(answer.body, "null");
}

TEST(CollectionBrowse, EmptySegmentMeansTheCollectionItself) {
    Tree tree({"a"});
    WalkAtCollection walk(READ);
    SerializationInfo out;
    EXPECT_EQ(tree.collection->browse(walk.ctx, SerializationInfo(), out),
              dme::result::PATH_ENDS_HERE);
    EXPECT_TRUE(out.isNull());
}

TEST(CollectionProcessItem, NullItemAnswersNotFound) {
    Tree tree({"a"});
    WalkAtCollection walk(READ);
    SerializationInfo out;
    EXPECT_EQ(tree.collection->processItem(walk.ctx, SerializationInfo(), out, nullptr), 3);
    EXPECT_EQ(walk.ctx.currentUri(), Path("/devices"));
}

TEST(CollectionProcessItem, UnknownIdAndIndexAnswerNotFound) {
    Tree tree({"a"});
    WalkAtCollection walk(READ);
    SerializationInfo out;
    EXPECT_EQ(
        tree.collection->processItem(walk.ctx, SerializationInfo(), out, ConstHashString("x")), 3);
    EXPECT_EQ(tree.collection->processItem(walk.ctx, SerializationInfo(), out, 1u), 3);
    EXPECT_TRUE(out.isNull());
}

TEST(CollectionProcessItem, StepsIntoTheItemIdAndBack) {
    std::string seenUri;
    std::string seenId;
    auto* devices = new TestCollection();
    devices->add(new CollectionItem(
        {new Entry("probe", new FunctionLeaf(
                                [&](Context& ctx, const SerializationInfo&, SerializationInfo&) {
                                    seenUri = static_cast<std::string>(ctx.currentUri());
                                    seenId = ctx.currentId().str();
                                    return 0;
                                }))},
        ALL_METHODS, true));
    Structure root({new Entry("devices", devices)}, ALL_METHODS, true);
    attachRoot(root);
    WalkAtCollection walk(READ);
    SerializationInfo out;
    EXPECT_EQ(devices->processItem(walk.ctx, SerializationInfo(), out, 0u), 0);
    EXPECT_EQ(seenUri, "/devices/1/probe");
    EXPECT_EQ(seenId, "1");
    EXPECT_EQ(walk.ctx.currentUri(), Path("/devices"));
}

TEST(CollectionProcessItem, StepsBackWhenTheItemThrows) {
    auto* devices = new TestCollection();
    devices->add(new CollectionItem(
        {new Entry("boom", new FunctionLeaf(
                               [](Context&, const SerializationInfo&, SerializationInfo&) -> int {
                                   throw std::runtime_error("boom");
                               }))},
        ALL_METHODS, true));
    Structure root({new Entry("devices", devices)}, ALL_METHODS, true);
    attachRoot(root);
    WalkAtCollection walk(READ);
    SerializationInfo out;
    EXPECT_THROW(devices->processItem(walk.ctx, SerializationInfo(), out, 0u), std::runtime_error);
    EXPECT_EQ(walk.ctx.currentUri(), Path("/devices"));
}

// ---- Replacing the content ----

TEST(CollectionUpdate, BaseClearFailsSoUpdateAnswersFailed) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    Model model(devices, namingLexicon());
    const Answer answer = model.run(UPDATE, "/devices", "", R"({"members":[{"name":"x"}]})");
    EXPECT_EQ(answer.status, dme::result::FAILED);
    EXPECT_EQ(model.run(READ, "/devices/1/name").body, R"("a")");
}

TEST(CollectionUpdate, FailingClearStopsBeforeAnyCreate) {
    auto* devices = new RecordingCollection(result::NOT_SUPPORTED);
    Model model(devices, namingLexicon());
    EXPECT_EQ(model.run(UPDATE, "/devices", "", R"({"members":[{"name":"x"}]})").status,
              dme::result::FAILED);
    EXPECT_THAT(devices->calls(), ElementsAre("clear"));
}

TEST(CollectionUpdate, BodyWithoutItemsMemberEmptiesAndAnswersDone) {
    auto* devices = new RecordingCollection();
    Model model(devices, namingLexicon());
    const Answer answer = model.run(UPDATE, "/devices", "", R"({"other":[{"name":"x"}]})");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_THAT(devices->calls(), ElementsAre("clear"));
}

TEST(CollectionUpdate, ElementWithIdMemberGoesToIdTakingCreate) {
    auto* devices = new RecordingCollection();
    Model model(devices, namingLexicon());
    const Answer answer =
        model.run(UPDATE, "/devices", "", R"({"members":[{"id":"k1","name":"x"},{"name":"y"}]})");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_THAT(devices->calls(), ElementsAre("clear", R"(create(k1) {"id":"k1","name":"x"})",
                                              R"(create {"name":"y"})"));
}

TEST(CollectionUpdate, WithoutIdKeyEveryElementGoesToPlainCreate) {
    static const Lexicon lexicon{"", "", "", "members", nullptr, nullptr};
    auto* devices = new RecordingCollection();
    Model model(devices, lexicon);
    EXPECT_EQ(model.run(UPDATE, "/devices", "", R"({"members":[{"id":"k1"}]})").status,
              dme::result::DONE);
    EXPECT_THAT(devices->calls(), ElementsAre("clear", R"(create {"id":"k1"})"));
}

TEST(CollectionUpdate, WithoutItemsKeyTheBodyIsTheList) {
    static const Lexicon lexicon{"", "id", "", "", nullptr, nullptr};
    auto* devices = new RecordingCollection();
    Model model(devices, lexicon);
    EXPECT_EQ(model.run(UPDATE, "/devices", "", R"([{"name":"x"},{"id":"7"}])").status,
              dme::result::DONE);
    EXPECT_THAT(devices->calls(),
                ElementsAre("clear", R"(create {"name":"x"})", R"(create(7) {"id":"7"})"));
}

TEST(CollectionUpdate, CreateStatusesAreIgnored) {
    // The base creates answer 8 for every element; the update still answers 0.
    class ClearableCollection : public TestCollection {
      public:
        int clear() override { return result::DONE; }
    };
    Model model(new ClearableCollection(), namingLexicon());
    EXPECT_EQ(model.run(UPDATE, "/devices", "", R"({"members":[{"id":"1"},{"name":"x"}]})").status,
              0);
}

// ---- Unsupported operations ----

TEST(Collection, BaseCreateIsNotSupported) {
    Model model(new TestCollection(), namingLexicon());
    EXPECT_EQ(model.run(CREATE, "/devices", "", R"({"name":"x"})").status,
              dme::result::NOT_SUPPORTED);
}

TEST(Collection, BaseIdTakingCreateIsNotSupported) {
    Tree tree({});
    WalkAtCollection walk(CREATE);
    SerializationInfo out;
    EXPECT_EQ(tree.collection->create(walk.ctx, SerializationInfo(), out, "k"),
              dme::result::NOT_SUPPORTED);
}

TEST(Collection, BaseClearAndDestroyItemAreNotSupported) {
    Tree tree({"a"});
    WalkAtCollection walk(DELETE);
    EXPECT_EQ(tree.collection->clear(), 8);
    EXPECT_EQ(tree.collection->destroyItem(walk.ctx, 0), 8);
}

TEST(Collection, DeleteOfTheCollectionItselfIsNotAllowed) {
    Model model(new TestCollection(), namingLexicon());
    EXPECT_EQ(model.run(DELETE, "/devices").status, dme::result::NOT_ALLOWED);
}

// ---- Populating a new item ----

TEST(CollectionPopulate, UpdatesTheItemThenAnswersItAsRead) {
    Tree tree({"a"});
    WalkAtCollection walk(CREATE);
    SerializationInfo out;
    EXPECT_EQ(
        tree.collection->populateNewItem(walk.ctx, parseJson(R"({"name":"new"})"), out, 0, false),
        0);
    EXPECT_EQ(formatJson(out), R"({"href":"/devices/1","id":"1","name":"new"})");
    EXPECT_EQ(walk.ctx.method(), CREATE);
    EXPECT_FALSE(walk.ctx.forceExpand());
}

TEST(CollectionPopulate, SkipReadUpdatesWithoutAnswer) {
    Tree tree({"a"});
    WalkAtCollection walk(CREATE);
    SerializationInfo out;
    EXPECT_EQ(
        tree.collection->populateNewItem(walk.ctx, parseJson(R"({"name":"new"})"), out, 0, true),
        0);
    EXPECT_TRUE(out.isNull());
    Request read(READ, "/devices/1/name");
    EXPECT_EQ(read.run(*tree.root), dme::result::DONE);
    EXPECT_EQ(formatJson(read.out()), R"("new")");
}

TEST(CollectionPopulate, MissingItemAnswersNotFound) {
    Tree tree({});
    WalkAtCollection walk(CREATE);
    SerializationInfo out;
    EXPECT_EQ(tree.collection->populateNewItem(walk.ctx, SerializationInfo(), out, 0, false), 3);
}

TEST(CollectionPopulate, FailedUpdateIsAnsweredWithoutRead) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a", READ + AllowedMethods::B));
    Structure root({new Entry("devices", devices)}, ALL_METHODS, true);
    attachRoot(root);
    WalkAtCollection walk(CREATE);
    SerializationInfo out;
    EXPECT_EQ(devices->populateNewItem(walk.ctx, parseJson(R"({"name":"new"})"), out, 0, false), 2);
    EXPECT_TRUE(out.isNull());
    EXPECT_EQ(walk.ctx.method(), CREATE);
}

TEST(CollectionPopulate, RestoresTheParametersWhenTheItemThrows) {
    auto* devices = new TestCollection();
    devices->add(new CollectionItem(
        {new Entry("boom", new FunctionLeaf(
                               nullptr,
                               [](Context&, const SerializationInfo&, SerializationInfo&) -> int {
                                   throw std::runtime_error("boom");
                               }))},
        ALL_METHODS, true));
    Structure root({new Entry("devices", devices)}, ALL_METHODS, true);
    attachRoot(root);
    WalkAtCollection walk(CREATE);
    SerializationInfo out;
    EXPECT_THROW(devices->populateNewItem(walk.ctx, parseJson(R"({"boom":"x"})"), out, 0, false),
                 std::runtime_error);
    EXPECT_EQ(walk.ctx.method(), CREATE);
    EXPECT_EQ(walk.ctx.currentUri(), Path("/devices"));
}

// ---- Schema ----

TEST(CollectionSchema, ModifiableCollectionGivesSizeLimitsAndItemSchema) {
    auto* devices = new TestCollection();
    devices->useReferenceItem(namedItem("template"));
    Model model(devices, namingLexicon());
    const Answer answer = model.run(SCHEMA, "/devices");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body,
              R"({"type":"array","minSize":1,"maxSize":9,"items":{"type":"object",)"
              R"("properties":{"name":{"type":"string"},"id":{"type":"string","default":"",)"
              R"("minSize":0,"maxSize":65536}}}})");
}

TEST(CollectionSchema, ReadOnlyCollectionGivesFixedSize) {
    auto* devices = new TestCollection(READ_UPDATE_BROWSE);
    devices->useReferenceItem(namedItem("template", READ_UPDATE_BROWSE));
    Model model(devices, namingLexicon());
    EXPECT_EQ(model.run(SCHEMA, "/devices").body,
              R"({"type":"array","fixedSize":5,"items":{"type":"object",)"
              R"("properties":{"name":{"type":"string"},"id":{"type":"string","default":"",)"
              R"("minSize":0,"maxSize":65536}}}})");
}

TEST(CollectionSchema, WithoutReferenceItemTheItemsMemberIsEmpty) {
    Model model(new TestCollection(), namingLexicon());
    const Answer answer = model.run(SCHEMA, "/devices");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, R"({"type":"array","minSize":1,"maxSize":9,"items":null})");
}

TEST(CollectionSchema, WithoutIdKeyTheItemSchemaHasNoIdMember) {
    auto* devices = new TestCollection();
    devices->useReferenceItem(namedItem("template"));
    Model model(devices, silentLexicon());
    EXPECT_EQ(model.run(SCHEMA, "/devices").body,
              R"({"type":"array","minSize":1,"maxSize":9,"items":{"type":"object",)"
              R"("properties":{"name":{"type":"string"}}}})");
}

TEST(CollectionSchema, ReferenceItemIsReachedUnderItsId) {
    std::string seenUri;
    auto* devices = new TestCollection();
    auto* reference =
        new CollectionItem({new Entry("probe", new SchemaUriProbe(seenUri))}, ALL_METHODS, false);
    reference->setAdditionalInfo(CollectionItem::NO_INDEX, ConstHashString("ref"));
    devices->useReferenceItem(reference);
    Structure root({new Entry("devices", devices)}, ALL_METHODS, true);
    attachRoot(root);
    WalkAtCollection walk(SCHEMA);
    SerializationInfo out;
    EXPECT_EQ(devices->serializeChildSchema(walk.ctx, SerializationInfo(), out), 0);
    EXPECT_EQ(seenUri, "/devices/ref/probe");
    EXPECT_EQ(walk.ctx.currentUri(), Path("/devices"));
}

// ---- Policy holders ----

TEST(CollectionPolicyHolders, WildcardGivesTheReferenceItem) {
    TestCollection collection;
    CollectionItem* reference = namedItem("template");
    collection.useReferenceItem(reference);
    std::vector<PermissionPolicyHolder*> holders;
    collection.findPermissionPolicyHolders(ConstHashString("+"), holders);
    EXPECT_THAT(holders, ElementsAre(reference));
}

TEST(CollectionPolicyHolders, WildcardWithoutReferenceItemGivesNull) {
    TestCollection collection;
    std::vector<PermissionPolicyHolder*> holders;
    collection.findPermissionPolicyHolders(ConstHashString("+"), holders);
    EXPECT_THAT(holders, ElementsAre(nullptr));
}

TEST(CollectionPolicyHolders, OtherNamesGiveNothing) {
    TestCollection collection;
    collection.add(namedItem("a"));
    collection.useReferenceItem(namedItem("template"));
    std::vector<PermissionPolicyHolder*> holders;
    collection.findPermissionPolicyHolders(ConstHashString("1"), holders);
    EXPECT_TRUE(holders.empty());
}

// ---- CollectionItem ----

TEST(CollectionItem, StartsWithoutIndexAndWithTheGivenId) {
    CollectionItem item(ConstHashString("k"), {}, ALL_METHODS, false);
    EXPECT_EQ(item.index(), 0xFFFFFFFFu);
    EXPECT_EQ(item.id(), ConstHashString("k"));
}

TEST(CollectionItem, WithoutIdHasTheEmptyId) {
    CollectionItem item({}, ALL_METHODS, false);
    EXPECT_EQ(item.id(), ConstHashString(""));
    EXPECT_EQ(item.index(), 0xFFFFFFFFu);
}

TEST(CollectionItem, SetAdditionalInfoStoresIndexAndId) {
    CollectionItem item(ConstHashString("k"), {}, ALL_METHODS, false);
    item.setAdditionalInfo(4, ConstHashString("five"));
    EXPECT_EQ(item.index(), 4u);
    EXPECT_EQ(item.id(), ConstHashString("five"));
    EXPECT_EQ(item.getOwnKey(), ConstHashString("five"));
}

TEST(CollectionItem, NeedsResourcePathEvenWhenAlwaysExpanded) {
    EXPECT_TRUE(CollectionItem({}, ALL_METHODS, true).isResourcePathNeeded());
}

TEST(CollectionItem, PathIsTheCollectionPathAndTheId) {
    Tree tree({"a", "b"});
    WalkAtCollection walk(READ);
    EXPECT_EQ(static_cast<std::string>(tree.collection->at(walk.ctx, 1)->path()), "/devices/2");
}

TEST(CollectionItemRead, IdMemberIsTheSegmentUnderWhichTheItemWasReached) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    Model model(devices, namingLexicon());
    EXPECT_EQ(model.run(READ, "/devices/1").body, R"({"href":"/devices/1","id":"1","name":"a"})");
}

TEST(CollectionItemRead, WithoutIdKeyThereIsNoIdMember) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    Model model(devices, silentLexicon());
    EXPECT_EQ(model.run(READ, "/devices/1").body, R"({"name":"a"})");
}

TEST(CollectionItemRead, UnselectedIdIsLeftOut) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    Model model(devices, namingLexicon());
    EXPECT_EQ(model.run(READ, "/devices/1", "select=name").body,
              R"({"href":"/devices/1","name":"a"})");
    EXPECT_EQ(model.run(READ, "/devices/1", "select=id").body, R"({"href":"/devices/1","id":"1"})");
}

TEST(CollectionItemDestroy, WithoutParentFails) {
    CollectionItem item({}, ALL_METHODS, false);
    Context ctx(namingLexicon(), DELETE, "", Arguments(""), false);
    SerializationInfo out;
    EXPECT_EQ(item.destroy(ctx, SerializationInfo(), out), dme::result::FAILED);
}

TEST(CollectionItemDestroy, UnderAStructureFails) {
    auto* item = new CollectionItem({}, ALL_METHODS, false);
    Structure root({new Entry("lonely", item)}, ALL_METHODS, true);
    attachRoot(root);
    Request request(DELETE, "/lonely");
    EXPECT_EQ(request.run(root), dme::result::FAILED);
}

TEST(CollectionItemDestroy, AsksTheCollectionToDestroyItsIndex) {
    auto* devices = new RecordingCollection();
    devices->add(namedItem("a"));
    devices->add(namedItem("b"));
    Model model(devices, namingLexicon());
    EXPECT_EQ(model.run(DELETE, "/devices/2").status, dme::result::DONE);
    EXPECT_THAT(devices->calls(), ElementsAre("destroyItem 1"));
}

TEST(CollectionItemDestroy, BaseDestroyItemAnswersNotSupported) {
    auto* devices = new TestCollection();
    devices->add(namedItem("a"));
    Model model(devices, namingLexicon());
    EXPECT_EQ(model.run(DELETE, "/devices/1").status, dme::result::NOT_SUPPORTED);
}

TEST(CollectionItemSchema, IdSchemaFollowsTheMembers) {
    CollectionItem item({new Entry("name", new StringLeaf())}, ALL_METHODS, false);
    Context ctx(namingLexicon(), SCHEMA, "", Arguments(""), false);
    SerializationInfo out;
    EXPECT_EQ(item.serializeSchemaProperties(ctx, SerializationInfo(), out), 0);
    EXPECT_EQ(formatJson(out),
              R"({"name":{"type":"string"},"id":{"type":"string","default":"","minSize":0,)"
              R"("maxSize":65536}})");
}

// ---- CollectionItemWithId ----

TEST(CollectionItemWithId, FixedIdIsKeptBySetAdditionalInfo) {
    CollectionItemWithId item(std::string("own"), {}, ALL_METHODS, false);
    item.setAdditionalInfo(3, ConstHashString("4"));
    EXPECT_EQ(item.id(), ConstHashString("own"));
    EXPECT_EQ(item.index(), 3u);
}

TEST(CollectionItemWithId, GeneratorIsAskedAtEveryCall) {
    std::string current = "first";
    CollectionItemWithId item([&current] { return current; }, {}, ALL_METHODS, false);
    EXPECT_EQ(item.id(), ConstHashString("first"));
    current = "second";
    EXPECT_EQ(item.id(), ConstHashString("second"));
    item.setAdditionalInfo(0, ConstHashString("1"));
    EXPECT_EQ(item.id(), ConstHashString("second"));
}

TEST(CollectionItemWithId, GeneratorItemIsReachedUnderItsNewestId) {
    std::string current = "old";
    auto* devices = new TestCollection();
    auto* item =
        new CollectionItemWithId([&current] { return current; },
                                 {new Entry("name", new StringLeaf("a"))}, ALL_METHODS, false);
    devices->add(item);
    Model model(devices, namingLexicon());
    EXPECT_EQ(model.run(READ, "/devices/old").body,
              R"({"href":"/devices/old","id":"old","name":"a"})");
    current = "new";
    EXPECT_EQ(model.run(READ, "/devices/old").status, dme::result::NOT_FOUND);
    EXPECT_EQ(model.run(READ, "/devices/new").body,
              R"({"href":"/devices/new","id":"new","name":"a"})");
}

}  // namespace
}  // namespace dme
