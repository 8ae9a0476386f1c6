// All-or-nothing UPDATE (DataModelEngine::setAllOrNothingUpdates): a body with one good and one
// bad member changes nothing and answers the error, a good body changes everything, observers
// hear of no refused change; and without the option the engine updates member by member.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <typeinfo>

#include "dme/array.h"
#include "dme/atomic_value.h"
#include "dme/collection.h"
#include "dme/container.h"
#include "dme/engine.h"
#include "dme/enum_value.h"
#include "dme/exception.h"
#include "dme/result.h"
#include "dme/static_collection.h"
#include "dme/structure.h"
#include "dme/subscription.h"

namespace dme {
namespace {

constexpr std::uint32_t RU = AllowedMethods::R | AllowedMethods::U;
constexpr std::uint32_t RUB = RU | AllowedMethods::B;
// Enumerations refer to their table, which must outlive them.
const EnumValue::List MODES{{"off", 0}, {"on", 1}};

// An application's own value: stores through setValue, counting the calls.
class CountingNumber : public AtomicValue<int> {
  public:
    CountingNumber() : AtomicValue<int>(RU) {}
    int getValue(Context&) override { return value; }
    int setValue(Context&, const int& v) override {
        ++stores;
        value = v;
        notifyChange();
        return result::DONE;
    }
    int getDefaultValue(Context&) override { return 0; }
    int getMinAllowedValue(Context&) override { return 0; }
    int getMaxAllowedValue(Context&) override { return 100; }
    int value = 7;
    int stores = 0;
};

class ChangeCounter : public ISubscribable::IObserver {
  public:
    void onChange(const std::chrono::steady_clock::time_point&) override { ++changes; }
    int changes = 0;
};

// Answers a refused input with {"error": message} and 10.
ExceptionHandlers errorHandlers() {
    return ExceptionHandlers(
        {{typeid(Exception), [](std::exception& e, Context&, const cxxtools::SerializationInfo&,
                                cxxtools::SerializationInfo& out) {
              out.addMember("error").setValue(static_cast<Exception&>(e).message);
              return result::INVALID_ARGUMENT;
          }}});
}

class AllOrNothingTest : public testing::Test {
  protected:
    AllOrNothingTest()
        : number_(new CountingNumber),
          n_(new StaticAtomicValue<int>(1, RU, 0, 10)),
          modeNumber_(new StaticAtomicValue<unsigned int>(0, RU)),
          root_(new Structure(
              {new Entry("s", new StaticAtomicValue<std::string>("orig", RU)), new Entry("n", n_),
               new Entry(
                   "nested",
                   new Structure({new Entry("a", new StaticAtomicValue<std::string>("a0", RU)),
                                  new Entry("b", new StaticAtomicValue<int>(5, RU, 0, 10))},
                                 RUB, false)),
               new Entry("list", new StaticArray({new StaticAtomicValue<int>(1, RU, 0, 10),
                                                  new StaticAtomicValue<int>(2, RU, 0, 10)},
                                                 RUB)),
               new Entry("mode", new EnumValue(MODES, modeNumber_, RU)),
               new Entry("custom", number_),
               new Entry("items",
                         new StaticCollection(
                             {new CollectionItem(
                                 {new Entry("name", new StaticAtomicValue<std::string>("eth0", RU)),
                                  new Entry("mtu", new StaticAtomicValue<int>(1500, RU, 68, 9000))},
                                 RUB, false)},
                             RUB, false))},
              RUB, false)),
          engine_(new DataModel(root_, lexicon_, RUB, errorHandlers()), "aon") {
        engine_.setAllOrNothingUpdates(true);
    }

    int update(const std::string& uri, const std::string& body) {
        return engine_.execute(UPDATE, uri, Arguments(), body, answer, false);
    }

    std::string read(const std::string& uri = "/") {
        std::string text;
        EXPECT_EQ(engine_.execute(READ, uri, Arguments("expand=5"), "", text, false), result::DONE);
        return text;
    }

    // Expects `body` sent to `uri` to be refused with `message` and the tree to read as before.
    void expectRefusedUnchanged(const std::string& uri, const std::string& body,
                                const std::string& message) {
        const std::string before = read();
        const int stores = number_->stores;
        EXPECT_EQ(update(uri, body), result::INVALID_ARGUMENT) << body;
        EXPECT_EQ(answer, R"({"error":")" + message + R"("})") << body;
        EXPECT_EQ(read(), before) << body;
        EXPECT_EQ(number_->stores, stores) << body;
    }

    const Lexicon lexicon_{"href", "id", "count", "members", "expand", "select"};
    CountingNumber* number_;
    StaticAtomicValue<int>* n_;
    StaticAtomicValue<unsigned int>* modeNumber_;
    Structure* root_;
    JsonDataModelEngine engine_;
    std::string answer;
};

TEST_F(AllOrNothingTest, IsOffUnlessTheApplicationAsks) {
    JsonDataModelEngine engine(new DataModel(new Structure({}, RUB, false), lexicon_, RUB), "x");
    EXPECT_FALSE(engine.allOrNothingUpdates());
    EXPECT_TRUE(engine_.allOrNothingUpdates());
}

TEST_F(AllOrNothingTest, AStructureWithOneBadMemberChangesNothing) {
    expectRefusedUnchanged("/", R"({"s":"changed","n":11})", "Value above maximum");
}

TEST_F(AllOrNothingTest, ABadMemberBeforeAGoodOneChangesNothing) {
    expectRefusedUnchanged("/", R"({"n":"x","s":"changed"})", "Invalid type");
}

TEST_F(AllOrNothingTest, ANestedStructureWithOneBadMemberChangesNothing) {
    expectRefusedUnchanged("/", R"({"s":"changed","nested":{"a":"a1","b":-1}})",
                           "Value below minimum");
    expectRefusedUnchanged("/nested", R"({"a":"a1","b":true})", "Invalid type");
}

TEST_F(AllOrNothingTest, AnArrayWithOneBadElementChangesNothing) {
    expectRefusedUnchanged("/", R"({"s":"changed","list":[3,99]})", "Value above maximum");
}

TEST_F(AllOrNothingTest, AnUnknownEnumerationNameChangesNothing) {
    expectRefusedUnchanged("/", R"({"s":"changed","mode":"dim"})", "Value not in list");
}

TEST_F(AllOrNothingTest, AnApplicationsOwnValueIsCheckedAndNotStored) {
    expectRefusedUnchanged("/", R"({"custom":50,"n":11})", "Value above maximum");
    expectRefusedUnchanged("/", R"({"n":3,"custom":500})", "Value above maximum");
}

TEST_F(AllOrNothingTest, ACollectionItemWithOneBadMemberChangesNothing) {
    expectRefusedUnchanged("/items/1", R"({"name":"eth1","mtu":10})", "Value below minimum");
}

TEST_F(AllOrNothingTest, AnArraySentToAStructureIsAnInvalidTypeAndChangesNothing) {
    expectRefusedUnchanged("/", R"(["asd"])", "Invalid type");
    expectRefusedUnchanged("/nested", R"(["a1", 3])", "Invalid type");
}

TEST_F(AllOrNothingTest, AScalarSentToAStructureIsAnInvalidTypeAndChangesNothing) {
    expectRefusedUnchanged("/nested", R"("text")", "Invalid type");
    expectRefusedUnchanged("/nested", "3", "Invalid type");
}

TEST_F(AllOrNothingTest, AnObjectSentToALeafIsAnInvalidTypeAndChangesNothing) {
    expectRefusedUnchanged("/s", R"({"s":"x"})", "Invalid type");
}

TEST_F(AllOrNothingTest, AGoodBodyChangesEverythingItNames) {
    EXPECT_EQ(update("/", R"({"s":"new","n":9,"nested":{"a":"a2","b":0},"list":[4,5],)"
                          R"("mode":"on","custom":42})"),
              result::DONE);
    EXPECT_EQ(read("/s"), R"("new")");
    EXPECT_EQ(read("/n"), "9");
    EXPECT_EQ(read("/nested/a"), R"("a2")");
    EXPECT_EQ(read("/nested/b"), "0");
    EXPECT_EQ(read("/list"), "[4,5]");
    EXPECT_EQ(read("/mode"), R"("on")");
    EXPECT_EQ(number_->value, 42);
    EXPECT_EQ(number_->stores, 1);
}

TEST_F(AllOrNothingTest, ARefusedUpdateIsHeardByNoObserver) {
    ChangeCounter observer;
    Context ctx(lexicon_, READ, "/n", Arguments(), false);
    ASSERT_EQ(n_->subscribe(ctx, observer), result::DONE);
    EXPECT_EQ(update("/", R"({"n":3,"custom":500})"), result::INVALID_ARGUMENT);
    EXPECT_EQ(observer.changes, 0);
    EXPECT_EQ(update("/", R"({"n":3,"custom":50})"), result::DONE);
    EXPECT_EQ(observer.changes, 1);
    ASSERT_EQ(n_->unsubscribe(ctx, observer), result::DONE);
}

TEST_F(AllOrNothingTest, WithoutTheOptionMembersBeforeTheFailureAreChanged) {
    engine_.setAllOrNothingUpdates(false);
    EXPECT_EQ(update("/", R"({"s":"changed","n":11})"), result::INVALID_ARGUMENT);
    EXPECT_EQ(read("/s"), R"("changed")");
}

// An unnamed element is offered to every member in turn: the text member takes it, the number
// member refuses it.
TEST_F(AllOrNothingTest, WithoutTheOptionAnArrayIsSpreadOverTheMembers) {
    engine_.setAllOrNothingUpdates(false);
    EXPECT_EQ(update("/nested", R"(["a1"])"), result::INVALID_ARGUMENT);
    EXPECT_EQ(read("/nested/a"), R"("a1")");
}

}  // namespace
}  // namespace dme
