#include <cxxtools/serializationinfo.h>
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "application.h"
#include "dme/atomic_value.h"
#include "dme/container.h"
#include "dme/engine.h"
#include "dme/json.h"
#include "dme/policy.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "leaf_nodes.h"
#include "recorded_diagnostics.h"
#include "test_nodes.h"

namespace {

using cxxtools::SerializationInfo;
using dme::AllowedMethods;
using dme::Arguments;
using dme::Context;
using dme::DataModel;
using dme::Entry;
using dme::ExceptionHandlers;
using dme::JsonDataModelEngine;
using dme::ObserverOption;
using dme::RequestInfo;
using dme::StaticAtomicValue;
using dme::Structure;
using dme::test::ALL_METHODS;
using dme::test::FunctionLeaf;
using dme::test::StringLeaf;
using dme::test::TestParent;
using dme::test::WaitingObserver;

const dme::Lexicon& lexicon() {
    static const dme::Lexicon names{"href", "id", "count", "items", "expand", "select"};
    return names;
}

// `json` without the white space between its tokens (white space inside strings is kept).
std::string withoutWhiteSpace(const std::string& json) {
    std::string compact;
    bool inString = false;
    bool escaped = false;
    for (char c : json) {
        if (inString) {
            escaped = !escaped && c == '\\';
            if (c == '"' && !escaped) inString = false;
        } else if (c == ' ' || c == '\n' || c == '\t' || c == '\r') {
            continue;
        } else if (c == '"') {
            inString = true;
        }
        compact += c;
    }
    return compact;
}

// A tree served through a JSON engine:
//   /leaf    a text leaf reading "hello"
//   /probe   records the input and the session of the requests that reach it
//   /broken  reads as an object holding an unnamed object, which is not JSON, with status 5
//   /doc     {"x": "1", "y": "two words"}
class JsonEngineTest : public testing::Test {
  protected:
    JsonEngineTest() {
        root.add("leaf", leaf);
        root.add("probe", probe);
        root.add("broken", broken);
        root.add("doc", doc);
        doc.add("x", x);
        doc.add("y", y);
    }

    int execute(dme::Method method, const std::string& uri, const std::string& body,
                bool beautify = false) {
        return engine.execute(method, uri, Arguments(), body, outBody, beautify);
    }

    FunctionLeaf::Operation recording() {
        return [this](Context& ctx, const SerializationInfo& in, SerializationInfo&) {
            ++probeCalls;
            inputWasEmpty = in.category() == SerializationInfo::Void && in.isNull();
            input = dme::formatJson(in);
            user = ctx.requestInfo().session().name();
            return 0;
        };
    }

    int probeCalls = 0;
    bool inputWasEmpty = false;
    std::string input;
    std::string user;
    TestParent root{ALL_METHODS};
    TestParent doc{ALL_METHODS};
    StringLeaf leaf{"hello"};
    StringLeaf x{"1"};
    StringLeaf y{"two words"};
    FunctionLeaf probe{recording(), recording()};
    FunctionLeaf broken{[](Context&, const SerializationInfo&, SerializationInfo& out) {
        out.setCategory(SerializationInfo::Object);
        SerializationInfo& unnamed = out.addMember("");
        unnamed.setCategory(SerializationInfo::Object);
        unnamed.addMember("x").setValue(1);
        return 5;
    }};
    DataModel model{root, lexicon(), ALL_METHODS};
    JsonDataModelEngine engine{model, "json"};
    std::string outBody;
};

TEST_F(JsonEngineTest, TheBodyIsParsedIntoTheInput) {
    EXPECT_EQ(execute(dme::UPDATE, "/probe", "{\"a\": [1, true]}"), dme::result::DONE);
    EXPECT_EQ(input, "{\"a\":[1,true]}");
}

TEST_F(JsonEngineTest, TheOutputIsFormattedIntoTheAnswer) {
    EXPECT_EQ(execute(dme::READ, "/leaf", ""), dme::result::DONE);
    EXPECT_EQ(outBody, "\"hello\"");
}

TEST_F(JsonEngineTest, AnEmptyBodyExecutesWithAnEmptyInput) {
    EXPECT_EQ(execute(dme::UPDATE, "/probe", ""), dme::result::DONE);
    EXPECT_EQ(probeCalls, 1);
    EXPECT_TRUE(inputWasEmpty);
}

TEST_F(JsonEngineTest, ATruncatedBodyGives10AndADiagnosticAndIsNotExecuted) {
    outBody = "previous";
    testing::internal::CaptureStderr();
    const int status = execute(dme::UPDATE, "/probe", "{");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "In JDM while deserializing inSi:\n"
              "invalid JSON at byte 1: expected a member name\n");
    EXPECT_EQ(status, dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(outBody, "null");
    EXPECT_EQ(probeCalls, 0);
}

TEST_F(JsonEngineTest, TheDeserializingReportGoesToTheInstalledDiagnosticHandler) {
    dme::test::RecordedDiagnostics recorded;
    testing::internal::CaptureStderr();
    EXPECT_EQ(execute(dme::UPDATE, "/probe", "{"), dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_EQ(recorded.reports.size(), 1u);
    EXPECT_EQ(recorded.reports[0].rfind("In JDM while deserializing inSi:\n", 0), 0u);
}

TEST_F(JsonEngineTest, TextThatIsNotJsonGives10AndChangesNothing) {
    testing::internal::CaptureStderr();
    const int status = execute(dme::UPDATE, "/leaf", "not json");
    const std::string report = testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(report.rfind("In JDM while deserializing inSi:\n", 0), 0u) << report;
    EXPECT_EQ(outBody, "null");
    EXPECT_EQ(leaf.updates(), 0);
    EXPECT_EQ(leaf.text(), "hello");
}

TEST_F(JsonEngineTest, TrailingTextAfterTheBodyGives10AndChangesNothing) {
    testing::internal::CaptureStderr();
    const int status = execute(dme::UPDATE, "/leaf", "\"changed\" trailing");
    const std::string report = testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(report.rfind("In JDM while deserializing inSi:\n", 0), 0u) << report;
    EXPECT_EQ(leaf.updates(), 0);
    EXPECT_EQ(leaf.text(), "hello");
}

TEST_F(JsonEngineTest, AnObjectWithTrailingTextGives10) {
    testing::internal::CaptureStderr();
    const int status = execute(dme::UPDATE, "/probe", "{\"a\":1} trailing");
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(probeCalls, 0);
}

TEST_F(JsonEngineTest, CompactAndBeautifiedAnswersDifferOnlyInWhiteSpace) {
    std::string compact;
    std::string beautified;
    EXPECT_EQ(engine.execute(dme::READ, "/doc", Arguments(), "", compact, false),
              dme::result::DONE);
    EXPECT_EQ(engine.execute(dme::READ, "/doc", Arguments(), "", beautified, true),
              dme::result::DONE);
    EXPECT_EQ(compact, "{\"href\":\"/doc\",\"x\":\"1\",\"y\":\"two words\"}");
    EXPECT_NE(beautified, compact);
    EXPECT_NE(beautified.find('\n'), std::string::npos);
    EXPECT_EQ(withoutWhiteSpace(beautified), compact);
}

TEST_F(JsonEngineTest, AFormattingFailureIsReportedAndLeavesAnswerAndStatus) {
    outBody = "previous";
    testing::internal::CaptureStderr();
    const int status = execute(dme::READ, "/broken", "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "In JDM while serializing outSi:\n"
              "can't serialize object without name into another object\n");
    EXPECT_EQ(status, 5);
    EXPECT_EQ(outBody, "previous");
}

TEST_F(JsonEngineTest, TheFormWithoutRequestInfoRunsAsTheAnonymousUser) {
    EXPECT_EQ(execute(dme::READ, "/probe", ""), dme::result::DONE);
    EXPECT_EQ(user, "#unknown");
}

TEST_F(JsonEngineTest, TheFormWithRequestInfoRunsOnBehalfOfItsSession) {
    const RequestInfo alice(dme::SessionInfo(dme::UserInfo("alice", 7, {}), {}), {});
    EXPECT_EQ(engine.execute(dme::READ, "/probe", Arguments(), alice, "", outBody, false),
              dme::result::DONE);
    EXPECT_EQ(user, "alice");
}

TEST_F(JsonEngineTest, AnInvalidMethodGives10AndAnEmptyAnswer) {
    EXPECT_EQ(execute(static_cast<dme::Method>(0), "/probe", "{}"), dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(outBody, "null");
    EXPECT_EQ(probeCalls, 0);
}

TEST_F(JsonEngineTest, TheTreesStatusPassesThrough) {
    EXPECT_EQ(execute(dme::READ, "/nope", ""), dme::result::NOT_FOUND);
    EXPECT_EQ(outBody, "null");
}

TEST_F(JsonEngineTest, ExtractJsonFromBodyFillsTheInputOnly) {
    SerializationInfo inSi;
    SerializationInfo outSi;
    EXPECT_EQ(engine.extractJsonFromBody(inSi, "{\"a\":1}", outSi), 0);
    EXPECT_EQ(dme::formatJson(inSi), "{\"a\":1}");
    EXPECT_TRUE(outSi.isNull());
}

TEST_F(JsonEngineTest, ExtractJsonFromAnEmptyBodyLeavesTheInput) {
    SerializationInfo inSi;
    inSi.addMember("kept").setValue(1);
    SerializationInfo outSi;
    EXPECT_EQ(engine.extractJsonFromBody(inSi, "", outSi), 0);
    EXPECT_EQ(dme::formatJson(inSi), "{\"kept\":1}");
}

TEST_F(JsonEngineTest, ExtractJsonFromABadBodyGives10AndLeavesTheInput) {
    SerializationInfo inSi;
    inSi.addMember("kept").setValue(1);
    SerializationInfo outSi;
    testing::internal::CaptureStderr();
    const int status = engine.extractJsonFromBody(inSi, "[1,2", outSi);
    const std::string report = testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(report.rfind("In JDM while deserializing inSi:\n", 0), 0u) << report;
    EXPECT_EQ(dme::formatJson(inSi), "{\"kept\":1}");
    EXPECT_TRUE(outSi.isNull());
}

TEST(JsonEngineLifeTest, ANullDataModelIsRefused) {
    try {
        JsonDataModelEngine engine(static_cast<DataModel*>(nullptr), "none");
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "No data model provided");
    }
}

TEST(JsonEngineLifeTest, AnEngineBuiltFromAPointerOwnsTheModel) {
    auto* root = new StringLeaf("owned");
    std::string answer;
    {
        JsonDataModelEngine engine(new DataModel(root, lexicon(), ALL_METHODS), "owner");
        EXPECT_EQ(engine.execute(dme::READ, "/", Arguments(), "", answer, false),
                  dme::result::DONE);
    }
    EXPECT_EQ(answer, "\"owned\"");
}

TEST(JsonEngineLifeTest, AnEngineBuiltFromAReferenceLeavesTheModel) {
    StringLeaf root("borrowed");
    DataModel model(root, lexicon(), ALL_METHODS);
    std::string answer;
    { JsonDataModelEngine engine(model, "borrower"); }
    JsonDataModelEngine again(model, "again");
    EXPECT_EQ(again.execute(dme::READ, "/", Arguments(), "", answer, false), dme::result::DONE);
    EXPECT_EQ(answer, "\"borrowed\"");
}

// ---- End to end: a tree of structures and atomic values served as JSON -------------------

// The tree:
//   /                 structure (read, update, browse)
//   /name             string, 0 to 8 bytes
//   /enabled          boolean
//   /retries          integer, read only
//   /network          structure (every method)
//   /network/host     string, its own policy grants read only
//   /network/port     integer, 1 to 65535
//   /network/dns      structure, read only
//   /network/dns/primary  string, read only
// The data model grants every method; a dme::Exception becomes status 10 and an error document.
class EndToEndTest : public testing::Test {
  protected:
    static constexpr std::uint32_t R = AllowedMethods::R;
    static constexpr std::uint32_t RU = AllowedMethods::R | AllowedMethods::U;
    static constexpr std::uint32_t RB = AllowedMethods::R | AllowedMethods::B;
    static constexpr std::uint32_t RUB = RU | AllowedMethods::B;

    EndToEndTest() {
        host.setPermissionPolicy(dme::StaticPolicy(R),
                                 dme::PermissionPolicyHolder::DefaultPolicyReplacer());
    }

    int execute(dme::Method method, const std::string& uri, const std::string& body = "",
                const std::string& query = "") {
        return engine.execute(method, uri, Arguments(query), body, answer, false);
    }

    // The compact JSON answer of a READ of `uri`.
    std::string read(const std::string& uri, const std::string& query = "") {
        EXPECT_EQ(execute(dme::READ, uri, "", query), dme::result::DONE) << uri;
        return answer;
    }

    WaitingObserver observer;  // outlives the engine, whose thread may call it
    StaticAtomicValue<std::string> name{"dme", RU, 0, 8};
    StaticAtomicValue<bool> enabled{true, RU};
    StaticAtomicValue<int> retries{3, R};
    StaticAtomicValue<std::string> host{"localhost", RU};
    StaticAtomicValue<int> port{80, RU, 1, 65535};
    StaticAtomicValue<std::string> primary{"10.0.0.1", R};
    Structure root{
        {new Entry("name", name), new Entry("enabled", enabled), new Entry("retries", retries),
         new Entry("network",
                   new Structure({new Entry("host", host), new Entry("port", port),
                                  new Entry("dns", new Structure({new Entry("primary", primary)},
                                                                 RB, false))},
                                 ALL_METHODS, false))},
        RUB,
        false};
    DataModel model{root, lexicon(), ALL_METHODS,
                    ExceptionHandlers({ExceptionHandlers::Entry(typeid(dme::Exception),
                                                                dme::test::writeErrorDocument)})};
    JsonDataModelEngine engine{model, "end-to-end"};
    std::string answer;
};

TEST_F(EndToEndTest, AReadShowsUnexpandedStructuresByTheirPath) {
    EXPECT_EQ(read("/"),
              "{\"href\":\"/\",\"name\":\"dme\",\"enabled\":true,\"retries\":3,"
              "\"network\":{\"href\":\"/network\"}}");
}

TEST_F(EndToEndTest, TheRequestedStructureSpendsTheFirstExpandLevel) {
    EXPECT_EQ(read("/", "expand=1"),
              "{\"href\":\"/\",\"name\":\"dme\",\"enabled\":true,\"retries\":3,"
              "\"network\":{\"href\":\"/network\"}}");
}

TEST_F(EndToEndTest, EachFurtherExpandLevelOpensOneMoreStructure) {
    EXPECT_EQ(read("/", "expand=2"),
              "{\"href\":\"/\",\"name\":\"dme\",\"enabled\":true,\"retries\":3,"
              "\"network\":{\"href\":\"/network\",\"host\":\"localhost\",\"port\":80,"
              "\"dns\":{\"href\":\"/network/dns\"}}}");
    EXPECT_EQ(read("/", "expand=3"),
              "{\"href\":\"/\",\"name\":\"dme\",\"enabled\":true,\"retries\":3,"
              "\"network\":{\"href\":\"/network\",\"host\":\"localhost\",\"port\":80,"
              "\"dns\":{\"href\":\"/network/dns\",\"primary\":\"10.0.0.1\"}}}");
}

TEST_F(EndToEndTest, AReadOfANestedStructureShowsItsMembers) {
    EXPECT_EQ(read("/network/dns"), "{\"href\":\"/network/dns\",\"primary\":\"10.0.0.1\"}");
}

TEST_F(EndToEndTest, AReadOfALeafIsTheBareScalar) {
    EXPECT_EQ(read("/name"), "\"dme\"");
    EXPECT_EQ(read("/enabled"), "true");
    EXPECT_EQ(read("/network/port"), "80");
}

TEST_F(EndToEndTest, TheSelectArgumentKeepsTheNamedPropertiesOnly) {
    EXPECT_EQ(read("/", "expand=3&select=name,network/port"),
              "{\"href\":\"/\",\"name\":\"dme\",\"network\":{\"href\":\"/network\",\"port\":80}}");
}

TEST_F(EndToEndTest, AnUpdateOfALeafIsReadBack) {
    EXPECT_EQ(execute(dme::UPDATE, "/name", "\"vara\""), dme::result::DONE);
    EXPECT_EQ(answer, "null");
    EXPECT_EQ(read("/name"), "\"vara\"");
}

TEST_F(EndToEndTest, AnUpdateOfAStructureChangesTheMembersGiven) {
    EXPECT_EQ(execute(dme::UPDATE, "/", "{\"enabled\":false,\"name\":\"vara\"}"),
              dme::result::DONE);
    EXPECT_EQ(read("/"),
              "{\"href\":\"/\",\"name\":\"vara\",\"enabled\":false,\"retries\":3,"
              "\"network\":{\"href\":\"/network\"}}");
}

TEST_F(EndToEndTest, AnUpdateSkipsUnknownAndReadOnlyMembers) {
    EXPECT_EQ(execute(dme::UPDATE, "/network", "{\"unknown\":1,\"dns\":{},\"port\":8080}"),
              dme::result::DONE);
    EXPECT_EQ(read("/network", "expand=2"),
              "{\"href\":\"/network\",\"host\":\"localhost\",\"port\":8080,"
              "\"dns\":{\"href\":\"/network/dns\",\"primary\":\"10.0.0.1\"}}");
}

TEST_F(EndToEndTest, TheSchemaOfAStringLeaf) {
    EXPECT_EQ(execute(dme::SCHEMA, "/name"), dme::result::DONE);
    EXPECT_EQ(answer, "{\"type\":\"string\",\"default\":\"\",\"minSize\":0,\"maxSize\":8}");
}

TEST_F(EndToEndTest, TheSchemaOfAStructureDescribesEveryMember) {
    EXPECT_EQ(execute(dme::SCHEMA, "/network"), dme::result::DONE);
    EXPECT_EQ(answer,
              "{\"type\":\"object\",\"properties\":{"
              "\"host\":{\"type\":\"string\",\"default\":\"\",\"minSize\":0,\"maxSize\":65535},"
              "\"port\":{\"type\":\"integer\",\"default\":0,\"minimum\":1,\"maximum\":65535},"
              "\"dns\":{\"type\":\"object\",\"readonly\":true,\"properties\":{"
              "\"primary\":{\"type\":\"string\",\"readonly\":true}}}}}");
}

TEST_F(EndToEndTest, CreateAndDeleteAreRefusedWhereNotAllowed) {
    EXPECT_EQ(execute(dme::CREATE, "/name", "\"x\""), dme::result::NOT_ALLOWED);
    EXPECT_EQ(execute(dme::DELETE, "/name"), dme::result::NOT_ALLOWED);
    EXPECT_EQ(read("/name"), "\"dme\"");
}

TEST_F(EndToEndTest, CreateAndDeleteAreNotSupportedByAStructure) {
    EXPECT_EQ(execute(dme::CREATE, "/network", "{\"port\":1}"), dme::result::NOT_SUPPORTED);
    EXPECT_EQ(execute(dme::DELETE, "/network"), dme::result::NOT_SUPPORTED);
    EXPECT_EQ(read("/network/port"), "80");
}

TEST_F(EndToEndTest, AnUnknownMemberIsNotFound) {
    EXPECT_EQ(execute(dme::READ, "/nope"), dme::result::NOT_FOUND);
    EXPECT_EQ(answer, "null");
    EXPECT_EQ(execute(dme::READ, "/network/nope"), dme::result::NOT_FOUND);
}

TEST_F(EndToEndTest, APathBelowALeafIsNotAllowed) {
    EXPECT_EQ(execute(dme::READ, "/name/x"), dme::result::NOT_ALLOWED);
    EXPECT_EQ(execute(dme::UPDATE, "/network/port/x", "1"), dme::result::NOT_ALLOWED);
    EXPECT_EQ(read("/network/port"), "80");
}

TEST_F(EndToEndTest, ANodesOwnPolicyRefusesTheMethodsItLacks) {
    EXPECT_EQ(execute(dme::UPDATE, "/network/host", "\"example.org\""), dme::result::FORBIDDEN);
    EXPECT_EQ(read("/network/host"), "\"localhost\"");
}

TEST_F(EndToEndTest, AnInvalidMethodGives10) {
    EXPECT_EQ(execute(static_cast<dme::Method>(0), "/"), dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(answer, "null");
}

TEST_F(EndToEndTest, AMethodThatIsNoneOfTheKnownOnesGives7) {
    EXPECT_EQ(execute(static_cast<dme::Method>(dme::CREATE | dme::READ), "/"),
              dme::result::UNKNOWN_METHOD);
}

TEST_F(EndToEndTest, ATooLongTextIsRejectedWithAnErrorDocument) {
    EXPECT_EQ(execute(dme::UPDATE, "/name", "\"abcdefghi\""), dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(answer, "{\"error\":\"String too long\",\"details\":[\"abcdefghi\",\"8\"]}");
    EXPECT_EQ(read("/name"), "\"dme\"");
}

TEST_F(EndToEndTest, ATextOfTheMaximumLengthIsAccepted) {
    EXPECT_EQ(execute(dme::UPDATE, "/name", "\"abcdefgh\""), dme::result::DONE);
    EXPECT_EQ(read("/name"), "\"abcdefgh\"");
}

TEST_F(EndToEndTest, AValueOfTheWrongTypeIsRejectedWithAnErrorDocument) {
    EXPECT_EQ(execute(dme::UPDATE, "/enabled", "\"yes\""), dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(answer, "{\"error\":\"Invalid type\",\"details\":[\"enabled\",\"boolean\"]}");
    EXPECT_EQ(read("/enabled"), "true");
}

TEST_F(EndToEndTest, ANumberAboveTheMaximumIsRejectedWithAnErrorDocument) {
    EXPECT_EQ(execute(dme::UPDATE, "/network", "{\"port\":70000}"), dme::result::INVALID_ARGUMENT);
    EXPECT_EQ(answer, "{\"error\":\"Value above maximum\",\"details\":[\"port\",\"65535\"]}");
    EXPECT_EQ(read("/network/port"), "80");
}

TEST_F(EndToEndTest, ASubscriberHearsOfChangesBelowTheSubscribedUri) {
    ASSERT_EQ(
        engine.subscribe(observer, "/network", Arguments("expand=1"), std::chrono::milliseconds(10),
                         ObserverOption::IMMEDIATE_NOTIFICATION),
        0);
    ASSERT_TRUE(observer.waitFor(1));
    EXPECT_EQ(execute(dme::UPDATE, "/network/port", "8080"), dme::result::DONE);
    ASSERT_TRUE(observer.waitFor(2));
    const auto notifications = observer.notifications();
    ASSERT_EQ(notifications.size(), 2u);
    EXPECT_EQ(notifications[1].uri, "/network");
    EXPECT_EQ(notifications[1].arguments, (std::vector<Arguments::Pair>{{"expand", "1"}}));
    EXPECT_EQ(read(notifications[1].uri, "expand=1"),
              "{\"href\":\"/network\",\"host\":\"localhost\",\"port\":8080,"
              "\"dns\":{\"href\":\"/network/dns\"}}");
}

TEST_F(EndToEndTest, UnsubscribingReleasesEveryObservedLeaf) {
    ASSERT_EQ(engine.subscribe(observer, "/network", Arguments(), std::chrono::hours(1),
                               ObserverOption::CHANGES_ONLY),
              0);
    ASSERT_NE(port.subscriberManager(), nullptr);
    EXPECT_EQ(port.subscriberManager()->subscribers().size(), 1u);
    engine.unsubscribe(observer);
    EXPECT_EQ(engine.notifierManager()->subscriptionNb(), 0u);
    EXPECT_TRUE(port.subscriberManager()->subscribers().empty());
    EXPECT_TRUE(host.subscriberManager()->subscribers().empty());
}

}  // namespace
