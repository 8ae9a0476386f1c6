#include "dme/link.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "dme/atomic_value.h"
#include "dme/collection.h"
#include "dme/container.h"
#include "dme/engine.h"
#include "dme/exception.h"
#include "dme/json.h"
#include "dme/path.h"
#include "dme/result.h"
#include "dme/static_collection.h"
#include "dme/structure.h"
#include "request.h"

namespace dme {
namespace {

using cxxtools::SerializationInfo;
using ::testing::ElementsAre;

using TextValue = StaticAtomicValue<std::string>;

constexpr std::uint32_t ALL_METHODS = 0x1F;

// A text value that records the calls that store into it. Its result for setValue is
// `setResult`.
class RecordingText : public TextValue {
  public:
    explicit RecordingText(const std::string& text, int setResult = result::DONE)
        : TextValue(text, ALL_METHODS), setResult_(setResult) {}

    const std::vector<std::string>& calls() const { return calls_; }

    void validateValue(Context& ctx, const std::string& value) override {
        record("validate " + value);
        TextValue::validateValue(ctx, value);
    }
    int setValue(Context& ctx, const std::string& value) override {
        record("set " + value);
        TextValue::setValue(ctx, value);
        return setResult_;
    }

  protected:
    void record(const std::string& call) { calls_.push_back(call); }

  private:
    int setResult_;
    std::vector<std::string> calls_;
};

// A text value that stores through its own updateValue, without validation and without
// passing through the recorded validateValue and setValue.
class StoringText : public RecordingText {
  public:
    using RecordingText::RecordingText;

    int updateValue(Context& ctx, const std::string& value) override {
        record("update " + value);
        return TextValue::setValue(ctx, value);
    }
};

// A list of texts held in the node; setValue stores it.
class TextList : public ArrayValue<std::string> {
  public:
    explicit TextList(std::vector<std::string> list)
        : ArrayValue<std::string>(ALL_METHODS), list_(std::move(list)) {}

    const std::vector<std::string>& list() const { return list_; }

    std::vector<std::string> getValue(Context&) override { return list_; }
    int setValue(Context&, const std::vector<std::string>& value) override {
        list_ = value;
        return result::DONE;
    }

  private:
    std::vector<std::string> list_;
};

// Sets `*deleted` when destroyed.
template <class Base>
class DeletionProbe : public Base {
  public:
    template <class... Args>
    explicit DeletionProbe(bool* deleted, Args&&... args)
        : Base(std::forward<Args>(args)...), deleted_(deleted) {}
    ~DeletionProbe() override { *deleted_ = true; }

  private:
    bool* deleted_;
};

// A device item: its "peer" link has the base ../../devices and `peer` as its stored part.
CollectionItem* device(Link* peer) {
    return new CollectionItem({new Entry("peer", peer)}, ALL_METHODS, true);
}

// The tree of the tests:
//   /devices/1/peer     a link with the base ../../devices; stored part "2" (`peerPart_`)
//   /devices/2/peer     a link with the base ../../devices and no storage
//   /users/1/device     a link with the absolute base /devices; stored part "1"
//   /favourites         a link array with the base "devices"; stored parts "1", "3"
//   /nothing            a link array without storage
// served by a JSON engine whose handler answers a dme::Exception with 40, its message and
// details.
class LinkTree : public ::testing::Test {
  protected:
    LinkTree()
        : peerPart_(new RecordingText("2")),
          favouriteParts_(new TextList({"1", "3"})),
          engine_(
              new DataModel(
                  new Structure(
                      {new Entry(
                           "devices",
                           new StaticCollection(
                               {device(new Link(Path("../../devices"), peerPart_, ALL_METHODS)),
                                device(new Link(Path("../../devices"), nullptr, ALL_METHODS))},
                               ALL_METHODS, true)),
                       new Entry(
                           "users",
                           new StaticCollection(
                               {new CollectionItem(
                                   {new Entry("device", new Link(Path("/devices"),
                                                                 new TextValue("1", ALL_METHODS),
                                                                 ALL_METHODS))},
                                   ALL_METHODS, true)},
                               ALL_METHODS, true)),
                       new Entry("favourites",
                                 new LinkArray(Path("devices"), favouriteParts_, ALL_METHODS)),
                       new Entry("nothing", new LinkArray(Path("devices"), nullptr, ALL_METHODS))},
                      ALL_METHODS, true),
                  test::testLexicon(), ALL_METHODS,
                  ExceptionHandlers({{typeid(Exception), handler}})),
              "links") {}

    static int handler(std::exception& e, Context&, const SerializationInfo&,
                       SerializationInfo& out) {
        const Exception& error = static_cast<Exception&>(e);
        out.addMember("message").setValue(error.message);
        out.addMember("detail1").setValue(error.detail1);
        out.addMember("detail2").setValue(error.detail2);
        return 40;
    }

    int execute(Method method, const std::string& uri, const std::string& body = "") {
        return engine_.execute(method, uri, Arguments(), body, out_, false);
    }

    std::string read(const std::string& uri) {
        EXPECT_EQ(execute(READ, uri), result::DONE) << uri;
        return out_;
    }

    std::string storedPeer() {
        Context ctx(test::testLexicon(), READ, "/", Arguments(), false);
        return peerPart_->getValue(ctx);
    }

    RecordingText* peerPart_;
    TextList* favouriteParts_;
    JsonDataModelEngine engine_;
    std::string out_;
};

// ---- Link: construction ----

TEST(LinkTest, AllowsOnlyReadAndUpdateOfTheMethodsGiven) {
    Link all(Path("a"), nullptr, ALL_METHODS);
    EXPECT_EQ(all.allowedMethods(), AllowedMethods(AllowedMethods::R | AllowedMethods::U));
    Link readOnly(Path("a"), nullptr, AllowedMethods::R | AllowedMethods::C);
    EXPECT_EQ(readOnly.allowedMethods(), AllowedMethods(AllowedMethods::R));
}

TEST(LinkTest, IsAnAlwaysExpandedString) {
    Link link(Path("a"), nullptr, ALL_METHODS);
    EXPECT_STREQ(link.getType(), "string");
    EXPECT_TRUE(link.alwaysExpanded());
}

TEST(LinkTest, OwnsStorageGivenByPointer) {
    bool deleted = false;
    { Link link(Path("a"), new DeletionProbe<TextValue>(&deleted, "x", ALL_METHODS), ALL_METHODS); }
    EXPECT_TRUE(deleted);
}

TEST(LinkTest, LeavesStorageGivenByReferenceToTheCaller) {
    bool deleted = false;
    DeletionProbe<TextValue> storage(&deleted, "x", ALL_METHODS);
    { Link link(Path("a"), storage, ALL_METHODS); }
    EXPECT_FALSE(deleted);
}

TEST(LinkTest, OwnsStorageGivenBySmartPointer) {
    bool deleted = false;
    {
        SmartPointer<AtomicValue<std::string>> storage(
            new DeletionProbe<TextValue>(&deleted, "x", ALL_METHODS));
        Link link(Path("a"), std::move(storage), ALL_METHODS);
        EXPECT_FALSE(deleted);
    }
    EXPECT_TRUE(deleted);
}

// ---- Link: reading ----

TEST_F(LinkTree, ALinkReadsAsTheFullPathOfItsTarget) {
    EXPECT_EQ(read("/devices/1/peer"), R"("/devices/2")");
}

TEST_F(LinkTree, ALinkIsListedWithItsParent) {
    EXPECT_EQ(read("/devices/1"), R"({"href":"/devices/1","id":"1","peer":"/devices/2"})");
}

TEST_F(LinkTree, ALinkWithAnAbsoluteBaseReadsBelowThatBase) {
    EXPECT_EQ(read("/users/1/device"), R"("/devices/1")");
}

TEST_F(LinkTree, ALinkWithoutStorageReadsAsItsBasePath) {
    EXPECT_EQ(read("/devices/2/peer"), R"("/devices")");
}

TEST(LinkTest, JoinedPathsAreInNormalForm) {
    Link link(Path("../x/./../devices/"), new TextValue("a/../2", ALL_METHODS), ALL_METHODS);
    Context ctx(test::testLexicon(), READ, "/", Arguments(), false);
    ctx.next("root");
    ctx.next("peer");
    EXPECT_EQ(link.getValue(ctx), "/devices/2");
}

TEST(LinkTest, AStoredPartOfSeveralSegmentsIsJoinedWhole) {
    Link link(Path("devices"), new TextValue("2/name", ALL_METHODS), ALL_METHODS);
    Context ctx(test::testLexicon(), READ, "/", Arguments(), false);
    ctx.next("peer");
    EXPECT_EQ(link.getValue(ctx), "/devices/2/name");
}

TEST(LinkTest, AnAbsoluteStoredPartReplacesTheBase) {
    Link link(Path("devices"), new TextValue("/users/1", ALL_METHODS), ALL_METHODS);
    Context ctx(test::testLexicon(), READ, "/", Arguments(), false);
    ctx.next("peer");
    EXPECT_EQ(link.getValue(ctx), "/users/1");
}

TEST(LinkTest, AtTheRootTheBaseIsJoinedToTheRoot) {
    Link link(Path("devices"), new TextValue("4", ALL_METHODS), ALL_METHODS);
    Context ctx(test::testLexicon(), READ, "/", Arguments(), false);
    EXPECT_EQ(link.getValue(ctx), "/devices/4");
}

// ---- Link: writing ----

TEST_F(LinkTree, WritingTheFullPathThatWasReadStoresTheSamePart) {
    const std::string shown = read("/devices/1/peer");
    EXPECT_EQ(execute(UPDATE, "/devices/1/peer", shown), result::DONE);
    EXPECT_EQ(storedPeer(), "2");
    EXPECT_THAT(peerPart_->calls(), ElementsAre("validate 2", "set 2"));
    EXPECT_EQ(read("/devices/1/peer"), shown);
}

TEST_F(LinkTree, WritingAnotherTargetStoresItsPartBelowTheBase) {
    EXPECT_EQ(execute(UPDATE, "/devices/1/peer", R"("/devices/7/name")"), result::DONE);
    EXPECT_EQ(storedPeer(), "7/name");
    EXPECT_EQ(read("/devices/1/peer"), R"("/devices/7/name")");
}

TEST_F(LinkTree, ARelativeTextIsTakenFromTheLinksParent) {
    EXPECT_EQ(execute(UPDATE, "/devices/1/peer", R"("../3")"), result::DONE);
    EXPECT_EQ(storedPeer(), "3");
}

TEST_F(LinkTree, WritingTheBasePathItselfStoresTheEmptyString) {
    EXPECT_EQ(execute(UPDATE, "/devices/1/peer", R"("/devices")"), result::DONE);
    EXPECT_EQ(storedPeer(), "");
    EXPECT_EQ(read("/devices/1/peer"), R"("/devices")");
}

TEST_F(LinkTree, WritingAPathBesideTheBaseIsOutOfRange) {
    EXPECT_EQ(execute(UPDATE, "/devices/1/peer", R"("/users/2")"), 40);
    EXPECT_EQ(out_, R"({"message":"Value out of range","detail1":"peer","detail2":""})");
    EXPECT_EQ(storedPeer(), "2");
    EXPECT_TRUE(peerPart_->calls().empty());
}

TEST_F(LinkTree, APathThatOnlySharesTheBasesLettersIsOutOfRange) {
    EXPECT_EQ(execute(UPDATE, "/devices/1/peer", R"("/devicesX/2")"), 40);
    EXPECT_EQ(out_, R"({"message":"Value out of range","detail1":"peer","detail2":""})");
    EXPECT_EQ(storedPeer(), "2");
}

TEST_F(LinkTree, APathAboveTheBaseIsOutOfRange) {
    EXPECT_EQ(execute(UPDATE, "/devices/1/peer", R"("/")"), 40);
    EXPECT_EQ(out_, R"({"message":"Value out of range","detail1":"peer","detail2":""})");
}

TEST_F(LinkTree, ALinkWithoutStorageIgnoresWritesBelowItsBase) {
    EXPECT_EQ(execute(UPDATE, "/devices/2/peer", R"("/devices/1")"), result::DONE);
    EXPECT_EQ(read("/devices/2/peer"), R"("/devices")");
}

TEST_F(LinkTree, ALinkWithoutStorageStillRefusesWritesOutsideItsBase) {
    EXPECT_EQ(execute(UPDATE, "/devices/2/peer", R"("/users/1")"), 40);
    EXPECT_EQ(out_, R"({"message":"Value out of range","detail1":"peer","detail2":""})");
}

TEST_F(LinkTree, AnAbsoluteBaseAcceptsItsOwnTargets) {
    EXPECT_EQ(execute(UPDATE, "/users/1/device", R"("/devices/2")"), result::DONE);
    EXPECT_EQ(read("/users/1/device"), R"("/devices/2")");
}

TEST_F(LinkTree, ANonTextIsAnInvalidType) {
    EXPECT_EQ(execute(UPDATE, "/devices/1/peer", "5"), 40);
    EXPECT_EQ(out_, R"({"message":"Invalid type","detail1":"peer","detail2":"string"})");
}

TEST_F(LinkTree, CreateAndDeleteOfALinkAreNotAllowed) {
    EXPECT_EQ(execute(CREATE, "/devices/1/peer", R"("/devices/1")"), result::NOT_ALLOWED);
    EXPECT_EQ(execute(DELETE, "/devices/1/peer"), result::NOT_ALLOWED);
    EXPECT_EQ(storedPeer(), "2");
}

TEST_F(LinkTree, APathBelowALinkIsNotResolved) {
    EXPECT_EQ(execute(READ, "/devices/1/peer/name"), result::NOT_ALLOWED);
}

TEST(LinkTest, StorageValidationErrorsPassUnchanged) {
    TextValue storage("2", ALL_METHODS, 0, 1);
    Link link(Path("devices"), storage, ALL_METHODS);
    Context ctx(test::testLexicon(), UPDATE, "/", Arguments(), false);
    ctx.next("peer");
    try {
        link.setValue(ctx, "/devices/22");
        ADD_FAILURE() << "nothing thrown";
    } catch (const Exception& e) {
        EXPECT_EQ(e.id, Error::STRING_TOO_LONG);
        EXPECT_EQ(e.message, "String too long");
        EXPECT_EQ(e.detail1, "22");
        EXPECT_EQ(e.detail2, "1");
    }
    EXPECT_EQ(storage.getValue(ctx), "2");
}

TEST(LinkTest, StorageThatOverridesUpdateValueStoresOnlyThroughIt) {
    StoringText storage("2");
    Link link(Path("devices"), storage, ALL_METHODS);
    Context ctx(test::testLexicon(), UPDATE, "/", Arguments(), false);
    ctx.next("peer");
    EXPECT_EQ(link.setValue(ctx, "/devices/5"), result::DONE);
    EXPECT_THAT(storage.calls(), ElementsAre("update 5"));
    EXPECT_EQ(storage.getValue(ctx), "5");
}

TEST(LinkTest, SetValueReturnsTheStoragesResult) {
    RecordingText storage("2", 5);
    Link link(Path("devices"), storage, ALL_METHODS);
    Context ctx(test::testLexicon(), UPDATE, "/", Arguments(), false);
    ctx.next("peer");
    EXPECT_EQ(link.setValue(ctx, "/devices/3"), 5);
    EXPECT_THAT(storage.calls(), ElementsAre("validate 3", "set 3"));
}

TEST(LinkTest, SetValueWithoutStorageReturnsZero) {
    Link link(Path("devices"), nullptr, ALL_METHODS);
    Context ctx(test::testLexicon(), UPDATE, "/", Arguments(), false);
    ctx.next("peer");
    EXPECT_EQ(link.setValue(ctx, "/devices/3"), result::DONE);
}

// ---- Link: schema ----

TEST_F(LinkTree, SchemaOfAModifiableLinkIsThatOfAString) {
    EXPECT_EQ(execute(SCHEMA, "/devices/1/peer"), result::DONE);
    EXPECT_EQ(out_, R"({"type":"string","default":"","minSize":0,"maxSize":65535})");
}

TEST(LinkTest, SchemaOfAReadOnlyLink) {
    Link link(Path("devices"), nullptr, AllowedMethods::R);
    test::Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(link), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"type":"string","readonly":true})");
}

// ---- LinkArray ----

TEST(LinkArrayTest, PassesItsMethodsToTheArray) {
    LinkArray links(Path("devices"), nullptr, ALL_METHODS);
    EXPECT_EQ(links.allowedMethods(),
              AllowedMethods(AllowedMethods::R | AllowedMethods::U | AllowedMethods::B));
}

TEST(LinkArrayTest, OwnsStorageGivenByPointer) {
    bool deleted = false;
    {
        LinkArray links(Path("a"),
                        new DeletionProbe<TextList>(&deleted, std::vector<std::string>{}),
                        ALL_METHODS);
    }
    EXPECT_TRUE(deleted);
}

TEST(LinkArrayTest, LeavesStorageGivenByReferenceToTheCaller) {
    bool deleted = false;
    DeletionProbe<TextList> storage(&deleted, std::vector<std::string>{});
    { LinkArray links(Path("a"), storage, ALL_METHODS); }
    EXPECT_FALSE(deleted);
}

TEST_F(LinkTree, ALinkArrayReadsAsFullPathsInOrder) {
    EXPECT_EQ(read("/favourites"), R"(["/devices/1","/devices/3"])");
}

TEST_F(LinkTree, ALinkArrayWithoutStorageReadsAsAnEmptyList) {
    EXPECT_EQ(read("/nothing"), "[]");
}

TEST(LinkArrayTest, AnEmptyStorageGivesAnEmptyList) {
    LinkArray links(Path("devices"), new TextList({}), ALL_METHODS);
    Context ctx(test::testLexicon(), READ, "/", Arguments(), false);
    ctx.next("links");
    EXPECT_TRUE(links.getValue(ctx).empty());
}

TEST(LinkArrayTest, ElementsAreJoinedInNormalForm) {
    LinkArray links(Path("../devices"), new TextList({"a/../2", "/users/1", ""}), ALL_METHODS);
    Context ctx(test::testLexicon(), READ, "/", Arguments(), false);
    ctx.next("site");
    ctx.next("links");
    EXPECT_THAT(links.getValue(ctx), ElementsAre("/devices/2", "/users/1", "/devices"));
}

TEST_F(LinkTree, OneLinkOfALinkArrayIsReadByIndex) {
    EXPECT_EQ(read("/favourites/1"), R"("/devices/3")");
}

TEST_F(LinkTree, AnIndexPastTheLinkArrayIsOutOfBounds) {
    EXPECT_EQ(execute(READ, "/favourites/2"), 40);
    EXPECT_EQ(out_, R"({"message":"Index is out of the array bounds","detail1":"2","detail2":""})");
}

TEST_F(LinkTree, ALinkArrayCannotBeWritten) {
    EXPECT_EQ(execute(UPDATE, "/favourites", R"(["/devices/2"])"), result::NOT_SUPPORTED);
    EXPECT_THAT(favouriteParts_->list(), ElementsAre("1", "3"));
    EXPECT_EQ(read("/favourites"), R"(["/devices/1","/devices/3"])");
}

TEST_F(LinkTree, AnUpdateBelowALinkArrayChangesNothing) {
    EXPECT_EQ(execute(UPDATE, "/favourites/0", R"("/devices/2")"), result::DONE);
    EXPECT_THAT(favouriteParts_->list(), ElementsAre("1", "3"));
}

TEST(LinkArrayTest, SetValueAnswersNotSupported) {
    TextList storage({"1"});
    LinkArray links(Path("devices"), storage, ALL_METHODS);
    Context ctx(test::testLexicon(), UPDATE, "/", Arguments(), false);
    EXPECT_EQ(links.setValue(ctx, {"/devices/2"}), result::NOT_SUPPORTED);
    EXPECT_THAT(storage.list(), ElementsAre("1"));
}

TEST_F(LinkTree, SchemaOfALinkArray) {
    EXPECT_EQ(execute(SCHEMA, "/favourites"), result::DONE);
    EXPECT_EQ(out_, R"({"type":"array","minSize":0,"maxSize":4294967295,)"
                    R"("items":{"type":"string","default":"","minSize":0,"maxSize":65535}})");
}

}  // namespace
}  // namespace dme
