#include "dme/static_collection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "dme/atomic_value.h"
#include "dme/engine.h"
#include "dme/policy.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "leaf_nodes.h"

namespace dme {
namespace {

using test::ALL_METHODS;
using test::attachRoot;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using SerializationInfo = cxxtools::SerializationInfo;

// Every method but CREATE: a collection that is not modifiable.
constexpr std::uint32_t NO_CREATE = AllowedMethods::R | AllowedMethods::U | AllowedMethods::B;

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

// A device: a name and a port, both readable and writable.
std::vector<Element*> deviceMembers(const std::string& name, int port) {
    return {new Entry("name", new StaticAtomicValue<std::string>(name, READ + UPDATE)),
            new Entry("port", new StaticAtomicValue<int>(port, READ + UPDATE))};
}
CollectionItem* device(const std::string& name, int port) {
    return new CollectionItem(deviceMembers(name, port), ALL_METHODS, false);
}
CollectionItemWithId* deviceWithId(const std::string& id, const std::string& name) {
    return new CollectionItemWithId(id, deviceMembers(name, 0), ALL_METHODS, false);
}

// The devices a, b and c on ports 1, 2 and 3.
StaticCollection* threeDevices(AllowedMethods methods = ALL_METHODS) {
    return new StaticCollection({device("a", 1), device("b", 2), device("c", 3)}, methods, false);
}

struct Answer {
    int status;
    std::string body;
};

// A data model whose root structure (always expanded, so it spends no expand level) holds the
// collection under "devices", served by the JSON engine with every right.
class Model {
  public:
    Model(Collection* devices, const Lexicon& lexicon = namingLexicon())
        : model_(new Structure({new Entry("devices", devices)}, ALL_METHODS, true), lexicon,
                 ALL_METHODS),
          engine_(model_, "static") {}

    Answer run(Method method, const std::string& uri, const std::string& query = "",
               const std::string& body = "") {
        Answer answer{0, ""};
        answer.status = engine_.execute(method, uri, Arguments(query), body, answer.body, false);
        return answer;
    }
    Value& root() { return *model_.root(); }

  private:
    DataModel model_;
    JsonDataModelEngine engine_;
};

// A request context standing on a collection attached at /devices.
struct CollectionWalk {
    explicit CollectionWalk(Method method = READ)
        : ctx(namingLexicon(), method, "/devices", Arguments(""), false) {
        ctx.next(ConstHashString("devices"));
    }
    Context ctx;
};

// An item that counts its destructions and may refuse to be told its position.
class CountedItem : public CollectionItem {
  public:
    CountedItem(int& destroyed, bool refuseInfo)
        : CollectionItem({}, ALL_METHODS, false), destroyed_(destroyed), refuseInfo_(refuseInfo) {}
    ~CountedItem() override { ++destroyed_; }
    void setAdditionalInfo(unsigned int index, const ConstHashString& id) override {
        if (refuseInfo_) throw std::runtime_error("refused");
        CollectionItem::setAdditionalInfo(index, id);
    }

  private:
    int& destroyed_;
    bool refuseInfo_;
};

// The same for an item that brings its own id.
class CountedItemWithId : public CollectionItemWithId {
  public:
    CountedItemWithId(int& destroyed, bool refuseInfo)
        : CollectionItemWithId(std::string("own"), {}, ALL_METHODS, false),
          destroyed_(destroyed),
          refuseInfo_(refuseInfo) {}
    ~CountedItemWithId() override { ++destroyed_; }
    void setAdditionalInfo(unsigned int index, const ConstHashString& id) override {
        if (refuseInfo_) throw std::runtime_error("refused");
        CollectionItemWithId::setAdditionalInfo(index, id);
    }

  private:
    int& destroyed_;
    bool refuseInfo_;
};

// ---- Numbering and lookup ----

TEST(StaticCollection, AnswersTheIdsOneTwoAndThree) {
    Model model(threeDevices());
    EXPECT_EQ(model.run(READ, "/devices/1/name").body, R"("a")");
    EXPECT_EQ(model.run(READ, "/devices/2/name").body, R"("b")");
    EXPECT_EQ(model.run(READ, "/devices/3/name").body, R"("c")");
}

TEST(StaticCollection, IdsZeroAndFourAreNotFound) {
    Model model(threeDevices());
    EXPECT_EQ(model.run(READ, "/devices/0").status, dme::result::NOT_FOUND);
    EXPECT_EQ(model.run(READ, "/devices/4").status, dme::result::NOT_FOUND);
}

TEST(StaticCollection, IdWithoutDigitsIsNotFound) {
    Model model(threeDevices());
    const Answer answer = model.run(READ, "/devices/abc");
    EXPECT_EQ(answer.status, dme::result::NOT_FOUND);
    EXPECT_EQ(answer.body, "null");
}

TEST(StaticCollection, IdIsReadUpToTheFirstNonDigit) {
    Model model(threeDevices());
    EXPECT_EQ(model.run(READ, "/devices/2abc/name").body, R"("b")");
}

TEST(StaticCollection, IdMayCarryLeadingBlanksAndPlusSign) {
    Model model(threeDevices());
    EXPECT_EQ(model.run(READ, "/devices/ 3/name").body, R"("c")");
    EXPECT_EQ(model.run(READ, "/devices/+1/name").body, R"("a")");
}

TEST(StaticCollection, NegativeIdIsNotFound) {
    Model model(threeDevices());
    EXPECT_EQ(model.run(READ, "/devices/-1").status, dme::result::NOT_FOUND);
}

TEST(StaticCollection, NumberBeyondAnyIndexIsNotFound) {
    if (sizeof(unsigned long) <= sizeof(unsigned int)) {
        GTEST_SKIP() << "an unsigned long cannot hold a number beyond any index here";
    }
    Model model(threeDevices());
    EXPECT_EQ(model.run(READ, "/devices/4294967297").status, dme::result::NOT_FOUND);
}

TEST(StaticCollection, LargestThirtyTwoBitIdIsNotFound) {
    Model model(threeDevices());
    EXPECT_EQ(model.run(READ, "/devices/4294967295").status, dme::result::NOT_FOUND);
}

TEST(StaticCollection, IdBeyondThirtyTwoBitUnsignedLongEndsTheRequestAsUnhandledError) {
    if (sizeof(unsigned long) > sizeof(unsigned int)) {
        GTEST_SKIP() << "4294967296 fits an unsigned long here";
    }
    Model model(threeDevices());
    testing::internal::CaptureStderr();
    const Answer answer = model.run(READ, "/devices/4294967296");
    const std::string diagnostic = testing::internal::GetCapturedStderr();
    EXPECT_EQ(answer.status, dme::result::UNHANDLED);
    EXPECT_THAT(diagnostic, HasSubstr("Exception text: stoul\n"));
}

TEST(StaticCollection, OverlongIdEscapesAsOutOfRange) {
    auto devices = std::unique_ptr<StaticCollection>(threeDevices());
    CollectionWalk walk;
    try {
        devices->getFromId(walk.ctx, ConstHashString("99999999999999999999999"));
        FAIL() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "stoul");
    }
}

TEST(StaticCollection, OverlongIdEndsTheRequestAsUnhandledError) {
    Model model(threeDevices());
    testing::internal::CaptureStderr();
    const Answer answer = model.run(READ, "/devices/99999999999999999999999");
    const std::string diagnostic = testing::internal::GetCapturedStderr();
    EXPECT_EQ(answer.status, dme::result::UNHANDLED);
    EXPECT_THAT(diagnostic, HasSubstr("std::out_of_range"));
    EXPECT_THAT(diagnostic, HasSubstr("Exception text: stoul\n"));
}

TEST(StaticCollection, AtGivesItemsByIndexAndNullPastTheEnd) {
    auto devices = std::unique_ptr<StaticCollection>(threeDevices());
    CollectionWalk walk;
    ASSERT_NE(devices->at(walk.ctx, 2), nullptr);
    EXPECT_EQ(devices->at(walk.ctx, 2)->id(), ConstHashString("3"));
    EXPECT_EQ(devices->at(walk.ctx, 3), nullptr);
}

TEST(StaticCollection, CountsItsItems) {
    auto devices = std::unique_ptr<StaticCollection>(threeDevices());
    CollectionWalk walk;
    EXPECT_EQ(devices->count(walk.ctx), 3u);
    EXPECT_EQ(devices->contextualCount(walk.ctx), 3u);
}

TEST(StaticCollection, SizesAreAllTheNumberOfItems) {
    auto devices = std::unique_ptr<StaticCollection>(threeDevices());
    CollectionWalk walk;
    EXPECT_EQ(devices->getDefaultSize(walk.ctx), 3u);
    EXPECT_EQ(devices->getMinSize(walk.ctx), 3u);
    EXPECT_EQ(devices->getMaxSize(walk.ctx), 3u);
}

// ---- Adding items ----

TEST(StaticCollectionAddItem, TellsIndexAndDecimalId) {
    StaticCollection devices({}, ALL_METHODS, false);
    CollectionItem* first = device("a", 1);
    CollectionItem* second = device("b", 2);
    devices.addItem(first);
    devices.addItem(second);
    EXPECT_EQ(first->index(), 0u);
    EXPECT_EQ(first->id(), ConstHashString("1"));
    EXPECT_EQ(second->index(), 1u);
    EXPECT_EQ(second->id(), ConstHashString("2"));
}

TEST(StaticCollectionAddItem, IgnoresNull) {
    StaticCollection devices({nullptr, device("a", 1)}, ALL_METHODS, false);
    CollectionWalk walk;
    EXPECT_EQ(devices.count(walk.ctx), 1u);
    EXPECT_EQ(devices.at(walk.ctx, 0)->id(), ConstHashString("1"));
}

TEST(StaticCollectionAddItem, ItemWithIdKeepsItsIdAndTakesTheIndex) {
    StaticCollection devices({device("a", 1)}, ALL_METHODS, false);
    CollectionItemWithId* own = deviceWithId("own", "b");
    devices.addItem(own);
    EXPECT_EQ(own->id(), ConstHashString("own"));
    EXPECT_EQ(own->index(), 1u);
}

TEST(StaticCollectionAddItem, ItemAddedLaterIsReachable) {
    auto* devices = threeDevices();
    Model model(devices);
    devices->addItem(device("d", 4));
    EXPECT_EQ(model.run(READ, "/devices/4").body,
              R"({"href":"/devices/4","id":"4","name":"d","port":4})");
}

TEST(StaticCollection, DeletesItsItems) {
    int destroyed = 0;
    {
        StaticCollection devices(
            {new CountedItem(destroyed, false), new CountedItem(destroyed, false)}, ALL_METHODS,
            false);
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(StaticCollection, FailedAdditionTearsTheCollectionDown) {
    int destroyed = 0;
    auto* refusing = new CountedItem(destroyed, true);
    EXPECT_THROW(
        StaticCollection({new CountedItem(destroyed, false), refusing}, ALL_METHODS, false),
        std::runtime_error);
    EXPECT_EQ(destroyed, 2);
}

TEST(StaticCollectionWithId, FailedAdditionTearsTheCollectionDown) {
    int destroyed = 0;
    EXPECT_THROW(StaticCollectionWithId({new CountedItemWithId(destroyed, false),
                                         new CountedItemWithId(destroyed, true)},
                                        ALL_METHODS, false),
                 std::runtime_error);
    EXPECT_EQ(destroyed, 2);
}

TEST(StaticCollection, AttachesItsItemsBelowItself) {
    auto* devices = threeDevices();
    Model model(devices);
    CollectionWalk walk;
    EXPECT_EQ(devices->at(walk.ctx, 1)->parent(), devices);
    EXPECT_EQ(static_cast<std::string>(devices->at(walk.ctx, 1)->path()), "/devices/2");
}

// ---- Requests that a static collection refuses ----

TEST(StaticCollection, CreateIsNotSupported) {
    Model model(threeDevices());
    EXPECT_EQ(model.run(CREATE, "/devices", "", R"({"name":"d"})").status,
              dme::result::NOT_SUPPORTED);
}

TEST(StaticCollection, DeleteOfAnItemIsNotSupported) {
    Model model(threeDevices());
    EXPECT_EQ(model.run(DELETE, "/devices/2").status, dme::result::NOT_SUPPORTED);
    EXPECT_EQ(model.run(READ, "/devices/2/name").body, R"("b")");
}

TEST(StaticCollection, UpdateOfTheWholeCollectionFails) {
    Model model(threeDevices());
    EXPECT_EQ(model.run(UPDATE, "/devices", "", R"({"members":[{"name":"x"}]})").status,
              dme::result::FAILED);
    EXPECT_EQ(model.run(READ, "/devices/1/name").body, R"("a")");
}

TEST(StaticCollection, UpdateOfOneItemChangesIt) {
    Model model(threeDevices());
    EXPECT_EQ(model.run(UPDATE, "/devices/2", "", R"({"name":"x","port":9})").status,
              dme::result::DONE);
    EXPECT_EQ(model.run(READ, "/devices/2").body,
              R"({"href":"/devices/2","id":"2","name":"x","port":9})");
}

// ---- Reading ----

TEST(StaticCollectionRead, WithItemsAndCountKeys) {
    Model model(threeDevices(), namingLexicon());
    const Answer answer = model.run(READ, "/devices", "expand=2");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, R"({"href":"/devices","count":3,"members":[)"
                           R"({"href":"/devices/1","id":"1","name":"a","port":1},)"
                           R"({"href":"/devices/2","id":"2","name":"b","port":2},)"
                           R"({"href":"/devices/3","id":"3","name":"c","port":3}]})");
}

TEST(StaticCollectionRead, WithoutItemsAndCountKeys) {
    Model model(threeDevices(), silentLexicon());
    const Answer answer = model.run(READ, "/devices", "expand=2");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body,
              R"([{"name":"a","port":1},{"name":"b","port":2},{"name":"c","port":3}])");
}

TEST(StaticCollectionRead, ItemsAreShownByPathUntilTheExpandLevelReachesThem) {
    Model model(new StaticCollection({device("a", 1)}, ALL_METHODS, false));
    const std::string byPath = R"({"href":"/devices","count":1,"members":[{"href":"/devices/1"}]})";
    const std::string expanded =
        R"({"href":"/devices","count":1,"members":[{"href":"/devices/1","id":"1","name":"a",)"
        R"("port":1}]})";
    EXPECT_EQ(model.run(READ, "/devices").body, byPath);
    EXPECT_EQ(model.run(READ, "/devices", "expand=1").body, byPath);
    EXPECT_EQ(model.run(READ, "/devices", "expand=2").body, expanded);
}

TEST(StaticCollectionRead, ExpandFromTheRootThroughCollectionAndItems) {
    Model model(new StaticCollection({device("a", 1)}, ALL_METHODS, false));
    EXPECT_EQ(model.run(READ, "/").body, R"({"devices":{"href":"/devices"}})");
    EXPECT_EQ(model.run(READ, "/", "expand=1").body,
              R"({"devices":{"href":"/devices","count":1,"members":[{"href":"/devices/1"}]}})");
    EXPECT_EQ(model.run(READ, "/", "expand=2").body,
              R"({"devices":{"href":"/devices","count":1,"members":[{"href":"/devices/1",)"
              R"("id":"1","name":"a","port":1}]}})");
}

TEST(StaticCollectionRead, AlwaysExpandedCollectionShowsNoPathAndSpendsNoLevel) {
    Model model(new StaticCollection({device("a", 1)}, ALL_METHODS, true));
    EXPECT_EQ(model.run(READ, "/devices", "expand=1").body,
              R"({"count":1,"members":[{"href":"/devices/1","id":"1","name":"a","port":1}]})");
}

TEST(StaticCollectionRead, SelectNamesTheItemMembersDirectly) {
    Model model(threeDevices());
    EXPECT_EQ(model.run(READ, "/devices", "expand=2&select=name").body,
              R"({"href":"/devices","count":3,"members":[{"href":"/devices/1","name":"a"},)"
              R"({"href":"/devices/2","name":"b"},{"href":"/devices/3","name":"c"}]})");
}

TEST(StaticCollectionRead, SelectFromTheRootGoesFromCollectionStraightToItemMembers) {
    Model model(new StaticCollection({device("a", 1), device("b", 2)}, ALL_METHODS, false));
    EXPECT_EQ(model.run(READ, "/", "expand=2&select=devices/port").body,
              R"({"devices":{"href":"/devices","count":2,"members":[{"href":"/devices/1",)"
              R"("port":1},{"href":"/devices/2","port":2}]}})");
}

TEST(StaticCollectionRead, ItemsKeyIsNoLevelOfTheSelection) {
    Model model(new StaticCollection({device("a", 1)}, ALL_METHODS, false));
    EXPECT_EQ(model.run(READ, "/", "expand=2&select=devices/members/name").body,
              R"({"devices":{"href":"/devices","count":1,"members":[{"href":"/devices/1"}]}})");
}

TEST(StaticCollectionRead, SelectCanTakeTheIdMember) {
    Model model(new StaticCollection({device("a", 1)}, ALL_METHODS, false));
    EXPECT_EQ(model.run(READ, "/devices", "expand=2&select=id,port").body,
              R"({"href":"/devices","count":1,"members":[{"href":"/devices/1","id":"1",)"
              R"("port":1}]})");
}

// ---- Schema ----

constexpr const char* DEVICE_SCHEMA =
    R"({"type":"object","properties":{"name":{"type":"string","default":"","minSize":0,)"
    R"("maxSize":65535},"port":{"type":"integer","default":0,"minimum":-2147483648,)"
    R"("maximum":2147483647},"id":{"type":"string","default":"","minSize":0,"maxSize":65536}}})";

TEST(StaticCollectionSchema, ModifiableCollectionHasMinAndMaxSizeOfItsItemCount) {
    Model model(threeDevices(ALL_METHODS));
    const Answer answer = model.run(SCHEMA, "/devices");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, std::string(R"({"type":"array","minSize":3,"maxSize":3,"items":)") +
                               DEVICE_SCHEMA + "}");
}

TEST(StaticCollectionSchema, ReadOnlyCollectionHasFixedSizeOfItsItemCount) {
    Model model(threeDevices(NO_CREATE));
    EXPECT_EQ(model.run(SCHEMA, "/devices").body,
              std::string(R"({"type":"array","fixedSize":3,"items":)") + DEVICE_SCHEMA + "}");
}

TEST(StaticCollectionSchema, ItemsDescribeTheFirstItem) {
    auto* first = new CollectionItem({new Entry("only", new StaticAtomicValue<bool>(true, READ))},
                                     ALL_METHODS, false);
    Model model(new StaticCollection({first, device("b", 2)}, NO_CREATE, false));
    EXPECT_EQ(model.run(SCHEMA, "/devices").body,
              R"({"type":"array","fixedSize":2,"items":{"type":"object","properties":{)"
              R"("only":{"type":"boolean","readonly":true},"id":{"type":"string","default":"",)"
              R"("minSize":0,"maxSize":65536}}}})");
}

TEST(StaticCollectionSchema, EmptyCollectionHasNoReferenceItemAndEmptyItems) {
    auto* devices = new StaticCollection({}, NO_CREATE, false);
    Model model(devices);
    CollectionWalk walk(SCHEMA);
    EXPECT_EQ(devices->getSchemaReferenceItem(walk.ctx), nullptr);
    const Answer answer = model.run(SCHEMA, "/devices");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, R"({"type":"array","fixedSize":0,"items":null})");
}

TEST(StaticCollectionSchema, SchemaOfTheRootListsTheCollection) {
    Model model(new StaticCollection({}, NO_CREATE, false));
    EXPECT_EQ(model.run(SCHEMA, "/").body,
              R"({"type":"object","properties":{"devices":{"type":"array","fixedSize":0,)"
              R"("items":null}}})");
}

// ---- Policies ----

TEST(StaticCollectionPolicyHolders, WildcardGivesEveryItem) {
    CollectionItem* a = device("a", 1);
    CollectionItem* b = device("b", 2);
    StaticCollection devices({a, b}, ALL_METHODS, false);
    std::vector<PermissionPolicyHolder*> holders;
    devices.findPermissionPolicyHolders(ConstHashString("+"), holders);
    EXPECT_THAT(holders, ElementsAre(a, b));
}

TEST(StaticCollectionPolicyHolders, NumberGivesThatItem) {
    CollectionItem* b = device("b", 2);
    StaticCollection devices({device("a", 1), b}, ALL_METHODS, false);
    std::vector<PermissionPolicyHolder*> holders;
    devices.findPermissionPolicyHolders(ConstHashString("2"), holders);
    EXPECT_THAT(holders, ElementsAre(b));
}

TEST(StaticCollectionPolicyHolders, ZeroPastTheEndAndNonNumbersGiveNothing) {
    StaticCollection devices({device("a", 1)}, ALL_METHODS, false);
    std::vector<PermissionPolicyHolder*> holders;
    devices.findPermissionPolicyHolders(ConstHashString("0"), holders);
    devices.findPermissionPolicyHolders(ConstHashString("2"), holders);
    devices.findPermissionPolicyHolders(ConstHashString("abc"), holders);
    EXPECT_TRUE(holders.empty());
}

TEST(StaticCollectionPolicyHolders, OverlongNumberThrowsOutOfRange) {
    StaticCollection devices({device("a", 1)}, ALL_METHODS, false);
    std::vector<PermissionPolicyHolder*> holders;
    EXPECT_THROW(
        devices.findPermissionPolicyHolders(ConstHashString("99999999999999999999999"), holders),
        std::out_of_range);
}

TEST(StaticCollectionPolicy, WildcardConfigurationChangesOnlyTheNameMembers) {
    Model model(new StaticCollection({device("a", 1), device("b", 2)}, ALL_METHODS, false));
    PathBrowser names("devices/+/name");
    model.root().configurePermissionPolicy(names, StaticPolicy(READ),
                                           PermissionPolicyHolder::DefaultPolicyReplacer());
    EXPECT_EQ(model.run(UPDATE, "/devices/1/name", "", R"("x")").status, dme::result::FORBIDDEN);
    EXPECT_EQ(model.run(UPDATE, "/devices/2/name", "", R"("x")").status, dme::result::FORBIDDEN);
    EXPECT_EQ(model.run(UPDATE, "/devices/1/port", "", "7").status, dme::result::DONE);
    EXPECT_EQ(model.run(UPDATE, "/devices/2/port", "", "8").status, dme::result::DONE);
    EXPECT_EQ(model.run(UPDATE, "/devices/2", "", R"({"name":"x","port":9})").status,
              dme::result::DONE);
    EXPECT_EQ(model.run(READ, "/devices", "expand=2").body,
              R"({"href":"/devices","count":2,"members":[)"
              R"({"href":"/devices/1","id":"1","name":"a","port":7},)"
              R"({"href":"/devices/2","id":"2","name":"b","port":9}]})");
}

TEST(StaticCollectionPolicy, NumberedConfigurationChangesThatItemOnly) {
    Model model(new StaticCollection({device("a", 1), device("b", 2)}, ALL_METHODS, false));
    PathBrowser name("devices/2/name");
    model.root().configurePermissionPolicy(name, StaticPolicy(READ),
                                           PermissionPolicyHolder::DefaultPolicyReplacer());
    EXPECT_EQ(model.run(UPDATE, "/devices/1/name", "", R"("x")").status, dme::result::DONE);
    EXPECT_EQ(model.run(UPDATE, "/devices/2/name", "", R"("x")").status, dme::result::FORBIDDEN);
}

TEST(StaticCollectionPolicy, ConfigurationOfAnIdWithoutDigitsReportsNotFound) {
    Model model(threeDevices());
    PathBrowser name("devices/x/name");
    testing::internal::CaptureStderr();
    model.root().configurePermissionPolicy(name, StaticPolicy(READ),
                                           PermissionPolicyHolder::DefaultPolicyReplacer());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\"x\" Not found (devices/x/name)\n");
    EXPECT_EQ(model.run(UPDATE, "/devices/1/name", "", R"("x")").status, dme::result::DONE);
}

// ---- Items with their own ids ----

// Three items "one", "two" and "three" whose second can be hidden.
struct ThreeWithIds {
    ThreeWithIds() {
        auto* second = new CollectionItemWithId([this] { return secondId; }, deviceMembers("b", 2),
                                                ALL_METHODS, false);
        collection = new StaticCollectionWithId(
            {deviceWithId("one", "a"), second, deviceWithId("three", "c")}, ALL_METHODS, false);
    }
    std::string secondId = "two";
    StaticCollectionWithId* collection;
};

TEST(StaticCollectionWithId, ReachesItemsByTheirOwnIds) {
    ThreeWithIds items;
    Model model(items.collection);
    EXPECT_EQ(model.run(READ, "/devices/three/name").body, R"("c")");
    EXPECT_EQ(model.run(READ, "/devices/2").status, dme::result::NOT_FOUND);
}

TEST(StaticCollectionWithId, HiddenItemIsNotCountedListedOrReached) {
    ThreeWithIds items;
    items.secondId = "";
    Model model(items.collection);
    EXPECT_EQ(model.run(READ, "/devices", "select=name&expand=2").body,
              R"({"href":"/devices","count":2,"members":[)"
              R"({"href":"/devices/one","name":"a"},{"href":"/devices/three","name":"c"}]})");
    EXPECT_EQ(model.run(READ, "/devices/two").status, dme::result::NOT_FOUND);
}

TEST(StaticCollectionWithId, AtSkipsHiddenItems) {
    ThreeWithIds items;
    items.secondId = "";
    std::unique_ptr<StaticCollectionWithId> owner(items.collection);
    CollectionWalk walk;
    EXPECT_EQ(items.collection->count(walk.ctx), 2u);
    EXPECT_EQ(items.collection->contextualCount(walk.ctx), 2u);
    ASSERT_NE(items.collection->at(walk.ctx, 1), nullptr);
    EXPECT_EQ(items.collection->at(walk.ctx, 1)->id(), ConstHashString("three"));
    EXPECT_EQ(items.collection->at(walk.ctx, 2), nullptr);
    EXPECT_EQ(items.collection->at(walk.ctx, 3), nullptr);
}

TEST(StaticCollectionWithId, PositionsShiftWhenAnItemReappears) {
    ThreeWithIds items;
    items.secondId = "";
    std::unique_ptr<StaticCollectionWithId> owner(items.collection);
    CollectionWalk walk;
    EXPECT_EQ(items.collection->at(walk.ctx, 1)->id(), ConstHashString("three"));
    items.secondId = "back";
    EXPECT_EQ(items.collection->count(walk.ctx), 3u);
    EXPECT_EQ(items.collection->at(walk.ctx, 1)->id(), ConstHashString("back"));
}

TEST(StaticCollectionWithId, GetFromIdGivesTheFirstItemOfThatId) {
    auto* first = deviceWithId("same", "a");
    StaticCollectionWithId devices({first, deviceWithId("same", "b")}, ALL_METHODS, false);
    CollectionWalk walk;
    EXPECT_EQ(devices.getFromId(walk.ctx, ConstHashString("same")), first);
    EXPECT_EQ(devices.getFromId(walk.ctx, ConstHashString("other")), nullptr);
}

TEST(StaticCollectionWithId, WildcardGivesEveryItemHiddenOnesIncluded) {
    ThreeWithIds items;
    items.secondId = "";
    std::unique_ptr<StaticCollectionWithId> owner(items.collection);
    CollectionWalk walk;
    std::vector<PermissionPolicyHolder*> holders;
    items.collection->findPermissionPolicyHolders(ConstHashString("+"), holders);
    ASSERT_EQ(holders.size(), 3u);
    EXPECT_EQ(holders[0], items.collection->getFromId(walk.ctx, ConstHashString("one")));
    EXPECT_EQ(holders[2], items.collection->getFromId(walk.ctx, ConstHashString("three")));
    EXPECT_EQ(static_cast<CollectionItem*>(holders[1])->id(), ConstHashString(""));
}

TEST(StaticCollectionWithId, PolicyConfigurationAddressesItemsByPosition) {
    ThreeWithIds items;
    Model model(items.collection);
    PathBrowser name("devices/3/name");
    model.root().configurePermissionPolicy(name, StaticPolicy(READ),
                                           PermissionPolicyHolder::DefaultPolicyReplacer());
    EXPECT_EQ(model.run(UPDATE, "/devices/three/name", "", R"("x")").status,
              dme::result::FORBIDDEN);
    EXPECT_EQ(model.run(UPDATE, "/devices/one/name", "", R"("x")").status, dme::result::DONE);
}

TEST(StaticCollectionWithId, SchemaDescribesTheFirstItemEvenWhenHidden) {
    auto* hidden = new CollectionItemWithId(
        [] { return std::string(); }, {new Entry("flag", new StaticAtomicValue<bool>(false, READ))},
        ALL_METHODS, false);
    Model model(new StaticCollectionWithId({hidden}, NO_CREATE, false));
    EXPECT_EQ(model.run(SCHEMA, "/devices").body,
              R"({"type":"array","fixedSize":1,"items":{"type":"object","properties":{)"
              R"("flag":{"type":"boolean","readonly":true},"id":{"type":"string","default":"",)"
              R"("minSize":0,"maxSize":65536}}}})");
}

}  // namespace
}  // namespace dme
