#include "dme/array.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "dme/atomic_value.h"
#include "dme/container.h"
#include "dme/engine.h"
#include "dme/exception.h"
#include "dme/json.h"
#include "dme/path.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "leaf_nodes.h"
#include "request.h"
#include "test_nodes.h"

namespace dme {
namespace {

using cxxtools::SerializationInfo;
using test::ALL_METHODS;
using test::attachRoot;
using test::FunctionLeaf;
using test::Request;
using test::StringLeaf;
using ::testing::ElementsAre;

const AllowedMethods READ_UPDATE_BROWSE = AllowedMethods::R | AllowedMethods::U | AllowedMethods::B;
const AllowedMethods READ_BROWSE = AllowedMethods::R | AllowedMethods::B;

// An array over a list of nodes that it does not own, in which an entry may be null, with
// sizes chosen by the test.
class ListArray : public Array {
  public:
    explicit ListArray(std::vector<Value*> items, AllowedMethods allowed = READ_UPDATE_BROWSE)
        : Array(allowed), items_(std::move(items)) {}

    std::vector<Value*>& items() { return items_; }

    unsigned int getDefaultSize(Context&) const override { return 7; }
    unsigned int getMinSize(Context&) const override { return 1; }
    unsigned int getMaxSize(Context&) const override { return 9; }
    unsigned int size() override { return static_cast<unsigned int>(items_.size()); }
    Value* at(unsigned int index) override {
        return index < items_.size() ? items_[index] : nullptr;
    }

  private:
    std::vector<Value*> items_;
};

// An array value over a list held in the node; records every list handed to setValue and
// answers it with `setResult`.
template <class T>
class ListArrayValue : public ArrayValue<T> {
  public:
    explicit ListArrayValue(std::vector<T> list, AllowedMethods allowed = READ_UPDATE_BROWSE,
                            int setResult = result::DONE)
        : ArrayValue<T>(allowed), list_(std::move(list)), setResult_(setResult) {}

    const std::vector<T>& list() const { return list_; }
    int setCalls() const { return setCalls_; }

    std::vector<T> getValue(Context&) override { return list_; }
    int setValue(Context&, const std::vector<T>& value) override {
        ++setCalls_;
        list_ = value;
        return setResult_;
    }

  private:
    std::vector<T> list_;
    int setResult_;
    int setCalls_ = 0;
};

// A leaf whose schema ends with the result `childSchemaResult`.
class SchemaLeaf : public StringLeaf {
  public:
    explicit SchemaLeaf(int childSchemaResult) : childSchemaResult_(childSchemaResult) {}
    int serializeChildSchema(Context&, const SerializationInfo&, SerializationInfo&) override {
        return childSchemaResult_;
    }

  private:
    int childSchemaResult_;
};

// Sets `*deleted` when destroyed.
class DeletionProbe : public StringLeaf {
  public:
    explicit DeletionProbe(bool* deleted) : deleted_(deleted) {}
    ~DeletionProbe() override { *deleted_ = true; }

  private:
    bool* deleted_;
};

// A leaf that answers READ with the current uri.
FunctionLeaf* pathRecorder() {
    return new FunctionLeaf([](Context& ctx, const SerializationInfo&, SerializationInfo& out) {
        out.setValue(static_cast<std::string>(ctx.currentUri()));
        return result::DONE;
    });
}

// A leaf whose READ and UPDATE throw `error`.
template <class E>
FunctionLeaf* thrower(const E& error) {
    auto fail = [error](Context&, const SerializationInfo&, SerializationInfo&) -> int {
        throw error;
    };
    return new FunctionLeaf(fail, fail);
}

// A leaf whose READ writes `text` and answers `rc`.
FunctionLeaf* answering(const std::string& text, int rc) {
    return new FunctionLeaf([text, rc](Context&, const SerializationInfo&, SerializationInfo& out) {
        out.setValue(text);
        return rc;
    });
}

// Runs `method` on `uri` below `root` and returns the result.
int run(Value& root, Method method, const std::string& uri, std::string* json = nullptr,
        const SerializationInfo& in = SerializationInfo()) {
    Request request(method, uri);
    const int rc = request.run(root, in);
    if (json != nullptr) *json = formatJson(request.out());
    return rc;
}

// The dme::Exception that running `method` on `uri` below `root` throws.
Exception requestError(Value& root, Method method, const std::string& uri) {
    try {
        run(root, method, uri);
    } catch (const Exception& e) {
        return e;
    }
    ADD_FAILURE() << "no dme::Exception for " << uri;
    return Exception(Error::INVALID_TYPE, "nothing thrown");
}

void expectOutOfBounds(const Exception& e, const std::string& segment) {
    EXPECT_EQ(e.id, Error::INDEX_OUT_OF_BOUNDS);
    EXPECT_EQ(e.message, "Index is out of the array bounds");
    EXPECT_EQ(e.detail1, segment);
    EXPECT_EQ(e.detail2, "");
}

void expectError(const Exception& e, Error::Id id, const std::string& message,
                 const std::string& detail1, const std::string& detail2) {
    EXPECT_EQ(e.id, id);
    EXPECT_EQ(e.message, message);
    EXPECT_EQ(e.detail1, detail1);
    EXPECT_EQ(e.detail2, detail2);
}

SerializationInfo json(const std::string& text) {
    return parseJson(text);
}

// Three text items "a", "b", "c" under /list of an always expanded root structure.
class StaticArrayTree : public ::testing::Test {
  protected:
    StaticArrayTree()
        : a_(new StringLeaf("a")),
          b_(new StringLeaf("b")),
          c_(new StringLeaf("c")),
          root_({new Entry("list", new StaticArray({a_, b_, c_}, READ_UPDATE_BROWSE))}, ALL_METHODS,
                true) {
        attachRoot(root_);
    }

    StringLeaf* a_;
    StringLeaf* b_;
    StringLeaf* c_;
    Structure root_;
};

// ---- Array: construction and sizes ----

TEST(ArrayTest, TypeIsArray) {
    StaticArray array({}, ALL_METHODS);
    EXPECT_STREQ(array.getType(), "array");
}

TEST(ArrayTest, ConstructionRemovesCreateAndDeleteAndKeepsBrowse) {
    StaticArray array({}, ALL_METHODS);
    EXPECT_EQ(array.allowedMethods(), READ_UPDATE_BROWSE);
}

TEST(ArrayTest, ConstructionKeepsTheBrowseBitAbsentWhenNotGiven) {
    StaticArray array({}, AllowedMethods::R);
    EXPECT_EQ(array.allowedMethods(), AllowedMethods(AllowedMethods::R));
}

TEST(ArrayTest, IsAlwaysExpanded) {
    StaticArray array({}, ALL_METHODS);
    EXPECT_TRUE(array.alwaysExpanded());
    EXPECT_FALSE(array.isResourcePathNeeded());
}

TEST(ArrayTest, StaticArraySizesAreTheNumberOfItems) {
    StaticArray array({new StringLeaf, new StringLeaf}, ALL_METHODS);
    Request request(READ, "/");
    EXPECT_EQ(array.getDefaultSize(request.context()), 2u);
    EXPECT_EQ(array.getMinSize(request.context()), 2u);
    EXPECT_EQ(array.getMaxSize(request.context()), 2u);
    EXPECT_EQ(array.size(), 2u);
}

TEST(ArrayTest, StaticArrayAtYieldsTheItemsAndNullPastTheEnd) {
    StringLeaf* first = new StringLeaf("x");
    StringLeaf* second = new StringLeaf("y");
    StaticArray array({first, second}, ALL_METHODS);
    EXPECT_EQ(array.at(0), first);
    EXPECT_EQ(array.at(1), second);
    EXPECT_EQ(array.at(2), nullptr);
}

TEST(ArrayTest, SchemaReferenceItemIsTheFirstItem) {
    StringLeaf* first = new StringLeaf("x");
    StaticArray array({first, new StringLeaf("y")}, ALL_METHODS);
    EXPECT_EQ(array.getSchemaReferenceItem(), first);
}

TEST(ArrayTest, SchemaReferenceItemOfAnEmptyArrayIsNull) {
    StaticArray array({}, ALL_METHODS);
    EXPECT_EQ(array.getSchemaReferenceItem(), nullptr);
}

TEST(ArrayTest, ChildKeyIsTheLibrarysEmptyName) {
    StringLeaf* item = new StringLeaf;
    StaticArray array({item}, ALL_METHODS);
    const ConstHashString& key = array.getChildKey(item);
    EXPECT_EQ(&key, &Path::emptyName());
    EXPECT_TRUE(key.empty());
}

TEST(ArrayTest, ConstructionDoesNotAttachTheItems) {
    StringLeaf* item = new StringLeaf;
    StaticArray array({item}, ALL_METHODS);
    EXPECT_EQ(item->parent(), nullptr);
}

TEST(ArrayTest, SetParentAttachesEveryItemBelowTheArray) {
    StringLeaf* first = new StringLeaf;
    StringLeaf* second = new StringLeaf;
    StaticArray array({first, second}, ALL_METHODS);
    test::TestParent parent(ALL_METHODS);
    parent.add("list", array);
    EXPECT_EQ(array.parent(), &parent);
    EXPECT_EQ(static_cast<std::string>(array.path()), "/list");
    EXPECT_EQ(first->parent(), &array);
    EXPECT_EQ(second->parent(), &array);
}

TEST(ArrayTest, ItemsPathsAreEmptiedWhenAttached) {
    test::TestParent formerParent(ALL_METHODS);
    StringLeaf* item = new StringLeaf;
    formerParent.add("x", *item);
    ASSERT_EQ(static_cast<std::string>(item->path()), "/x");
    Structure root({new Entry("list", new StaticArray({item}, ALL_METHODS))}, ALL_METHODS, true);
    attachRoot(root);
    EXPECT_TRUE(item->path().empty());
    EXPECT_EQ(item->getOwnKey(), Path::emptyName());
}

TEST(ArrayTest, StaticArrayDeletesItsItemsAndSkipsNullOnes) {
    bool firstDeleted = false;
    bool secondDeleted = false;
    {
        StaticArray array(
            {new DeletionProbe(&firstDeleted), nullptr, new DeletionProbe(&secondDeleted)},
            ALL_METHODS);
    }
    EXPECT_TRUE(firstDeleted);
    EXPECT_TRUE(secondDeleted);
}

// ---- Array: schema ----

TEST(ArrayTest, SchemaOfAModifiableArrayHasMinAndMaxSizeAndTheFirstItemsSchema) {
    StaticArray array({new StaticAtomicValue<std::string>("x", ALL_METHODS),
                       new StaticAtomicValue<std::string>("y", ALL_METHODS)},
                      ALL_METHODS);
    attachRoot(array);
    std::string schema;
    EXPECT_EQ(run(array, SCHEMA, "/", &schema), result::DONE);
    EXPECT_EQ(schema, R"({"type":"array","minSize":2,"maxSize":2,)"
                      R"("items":{"type":"string","default":"","minSize":0,"maxSize":65535}})");
}

TEST(ArrayTest, SchemaOfAReadOnlyArrayHasFixedSizeAndNoReadonly) {
    StaticArray array({new StaticAtomicValue<std::string>("x", AllowedMethods::R),
                       new StaticAtomicValue<std::string>("y", AllowedMethods::R)},
                      READ_BROWSE);
    attachRoot(array);
    std::string schema;
    EXPECT_EQ(run(array, SCHEMA, "/", &schema), result::DONE);
    EXPECT_EQ(schema,
              R"({"type":"array","fixedSize":2,"items":{"type":"string","readonly":true}})");
}

TEST(ArrayTest, SchemaSizesComeFromTheSizeOperations) {
    ListArray modifiable({});
    attachRoot(modifiable);
    std::string schema;
    EXPECT_EQ(run(modifiable, SCHEMA, "/", &schema), result::DONE);
    EXPECT_EQ(schema, R"({"type":"array","minSize":1,"maxSize":9,"items":null})");

    ListArray readOnly({}, READ_BROWSE);
    attachRoot(readOnly);
    EXPECT_EQ(run(readOnly, SCHEMA, "/", &schema), result::DONE);
    EXPECT_EQ(schema, R"({"type":"array","fixedSize":7,"items":null})");
}

TEST(ArrayTest, SchemaOfAnEmptyArrayHasAnEmptyItemsMember) {
    StaticArray array({}, ALL_METHODS);
    attachRoot(array);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(array), result::DONE);
    const SerializationInfo* items = request.out().findMember("items");
    ASSERT_NE(items, nullptr);
    EXPECT_EQ(items->category(), SerializationInfo::Void);
    EXPECT_EQ(items->memberCount(), 0u);
}

TEST(ArrayTest, SchemaWithoutAFirstItemHasAnEmptyItemsMember) {
    StringLeaf second("b");
    ListArray array({nullptr, &second});
    Request request(SCHEMA, "/");
    EXPECT_EQ(array.getSchema(request.context(), SerializationInfo(), request.out()), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"type":"array","minSize":1,"maxSize":9,"items":null})");
}

TEST(ArrayTest, SchemaReturnsTheReferenceItemsResult) {
    SchemaLeaf item(5);
    ListArray array({&item});
    attachRoot(array);
    std::string schema;
    EXPECT_EQ(run(array, SCHEMA, "/", &schema), 5);
    EXPECT_EQ(schema, R"({"type":"array","minSize":1,"maxSize":9,"items":{"type":"string"}})");
}

TEST_F(StaticArrayTree, SchemaOfOneItemIsReachedByIndex) {
    std::string schema;
    EXPECT_EQ(run(root_, SCHEMA, "/list/1", &schema), result::DONE);
    EXPECT_EQ(schema, R"({"type":"string"})");
}

// ---- Array: read ----

TEST_F(StaticArrayTree, ReadListsEveryItemInOrder) {
    std::string read;
    EXPECT_EQ(run(root_, READ, "/list", &read), result::DONE);
    EXPECT_EQ(read, R"(["a","b","c"])");
}

TEST_F(StaticArrayTree, ReadOfTheParentShowsTheArrayAsAList) {
    std::string read;
    EXPECT_EQ(run(root_, READ, "/", &read), result::DONE);
    EXPECT_EQ(read, R"({"list":["a","b","c"]})");
}

TEST(ArrayTest, ReadOfAnEmptyStaticArrayIsAnEmptyList) {
    StaticArray array({}, ALL_METHODS);
    attachRoot(array);
    std::string read;
    EXPECT_EQ(run(array, READ, "/", &read), result::DONE);
    EXPECT_EQ(read, "[]");
}

TEST(ArrayTest, ReadStepsIntoEachItemByItsIndex) {
    StaticArray array({pathRecorder(), pathRecorder()}, ALL_METHODS);
    Structure root({new Entry("list", array)}, ALL_METHODS, true);
    attachRoot(root);
    std::string read;
    EXPECT_EQ(run(root, READ, "/list", &read), result::DONE);
    EXPECT_EQ(read, R"(["/list/0","/list/1"])");
}

TEST(ArrayTest, ReadGoesOnAfterAFailingItemAndKeepsItsElement) {
    StaticArray array({answering("bad", 6), answering("good", result::DONE)}, ALL_METHODS);
    attachRoot(array);
    std::string read;
    EXPECT_EQ(run(array, READ, "/", &read), result::DONE);
    EXPECT_EQ(read, R"(["bad","good"])");
}

TEST(ArrayTest, ReadReturnsTheLastItemsResult) {
    StaticArray array({answering("good", result::DONE), answering("bad", 6)}, ALL_METHODS);
    attachRoot(array);
    std::string read;
    EXPECT_EQ(run(array, READ, "/", &read), dme::result::FORBIDDEN);
    EXPECT_EQ(read, R"(["good","bad"])");
}

TEST(ArrayTest, ReadSkipsMissingItems) {
    StringLeaf first("a");
    StringLeaf third("c");
    attachRoot(first);
    attachRoot(third);
    ListArray array({&first, nullptr, &third});
    Request request(READ, "/");
    EXPECT_EQ(array.read(request.context(), SerializationInfo(), request.out()), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"(["a","c"])");
}

TEST(ArrayTest, ReadSeesItemsAddedWhileReading) {
    StringLeaf added("added");
    attachRoot(added);
    ListArray* array = nullptr;
    FunctionLeaf grower([&](Context&, const SerializationInfo&, SerializationInfo& out) {
        if (array->items().size() == 1) array->items().push_back(&added);
        out.setValue("first");
        return result::DONE;
    });
    ListArray list({&grower});
    array = &list;
    attachRoot(list);
    std::string read;
    EXPECT_EQ(run(list, READ, "/", &read), result::DONE);
    EXPECT_EQ(read, R"(["first","added"])");
}

TEST(ArrayTest, ReadStepsBackWhenAnItemThrows) {
    StaticArray array({thrower(std::runtime_error("boom"))}, ALL_METHODS);
    attachRoot(array);
    Request request(READ, "/");
    EXPECT_THROW(request.run(array), std::runtime_error);
    EXPECT_EQ(static_cast<std::string>(request.context().currentUri()), "/");
}

// ---- Array: update ----

TEST_F(StaticArrayTree, UpdateWithALongerListChangesEveryItemAndIgnoresTheRest) {
    EXPECT_EQ(run(root_, UPDATE, "/list", nullptr, json(R"(["x","y","z","p","q"])")), result::DONE);
    EXPECT_EQ(a_->text(), "x");
    EXPECT_EQ(b_->text(), "y");
    EXPECT_EQ(c_->text(), "z");
}

TEST_F(StaticArrayTree, UpdateWithOneElementChangesOnlyTheFirstItem) {
    EXPECT_EQ(run(root_, UPDATE, "/list", nullptr, json(R"(["x"])")), result::DONE);
    EXPECT_EQ(a_->text(), "x");
    EXPECT_EQ(b_->text(), "b");
    EXPECT_EQ(c_->text(), "c");
    EXPECT_EQ(b_->updates(), 0);
    EXPECT_EQ(c_->updates(), 0);
}

TEST_F(StaticArrayTree, UpdateWithAnEmptyListChangesNothing) {
    EXPECT_EQ(run(root_, UPDATE, "/list", nullptr, json("[]")), result::DONE);
    EXPECT_EQ(a_->updates() + b_->updates() + c_->updates(), 0);
}

TEST_F(StaticArrayTree, UpdateOfOneElementGoesThroughBrowseToThatItem) {
    EXPECT_EQ(run(root_, UPDATE, "/list/1", nullptr, json(R"("new")")), result::DONE);
    EXPECT_EQ(a_->updates(), 0);
    EXPECT_EQ(b_->updates(), 1);
    EXPECT_EQ(c_->updates(), 0);
    EXPECT_EQ(b_->text(), "new");
}

TEST(ArrayTest, UpdateReturnsTheLastItemsResult) {
    auto result = [](int rc) {
        return new FunctionLeaf(FunctionLeaf::Operation(), [rc](Context&, const SerializationInfo&,
                                                                SerializationInfo&) { return rc; });
    };
    StaticArray array({result(6), result(5)}, ALL_METHODS);
    attachRoot(array);
    EXPECT_EQ(run(array, UPDATE, "/", nullptr, json("[1,2]")), 5);
    EXPECT_EQ(run(array, UPDATE, "/", nullptr, json("[1]")), dme::result::FORBIDDEN);
}

TEST(ArrayTest, UpdateStepsIntoEachItemByItsIndex) {
    std::vector<std::string> seen;
    auto recorder = [&seen]() {
        return new FunctionLeaf(
            FunctionLeaf::Operation(),
            [&seen](Context& ctx, const SerializationInfo&, SerializationInfo&) {
                seen.push_back(ctx.currentUri());
                return result::DONE;
            });
    };
    StaticArray array({recorder(), recorder()}, ALL_METHODS);
    attachRoot(array);
    EXPECT_EQ(run(array, UPDATE, "/", nullptr, json("[1,2]")), result::DONE);
    EXPECT_THAT(seen, ElementsAre("/0", "/1"));
}

TEST(ArrayTest, UpdateSkipsElementsWhileTheItemIsMissing) {
    StringLeaf first("a");
    StringLeaf third("c");
    ListArray array({&first, nullptr, &third});
    attachRoot(first);
    Request request(UPDATE, "/");
    EXPECT_EQ(array.update(request.context(), json(R"(["x","y","z"])"), request.out()),
              result::DONE);
    EXPECT_EQ(first.text(), "x");
    EXPECT_EQ(third.updates(), 0);
    EXPECT_EQ(third.text(), "c");
}

TEST(ArrayTest, CreateAndDeleteAreRefused) {
    StaticArray array({new StringLeaf}, ALL_METHODS);
    attachRoot(array);
    EXPECT_EQ(run(array, CREATE, "/"), result::NOT_ALLOWED);
    EXPECT_EQ(run(array, DELETE, "/"), result::NOT_ALLOWED);
}

// ---- Array: browse ----

TEST_F(StaticArrayTree, BrowseAddressesAnItemByIndex) {
    std::string read;
    EXPECT_EQ(run(root_, READ, "/list/2", &read), result::DONE);
    EXPECT_EQ(read, R"("c")");
}

TEST_F(StaticArrayTree, BrowseIgnoresALeadingZero) {
    std::string read;
    EXPECT_EQ(run(root_, READ, "/list/01", &read), result::DONE);
    EXPECT_EQ(read, R"("b")");
}

TEST_F(StaticArrayTree, BrowseIgnoresLeadingBlanks) {
    std::string read;
    EXPECT_EQ(run(root_, READ, "/list/ 1", &read), result::DONE);
    EXPECT_EQ(read, R"("b")");
}

TEST_F(StaticArrayTree, BrowseIgnoresTrailingText) {
    std::string read;
    EXPECT_EQ(run(root_, READ, "/list/1x", &read), result::DONE);
    EXPECT_EQ(read, R"("b")");
}

TEST_F(StaticArrayTree, BrowseAcceptsAPlusSign) {
    std::string read;
    EXPECT_EQ(run(root_, READ, "/list/+2", &read), result::DONE);
    EXPECT_EQ(read, R"("c")");
}

TEST_F(StaticArrayTree, BrowseWithoutDigitsIsNotFound) {
    EXPECT_EQ(run(root_, READ, "/list/abc"), result::NOT_FOUND);
}

TEST_F(StaticArrayTree, BrowsePastTheEndIsOutOfBounds) {
    expectOutOfBounds(requestError(root_, READ, "/list/3"), "3");
}

TEST_F(StaticArrayTree, BrowseMinusOneWrapsAndIsOutOfBounds) {
    expectOutOfBounds(requestError(root_, READ, "/list/-1"), "-1");
}

TEST(ArrayTest, BrowseMinusOneIsOutOfBoundsWhateverTheSize) {
    StaticArray empty({}, ALL_METHODS);
    attachRoot(empty);
    expectOutOfBounds(requestError(empty, READ, "/-1"), "-1");
}

TEST_F(StaticArrayTree, BrowseBeyondUnsignedLongIsOutOfBounds) {
    expectOutOfBounds(requestError(root_, READ, "/list/99999999999999999999999"),
                      "99999999999999999999999");
}

TEST_F(StaticArrayTree, BrowseBeyondUnsignedIntDoesNotWrapToAnItem) {
    expectOutOfBounds(requestError(root_, READ, "/list/4294967296"), "4294967296");
}

TEST(ArrayTest, BrowseWithoutASegmentReportsThatThePathEndsHere) {
    StaticArray array({new StringLeaf}, ALL_METHODS);
    Request request(READ, "/");
    EXPECT_EQ(array.browse(request.context(), SerializationInfo(), request.out()),
              result::PATH_ENDS_HERE);
}

TEST(ArrayTest, BrowseStepsIntoTheSegmentAsWritten) {
    StaticArray array({pathRecorder(), pathRecorder()}, ALL_METHODS);
    attachRoot(array);
    std::string read;
    EXPECT_EQ(run(array, READ, "/01", &read), result::DONE);
    EXPECT_EQ(read, R"("/01")");
}

TEST(ArrayTest, BrowseReturnsTheItemsResult) {
    StaticArray array({answering("x", 6)}, ALL_METHODS);
    attachRoot(array);
    EXPECT_EQ(run(array, READ, "/0"), dme::result::FORBIDDEN);
}

TEST(ArrayTest, BrowseAnswersNotFoundWhenTheItemThrowsInvalidArgument) {
    StaticArray array({thrower(std::invalid_argument("bad"))}, ALL_METHODS);
    attachRoot(array);
    Request request(READ, "/0");
    EXPECT_EQ(request.run(array), result::NOT_FOUND);
    EXPECT_TRUE(request.context().currentUri().empty());
}

TEST(ArrayTest, BrowseTurnsTheItemsOutOfRangeIntoOutOfBounds) {
    StaticArray array({thrower(std::out_of_range("deep"))}, ALL_METHODS);
    attachRoot(array);
    Request request(READ, "/00");
    try {
        request.run(array);
        ADD_FAILURE() << "nothing thrown";
    } catch (const Exception& e) {
        expectOutOfBounds(e, "00");
    }
    EXPECT_TRUE(request.context().currentUri().empty());
}

TEST(ArrayTest, BrowseLetsTheItemsOwnExceptionPassAndStepsBack) {
    StaticArray array({thrower(Exception(Error::VALUE_NOT_IN_LIST, "Value not in list", "v"))},
                      ALL_METHODS);
    attachRoot(array);
    Request request(READ, "/0");
    try {
        request.run(array);
        ADD_FAILURE() << "nothing thrown";
    } catch (const Exception& e) {
        expectError(e, Error::VALUE_NOT_IN_LIST, "Value not in list", "v", "");
    }
    EXPECT_TRUE(request.context().currentUri().empty());
}

TEST(ArrayTest, BrowseNeedsTheBrowseBit) {
    StaticArray array({new StringLeaf("a")}, AllowedMethods::R | AllowedMethods::U);
    attachRoot(array);
    EXPECT_EQ(run(array, READ, "/0"), result::NOT_ALLOWED);
}

// ---- ArrayValue ----

TEST(ArrayValueTest, SizesAndTemplateItem) {
    ListArrayValue<std::string> array({"a", "b"});
    Request request(READ, "/");
    EXPECT_EQ(array.getDefaultSize(request.context()), 0u);
    EXPECT_EQ(array.getMinSize(request.context()), 0u);
    EXPECT_EQ(array.getMaxSize(request.context()), 0xFFFFFFFFu);
    EXPECT_EQ(array.size(), 0u);
    Value* item = array.getSchemaReferenceItem();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(array.at(0), item);
    EXPECT_EQ(array.at(12345), item);
    EXPECT_STREQ(item->getType(), "string");
}

TEST(ArrayValueTest, PassesItsAllowedMethodsToTheArrayAndTheTemplateItem) {
    ListArrayValue<std::string> array({}, READ_BROWSE);
    EXPECT_EQ(array.allowedMethods(), READ_BROWSE);
    EXPECT_EQ(array.getSchemaReferenceItem()->allowedMethods(), AllowedMethods(AllowedMethods::R));
}

TEST(ArrayValueTest, AttachingLeavesTheTemplateItemDetached) {
    ListArrayValue<std::string> array({"a"});
    attachRoot(array);
    EXPECT_EQ(array.getSchemaReferenceItem()->parent(), nullptr);
}

TEST(ArrayValueTest, ReadListsTheElementsInOrder) {
    ListArrayValue<std::string> array({"a", "b", "c"});
    attachRoot(array);
    std::string read;
    EXPECT_EQ(run(array, READ, "/", &read), result::DONE);
    EXPECT_EQ(read, R"(["a","b","c"])");
}

TEST(ArrayValueTest, ReadOfAnEmptyListIsAnEmptyArray) {
    ListArrayValue<std::string> array({});
    attachRoot(array);
    std::string read;
    EXPECT_EQ(run(array, READ, "/", &read), result::DONE);
    EXPECT_EQ(read, "[]");
}

TEST(ArrayValueTest, ReadWritesTextElementsAsTheirBytesAre) {
    ListArrayValue<std::string> array({"\xff\xfe", "ok"});
    attachRoot(array);
    Request request(READ, "/");
    EXPECT_EQ(request.run(array), result::DONE);
    ASSERT_EQ(request.out().memberCount(), 2u);
    const SerializationInfo& first = *request.out().begin();
    EXPECT_TRUE(first.isString8());
    EXPECT_EQ(first.typeName(), "string");
    EXPECT_EQ(first.name(), "");
    std::string bytes;
    first.getValue(bytes);
    EXPECT_EQ(bytes, "\xff\xfe");
}

TEST(ArrayValueTest, ReadOfNumbersAndBooleansUsesTheirOwnKinds) {
    ListArrayValue<int> integers({1, -2});
    ListArrayValue<bool> booleans({true, false});
    ListArrayValue<double> doubles({1.5});
    ListArrayValue<unsigned long long> wide({18446744073709551615ull});
    for (Value* array : std::vector<Value*>{&integers, &booleans, &doubles, &wide}) {
        attachRoot(*array);
    }
    std::string read;
    EXPECT_EQ(run(integers, READ, "/", &read), result::DONE);
    EXPECT_EQ(read, "[1,-2]");
    EXPECT_EQ(run(booleans, READ, "/", &read), result::DONE);
    EXPECT_EQ(read, "[true,false]");
    EXPECT_EQ(run(doubles, READ, "/", &read), result::DONE);
    EXPECT_EQ(read, "[1.5]");
    EXPECT_EQ(run(wide, READ, "/", &read), result::DONE);
    EXPECT_EQ(read, "[18446744073709551615]");
}

TEST(ArrayValueTest, ReadOfOneElementThroughBrowse) {
    ListArrayValue<std::string> array({"a", "b"});
    attachRoot(array);
    std::string read;
    EXPECT_EQ(run(array, READ, "/1", &read), result::DONE);
    EXPECT_EQ(read, R"("b")");
}

TEST(ArrayValueTest, BrowseParsesTheIndexLikeTheArray) {
    ListArrayValue<std::string> array({"a", "b"});
    attachRoot(array);
    std::string read;
    EXPECT_EQ(run(array, READ, "/ +01x", &read), result::DONE);
    EXPECT_EQ(read, R"("b")");
}

TEST(ArrayValueTest, BrowseIgnoresFurtherSegments) {
    ListArrayValue<std::string> array({"a", "b"});
    attachRoot(array);
    std::string read;
    EXPECT_EQ(run(array, READ, "/0/more/segments", &read), result::DONE);
    EXPECT_EQ(read, R"("a")");
}

TEST(ArrayValueTest, BrowseWritesBytesAsTheyAre) {
    ListArrayValue<std::string> array({"\xc3"});
    attachRoot(array);
    Request request(READ, "/0");
    EXPECT_EQ(request.run(array), result::DONE);
    std::string bytes;
    request.out().getValue(bytes);
    EXPECT_EQ(bytes, "\xc3");
    EXPECT_TRUE(request.out().isString8());
}

TEST(ArrayValueTest, BrowseOfANumberElement) {
    ListArrayValue<short> array({7, -8});
    attachRoot(array);
    std::string read;
    EXPECT_EQ(run(array, READ, "/1", &read), result::DONE);
    EXPECT_EQ(read, "-8");
}

TEST(ArrayValueTest, BrowseWithoutDigitsIsNotFound) {
    ListArrayValue<std::string> array({"a"});
    attachRoot(array);
    EXPECT_EQ(run(array, READ, "/first"), result::NOT_FOUND);
}

TEST(ArrayValueTest, BrowsePastTheListIsOutOfBounds) {
    ListArrayValue<std::string> array({"a", "b"});
    attachRoot(array);
    expectOutOfBounds(requestError(array, READ, "/2"), "2");
    expectOutOfBounds(requestError(array, READ, "/-1"), "-1");
}

TEST(ArrayValueTest, BrowseBeyondUnsignedLongPassesOutOfRange) {
    ListArrayValue<std::string> array({"a"});
    attachRoot(array);
    EXPECT_THROW(run(array, READ, "/99999999999999999999999"), std::out_of_range);
}

TEST(ArrayValueTest, BrowseWithoutASegmentReportsThatThePathEndsHere) {
    ListArrayValue<std::string> array({"a"});
    Request request(UPDATE, "/");
    EXPECT_EQ(array.browse(request.context(), SerializationInfo(), request.out()),
              result::PATH_ENDS_HERE);
}

TEST(ArrayValueTest, UpdateBelowTheArrayAnswersZeroAndChangesNothing) {
    ListArrayValue<std::string> array({"a", "b"});
    attachRoot(array);
    Request request(UPDATE, "/0");
    EXPECT_EQ(request.run(array, json(R"("x")")), result::DONE);
    EXPECT_EQ(array.setCalls(), 0);
    EXPECT_THAT(array.list(), ElementsAre("a", "b"));
    EXPECT_EQ(request.out().category(), SerializationInfo::Void);
}

TEST(ArrayValueTest, NonReadBelowTheArrayDoesNotLookAtTheIndex) {
    ListArrayValue<std::string> array({"a"});
    attachRoot(array);
    EXPECT_EQ(run(array, UPDATE, "/99"), result::DONE);
    EXPECT_EQ(run(array, UPDATE, "/x"), result::DONE);
}

TEST(ArrayValueTest, UpdateReplacesTheWholeList) {
    ListArrayValue<std::string> array({"a", "b", "c"});
    attachRoot(array);
    EXPECT_EQ(run(array, UPDATE, "/", nullptr, json(R"(["x","y"])")), result::DONE);
    EXPECT_EQ(array.setCalls(), 1);
    EXPECT_THAT(array.list(), ElementsAre("x", "y"));
}

TEST(ArrayValueTest, UpdateWithAnEmptyListStoresAnEmptyList) {
    ListArrayValue<std::string> array({"a"});
    attachRoot(array);
    EXPECT_EQ(run(array, UPDATE, "/", nullptr, json("[]")), result::DONE);
    EXPECT_EQ(array.setCalls(), 1);
    EXPECT_TRUE(array.list().empty());
}

TEST(ArrayValueTest, UpdateReturnsSetValuesResult) {
    ListArrayValue<std::string> array({}, READ_UPDATE_BROWSE, 5);
    attachRoot(array);
    EXPECT_EQ(run(array, UPDATE, "/", nullptr, json(R"(["x"])")), 5);
}

TEST(ArrayValueTest, UpdateDecodesTextElementsAsUtf8) {
    ListArrayValue<std::string> array({});
    attachRoot(array);
    EXPECT_EQ(run(array, UPDATE, "/", nullptr, json(R"(["\u00e9"])")), result::DONE);
    EXPECT_THAT(array.list(), ElementsAre("\xc3\xa9"));
}

TEST(ArrayValueTest, UpdateConvertsNumbersAndBooleans) {
    ListArrayValue<long> longs({});
    ListArrayValue<bool> booleans({});
    ListArrayValue<float> floats({});
    attachRoot(longs);
    attachRoot(booleans);
    attachRoot(floats);
    EXPECT_EQ(run(longs, UPDATE, "/", nullptr, json("[-3,4]")), result::DONE);
    EXPECT_THAT(longs.list(), ElementsAre(-3L, 4L));
    EXPECT_EQ(run(booleans, UPDATE, "/", nullptr, json("[false,true]")), result::DONE);
    EXPECT_THAT(booleans.list(), ElementsAre(false, true));
    EXPECT_EQ(run(floats, UPDATE, "/", nullptr, json("[0.5,2]")), result::DONE);
    EXPECT_THAT(floats.list(), ElementsAre(0.5f, 2.0f));
}

// A list value named "v" below a root structure.
template <class T>
class NamedArrayValue {
  public:
    explicit NamedArrayValue(std::vector<T> list)
        : array_(new ListArrayValue<T>(std::move(list))),
          root_({new Entry("v", array_)}, ALL_METHODS, true) {
        attachRoot(root_);
    }

    ListArrayValue<T>& array() { return *array_; }

    Exception updateError(const std::string& body) {
        try {
            run(root_, UPDATE, "/v", nullptr, json(body));
        } catch (const Exception& e) {
            return e;
        }
        ADD_FAILURE() << "no dme::Exception for " << body;
        return Exception(Error::INVALID_TYPE, "nothing thrown");
    }

  private:
    ListArrayValue<T>* array_;
    Structure root_;
};

TEST(ArrayValueTest, UpdateWithAnInputThatIsNotAListIsAnInvalidType) {
    NamedArrayValue<std::string> tree({"a"});
    expectError(tree.updateError(R"("x")"), Error::INVALID_TYPE, "Invalid type", "v", "array");
    expectError(tree.updateError(R"({"x":"y"})"), Error::INVALID_TYPE, "Invalid type", "v",
                "array");
    EXPECT_EQ(tree.array().setCalls(), 0);
}

TEST(ArrayValueTest, UpdateWithAnElementOfTheWrongKindIsAnInvalidType) {
    NamedArrayValue<std::string> texts({"a"});
    expectError(texts.updateError(R"(["x",3])"), Error::INVALID_TYPE, "Invalid type", "v",
                "string");
    EXPECT_EQ(texts.array().setCalls(), 0);
    EXPECT_THAT(texts.array().list(), ElementsAre("a"));

    NamedArrayValue<int> integers({1});
    expectError(integers.updateError(R"(["1"])"), Error::INVALID_TYPE, "Invalid type", "v",
                "integer");
    NamedArrayValue<bool> booleans({});
    expectError(booleans.updateError("[1]"), Error::INVALID_TYPE, "Invalid type", "v", "boolean");
    NamedArrayValue<double> doubles({});
    expectError(doubles.updateError("[null]"), Error::INVALID_TYPE, "Invalid type", "v", "float");
}

TEST(ArrayValueTest, UpdateWithANumberThatDoesNotFitIsOutOfRange) {
    NamedArrayValue<unsigned char> bytes({1});
    expectError(bytes.updateError("[1,300]"), Error::VALUE_OUT_OF_RANGE, "Value out of range", "v",
                "");
    EXPECT_EQ(bytes.array().setCalls(), 0);
    EXPECT_THAT(bytes.array().list(), ElementsAre(1));
}

TEST(ArrayValueTest, UpdateChecksNoSizeLimit) {
    ListArrayValue<unsigned int> array({});
    attachRoot(array);
    EXPECT_EQ(run(array, UPDATE, "/", nullptr, json("[1,2,3,4,5,6,7,8,9,10,11,12]")), result::DONE);
    EXPECT_EQ(array.list().size(), 12u);
}

TEST(ArrayValueTest, SchemaOfAModifiableTextList) {
    ListArrayValue<std::string> array({"a"});
    attachRoot(array);
    std::string schema;
    EXPECT_EQ(run(array, SCHEMA, "/", &schema), result::DONE);
    EXPECT_EQ(schema, R"({"type":"array","minSize":0,"maxSize":4294967295,)"
                      R"("items":{"type":"string","default":"","minSize":0,"maxSize":65535}})");
}

TEST(ArrayValueTest, SchemaOfAReadOnlyTextList) {
    ListArrayValue<std::string> array({"a"}, READ_BROWSE);
    attachRoot(array);
    std::string schema;
    EXPECT_EQ(run(array, SCHEMA, "/", &schema), result::DONE);
    EXPECT_EQ(schema,
              R"({"type":"array","fixedSize":0,"items":{"type":"string","readonly":true}})");
}

TEST(ArrayValueTest, SchemaOfANumberList) {
    ListArrayValue<short> array({});
    attachRoot(array);
    std::string schema;
    EXPECT_EQ(run(array, SCHEMA, "/", &schema), result::DONE);
    EXPECT_EQ(schema,
              R"({"type":"array","minSize":0,"maxSize":4294967295,)"
              R"("items":{"type":"integer","default":0,"minimum":-32768,"maximum":32767}})");
}

TEST(ArrayValueTest, CreateAndDeleteAreRefused) {
    ListArrayValue<std::string> array({"a"}, ALL_METHODS);
    attachRoot(array);
    EXPECT_EQ(run(array, CREATE, "/"), result::NOT_ALLOWED);
    EXPECT_EQ(run(array, DELETE, "/"), result::NOT_ALLOWED);
}

// ---- End to end through the JSON engine ----

// A tree of a static array "list" of three strings and a text list "tags", served by a JSON
// engine whose exception handler answers a dme::Exception with 40 and its message and details.
class ArrayEngine : public ::testing::Test {
  protected:
    ArrayEngine()
        : tags_(new ListArrayValue<std::string>({"red", "green"})),
          engine_(new DataModel(
                      new Structure(
                          {new Entry("list", new StaticArray(
                                                 {new StaticAtomicValue<std::string>("a", 0x1F),
                                                  new StaticAtomicValue<std::string>("b", 0x1F),
                                                  new StaticAtomicValue<std::string>("c", 0x1F)},
                                                 0x1F)),
                           new Entry("tags", tags_)},
                          0x1F, true),
                      test::testLexicon(), 0x1F, ExceptionHandlers({{typeid(Exception), handler}})),
                  "arrays") {}

    static int handler(std::exception& e, Context&, const SerializationInfo&,
                       SerializationInfo& out) {
        const Exception& error = static_cast<Exception&>(e);
        out.addMember("message").setValue(error.message);
        out.addMember("detail").setValue(error.detail1);
        return 40;
    }

    int execute(Method method, const std::string& uri, const std::string& body = "") {
        return engine_.execute(method, uri, Arguments(), body, out_, false);
    }

    ListArrayValue<std::string>* tags_;
    JsonDataModelEngine engine_;
    std::string out_;
};

TEST_F(ArrayEngine, ReadsTheArrayAsJson) {
    EXPECT_EQ(execute(READ, "/list"), result::DONE);
    EXPECT_EQ(out_, R"(["a","b","c"])");
}

TEST_F(ArrayEngine, UpdatesTheArrayFromJsonItemByItem) {
    EXPECT_EQ(execute(UPDATE, "/list", R"(["x","y"])"), result::DONE);
    EXPECT_EQ(execute(READ, "/list"), result::DONE);
    EXPECT_EQ(out_, R"(["x","y","c"])");
}

TEST_F(ArrayEngine, UpdatesOneElementByIndex) {
    EXPECT_EQ(execute(UPDATE, "/list/1", R"("z")"), result::DONE);
    EXPECT_EQ(execute(READ, "/"), result::DONE);
    EXPECT_EQ(out_, R"({"list":["a","z","c"],"tags":["red","green"]})");
}

TEST_F(ArrayEngine, ReadsOneElementByIndex) {
    EXPECT_EQ(execute(READ, "/list/2"), result::DONE);
    EXPECT_EQ(out_, R"("c")");
    EXPECT_EQ(execute(READ, "/tags/1"), result::DONE);
    EXPECT_EQ(out_, R"("green")");
}

TEST_F(ArrayEngine, AnIndexPastTheEndReachesTheExceptionHandler) {
    EXPECT_EQ(execute(READ, "/list/3"), 40);
    EXPECT_EQ(out_, R"({"message":"Index is out of the array bounds","detail":"3"})");
    EXPECT_EQ(execute(READ, "/tags/2"), 40);
    EXPECT_EQ(out_, R"({"message":"Index is out of the array bounds","detail":"2"})");
}

TEST_F(ArrayEngine, AnIndexWithoutDigitsIsNotFound) {
    EXPECT_EQ(execute(READ, "/list/x"), result::NOT_FOUND);
}

TEST_F(ArrayEngine, ReplacesATextListFromJson) {
    EXPECT_EQ(execute(UPDATE, "/tags", R"(["blue"])"), result::DONE);
    EXPECT_EQ(execute(READ, "/tags"), result::DONE);
    EXPECT_EQ(out_, R"(["blue"])");
}

TEST_F(ArrayEngine, AnUpdateBelowATextListChangesNothing) {
    EXPECT_EQ(execute(UPDATE, "/tags/0", R"("blue")"), result::DONE);
    EXPECT_EQ(out_, "null");
    EXPECT_EQ(tags_->setCalls(), 0);
    EXPECT_THAT(tags_->list(), ElementsAre("red", "green"));
}

TEST_F(ArrayEngine, AnElementOfTheWrongKindReachesTheExceptionHandler) {
    EXPECT_EQ(execute(UPDATE, "/tags", R"(["blue",1])"), 40);
    EXPECT_EQ(out_, R"({"message":"Invalid type","detail":"tags"})");
    EXPECT_THAT(tags_->list(), ElementsAre("red", "green"));
}

TEST_F(ArrayEngine, SchemaOfTheStaticArray) {
    EXPECT_EQ(execute(SCHEMA, "/list"), result::DONE);
    EXPECT_EQ(out_, R"({"type":"array","minSize":3,"maxSize":3,)"
                    R"("items":{"type":"string","default":"","minSize":0,"maxSize":65535}})");
}

}  // namespace
}  // namespace dme
