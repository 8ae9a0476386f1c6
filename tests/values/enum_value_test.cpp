#include "dme/enum_value.h"

#include <cxxtools/serializationinfo.h>
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "application.h"
#include "dme/atomic_value.h"
#include "dme/container.h"
#include "dme/engine.h"
#include "dme/exception.h"
#include "dme/json.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "leaf_nodes.h"
#include "request.h"
#include "test_nodes.h"

namespace dme {
namespace {

using cxxtools::SerializationInfo;

const AllowedMethods RU = AllowedMethods::R | AllowedMethods::U;
const AllowedMethods READ_ONLY = AllowedMethods::R;

const EnumValue::List OFF_ON{{"off", 0}, {"on", 1}};

// The input document of the JSON text `body`; the empty document for "".
SerializationInfo input(const std::string& body) {
    return body.empty() ? SerializationInfo() : parseJson(body);
}

// Hangs `mode` below a root under the name "mode" and runs requests on "/mode"; the root
// grants every right, so that the outcomes come from `mode` alone.
class ModeTree {
  public:
    explicit ModeTree(Value& mode) {
        root_.add("mode", mode);
        test::attachRoot(root_);
    }

    // The result of `method` on "/mode" with the JSON `body`; the JSON answer is in `answer`.
    int run(Method method, const std::string& body = "") {
        test::Request request(method, "/mode");
        const int rc = request.run(root_, input(body));
        answer = formatJson(request.out());
        return rc;
    }

    // The JSON answer of a READ, which must succeed.
    std::string read() {
        EXPECT_EQ(run(READ), result::DONE);
        return answer;
    }

    // The JSON answer of a SCHEMA request, which must succeed.
    std::string schema() {
        EXPECT_EQ(run(SCHEMA), result::DONE);
        return answer;
    }

    // The dme::Exception that an UPDATE with `body` throws.
    Exception updateError(const std::string& body) {
        try {
            run(UPDATE, body);
        } catch (const Exception& e) {
            return e;
        }
        ADD_FAILURE() << "the update of " << body << " threw no dme::Exception";
        return Exception(Error::ARGUMENT_NOT_SUPPORTED, "nothing thrown");
    }

    std::string answer;

  private:
    test::TestParent root_{test::ALL_METHODS};
};

// A request that has reached "/mode", for calling a node's operations directly.
class ModeRequest {
  public:
    ModeRequest() : request_(READ, "/mode") { request_.context().next("mode"); }
    Context& context() { return request_.context(); }

  private:
    test::Request request_;
};

unsigned int stored(AtomicValue<unsigned int>& number) {
    return number.getValue(ModeRequest().context());
}

void expectNotInList(const Exception& e, const std::string& text) {
    EXPECT_EQ(e.id, Error::VALUE_NOT_IN_LIST);
    EXPECT_EQ(e.message, "Value not in list");
    EXPECT_EQ(e.detail1, text);
    EXPECT_EQ(e.detail2, "");
}

class CountingObserver : public ISubscribable::IObserver {
  public:
    void onChange(const std::chrono::steady_clock::time_point&) override { ++changes; }
    int changes = 0;
};

// A number node that tells when it is destroyed.
class TrackedNumber : public StaticAtomicValue<unsigned int> {
  public:
    TrackedNumber(unsigned int value, bool& destroyed)
        : StaticAtomicValue<unsigned int>(value, RU), destroyed_(destroyed) {}
    ~TrackedNumber() override { destroyed_ = true; }

  private:
    bool& destroyed_;
};

// A number node that records every value handed to its updateValue.
class RecordingNumber : public StaticAtomicValue<unsigned int> {
  public:
    RecordingNumber() : StaticAtomicValue<unsigned int>(0, RU) {}
    int updateValue(Context& ctx, const unsigned int& value) override {
        updates.push_back(value);
        return StaticAtomicValue<unsigned int>::updateValue(ctx, value);
    }
    std::vector<unsigned int> updates;
};

// ---- Construction -------------------------------------------------------------------------

TEST(EnumValueTest, IsAStringValueWithoutBrowsing) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, AllowedMethods(0x1F));
    EXPECT_STREQ(mode.getType(), "string");
    EXPECT_EQ(mode.allowedMethods(), AllowedMethods(0x0F));
    EXPECT_TRUE(mode.alwaysExpanded());
}

TEST(EnumValueTest, BuiltFromAReferenceLeavesTheNumberAlive) {
    bool destroyed = false;
    TrackedNumber number(1, destroyed);
    { EnumValue mode(OFF_ON, number, RU); }
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(stored(number), 1u);
}

TEST(EnumValueTest, BuiltFromAPointerDeletesTheNumber) {
    bool destroyed = false;
    { EnumValue mode(OFF_ON, new TrackedNumber(1, destroyed), RU); }
    EXPECT_TRUE(destroyed);
}

TEST(EnumValueTest, TheListIsReferredToNotCopied) {
    EnumValue::List list{{"off", 0}};
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(list, number, RU);
    list.emplace_back("on", 1);
    ModeTree tree(mode);
    EXPECT_EQ(tree.run(UPDATE, "\"on\""), result::DONE);
    EXPECT_EQ(stored(number), 1u);
    EXPECT_EQ(tree.read(), "\"on\"");
}

// ---- Reading ------------------------------------------------------------------------------

TEST(EnumValueTest, ReadAnswersTheNameOfTheCurrentNumber) {
    StaticAtomicValue<unsigned int> number(1, RU);
    EnumValue mode(OFF_ON, number, RU);
    EXPECT_EQ(ModeTree(mode).read(), "\"on\"");
}

TEST(EnumValueTest, ReadFollowsTheNumberWhoeverChangesIt) {
    StaticAtomicValue<unsigned int> number(1, RU);
    EnumValue mode(OFF_ON, number, RU);
    ModeTree tree(mode);
    number.setValue(ModeRequest().context(), 0);
    EXPECT_EQ(tree.read(), "\"off\"");
}

TEST(EnumValueTest, ANumberNotInTheListReadsAsTheEmptyText) {
    StaticAtomicValue<unsigned int> number(5, RU);
    EnumValue mode(OFF_ON, number, RU);
    ModeTree tree(mode);
    EXPECT_EQ(tree.run(READ), result::DONE);
    EXPECT_EQ(tree.answer, "\"\"");
}

TEST(EnumValueTest, ASameNumberTwiceReadsBackTheFirstName) {
    const EnumValue::List list{{"on", 1}, {"enabled", 1}};
    StaticAtomicValue<unsigned int> number(1, RU);
    EnumValue mode(list, number, RU);
    EXPECT_EQ(ModeTree(mode).read(), "\"on\"");
}

TEST(EnumValueTest, ANonAsciiNameIsDecodedAsUtf8) {
    const EnumValue::List list{{"gr\xc3\xbcn", 3}};
    StaticAtomicValue<unsigned int> number(3, RU);
    EnumValue mode(list, number, RU);
    EXPECT_EQ(ModeTree(mode).read(), "\"gr\\u00fcn\"");
}

TEST(EnumValueTest, GetValueIsTheNameOfTheNumber) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, RU);
    EXPECT_EQ(mode.getValue(ModeRequest().context()), "off");
}

TEST(EnumValueTest, IntToStringFindsTheFirstPairWithTheNumber) {
    const EnumValue::List list{{"low", 0}, {"high", 9}, {"max", 9}};
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(list, number, RU);
    ModeRequest request;
    EXPECT_EQ(mode.intToString(request.context(), 9), "high");
    EXPECT_EQ(mode.intToString(request.context(), 0), "low");
    EXPECT_EQ(mode.intToString(request.context(), 7), "");
}

// ---- Updating -----------------------------------------------------------------------------

TEST(EnumValueTest, UpdateByNameStoresTheNumber) {
    StaticAtomicValue<unsigned int> number(1, RU);
    EnumValue mode(OFF_ON, number, RU);
    ModeTree tree(mode);
    EXPECT_EQ(tree.run(UPDATE, "\"off\""), result::DONE);
    EXPECT_EQ(tree.answer, "null");
    EXPECT_EQ(stored(number), 0u);
}

TEST(EnumValueTest, UpdateStoresThroughTheNumbersUpdateValue) {
    RecordingNumber number;
    EnumValue mode(OFF_ON, number, RU);
    ModeTree tree(mode);
    EXPECT_EQ(tree.run(UPDATE, "\"on\""), result::DONE);
    EXPECT_EQ(number.updates, std::vector<unsigned int>{1});
    EXPECT_EQ(stored(number), 1u);
}

TEST(EnumValueTest, UpdateNotifiesTheNumbersObserver) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, RU);
    ModeTree tree(mode);
    CountingObserver observer;
    ASSERT_EQ(number.subscribe(ModeRequest().context(), observer), result::DONE);
    EXPECT_EQ(tree.run(UPDATE, "\"on\""), result::DONE);
    EXPECT_EQ(observer.changes, 1);
}

// Texts that name no entry of the list: each is refused as "Value not in list" with the text as
// its detail, and the number keeps its value. Names are matched whole and case-sensitively.
class EnumValueRefusedNameTest : public testing::TestWithParam<const char*> {};

TEST_P(EnumValueRefusedNameTest, IsNotInTheListAndChangesNothing) {
    StaticAtomicValue<unsigned int> number(1, RU);
    EnumValue mode(OFF_ON, number, RU);
    ModeTree tree(mode);
    const std::string name = GetParam();
    expectNotInList(tree.updateError("\"" + name + "\""), name);
    EXPECT_EQ(stored(number), 1u);
}

INSTANTIATE_TEST_SUITE_P(UnknownWrongCaseOrPartial, EnumValueRefusedNameTest,
                         testing::Values("dim", "On", "OFF", "o", "on ", " on", "onn", ""));

TEST(EnumValueTest, ASameNameTwiceMapsToTheFirstNumber) {
    const EnumValue::List list{{"on", 1}, {"on", 2}};
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(list, number, RU);
    EXPECT_EQ(ModeTree(mode).run(UPDATE, "\"on\""), result::DONE);
    EXPECT_EQ(stored(number), 1u);
}

TEST(EnumValueTest, TheNumbersOwnRefusalPassesUnchanged) {
    const EnumValue::List list{{"off", 0}, {"on", 1}, {"boost", 2}};
    StaticAtomicValue<unsigned int> number(0, RU, 0, 1);
    EnumValue mode(list, number, RU);
    const Exception e = ModeTree(mode).updateError("\"boost\"");
    EXPECT_EQ(e.id, Error::VALUE_ABOVE_MAX);
    EXPECT_EQ(e.message, "Value above maximum");
    EXPECT_EQ(e.detail1, "mode");
    EXPECT_EQ(e.detail2, "1");
    EXPECT_EQ(stored(number), 0u);
}

TEST(EnumValueTest, InputThatIsNotATextIsInvalidType) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, RU);
    const Exception e = ModeTree(mode).updateError("1");
    EXPECT_EQ(e.id, Error::INVALID_TYPE);
    EXPECT_EQ(e.message, "Invalid type");
    EXPECT_EQ(e.detail1, "mode");
    EXPECT_EQ(e.detail2, "string");
    EXPECT_EQ(stored(number), 0u);
}

TEST(EnumValueTest, UpdateIsRefusedWithoutTheUpdateMethod) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, READ_ONLY);
    EXPECT_EQ(ModeTree(mode).run(UPDATE, "\"on\""), result::NOT_ALLOWED);
    EXPECT_EQ(stored(number), 0u);
}

TEST(EnumValueTest, ValidateValueAcceptsEveryText) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, RU);
    ModeRequest request;
    EXPECT_NO_THROW(mode.validateValue(request.context(), "dim"));
    EXPECT_NO_THROW(mode.validateValue(request.context(), std::string(70000, 'x')));
    EXPECT_EQ(stored(number), 0u);
}

TEST(EnumValueTest, SetValueStoresTheNumberOfTheName) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, RU);
    EXPECT_EQ(mode.setValue(ModeRequest().context(), "on"), result::DONE);
    EXPECT_EQ(stored(number), 1u);
}

TEST(EnumValueTest, StringToIntFindsTheNumberOfTheName) {
    const EnumValue::List list{{"low", 0}, {"high", 9}};
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(list, number, RU);
    EXPECT_EQ(mode.stringToInt(ModeRequest().context(), "high"), 9u);
}

TEST(EnumValueTest, StringToIntOfAnUnknownNameThrows) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, RU);
    try {
        mode.stringToInt(ModeRequest().context(), "OFF");
        ADD_FAILURE() << "no dme::Exception";
    } catch (const Exception& e) {
        expectNotInList(e, "OFF");
    }
}

// ---- An empty list ------------------------------------------------------------------------

TEST(EnumValueTest, AnEmptyListReadsEveryNumberAsTheEmptyText) {
    const EnumValue::List list;
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(list, number, RU);
    EXPECT_EQ(ModeTree(mode).read(), "\"\"");
}

TEST(EnumValueTest, AnEmptyListRefusesEveryUpdate) {
    const EnumValue::List list;
    StaticAtomicValue<unsigned int> number(4, RU);
    EnumValue mode(list, number, RU);
    ModeTree tree(mode);
    expectNotInList(tree.updateError("\"off\""), "off");
    expectNotInList(tree.updateError("\"\""), "");
    EXPECT_EQ(stored(number), 4u);
}

TEST(EnumValueTest, AnEmptyListHasAnEmptyEnumArray) {
    const EnumValue::List list;
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(list, number, RU);
    EXPECT_EQ(ModeTree(mode).schema(), "{\"type\":\"string\",\"enum\":[]}");
}

// ---- Schema -------------------------------------------------------------------------------

TEST(EnumValueTest, SchemaOfAModifiableEnumerationListsTheNames) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, RU);
    EXPECT_EQ(ModeTree(mode).schema(), "{\"type\":\"string\",\"enum\":[\"off\",\"on\"]}");
}

TEST(EnumValueTest, SchemaOfAReadOnlyEnumerationStillListsTheNames) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, READ_ONLY);
    EXPECT_EQ(ModeTree(mode).schema(),
              "{\"type\":\"string\",\"readonly\":true,\"enum\":[\"off\",\"on\"]}");
}

TEST(EnumValueTest, SchemaKeepsDuplicatesInListOrder) {
    const EnumValue::List list{{"on", 1}, {"off", 0}, {"on", 2}};
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(list, number, RU);
    EXPECT_EQ(ModeTree(mode).schema(), "{\"type\":\"string\",\"enum\":[\"on\",\"off\",\"on\"]}");
}

TEST(EnumValueTest, SchemaIsAnsweredWithoutAnyAllowedMethod) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, AllowedMethods());
    EXPECT_EQ(ModeTree(mode).schema(),
              "{\"type\":\"string\",\"readonly\":true,\"enum\":[\"off\",\"on\"]}");
}

TEST(EnumValueTest, SerializeSchemaFormatWritesOnlyTheEnumMember) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, RU);
    SerializationInfo out;
    EXPECT_EQ(mode.serializeSchemaFormat(ModeRequest().context(), SerializationInfo(), out), 0);
    EXPECT_EQ(formatJson(out), "{\"enum\":[\"off\",\"on\"]}");
}

TEST(EnumValueTest, SerializeReadOnlyWritesReadOnlyThenTheEnumMember) {
    StaticAtomicValue<unsigned int> number(0, RU);
    EnumValue mode(OFF_ON, number, RU);
    SerializationInfo out;
    EXPECT_EQ(mode.serializeReadOnly(ModeRequest().context(), SerializationInfo(), out), 0);
    EXPECT_EQ(formatJson(out), "{\"readonly\":true,\"enum\":[\"off\",\"on\"]}");
}

// ---- Subscriptions ------------------------------------------------------------------------

// An enumeration over a number, two observers and a request to subscribe them with.
class EnumValueSubscriptionTest : public testing::Test {
  protected:
    Context& ctx() { return request.context(); }

    StaticAtomicValue<unsigned int> number{0, RU};
    EnumValue mode{OFF_ON, number, RU};
    CountingObserver first;
    CountingObserver second;
    ModeRequest request;
};

TEST_F(EnumValueSubscriptionTest, ASubscriptionIsAttachedToTheNumbersNode) {
    ASSERT_EQ(mode.subscribe(ctx(), first), result::DONE);
    number.setValue(ctx(), 1);
    EXPECT_EQ(first.changes, 1);
}

TEST_F(EnumValueSubscriptionTest, TheEnumerationsOwnObserverSlotStaysEmpty) {
    ASSERT_EQ(mode.subscribe(ctx(), first), result::DONE);
    mode.notifyChange();
    EXPECT_EQ(first.changes, 0);
}

TEST_F(EnumValueSubscriptionTest, ASubscriptionThroughTheInterfaceIsForwardedToo) {
    ISubscribable& subscribable = mode;
    ASSERT_EQ(subscribable.subscribe(ctx(), first), result::DONE);
    number.setValue(ctx(), 1);
    EXPECT_EQ(first.changes, 1);
    ASSERT_EQ(subscribable.unsubscribe(ctx(), first), result::DONE);
    number.setValue(ctx(), 0);
    EXPECT_EQ(first.changes, 1);
}

TEST_F(EnumValueSubscriptionTest, ASecondSubscriptionThroughTheEnumerationThrows) {
    ASSERT_EQ(mode.subscribe(ctx(), first), result::DONE);
    try {
        mode.subscribe(ctx(), second);
        ADD_FAILURE() << "no std::runtime_error";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Attempt to subscribe twice to dme::Value /mode");
    }
    number.setValue(ctx(), 1);
    EXPECT_EQ(first.changes, 1);
    EXPECT_EQ(second.changes, 0);
}

TEST_F(EnumValueSubscriptionTest, ASubscriptionOnTheNumberAfterOneThroughTheEnumerationThrows) {
    ASSERT_EQ(mode.subscribe(ctx(), first), result::DONE);
    EXPECT_THROW(number.subscribe(ctx(), second), std::runtime_error);
}

TEST_F(EnumValueSubscriptionTest, ASubscriptionThroughTheEnumerationAfterOneOnTheNumberThrows) {
    ASSERT_EQ(number.subscribe(ctx(), first), result::DONE);
    EXPECT_THROW(mode.subscribe(ctx(), second), std::runtime_error);
}

TEST_F(EnumValueSubscriptionTest, UnsubscribingReleasesTheNumbersNode) {
    ASSERT_EQ(mode.subscribe(ctx(), first), result::DONE);
    EXPECT_EQ(mode.unsubscribe(ctx(), first), result::DONE);
    EXPECT_EQ(number.subscribe(ctx(), second), result::DONE);
    number.setValue(ctx(), 1);
    EXPECT_EQ(first.changes, 0);
    EXPECT_EQ(second.changes, 1);
}

TEST_F(EnumValueSubscriptionTest, UnsubscribingAnUnknownObserverThrowsAndKeepsTheAttachedOne) {
    ASSERT_EQ(mode.subscribe(ctx(), first), result::DONE);
    try {
        mode.unsubscribe(ctx(), second);
        ADD_FAILURE() << "no std::runtime_error";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Attempt to unsubscribe from unknown observer in dme::Value /mode");
    }
    number.setValue(ctx(), 1);
    EXPECT_EQ(first.changes, 1);
}

TEST(EnumValuePlainNumberTest, ANumberThatCannotBeObservedRefusesWithEight) {
    // AtomicValue leaves subscribeToValue at Value's default, which refuses.
    class PlainNumber : public AtomicValue<unsigned int> {
      public:
        PlainNumber() : AtomicValue<unsigned int>(RU) {}
        unsigned int getValue(Context&) override { return 0; }
        int setValue(Context&, const unsigned int&) override { return result::DONE; }
    };
    PlainNumber number;
    EnumValue mode(OFF_ON, number, RU);
    CountingObserver observer;
    EXPECT_EQ(mode.subscribe(ModeRequest().context(), observer), result::NOT_SUPPORTED);
}

// ---- Through the JSON engine --------------------------------------------------------------

// A data model whose root holds the enumeration "/mode" over the number node `number`, and whose
// exception handler turns a dme::Exception into status 10 and an error document.
class EnumEngineTest : public testing::Test {
  protected:
    EnumEngineTest() {
        model.registerExceptionHandler(
            ExceptionHandlers::Entry(typeid(Exception), test::writeErrorDocument));
    }

    int execute(Method method, const std::string& uri, const std::string& body = "") {
        return engine.execute(method, uri, Arguments(), body, answer, false);
    }

    std::string read(const std::string& uri) {
        EXPECT_EQ(execute(READ, uri), result::DONE) << uri;
        return answer;
    }

    int subscribe() {
        return engine.subscribe(observer, "/mode", Arguments(), std::chrono::milliseconds(10),
                                ObserverOption::CHANGES_ONLY);
    }

    test::WaitingObserver observer;  // outlives the engine, whose thread may call it
    StaticAtomicValue<unsigned int> number{1, RU};
    EnumValue mode{OFF_ON, number, RU};
    Structure root{{new Entry("mode", mode)}, AllowedMethods(0x1F), false};
    DataModel model{root, test::testLexicon(), AllowedMethods(0x1F)};
    JsonDataModelEngine engine{model, "enumerations"};
    std::string answer;
};

TEST_F(EnumEngineTest, AReadAnswersTheName) {
    EXPECT_EQ(read("/mode"), "\"on\"");
}

TEST_F(EnumEngineTest, AReadOfTheParentShowsTheName) {
    EXPECT_EQ(read("/"), "{\"href\":\"/\",\"mode\":\"on\"}");
}

TEST_F(EnumEngineTest, AnUpdateByNameIsReadBack) {
    EXPECT_EQ(execute(UPDATE, "/mode", "\"off\""), result::DONE);
    EXPECT_EQ(answer, "null");
    EXPECT_EQ(read("/mode"), "\"off\"");
    EXPECT_EQ(stored(number), 0u);
}

TEST_F(EnumEngineTest, AnUpdateOfTheParentByNameReachesTheNumber) {
    EXPECT_EQ(execute(UPDATE, "/", "{\"mode\":\"off\"}"), result::DONE);
    EXPECT_EQ(stored(number), 0u);
}

TEST_F(EnumEngineTest, AnUnknownNameGivesTheErrorDocument) {
    EXPECT_EQ(execute(UPDATE, "/mode", "\"dim\""), test::REJECTED);
    EXPECT_EQ(answer, "{\"error\":\"Value not in list\",\"details\":[\"dim\",\"\"]}");
    EXPECT_EQ(read("/mode"), "\"on\"");
}

TEST_F(EnumEngineTest, ANumberGivesTheInvalidTypeDocument) {
    EXPECT_EQ(execute(UPDATE, "/mode", "0"), test::REJECTED);
    EXPECT_EQ(answer, "{\"error\":\"Invalid type\",\"details\":[\"mode\",\"string\"]}");
    EXPECT_EQ(read("/mode"), "\"on\"");
}

TEST_F(EnumEngineTest, TheSchemaListsTheNames) {
    EXPECT_EQ(execute(SCHEMA, "/mode"), result::DONE);
    EXPECT_EQ(answer, "{\"type\":\"string\",\"enum\":[\"off\",\"on\"]}");
}

TEST_F(EnumEngineTest, ASubscriptionHearsOfAnUpdateThroughTheEnumeration) {
    ASSERT_EQ(subscribe(), result::DONE);
    EXPECT_EQ(execute(UPDATE, "/mode", "\"off\""), result::DONE);
    ASSERT_TRUE(observer.waitFor(1));
    EXPECT_EQ(observer.notifications()[0].uri, "/mode");
}

TEST_F(EnumEngineTest, ASubscriptionHearsOfAChangeOfTheNumberByTheApplication) {
    ASSERT_EQ(subscribe(), result::DONE);
    number.setValue(ModeRequest().context(), 0);
    ASSERT_TRUE(observer.waitFor(1));
    EXPECT_EQ(observer.notifications()[0].uri, "/mode");
}

TEST_F(EnumEngineTest, ASubscriptionOccupiesTheNumbersObserverSlot) {
    ASSERT_EQ(subscribe(), result::DONE);
    ASSERT_NE(mode.subscriberManager(), nullptr);
    EXPECT_EQ(mode.subscriberManager()->subscribers().size(), 1u);
    EXPECT_EQ(number.subscriberManager(), nullptr);
    CountingObserver other;
    EXPECT_THROW(number.subscribe(ModeRequest().context(), other), std::runtime_error);
}

TEST_F(EnumEngineTest, UnsubscribingReleasesTheNumbersObserverSlot) {
    ASSERT_EQ(subscribe(), result::DONE);
    engine.unsubscribe(observer);
    EXPECT_TRUE(mode.subscriberManager()->subscribers().empty());
    CountingObserver other;
    EXPECT_EQ(number.subscribe(ModeRequest().context(), other), result::DONE);
}

}  // namespace
}  // namespace dme
