#include "dme/api_composite_value.h"

#include <cxxtools/serializationinfo.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "dme/container.h"
#include "dme/engine.h"
#include "dme/json.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "request.h"

namespace dme {
namespace {

using cxxtools::SerializationInfo;

const AllowedMethods ALL = AllowedMethods(0x1F);
const AllowedMethods READ_BROWSE = AllowedMethods::R | AllowedMethods::B;

// The application's side of a composite value: a status report that it keeps as plain data and
// hands out as a document, and that accepts a new "uptime" from a document.
class StatusSource {
  public:
    SerializationInfo document() {
        ++getterCalls;
        return parseJson("{\"a\":{\"b\":{\"c\":1}},\"uptime\":" + std::to_string(uptime) + "}");
    }

    int accept(const SerializationInfo& value) {
        received.push_back(formatJson(value));
        if (const SerializationInfo* member = value.findMember("uptime")) {
            member->getValue(uptime);
        }
        return setterResult;
    }

    ApiCompositeValue::Getter getter() {
        return [this] { return document(); };
    }
    ApiCompositeValue::Setter setter() {
        return [this](const SerializationInfo& value) { return accept(value); };
    }

    int uptime = 5;
    int getterCalls = 0;
    int setterResult = result::DONE;
    std::vector<std::string> received;
};

// The document that `value.getValue` returns, with a request context of its own.
SerializationInfo valueOf(ApiCompositeValue& value) {
    test::Request request(READ, "/");
    return value.getValue(request.context());
}

// The result of `value.setValue` for the JSON text `json`.
int store(ApiCompositeValue& value, const std::string& json) {
    test::Request request(UPDATE, "/");
    return value.setValue(request.context(), parseJson(json));
}

// ---- Construction and the two functions ---------------------------------------------------

TEST(ApiCompositeValueTest, AllowedMethodsAndExpansionAreKeptUnchanged) {
    StatusSource source;
    ApiCompositeValue expanded(source.getter(), ALL, true);
    EXPECT_EQ(expanded.allowedMethods(), ALL);
    EXPECT_TRUE(expanded.alwaysExpanded());
    ApiCompositeValue plain(source.getter(), source.setter(), AllowedMethods::R, false);
    EXPECT_EQ(plain.allowedMethods(), AllowedMethods(AllowedMethods::R));
    EXPECT_FALSE(plain.alwaysExpanded());
}

TEST(ApiCompositeValueTest, GetValueReturnsTheGettersDocument) {
    StatusSource source;
    ApiCompositeValue status(source.getter(), ALL, true);
    EXPECT_EQ(formatJson(valueOf(status)), "{\"a\":{\"b\":{\"c\":1}},\"uptime\":5}");
    EXPECT_EQ(source.getterCalls, 1);
}

TEST(ApiCompositeValueTest, GetValueCallsTheGetterAfreshEachTime) {
    StatusSource source;
    ApiCompositeValue status(source.getter(), ALL, true);
    valueOf(status);
    source.uptime = 6;
    EXPECT_EQ(formatJson(valueOf(status)), "{\"a\":{\"b\":{\"c\":1}},\"uptime\":6}");
    EXPECT_EQ(source.getterCalls, 2);
}

TEST(ApiCompositeValueTest, AnEmptyGetterThrowsBadFunctionCall) {
    ApiCompositeValue status(ApiCompositeValue::Getter(), ALL, true);
    EXPECT_THROW(valueOf(status), std::bad_function_call);
}

TEST(ApiCompositeValueTest, SetValueWithoutASetterReturnsEight) {
    StatusSource source;
    ApiCompositeValue status(source.getter(), ALL, true);
    EXPECT_EQ(store(status, "{\"uptime\":9}"), result::NOT_SUPPORTED);
    EXPECT_EQ(source.uptime, 5);
}

TEST(ApiCompositeValueTest, SetValueReturnsTheSettersResultUnchanged) {
    StatusSource source;
    source.setterResult = 5;
    ApiCompositeValue status(source.getter(), source.setter(), ALL, true);
    EXPECT_EQ(store(status, "{\"uptime\":9}"), 5);
    EXPECT_EQ(source.received, std::vector<std::string>{"{\"uptime\":9}"});
}

TEST(ApiCompositeValueTest, TheSetterReceivesTheValueWithoutValidation) {
    StatusSource source;
    ApiCompositeValue status(source.getter(), source.setter(), ALL, true);
    EXPECT_EQ(store(status, "[\"not\",\"an\",\"object\"]"), dme::result::DONE);
    EXPECT_EQ(source.received, std::vector<std::string>{"[\"not\",\"an\",\"object\"]"});
}

// ---- Through the JSON engine --------------------------------------------------------------

// A data model whose root holds three composite values over status sources:
//   /status  always expanded, every method, with a setter
//   /report  not always expanded, every method, without a setter
//   /fixed   always expanded, read and browse only, with a setter
class ApiCompositeEngineTest : public testing::Test {
  protected:
    int execute(Method method, const std::string& uri, const std::string& body = "") {
        return engine.execute(method, uri, Arguments(), body, answer, false);
    }

    std::string read(const std::string& uri) {
        EXPECT_EQ(execute(READ, uri), result::DONE) << uri;
        return answer;
    }

    StatusSource status;
    StatusSource report;
    StatusSource fixed;
    Structure root{
        {new Entry("status", new ApiCompositeValue(status.getter(), status.setter(), ALL, true)),
         new Entry("report", new ApiCompositeValue(report.getter(), ALL, false)),
         new Entry("fixed",
                   new ApiCompositeValue(fixed.getter(), fixed.setter(), READ_BROWSE, true))},
        ALL,
        false};
    DataModel model{root, test::testLexicon(), ALL};
    JsonDataModelEngine engine{model, "composites"};
    std::string answer;
};

TEST_F(ApiCompositeEngineTest, AReadAnswersTheGettersDocument) {
    EXPECT_EQ(read("/status"), "{\"a\":{\"b\":{\"c\":1}},\"uptime\":5}");
}

TEST_F(ApiCompositeEngineTest, AReadOfACompositeThatIsNotAlwaysExpandedShowsItsPathFirst) {
    EXPECT_EQ(read("/report"), "{\"href\":\"/report\",\"a\":{\"b\":{\"c\":1}},\"uptime\":5}");
}

TEST_F(ApiCompositeEngineTest, AReadOfTheParentShowsTheDocument) {
    EXPECT_EQ(read("/"),
              "{\"href\":\"/\",\"status\":{\"a\":{\"b\":{\"c\":1}},\"uptime\":5},"
              "\"report\":{\"href\":\"/report\"},"
              "\"fixed\":{\"a\":{\"b\":{\"c\":1}},\"uptime\":5}}");
}

TEST_F(ApiCompositeEngineTest, AReadBrowsesIntoTheDocument) {
    EXPECT_EQ(read("/status/a/b"), "{\"c\":1}");
    EXPECT_EQ(read("/status/a/b/c"), "1");
}

TEST_F(ApiCompositeEngineTest, AnUnknownMemberOfTheDocumentIsNotFound) {
    EXPECT_EQ(execute(READ, "/status/a/x"), result::NOT_FOUND);
}

TEST_F(ApiCompositeEngineTest, AWriteBelowTheTopIsNotSupported) {
    EXPECT_EQ(execute(UPDATE, "/status/a", "{\"b\":2}"), result::NOT_SUPPORTED);
    EXPECT_EQ(execute(CREATE, "/status/a", "{\"b\":2}"), result::NOT_SUPPORTED);
    EXPECT_EQ(execute(DELETE, "/status/a"), result::NOT_SUPPORTED);
    EXPECT_TRUE(status.received.empty());
}

TEST_F(ApiCompositeEngineTest, AnUpdateOfTheTopCallsTheSetterWithTheBody) {
    EXPECT_EQ(execute(UPDATE, "/status", "{\"uptime\":9}"), result::DONE);
    EXPECT_EQ(answer, "null");
    EXPECT_EQ(status.received, std::vector<std::string>{"{\"uptime\":9}"});
    EXPECT_EQ(read("/status"), "{\"a\":{\"b\":{\"c\":1}},\"uptime\":9}");
}

TEST_F(ApiCompositeEngineTest, TheSettersResultIsTheUpdatesResult) {
    status.setterResult = 5;
    EXPECT_EQ(execute(UPDATE, "/status", "{\"uptime\":9}"), 5);
}

TEST_F(ApiCompositeEngineTest, AnUpdateWithoutASetterGivesEightAndChangesNothing) {
    EXPECT_EQ(execute(UPDATE, "/report", "{\"uptime\":9}"), result::NOT_SUPPORTED);
    EXPECT_EQ(read("/report"), "{\"href\":\"/report\",\"a\":{\"b\":{\"c\":1}},\"uptime\":5}");
}

TEST_F(ApiCompositeEngineTest, AnUpdateThatIsNotAllowedNeverReachesTheSetter) {
    EXPECT_EQ(execute(UPDATE, "/fixed", "{\"uptime\":9}"), result::NOT_ALLOWED);
    EXPECT_TRUE(fixed.received.empty());
}

TEST_F(ApiCompositeEngineTest, TheGetterIsCalledAfreshOnEveryRequest) {
    EXPECT_EQ(read("/status/uptime"), "5");
    const int callsAfterFirst = status.getterCalls;
    EXPECT_GE(callsAfterFirst, 1);
    status.uptime = 6;
    EXPECT_EQ(read("/status/uptime"), "6");
    EXPECT_GT(status.getterCalls, callsAfterFirst);
    const int callsAfterSecond = status.getterCalls;
    status.uptime = 7;
    EXPECT_EQ(read("/status"), "{\"a\":{\"b\":{\"c\":1}},\"uptime\":7}");
    EXPECT_GT(status.getterCalls, callsAfterSecond);
}

}  // namespace
}  // namespace dme
