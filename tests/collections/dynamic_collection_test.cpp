#include "dme/dynamic_collection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <typeindex>
#include <vector>

#include "dme/atomic_value.h"
#include "dme/engine.h"
#include "dme/exception.h"
#include "dme/policy.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "leaf_nodes.h"

namespace dme {
namespace {

using test::ALL_METHODS;
using ::testing::ElementsAre;
using SerializationInfo = cxxtools::SerializationInfo;

// The status that the test's exception handler gives a rejected input.
constexpr int REJECTED = 40;

// Every method but CREATE: a collection that is not modifiable.
constexpr std::uint32_t NO_CREATE = AllowedMethods::R | AllowedMethods::U | AllowedMethods::B;
// Every method but UPDATE, for items that cannot be filled.
constexpr std::uint32_t NO_UPDATE =
    AllowedMethods::C | AllowedMethods::R | AllowedMethods::D | AllowedMethods::B;

const Lexicon& namingLexicon() {
    static const Lexicon lexicon{"href", "id", "count", "members", "expand", "select"};
    return lexicon;
}

// A user: a name of at most 8 characters and an age from 0 to 150.
CollectionItem* makeUser(AllowedMethods methods) {
    return new CollectionItem(
        {new Entry("name", new StaticAtomicValue<std::string>("", READ + UPDATE, 0, 8)),
         new Entry("age", new StaticAtomicValue<int>(0, READ + UPDATE, 0, 150))},
        methods, false);
}
DynamicCollection::ItemFactory userFactory(AllowedMethods methods = ALL_METHODS) {
    return [methods] { return makeUser(methods); };
}

// Writes a rejected input as {"error": message, "detail": detail1} and answers REJECTED;
// leaves every other exception to the engine.
int writeRejection(std::exception& e, Context&, const SerializationInfo&, SerializationInfo& out) {
    auto* rejection = dynamic_cast<Exception*>(&e);
    if (rejection == nullptr) return ExceptionHandlers::NOT_HANDLED;
    out.addMember("error").setValue(rejection->message);
    out.addMember("detail").setValue(rejection->detail1);
    return REJECTED;
}

struct Answer {
    int status;
    std::string body;
};

// A data model whose root structure (always expanded) holds the collection under "users",
// served by the JSON engine with every right and with writeRejection as exception handler.
class Model {
  public:
    explicit Model(DynamicCollection* users, const Lexicon& lexicon = namingLexicon())
        : model_(new Structure({new Entry("users", users)}, ALL_METHODS, true), lexicon,
                 ALL_METHODS, ExceptionHandlers({{typeid(Exception), writeRejection}})),
          engine_(model_, "dynamic") {}

    Answer run(Method method, const std::string& uri, const std::string& body = "",
               const std::string& query = "") {
        Answer answer{0, ""};
        answer.status = engine_.execute(method, uri, Arguments(query), body, answer.body, false);
        return answer;
    }
    // The ids of the items, as a listing shows them.
    std::string ids() { return run(READ, "/users", "", "expand=2&select=id").body; }
    Value& root() { return *model_.root(); }

  private:
    DataModel model_;
    JsonDataModelEngine engine_;
};

// A request context standing on a collection attached at /users.
struct CollectionWalk {
    CollectionWalk() : ctx(namingLexicon(), READ, "/users", Arguments(""), false) {
        ctx.next(ConstHashString("users"));
    }
    Context ctx;
};

// ---- Construction ----

TEST(DynamicCollection, RefusesAnEmptyFactory) {
    try {
        DynamicCollection users(nullptr, ALL_METHODS, false);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "A dynamic collection needs an item factory");
    }
}

TEST(DynamicCollection, RefusesAFactoryThatMakesNoItem) {
    try {
        DynamicCollection users([]() -> CollectionItem* { return nullptr; }, ALL_METHODS, false);
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "The item factory of a dynamic collection made no item");
    }
}

TEST(DynamicCollection, MakesItsSchemaReferenceItemAtConstruction) {
    int made = 0;
    DynamicCollection users(
        [&made] {
            ++made;
            return makeUser(ALL_METHODS);
        },
        ALL_METHODS, false);
    CollectionWalk walk;
    EXPECT_EQ(made, 1);
    ASSERT_NE(users.getSchemaReferenceItem(walk.ctx), nullptr);
    EXPECT_EQ(users.getSchemaReferenceItem(walk.ctx)->id(), ConstHashString("+"));
    EXPECT_EQ(users.size(), 0u);
}

TEST(DynamicCollection, SizesAreThoseGiven) {
    DynamicCollection users(userFactory(), ALL_METHODS, false, 1, 10, 4);
    CollectionWalk walk;
    EXPECT_EQ(users.getMinSize(walk.ctx), 1u);
    EXPECT_EQ(users.getMaxSize(walk.ctx), 10u);
    EXPECT_EQ(users.getDefaultSize(walk.ctx), 4u);
}

TEST(DynamicCollection, DefaultSizesAllowAnyNumberOfItems) {
    DynamicCollection users(userFactory(), ALL_METHODS, false);
    CollectionWalk walk;
    EXPECT_EQ(users.getMinSize(walk.ctx), 0u);
    EXPECT_EQ(users.getMaxSize(walk.ctx), 0xFFFFFFFFu);
    EXPECT_EQ(users.getDefaultSize(walk.ctx), 0u);
}

// ---- Creation through requests ----

TEST(DynamicCollectionCreate, ServerChoosesIdOneAndAnswersTheNewItem) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    const Answer answer = model.run(CREATE, "/users", R"({"name":"ann","age":30})");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, R"({"href":"/users/1","id":"1","name":"ann","age":30})");
    EXPECT_EQ(model.run(READ, "/users/1/name").body, R"("ann")");
}

TEST(DynamicCollectionCreate, ServerIdsCountUp) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    model.run(CREATE, "/users", R"({"name":"ann"})");
    model.run(CREATE, "/users", R"({"name":"bob"})");
    EXPECT_EQ(model.run(CREATE, "/users", R"({"name":"cid"})").body,
              R"({"href":"/users/3","id":"3","name":"cid","age":0})");
}

TEST(DynamicCollectionCreate, ServerIdOfADeletedItemIsNotGivenAgain) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    model.run(CREATE, "/users", R"({"name":"ann"})");
    model.run(CREATE, "/users", R"({"name":"bob"})");
    EXPECT_EQ(model.run(DELETE, "/users/2").status, dme::result::DONE);
    model.run(CREATE, "/users", R"({"name":"cid"})");
    EXPECT_EQ(model.ids(), R"({"href":"/users","count":2,"members":[{"href":"/users/1","id":"1"},)"
                           R"({"href":"/users/3","id":"3"}]})");
}

TEST(DynamicCollectionCreate, ServerSkipsIdsThatClientsHaveTaken) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    model.run(CREATE, "/users", R"({"id":"1","name":"ann"})");
    EXPECT_EQ(model.run(CREATE, "/users", R"({"name":"bob"})").body,
              R"({"href":"/users/2","id":"2","name":"bob","age":0})");
}

TEST(DynamicCollectionCreate, ClientChoosesTheIdThroughTheIdMember) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    const Answer answer = model.run(CREATE, "/users", R"({"id":"ann","name":"Ann","age":30})");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, R"({"href":"/users/ann","id":"ann","name":"Ann","age":30})");
    EXPECT_EQ(model.run(READ, "/users/ann/age").body, "30");
}

TEST(DynamicCollectionCreate, NumericClientIdIsTakenAsItsText) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    EXPECT_EQ(model.run(CREATE, "/users", R"({"id":5,"name":"eve"})").body,
              R"({"href":"/users/5","id":"5","name":"eve","age":0})");
}

TEST(DynamicCollectionCreate, ClientIdAlreadyPresentIsRefused) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    model.run(CREATE, "/users", R"({"id":"ann","name":"Ann"})");
    const Answer answer = model.run(CREATE, "/users", R"({"id":"ann","name":"Other"})");
    EXPECT_EQ(answer.status, REJECTED);
    EXPECT_EQ(answer.body, R"({"error":"Value out of range","detail":"ann"})");
    EXPECT_EQ(model.run(READ, "/users/ann/name").body, R"("Ann")");
    EXPECT_EQ(model.run(READ, "/users").body,
              R"({"href":"/users","count":1,"members":[{"href":"/users/ann"}]})");
}

TEST(DynamicCollectionCreate, ClientIdThatCannotBeASegmentIsRefused) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    for (const std::string id : {"", "+", ".", "..", "a/b"}) {
        const Answer answer = model.run(CREATE, "/users", R"({"id":")" + id + R"("})");
        EXPECT_EQ(answer.status, REJECTED) << id;
        EXPECT_EQ(answer.body, R"({"error":"String invalid format","detail":")" + id + R"("})");
    }
    EXPECT_EQ(model.run(READ, "/users").body, R"({"href":"/users","count":0,"members":[]})");
}

TEST(DynamicCollectionCreate, WithoutIdKeyTheServerChoosesAndTheIdMemberIsIgnored) {
    static const Lexicon lexicon{"href", "", "count", "members", "expand", "select"};
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false), lexicon);
    EXPECT_EQ(model.run(CREATE, "/users", R"({"id":"ann","name":"Ann"})").body,
              R"({"href":"/users/1","name":"Ann","age":0})");
}

TEST(DynamicCollectionCreate, NotAllowedWithoutCreate) {
    Model model(new DynamicCollection(userFactory(), NO_CREATE, false));
    EXPECT_EQ(model.run(CREATE, "/users", R"({"name":"ann"})").status, dme::result::NOT_ALLOWED);
}

TEST(DynamicCollectionCreate, GrowthBeyondTheMaximumIsRefused) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false, 0, 2));
    model.run(CREATE, "/users", R"({"name":"ann"})");
    model.run(CREATE, "/users", R"({"id":"bob"})");
    const Answer server = model.run(CREATE, "/users", R"({"name":"cid"})");
    EXPECT_EQ(server.status, REJECTED);
    EXPECT_EQ(server.body, R"({"error":"The maximum number of items in the collection is reached",)"
                           R"("detail":"/users"})");
    const Answer client = model.run(CREATE, "/users", R"({"id":"cid"})");
    EXPECT_EQ(client.status, REJECTED);
    EXPECT_EQ(client.body, R"({"error":"The maximum number of items in the collection is reached",)"
                           R"("detail":"/users"})");
    EXPECT_EQ(model.ids(), R"({"href":"/users","count":2,"members":[{"href":"/users/1","id":"1"},)"
                           R"({"href":"/users/bob","id":"bob"}]})");
}

TEST(DynamicCollectionCreate, ItemRefusingItsValueIsRemovedAgain) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    const Answer answer = model.run(CREATE, "/users", R"({"name":"far too long"})");
    EXPECT_EQ(answer.status, REJECTED);
    EXPECT_EQ(answer.body, R"({"error":"String too long","detail":"far too long"})");
    EXPECT_EQ(model.run(READ, "/users").body, R"({"href":"/users","count":0,"members":[]})");
    EXPECT_EQ(model.run(READ, "/users/1").status, dme::result::NOT_FOUND);
}

TEST(DynamicCollectionCreate, ClientIdOfARefusedItemStaysFree) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    EXPECT_EQ(model.run(CREATE, "/users", R"({"id":"ann","age":200})").status, REJECTED);
    EXPECT_EQ(model.run(CREATE, "/users", R"({"id":"ann","age":20})").status, dme::result::DONE);
}

TEST(DynamicCollectionCreate, NumberOfARefusedItemIsNotGivenAgain) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    model.run(CREATE, "/users", R"({"age":200})");
    EXPECT_EQ(model.run(CREATE, "/users", R"({"age":20})").body,
              R"({"href":"/users/2","id":"2","name":"","age":20})");
}

TEST(DynamicCollectionCreate, ItemThatCannotBeFilledIsRemovedAndItsStatusAnswered) {
    Model model(new DynamicCollection(userFactory(NO_UPDATE), ALL_METHODS, false));
    const Answer answer = model.run(CREATE, "/users", R"({"name":"ann"})");
    EXPECT_EQ(answer.status, dme::result::NOT_ALLOWED);
    EXPECT_EQ(answer.body, "null");
    EXPECT_EQ(model.run(READ, "/users").body, R"({"href":"/users","count":0,"members":[]})");
}

TEST(DynamicCollectionCreate, ItemThatCannotBeAnsweredIsRemoved) {
    static const Lexicon lexicon{"", "id", "count", "members", "expand", "select"};
    constexpr std::uint32_t NO_READ = AllowedMethods::C | AllowedMethods::U | AllowedMethods::B;
    Model model(new DynamicCollection(userFactory(NO_READ), ALL_METHODS, false), lexicon);
    const Answer answer = model.run(CREATE, "/users", R"({"name":"ann"})");
    EXPECT_EQ(answer.status, dme::result::NOT_ALLOWED);
    EXPECT_EQ(answer.body, "null");
    EXPECT_EQ(model.run(READ, "/users").body, R"({"count":0,"members":[]})");
}

// ---- Deletion ----

TEST(DynamicCollectionDelete, RemovesTheItem) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    model.run(CREATE, "/users", R"({"name":"ann"})");
    const Answer answer = model.run(DELETE, "/users/1");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, "null");
    EXPECT_EQ(model.run(READ, "/users/1").status, dme::result::NOT_FOUND);
}

TEST(DynamicCollectionDelete, LaterItemsAreToldTheirNewIndexes) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    model.run(CREATE, "/users", R"({"name":"ann"})");
    model.run(CREATE, "/users", R"({"name":"bob"})");
    model.run(CREATE, "/users", R"({"name":"cid"})");
    EXPECT_EQ(model.run(DELETE, "/users/1").status, dme::result::DONE);
    EXPECT_EQ(model.run(DELETE, "/users/3").status, dme::result::DONE);
    EXPECT_EQ(model.ids(),
              R"({"href":"/users","count":1,"members":[{"href":"/users/2","id":"2"}]})");
}

TEST(DynamicCollectionDelete, UnknownItemIsNotFound) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    EXPECT_EQ(model.run(DELETE, "/users/1").status, dme::result::NOT_FOUND);
}

TEST(DynamicCollectionDelete, ItemWithoutDeleteIsNotAllowed) {
    constexpr std::uint32_t NO_DELETE =
        AllowedMethods::C | AllowedMethods::R | AllowedMethods::U | AllowedMethods::B;
    Model model(new DynamicCollection(userFactory(NO_DELETE), ALL_METHODS, false));
    model.run(CREATE, "/users", R"({"name":"ann"})");
    EXPECT_EQ(model.run(DELETE, "/users/1").status, dme::result::NOT_ALLOWED);
    EXPECT_EQ(model.run(READ, "/users/1/name").body, R"("ann")");
}

TEST(DynamicCollectionDelete, IndexPastTheEndIsNotFound) {
    DynamicCollection users(userFactory(), ALL_METHODS, false);
    users.addItem();
    CollectionWalk walk;
    EXPECT_EQ(users.destroyItem(walk.ctx, 1), 3);
    EXPECT_EQ(users.size(), 1u);
}

// ---- Replacing the content ----

TEST(DynamicCollectionUpdate, ReplacesEveryItem) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    model.run(CREATE, "/users", R"({"name":"ann"})");
    const Answer answer = model.run(
        UPDATE, "/users", R"({"members":[{"id":"x","name":"xen","age":1},{"name":"yul"}]})");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body, "null");
    EXPECT_EQ(model.run(READ, "/users", "", "expand=2").body,
              R"({"href":"/users","count":2,"members":[)"
              R"({"href":"/users/x","id":"x","name":"xen","age":1},)"
              R"({"href":"/users/2","id":"2","name":"yul","age":0}]})");
}

TEST(DynamicCollectionUpdate, BodyWithoutItemsMemberEmptiesTheCollection) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    model.run(CREATE, "/users", R"({"name":"ann"})");
    EXPECT_EQ(model.run(UPDATE, "/users", "{}").status, dme::result::DONE);
    EXPECT_EQ(model.run(READ, "/users").body, R"({"href":"/users","count":0,"members":[]})");
}

TEST(DynamicCollectionUpdate, ElementRefusingItsValueIsLeftOut) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    const Answer answer =
        model.run(UPDATE, "/users", R"({"members":[{"name":"ann"},{"name":"far too long"}]})");
    EXPECT_EQ(answer.status, REJECTED);
    EXPECT_EQ(model.ids(),
              R"({"href":"/users","count":1,"members":[{"href":"/users/1","id":"1"}]})");
}

TEST(DynamicCollectionUpdate, ListBeyondTheMaximumStopsAtTheMaximum) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false, 0, 1));
    const Answer answer = model.run(UPDATE, "/users", R"({"members":[{"id":"a"},{"id":"b"}]})");
    EXPECT_EQ(answer.status, REJECTED);
    EXPECT_EQ(answer.body, R"({"error":"The maximum number of items in the collection is reached",)"
                           R"("detail":"/users"})");
    EXPECT_EQ(model.ids(),
              R"({"href":"/users","count":1,"members":[{"href":"/users/a","id":"a"}]})");
}

// ---- Reading and schema ----

TEST(DynamicCollectionRead, SelectAndExpandReachTheItems) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    model.run(CREATE, "/users", R"({"name":"ann","age":30})");
    EXPECT_EQ(model.run(READ, "/", "", "expand=2&select=users/age").body,
              R"({"users":{"href":"/users","count":1,"members":[{"href":"/users/1","age":30}]}})");
}

TEST(DynamicCollectionSchema, ModifiableCollectionAnnouncesItsLimits) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false, 1, 5, 2));
    const Answer answer = model.run(SCHEMA, "/users");
    EXPECT_EQ(answer.status, dme::result::DONE);
    EXPECT_EQ(answer.body,
              R"({"type":"array","minSize":1,"maxSize":5,"items":{"type":"object",)"
              R"("properties":{"name":{"type":"string","default":"","minSize":0,"maxSize":8},)"
              R"("age":{"type":"integer","default":0,"minimum":0,"maximum":150},)"
              R"("id":{"type":"string","default":"","minSize":0,"maxSize":65536}}}})");
}

TEST(DynamicCollectionSchema, ReadOnlyCollectionAnnouncesItsDefaultSize) {
    Model model(new DynamicCollection(userFactory(), NO_CREATE, false, 1, 5, 2));
    EXPECT_EQ(model.run(SCHEMA, "/users").body,
              R"({"type":"array","fixedSize":2,"items":{"type":"object",)"
              R"("properties":{"name":{"type":"string","default":"","minSize":0,"maxSize":8},)"
              R"("age":{"type":"integer","default":0,"minimum":0,"maximum":150},)"
              R"("id":{"type":"string","default":"","minSize":0,"maxSize":65536}}}})");
}

// ---- Policies ----

TEST(DynamicCollectionPolicyHolders, WildcardGivesReferenceThenEveryItem) {
    DynamicCollection users(userFactory(), ALL_METHODS, false);
    CollectionItem& first = users.addItem();
    CollectionItem& second = users.addItem();
    CollectionWalk walk;
    std::vector<PermissionPolicyHolder*> holders;
    users.findPermissionPolicyHolders(ConstHashString("+"), holders);
    EXPECT_THAT(holders, ElementsAre(users.getSchemaReferenceItem(walk.ctx), &first, &second));
}

TEST(DynamicCollectionPolicyHolders, IdGivesThatItemOnly) {
    DynamicCollection users(userFactory(), ALL_METHODS, false);
    users.addItem();
    CollectionItem& second = users.addItem("k");
    std::vector<PermissionPolicyHolder*> holders;
    users.findPermissionPolicyHolders(ConstHashString("k"), holders);
    users.findPermissionPolicyHolders(ConstHashString("nosuch"), holders);
    EXPECT_THAT(holders, ElementsAre(&second));
}

TEST(DynamicCollectionPolicy, WildcardConfigurationChangesOnlyTheNamesOfPresentItems) {
    Model model(new DynamicCollection(userFactory(), ALL_METHODS, false));
    model.run(CREATE, "/users", R"({"name":"ann"})");
    model.run(CREATE, "/users", R"({"name":"bob"})");
    PathBrowser names("users/+/name");
    model.root().configurePermissionPolicy(names, StaticPolicy(READ),
                                           PermissionPolicyHolder::DefaultPolicyReplacer());
    EXPECT_EQ(model.run(UPDATE, "/users/1/name", R"("x")").status, dme::result::FORBIDDEN);
    EXPECT_EQ(model.run(UPDATE, "/users/2/name", R"("x")").status, dme::result::FORBIDDEN);
    EXPECT_EQ(model.run(UPDATE, "/users/2/age", "7").status, dme::result::DONE);
    EXPECT_EQ(model.run(CREATE, "/users", R"({"name":"cid"})").status, dme::result::DONE);
    EXPECT_EQ(model.run(UPDATE, "/users/3/name", R"("x")").status, dme::result::DONE);
    EXPECT_EQ(model.run(READ, "/users", "", "expand=2&select=name,age").body,
              R"({"href":"/users","count":3,"members":[)"
              R"({"href":"/users/1","name":"ann","age":0},)"
              R"({"href":"/users/2","name":"bob","age":7},)"
              R"({"href":"/users/3","name":"x","age":0}]})");
}

// ---- Items added by the application ----

TEST(DynamicCollectionAddItem, ServerAndClientIdsAsForRequests) {
    DynamicCollection users(userFactory(), ALL_METHODS, false);
    CollectionItem& first = users.addItem();
    CollectionItem& named = users.addItem("1x");
    CollectionItem& second = users.addItem();
    EXPECT_EQ(first.id(), ConstHashString("1"));
    EXPECT_EQ(named.id(), ConstHashString("1x"));
    EXPECT_EQ(second.id(), ConstHashString("2"));
    EXPECT_EQ(second.index(), 2u);
    EXPECT_EQ(users.size(), 3u);
}

TEST(DynamicCollectionAddItem, TakenIdThrowsValueOutOfRange) {
    DynamicCollection users(userFactory(), ALL_METHODS, false);
    users.addItem("k");
    try {
        users.addItem("k");
        FAIL() << "no exception";
    } catch (const Exception& e) {
        EXPECT_EQ(e.id, Error::VALUE_OUT_OF_RANGE);
        EXPECT_EQ(e.detail1, "k");
    }
    EXPECT_EQ(users.size(), 1u);
}

TEST(DynamicCollectionAddItem, FullCollectionThrowsMaxSizeReachedWithItsPath) {
    auto* users = new DynamicCollection(userFactory(), ALL_METHODS, false, 0, 1);
    Model model(users);
    users->addItem();
    try {
        users->addItem("k");
        FAIL() << "no exception";
    } catch (const Exception& e) {
        EXPECT_EQ(e.id, Error::MAX_SIZE_REACHED);
        EXPECT_EQ(e.message, "The maximum number of items in the collection is reached");
        EXPECT_EQ(e.detail1, "/users");
    }
    EXPECT_EQ(users->size(), 1u);
}

TEST(DynamicCollectionAddItem, ItemsAreAttachedBelowTheCollection) {
    auto* users = new DynamicCollection(userFactory(), ALL_METHODS, false);
    Model model(users);
    CollectionItem& item = users->addItem("k");
    EXPECT_EQ(item.parent(), users);
    EXPECT_EQ(static_cast<std::string>(item.path()), "/users/k");
    EXPECT_EQ(model.run(READ, "/users/k/age").body, "0");
}

TEST(DynamicCollection, LookupOperationsSeeTheItems) {
    DynamicCollection users(userFactory(), ALL_METHODS, false);
    CollectionItem& first = users.addItem();
    CollectionItem& second = users.addItem("k");
    CollectionWalk walk;
    EXPECT_EQ(users.count(walk.ctx), 2u);
    EXPECT_EQ(users.contextualCount(walk.ctx), 2u);
    EXPECT_EQ(users.at(walk.ctx, 0), &first);
    EXPECT_EQ(users.at(walk.ctx, 2), nullptr);
    EXPECT_EQ(users.getFromId(walk.ctx, ConstHashString("k")), &second);
    EXPECT_EQ(users.getFromId(walk.ctx, ConstHashString("2")), nullptr);
}

TEST(DynamicCollection, ClearRemovesEveryItem) {
    DynamicCollection users(userFactory(), ALL_METHODS, false);
    users.addItem();
    users.addItem();
    EXPECT_EQ(users.clear(), 0);
    EXPECT_EQ(users.size(), 0u);
}

}  // namespace
}  // namespace dme
