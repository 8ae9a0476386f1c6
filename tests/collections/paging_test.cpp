// Engine options that shape collection READs and resource paths: paging by query arguments
// (DataModelEngine::setPagingArguments) and percent-encoded resource paths
// (DataModelEngine::setPercentEncodedResourcePaths); both off by default.
#include <gtest/gtest.h>

#include <string>

#include "dme/atomic_value.h"
#include "dme/dynamic_collection.h"
#include "dme/engine.h"
#include "dme/exception.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "leaf_nodes.h"

namespace dme {
namespace {

using test::ALL_METHODS;
using SerializationInfo = cxxtools::SerializationInfo;

constexpr int REJECTED = 40;

// Writes a rejected input as {"error": message} and answers REJECTED.
int writeRejection(std::exception& e, Context&, const SerializationInfo&, SerializationInfo& out) {
    auto* rejection = dynamic_cast<Exception*>(&e);
    if (rejection == nullptr) return ExceptionHandlers::NOT_HANDLED;
    out.addMember("error").setValue(rejection->message);
    return REJECTED;
}

// A root (always expanded) holding "users", a collection of items with a name, and "groups", a
// structure holding "members", another such collection.
class PagingTest : public testing::Test {
  protected:
    PagingTest()
        : model_(new Structure({new Entry("users", users()),
                                new Entry("groups", new Structure({new Entry("members", users())},
                                                                  ALL_METHODS, false))},
                               ALL_METHODS, true),
                 lexicon_, ALL_METHODS, ExceptionHandlers({{typeid(Exception), writeRejection}})),
          engine_(model_, "paging") {
        for (const char* name : {"a", "b", "c", "d", "e"}) {
            run(CREATE, "/users", std::string("{\"name\":\"") + name + "\"}");
            run(CREATE, "/groups/members", std::string("{\"name\":\"") + name + "\"}");
        }
    }

    static DynamicCollection* users() {
        return new DynamicCollection(
            [] {
                return new CollectionItem(
                    {new Entry("name", new StaticAtomicValue<std::string>("", READ + UPDATE))},
                    ALL_METHODS, false);
            },
            ALL_METHODS, false);
    }

    std::string run(Method method, const std::string& uri, const std::string& body = "",
                    const std::string& query = "", int expected = result::DONE) {
        std::string answer;
        EXPECT_EQ(engine_.execute(method, uri, Arguments(query), body, answer, false), expected)
            << uri << "?" << query << ": " << answer;
        return answer;
    }

    Lexicon lexicon_{"href", "id", "count", "members", "expand", "select"};
    DataModel model_;
    JsonDataModelEngine engine_;
};

TEST_F(PagingTest, WithoutTheOptionTheArgumentsAreIgnored) {
    EXPECT_EQ(
        run(READ, "/users", "", "limit=2&offset=1"),
        R"({"href":"/users","count":5,"members":[{"href":"/users/1"},{"href":"/users/2"},{"href":"/users/3"},)"
        R"({"href":"/users/4"},{"href":"/users/5"}]})");
}

TEST_F(PagingTest, LimitAndOffsetChooseTheItemsAndTheCountStaysTheTotal) {
    engine_.setPagingArguments("limit", "offset");
    EXPECT_EQ(run(READ, "/users", "", "limit=2&offset=1"),
              R"({"href":"/users","count":5,"members":[{"href":"/users/2"},{"href":"/users/3"}]})");
}

TEST_F(PagingTest, ALimitAloneStartsAtTheFirstItem) {
    engine_.setPagingArguments("limit", "offset");
    EXPECT_EQ(run(READ, "/users", "", "limit=1"),
              R"({"href":"/users","count":5,"members":[{"href":"/users/1"}]})");
}

TEST_F(PagingTest, AnOffsetAloneListsTheRest) {
    engine_.setPagingArguments("limit", "offset");
    EXPECT_EQ(run(READ, "/users", "", "offset=3"),
              R"({"href":"/users","count":5,"members":[{"href":"/users/4"},{"href":"/users/5"}]})");
}

TEST_F(PagingTest, AnOffsetBeyondTheEndListsNothing) {
    engine_.setPagingArguments("limit", "offset");
    EXPECT_EQ(run(READ, "/users", "", "offset=9&limit=2"),
              R"({"href":"/users","count":5,"members":[]})");
}

TEST_F(PagingTest, ALimitOfZeroGivesTheCountOnly) {
    engine_.setPagingArguments("limit", "offset");
    EXPECT_EQ(run(READ, "/users", "", "limit=0"), R"({"href":"/users","count":5,"members":[]})");
}

TEST_F(PagingTest, TheArgumentNamesAreTheApplicationsChoice) {
    engine_.setPagingArguments("per_page", "skip");
    EXPECT_EQ(run(READ, "/users", "", "per_page=1&skip=4&limit=3"),
              R"({"href":"/users","count":5,"members":[{"href":"/users/5"}]})");
}

TEST_F(PagingTest, ALimitThatIsNoNumberIsRefused) {
    engine_.setPagingArguments("limit", "offset");
    EXPECT_EQ(run(READ, "/users", "", "limit=two", REJECTED),
              R"({"href":"/users","error":"Argument invalid type"})");
}

TEST_F(PagingTest, ANegativeOffsetIsRefused) {
    engine_.setPagingArguments("limit", "offset");
    EXPECT_EQ(run(READ, "/users", "", "offset=-1", REJECTED),
              R"({"href":"/users","error":"Argument out of range"})");
}

TEST_F(PagingTest, OnlyTheAddressedCollectionIsPaged) {
    engine_.setPagingArguments("limit", "offset");
    EXPECT_EQ(
        run(READ, "/groups", "", "limit=1&expand=2&select=members/id"),
        R"({"href":"/groups","members":{"href":"/groups/members","count":5,"members":[)"
        R"({"href":"/groups/members/1"},{"href":"/groups/members/2"},{"href":"/groups/members/3"},)"
        R"({"href":"/groups/members/4"},{"href":"/groups/members/5"}]}})");
}

TEST_F(PagingTest, TurningPagingOffWithEmptyNamesListsEverythingAgain) {
    engine_.setPagingArguments("limit", "offset");
    engine_.setPagingArguments("", "");
    EXPECT_EQ(
        run(READ, "/users", "", "limit=1"),
        R"({"href":"/users","count":5,"members":[{"href":"/users/1"},{"href":"/users/2"},{"href":"/users/3"},)"
        R"({"href":"/users/4"},{"href":"/users/5"}]})");
}

TEST_F(PagingTest, ResourcePathsAreWrittenAsTheTreeNamesThemByDefault) {
    run(CREATE, "/users", R"({"id":"a b","name":"x"})");
    EXPECT_EQ(run(READ, "/users/a b", "", "select=id"), R"({"href":"/users/a b","id":"a b"})");
}

TEST_F(PagingTest, ResourcePathsCanBeWrittenPercentEncoded) {
    engine_.setPercentEncodedResourcePaths(true);
    run(CREATE, "/users", "{\"id\":\"caf\xC3\xA9 1\",\"name\":\"x\"}");
    EXPECT_EQ(run(READ, "/users/caf\xC3\xA9 1", "", "select=name"),
              R"({"href":"/users/caf%C3%A9%201","name":"x"})");
}

}  // namespace
}  // namespace dme
