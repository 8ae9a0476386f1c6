#include "dme/dynamic_flat_structure.h"

#include <cxxtools/serializationerror.h>
#include <cxxtools/serializationinfo.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "dme/container.h"
#include "dme/engine.h"
#include "dme/exception.h"
#include "dme/json.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "leaf_nodes.h"
#include "request.h"

namespace dme {
namespace {

using test::ALL_METHODS;
using test::attachRoot;
using test::Request;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StrEq;
using ::testing::ThrowsMessage;
using Map = DynamicFlatStructure::Map;
using SerializationInfo = cxxtools::SerializationInfo;

constexpr std::uint32_t READ_AND_BROWSE = AllowedMethods::R | AllowedMethods::B;

// The application side of a dynamic flat structure: a map served by the getter and replaced by
// the setter, which records every map it is given.
class Labels {
  public:
    Map map{{"a", "1"}, {"b", "2"}};
    std::vector<Map> stored;
    int fetches = 0;

    std::function<Map()> getter() {
        return [this] {
            ++fetches;
            return map;
        };
    }
    std::function<void(const Map&)> setter() {
        return [this](const Map& replacement) {
            stored.push_back(replacement);
            map = replacement;
        };
    }
};

// Requests run directly on the tree "/" (a structure) holding the dynamic flat structure "s".
class DynamicFlatStructureTest : public testing::Test {
  protected:
    // Attaches `node` as "/s" below a root whose policy grants `rights`.
    void build(DynamicFlatStructure* node, AllowedMethods rights = ALL_METHODS) {
        root_ = std::make_unique<Structure>(std::vector<Element*>{new Entry("s", node)},
                                            ALL_METHODS, true);
        attachRoot(*root_, rights);
    }
    void buildWritable(AllowedMethods allowed = ALL_METHODS, AllowedMethods rights = ALL_METHODS) {
        build(new DynamicFlatStructure(labels.getter(), labels.setter(), allowed, true), rights);
    }
    void buildReadOnly() { build(new DynamicFlatStructure(labels.getter(), ALL_METHODS, true)); }

    // Runs one request with the JSON `body` as input; keeps the output's JSON text in `answer`.
    int run(Method method, const std::string& uri, const std::string& body = "") {
        Request request(method, uri);
        const int rc = request.run(*root_, body.empty() ? SerializationInfo() : parseJson(body));
        answer = formatJson(request.out());
        return rc;
    }

    // The message of the dme::Exception that a request throws, or "" when it throws none.
    std::string rejection(Method method, const std::string& uri, const std::string& body) {
        try {
            run(method, uri, body);
        } catch (const Exception& e) {
            return e.message;
        }
        return "";
    }

    Labels labels;
    std::string answer;
    std::unique_ptr<Structure> root_;
};

// ---- type and schema ----

TEST_F(DynamicFlatStructureTest, TypeIsThatOfAPlainValue) {
    DynamicFlatStructure node(labels.getter(), ALL_METHODS, true);
    EXPECT_STREQ(node.getType(), "unknown");
}

TEST_F(DynamicFlatStructureTest, SchemaOfAWritableStructureIsTypeUnknownOnly) {
    buildWritable();
    EXPECT_EQ(run(SCHEMA, "/s"), result::DONE);
    EXPECT_EQ(answer, R"({"type":"unknown"})");
}

TEST_F(DynamicFlatStructureTest, SchemaOfAStructureWithoutUpdateIsReadOnly) {
    buildWritable(READ_AND_BROWSE);
    EXPECT_EQ(run(SCHEMA, "/s"), result::DONE);
    EXPECT_EQ(answer, R"({"type":"unknown","readonly":true})");
}

TEST_F(DynamicFlatStructureTest, SchemaOfAMemberIsThatOfAString) {
    buildWritable();
    EXPECT_EQ(run(SCHEMA, "/s/a"), result::DONE);
    EXPECT_EQ(answer, R"({"type":"string","default":"","minSize":0,"maxSize":65535})");
}

TEST_F(DynamicFlatStructureTest, SchemaOfAMemberWithoutSetterIsReadOnly) {
    buildReadOnly();
    EXPECT_EQ(run(SCHEMA, "/s/a"), result::DONE);
    EXPECT_EQ(answer, R"({"type":"string","readonly":true})");
}

// ---- read ----

TEST_F(DynamicFlatStructureTest, ReadListsEveryKeyInAscendingOrder) {
    labels.map = {{"zeta", "26"}, {"Alpha", "0"}, {"alpha", "1"}};
    buildWritable();
    EXPECT_EQ(run(READ, "/s"), result::DONE);
    EXPECT_EQ(answer, R"({"Alpha":"0","alpha":"1","zeta":"26"})");
}

TEST_F(DynamicFlatStructureTest, ReadOfAnEmptyMapIsAnEmptyObject) {
    labels.map.clear();
    buildWritable();
    EXPECT_EQ(run(READ, "/s"), result::DONE);
    EXPECT_EQ(answer, "{}");
}

TEST_F(DynamicFlatStructureTest, ReadKeepsTheBytesOfEveryValue) {
    labels.map = {{"city", "K\xC3\xB6ln"}};
    buildWritable();
    Request request(READ, "/s");
    ASSERT_EQ(request.run(*root_), result::DONE);
    const SerializationInfo& city = request.out().getMember("city");
    EXPECT_TRUE(city.isString8());
    std::string bytes;
    city.getValue(bytes);
    EXPECT_EQ(bytes, "K\xC3\xB6ln");
}

TEST_F(DynamicFlatStructureTest, ReadOfAStructureThatIsNotAlwaysExpandedStartsWithItsPath) {
    build(new DynamicFlatStructure(labels.getter(), labels.setter(), ALL_METHODS, false));
    EXPECT_EQ(run(READ, "/s"), result::DONE);
    EXPECT_EQ(answer, R"({"href":"/s","a":"1","b":"2"})");
}

TEST_F(DynamicFlatStructureTest, EveryRequestFetchesTheCurrentMap) {
    buildWritable();
    EXPECT_EQ(run(READ, "/s"), result::DONE);
    labels.map = {{"c", "3"}};
    EXPECT_EQ(run(READ, "/s"), result::DONE);
    EXPECT_EQ(answer, R"({"c":"3"})");
    EXPECT_EQ(labels.fetches, 2);
}

TEST_F(DynamicFlatStructureTest, ReadOfAMemberIsItsText) {
    buildWritable();
    EXPECT_EQ(run(READ, "/s/b"), result::DONE);
    EXPECT_EQ(answer, R"("2")");
}

TEST_F(DynamicFlatStructureTest, ReadOfAKeyThatTheMapLacksIsNotFound) {
    buildWritable();
    EXPECT_EQ(run(READ, "/s/c"), result::NOT_FOUND);
    EXPECT_EQ(answer, "null");
}

TEST_F(DynamicFlatStructureTest, ReadOfAMemberAfterAMissingKeyStillWorks) {
    buildWritable();
    EXPECT_EQ(run(READ, "/s/c"), result::NOT_FOUND);
    EXPECT_EQ(run(READ, "/s/a"), result::DONE);
    EXPECT_EQ(answer, R"("1")");
}

TEST_F(DynamicFlatStructureTest, APathBelowAMemberIsRefusedByTheMember) {
    buildWritable();
    EXPECT_EQ(run(READ, "/s/a/x"), result::NOT_ALLOWED);
}

TEST_F(DynamicFlatStructureTest, MembersCannotBeReachedWhenTheStructureDoesNotAllowBrowsing) {
    buildWritable(AllowedMethods::R | AllowedMethods::U);
    EXPECT_EQ(run(READ, "/s/a"), result::NOT_ALLOWED);
    EXPECT_EQ(labels.fetches, 0);
}

TEST_F(DynamicFlatStructureTest, AnEmptyGetterIsAFault) {
    build(new DynamicFlatStructure(std::function<Map()>(), ALL_METHODS, true));
    EXPECT_THROW(run(READ, "/s"), std::bad_function_call);
}

TEST_F(DynamicFlatStructureTest, AGetterFailureOtherThanAMissingKeyPasses) {
    build(new DynamicFlatStructure([]() -> Map { throw std::runtime_error("backend down"); },
                                   ALL_METHODS, true));
    EXPECT_THAT([&] { run(READ, "/s/a"); },
                ThrowsMessage<std::runtime_error>(StrEq("backend down")));
}

// ---- update of one member ----

TEST_F(DynamicFlatStructureTest, UpdateOfAMemberStoresTheWholeMapWithThatValueReplaced) {
    buildWritable();
    EXPECT_EQ(run(UPDATE, "/s/a", R"("x")"), result::DONE);
    EXPECT_THAT(labels.stored, ElementsAre(Map{{"a", "x"}, {"b", "2"}}));
}

TEST_F(DynamicFlatStructureTest, UpdateOfAKeyThatTheMapLacksIsNotFoundAndStoresNothing) {
    buildWritable();
    EXPECT_EQ(run(UPDATE, "/s/c", R"("3")"), result::NOT_FOUND);
    EXPECT_THAT(labels.stored, IsEmpty());
}

TEST_F(DynamicFlatStructureTest, UpdateOfAMemberWithoutSetterIsNotAllowed) {
    buildReadOnly();
    EXPECT_EQ(run(UPDATE, "/s/a", R"("x")"), result::NOT_ALLOWED);
    EXPECT_EQ(labels.fetches, 0);
}

TEST_F(DynamicFlatStructureTest, UpdateOfAMemberNeedsTheSessionsPermission) {
    buildWritable(ALL_METHODS, READ_AND_BROWSE);
    EXPECT_EQ(run(UPDATE, "/s/a", R"("x")"), result::FORBIDDEN);
    EXPECT_THAT(labels.stored, IsEmpty());
}

TEST_F(DynamicFlatStructureTest, UpdateOfAMemberAcceptsTheLongestText) {
    buildWritable();
    const std::string longest(65535, 'x');
    EXPECT_EQ(run(UPDATE, "/s/a", "\"" + longest + "\""), result::DONE);
    EXPECT_THAT(labels.stored, ElementsAre(Map{{"a", longest}, {"b", "2"}}));
}

TEST_F(DynamicFlatStructureTest, UpdateOfAMemberWithATooLongTextIsRejected) {
    buildWritable();
    EXPECT_EQ(rejection(UPDATE, "/s/a", "\"" + std::string(65536, 'x') + "\""), "String too long");
    EXPECT_THAT(labels.stored, IsEmpty());
}

TEST_F(DynamicFlatStructureTest, UpdateOfAMemberWithANumberIsAnInvalidType) {
    buildWritable();
    EXPECT_EQ(rejection(UPDATE, "/s/a", "5"), "Invalid type");
    EXPECT_THAT(labels.stored, IsEmpty());
}

TEST_F(DynamicFlatStructureTest, UpdateOfAMemberWithAnEmptySetterIsAFault) {
    build(new DynamicFlatStructure(labels.getter(), std::function<void(const Map&)>(), ALL_METHODS,
                                   true));
    EXPECT_THROW(run(UPDATE, "/s/a", R"("x")"), std::bad_function_call);
}

TEST_F(DynamicFlatStructureTest, EachRequestAddressesTheKeyItNames) {
    buildWritable();
    EXPECT_EQ(run(UPDATE, "/s/b", R"("two")"), result::DONE);
    EXPECT_EQ(run(UPDATE, "/s/a", R"("one")"), result::DONE);
    EXPECT_THAT(labels.stored,
                ElementsAre(Map{{"a", "1"}, {"b", "two"}}, Map{{"a", "one"}, {"b", "two"}}));
}

// ---- update of the whole structure ----

TEST_F(DynamicFlatStructureTest, UpdateOfTheStructureReplacesTheWholeMap) {
    buildWritable();
    EXPECT_EQ(run(UPDATE, "/s", R"({"c":"3"})"), result::DONE);
    EXPECT_THAT(labels.stored, ElementsAre(Map{{"c", "3"}}));
}

TEST_F(DynamicFlatStructureTest, UpdateOfTheStructureWithAnEmptyObjectStoresAnEmptyMap) {
    buildWritable();
    EXPECT_EQ(run(UPDATE, "/s", "{}"), result::DONE);
    EXPECT_THAT(labels.stored, ElementsAre(Map{}));
}

TEST_F(DynamicFlatStructureTest, UpdateOfTheStructureDoesNotFetchTheMap) {
    buildWritable();
    EXPECT_EQ(run(UPDATE, "/s", R"({"b":"x"})"), result::DONE);
    EXPECT_EQ(labels.fetches, 0);
}

TEST_F(DynamicFlatStructureTest, UpdateOfTheStructureKeepsTheFirstOfTwoMembersWithOneName) {
    buildWritable();
    EXPECT_EQ(run(UPDATE, "/s", R"({"a":"first","b":"2","a":"second"})"), result::DONE);
    EXPECT_THAT(labels.stored, ElementsAre(Map{{"a", "first"}, {"b", "2"}}));
}

TEST_F(DynamicFlatStructureTest, UpdateOfTheStructureWithoutSetterIsNotAllowed) {
    buildReadOnly();
    EXPECT_EQ(run(UPDATE, "/s", R"({"c":"3"})"), result::NOT_ALLOWED);
    EXPECT_EQ(labels.fetches, 0);
}

TEST_F(DynamicFlatStructureTest, UpdateOfTheStructureWithAnEmptySetterIsNotAllowed) {
    build(new DynamicFlatStructure(labels.getter(), std::function<void(const Map&)>(), ALL_METHODS,
                                   true));
    EXPECT_EQ(run(UPDATE, "/s", R"({"c":"3"})"), result::NOT_ALLOWED);
}

TEST_F(DynamicFlatStructureTest, UpdateOfAStructureThatDoesNotAllowItIsNotAllowed) {
    buildWritable(READ_AND_BROWSE);
    EXPECT_EQ(run(UPDATE, "/s", R"({"c":"3"})"), result::NOT_ALLOWED);
    EXPECT_THAT(labels.stored, IsEmpty());
}

TEST_F(DynamicFlatStructureTest, UpdateOfTheStructureWithANumberMemberIsInvalidType) {
    buildWritable();
    try {
        run(UPDATE, "/s", R"({"a":"1","n":5})");
        FAIL() << "no exception";
    } catch (const Exception& e) {
        EXPECT_EQ(e.message, "Invalid type");
        EXPECT_EQ(e.detail1, "n");
        EXPECT_EQ(e.detail2, "string");
    }
    EXPECT_THAT(labels.stored, IsEmpty());
}

TEST_F(DynamicFlatStructureTest, UpdateOfTheStructureWithAnObjectMemberIsInvalidType) {
    buildWritable();
    EXPECT_THROW(run(UPDATE, "/s", R"({"a":{"x":"1"}})"), Exception);
    EXPECT_THAT(labels.stored, IsEmpty());
}

TEST_F(DynamicFlatStructureTest, UpdateOfTheStructureWithABodyThatIsNotAnObjectIsInvalidType) {
    buildWritable();
    for (const char* body : {"", "null", "\"a\"", "[\"1\"]", "5"}) {
        try {
            run(UPDATE, "/s", body);
            ADD_FAILURE() << "no exception for " << body;
        } catch (const Exception& e) {
            EXPECT_EQ(e.message, "Invalid type") << body;
            EXPECT_EQ(e.detail1, "s") << body;
            EXPECT_EQ(e.detail2, "object") << body;
        }
    }
    EXPECT_THAT(labels.stored, IsEmpty());
}

// ---- child key ----

TEST_F(DynamicFlatStructureTest, AForeignChildHasNoKey) {
    DynamicFlatStructure node(labels.getter(), ALL_METHODS, true);
    test::StringLeaf stranger;
    EXPECT_THAT([&] { node.getChildKey(&stranger); },
                ThrowsMessage<std::runtime_error>(
                    StrEq("Cannot find child key in dynamic flat structure")));
}

// ---- end to end through the JSON engine ----

// The tree "/" holding "labels" (with a setter) and "fixed" (without one), served as JSON.
class DynamicFlatStructureEngineTest : public testing::Test {
  protected:
    int execute(Method method, const std::string& uri, const std::string& body = "") {
        return engine.execute(method, uri, Arguments(), body, answer, false);
    }

    Labels labels;
    Labels fixedLabels;
    Structure root{
        {new Entry("labels",
                   new DynamicFlatStructure(labels.getter(), labels.setter(), ALL_METHODS, true)),
         new Entry("fixed", new DynamicFlatStructure(fixedLabels.getter(), ALL_METHODS, true))},
        ALL_METHODS,
        true};
    DataModel model{root, test::testLexicon(), ALL_METHODS};
    JsonDataModelEngine engine{model, "labels"};
    std::string answer;
};

TEST_F(DynamicFlatStructureEngineTest, ReadOfTheStructureIsAnObjectOfTexts) {
    EXPECT_EQ(execute(READ, "/labels"), result::DONE);
    EXPECT_EQ(answer, R"({"a":"1","b":"2"})");
}

TEST_F(DynamicFlatStructureEngineTest, ReadOfAMemberIsItsText) {
    EXPECT_EQ(execute(READ, "/labels/b"), result::DONE);
    EXPECT_EQ(answer, R"("2")");
}

TEST_F(DynamicFlatStructureEngineTest, ReadOfAMissingKeyIsNotFound) {
    EXPECT_EQ(execute(READ, "/labels/c"), result::NOT_FOUND);
}

TEST_F(DynamicFlatStructureEngineTest, ReadOfTheRootListsTheStructures) {
    EXPECT_EQ(execute(READ, "/"), result::DONE);
    EXPECT_EQ(answer, R"({"labels":{"a":"1","b":"2"},"fixed":{"a":"1","b":"2"}})");
}

TEST_F(DynamicFlatStructureEngineTest, UpdateOfAMemberIsReadBack) {
    EXPECT_EQ(execute(UPDATE, "/labels/a", R"("x")"), result::DONE);
    EXPECT_EQ(execute(READ, "/labels"), result::DONE);
    EXPECT_EQ(answer, R"({"a":"x","b":"2"})");
}

TEST_F(DynamicFlatStructureEngineTest, UpdateOfAMissingMemberIsNotFound) {
    EXPECT_EQ(execute(UPDATE, "/labels/c", R"("3")"), result::NOT_FOUND);
    EXPECT_THAT(labels.stored, IsEmpty());
}

TEST_F(DynamicFlatStructureEngineTest, UpdateOfTheWholeMapIsReadBack) {
    EXPECT_EQ(execute(UPDATE, "/labels", R"({"c":"3","d":"4"})"), result::DONE);
    EXPECT_EQ(execute(READ, "/labels"), result::DONE);
    EXPECT_EQ(answer, R"({"c":"3","d":"4"})");
}

TEST_F(DynamicFlatStructureEngineTest, UpdateWithAnEmptyObjectEmptiesTheMap) {
    EXPECT_EQ(execute(UPDATE, "/labels", "{}"), result::DONE);
    EXPECT_EQ(execute(READ, "/labels"), result::DONE);
    EXPECT_EQ(answer, "{}");
}

TEST_F(DynamicFlatStructureEngineTest, AMapWithoutSetterRefusesUpdatesOfItselfAndItsMembers) {
    EXPECT_EQ(execute(UPDATE, "/fixed", R"({"c":"3"})"), result::NOT_ALLOWED);
    EXPECT_EQ(execute(UPDATE, "/fixed/a", R"("x")"), result::NOT_ALLOWED);
    EXPECT_EQ(execute(READ, "/fixed"), result::DONE);
    EXPECT_EQ(answer, R"({"a":"1","b":"2"})");
}

TEST_F(DynamicFlatStructureEngineTest, SchemaOfTheStructureIsTypeUnknown) {
    EXPECT_EQ(execute(SCHEMA, "/labels"), result::DONE);
    EXPECT_EQ(answer, R"({"type":"unknown"})");
}

TEST_F(DynamicFlatStructureEngineTest, ANonTextMemberIsAnUnclaimedErrorAndChangesNothing) {
    EXPECT_EQ(execute(UPDATE, "/labels", R"({"a":true})"), result::UNHANDLED);
    EXPECT_THAT(labels.stored, IsEmpty());
    EXPECT_EQ(execute(READ, "/labels"), result::DONE);
    EXPECT_EQ(answer, R"({"a":"1","b":"2"})");
}

}  // namespace
}  // namespace dme
