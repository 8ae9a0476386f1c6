#include "dme/expanded_link.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "dme/atomic_value.h"
#include "dme/collection.h"
#include "dme/container.h"
#include "dme/engine.h"
#include "dme/json.h"
#include "dme/policy.h"
#include "dme/result.h"
#include "dme/static_collection.h"
#include "dme/structure.h"
#include "leaf_nodes.h"
#include "request.h"
#include "test_nodes.h"

namespace dme {
namespace {

using cxxtools::SerializationInfo;
using TextValue = StaticAtomicValue<std::string>;

constexpr std::uint32_t ALL_METHODS = 0x1F;

TextValue* text(const std::string& value) {
    return new TextValue(value, ALL_METHODS);
}

CollectionItem* device(const std::string& name) {
    return new CollectionItem({new Entry("name", text(name))}, ALL_METHODS, true);
}

// Sets `*deleted` when destroyed.
class DeletionProbe : public TextValue {
  public:
    explicit DeletionProbe(bool* deleted) : TextValue("", ALL_METHODS), deleted_(deleted) {}
    ~DeletionProbe() override { *deleted_ = true; }

  private:
    bool* deleted_;
};

// The tree of the tests:
//   /config      a structure, not always expanded, of the texts "a" and "b"
//   /nested      a structure, not always expanded, holding another one, "inner", of "c"
//   /devices     a static collection of three devices named "one", "two", "three"
//   /shortcut    an expanded link to /config
//   /deep        an expanded link to /nested
//   /current     an expanded link to the device named by `current_` ("2")
//   /selected    the same with skipIfEmpty, named by `selected_` (""), listed only when
//                it shows something
//   /any         the same without skipIfEmpty, named by `any_` ("")
// served by a JSON engine.
class ExpandedLinkTree : public ::testing::Test {
  protected:
    ExpandedLinkTree()
        : config_(new Structure({new Entry("a", text("1")), new Entry("b", text("2"))}, ALL_METHODS,
                                false)),
          nested_(new Structure(
              {new Entry("inner", new Structure({new Entry("c", text("3"))}, ALL_METHODS, false))},
              ALL_METHODS, false)),
          devices_(new StaticCollection({device("one"), device("two"), device("three")},
                                        ALL_METHODS, false)),
          current_("2", ALL_METHODS),
          selected_("", ALL_METHODS),
          any_("", ALL_METHODS),
          engine_(
              new DataModel(
                  new Structure({new Entry("config", config_), new Entry("nested", nested_),
                                 new Entry("devices", devices_),
                                 new Entry("shortcut", new ExpandedLink(*config_)),
                                 new Entry("deep", new ExpandedLink(*nested_)),
                                 new Entry("current", new ExpandedLink(*devices_, current_, false)),
                                 new Entry(std::string("selected"),
                                           new ExpandedLink(*devices_, selected_, true), false),
                                 new Entry("any", new ExpandedLink(*devices_, any_, false))},
                                ALL_METHODS, true),
                  test::testLexicon(), ALL_METHODS),
              "expanded links") {}

    int execute(Method method, const std::string& uri) {
        return engine_.execute(method, uri, Arguments(), "", out_, false);
    }

    std::string read(const std::string& uri) {
        EXPECT_EQ(execute(READ, uri), result::DONE) << uri;
        return out_;
    }

    // Stores `name` in `value` as the application would.
    static void store(TextValue& value, const std::string& name) {
        Context ctx(test::testLexicon(), UPDATE, "/", Arguments(), false);
        value.setValue(ctx, name);
    }

    Structure* config_;
    Structure* nested_;
    StaticCollection* devices_;
    TextValue current_;
    TextValue selected_;
    TextValue any_;
    JsonDataModelEngine engine_;
    std::string out_;
};

// ---- construction ----

TEST(ExpandedLinkTest, AllowsOnlyRead) {
    test::StringLeaf target;
    ExpandedLink link(target);
    EXPECT_EQ(link.allowedMethods(), AllowedMethods(AllowedMethods::R));
    EXPECT_TRUE(link.alwaysExpanded());
}

TEST(ExpandedLinkTest, OwnsAChildNameGivenByPointer) {
    bool deleted = false;
    test::StringLeaf target;
    { ExpandedLink link(target, new DeletionProbe(&deleted), false); }
    EXPECT_TRUE(deleted);
}

TEST(ExpandedLinkTest, LeavesAChildNameGivenByReferenceToTheCaller) {
    bool deleted = false;
    test::StringLeaf target;
    DeletionProbe name(&deleted);
    { ExpandedLink link(target, name, false); }
    EXPECT_FALSE(deleted);
}

TEST(ExpandedLinkTest, BrowseAnswersThatThePathEndsHere) {
    test::StringLeaf target;
    ExpandedLink link(target);
    test::Request request(READ, "/x/y");
    EXPECT_EQ(link.browse(request.context(), SerializationInfo(), request.out()),
              result::PATH_ENDS_HERE);
}

// ---- reading ----

TEST_F(ExpandedLinkTree, AStructureReadsExactlyLikeItsOwnPath) {
    const std::string own = read("/config");
    EXPECT_EQ(own, R"({"href":"/config","a":"1","b":"2"})");
    EXPECT_EQ(read("/shortcut"), own);
}

TEST_F(ExpandedLinkTree, TheTargetIsShownWhenItsParentIsListed) {
    EXPECT_EQ(execute(READ, "/"), result::DONE);
    EXPECT_NE(out_.find(R"("shortcut":{"href":"/config","a":"1","b":"2"})"), std::string::npos)
        << out_;
}

TEST_F(ExpandedLinkTree, EveryNodeBelowTheTargetIsExpanded) {
    EXPECT_EQ(read("/nested"), R"({"href":"/nested","inner":{"href":"/nested/inner"}})");
    EXPECT_EQ(read("/deep"), R"({"href":"/nested","inner":{"href":"/nested/inner","c":"3"}})");
}

TEST_F(ExpandedLinkTree, ACollectionItemNamedByTheChildNameReadsLikeThatItem) {
    const std::string own = read("/devices/2");
    EXPECT_EQ(own, R"({"href":"/devices/2","id":"2","name":"two"})");
    EXPECT_EQ(read("/current"), own);
}

TEST_F(ExpandedLinkTree, TheChildNameIsAskedAtEveryRead) {
    store(current_, "3");
    EXPECT_EQ(read("/current"), R"({"href":"/devices/3","id":"3","name":"three"})");
}

TEST_F(ExpandedLinkTree, AnEmptyChildNameWithSkipIfEmptyReadsAsNothing) {
    EXPECT_EQ(execute(READ, "/selected"), result::DONE);
    EXPECT_EQ(out_, "null");
}

TEST_F(ExpandedLinkTree, AnEmptyChildNameWithSkipIfEmptyIsLeftOutOfItsParent) {
    EXPECT_EQ(execute(READ, "/"), result::DONE);
    EXPECT_EQ(out_.find(R"("selected")"), std::string::npos) << out_;
}

TEST_F(ExpandedLinkTree, ANonEmptyChildNameWithSkipIfEmptyIsRead) {
    store(selected_, "1");
    EXPECT_EQ(read("/selected"), R"({"href":"/devices/1","id":"1","name":"one"})");
}

TEST_F(ExpandedLinkTree, AnEmptyChildNameWithoutSkipIfEmptyReadsTheTarget) {
    const std::string own = read("/devices");
    EXPECT_EQ(own, R"({"href":"/devices","count":3,"members":[)"
                   R"({"href":"/devices/1","id":"1","name":"one"},)"
                   R"({"href":"/devices/2","id":"2","name":"two"},)"
                   R"({"href":"/devices/3","id":"3","name":"three"}]})");
    EXPECT_EQ(read("/any"), own);
}

TEST_F(ExpandedLinkTree, AChildNameThatNamesNothingGivesTheWalksResult) {
    store(any_, "9");
    EXPECT_EQ(execute(READ, "/any"), result::NOT_FOUND);
}

TEST_F(ExpandedLinkTree, APathBelowTheLinkIsNotResolvedThroughIt) {
    EXPECT_EQ(execute(READ, "/shortcut/a"), result::NOT_ALLOWED);
    EXPECT_EQ(execute(READ, "/current/name"), result::NOT_ALLOWED);
}

TEST_F(ExpandedLinkTree, OnlyReadIsAllowed) {
    EXPECT_EQ(execute(UPDATE, "/shortcut"), result::NOT_ALLOWED);
    EXPECT_EQ(execute(CREATE, "/shortcut"), result::NOT_ALLOWED);
    EXPECT_EQ(execute(DELETE, "/shortcut"), result::NOT_ALLOWED);
}

TEST_F(ExpandedLinkTree, TheTargetsPermissionsApply) {
    test::grant(*config_, AllowedMethods());
    EXPECT_EQ(execute(READ, "/config"), result::FORBIDDEN);
    EXPECT_EQ(execute(READ, "/shortcut"), result::FORBIDDEN);
}

TEST_F(ExpandedLinkTree, SchemaIsThatOfAPlainReadOnlyNode) {
    EXPECT_EQ(execute(SCHEMA, "/shortcut"), result::DONE);
    EXPECT_EQ(out_, R"({"type":"unknown","readonly":true})");
}

TEST(ExpandedLinkTest, AChildOfTheRootIsJoinedWithOneSeparator) {
    test::TestParent root(ALL_METHODS, true);
    root.add("config", std::make_unique<test::StringLeaf>("settings"));
    root.add("local", std::make_unique<ExpandedLink>(root, text("config"), false));
    test::attachRoot(root);
    test::Request request(READ, "/local");
    EXPECT_EQ(request.run(root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"("settings")");
}

TEST(ExpandedLinkTest, ExceptionsOfTheTargetPassUnchanged) {
    test::TestParent root(ALL_METHODS, true);
    Value& failing =
        root.add("failing", std::make_unique<test::FunctionLeaf>(
                                [](Context&, const SerializationInfo&, SerializationInfo&) -> int {
                                    throw std::runtime_error("target failed");
                                }));
    root.add("link", std::make_unique<ExpandedLink>(failing));
    test::attachRoot(root);
    test::Request request(READ, "/link");
    EXPECT_THROW(
        {
            try {
                request.run(root);
            } catch (const std::runtime_error& e) {
                EXPECT_STREQ(e.what(), "target failed");
                throw;
            }
        },
        std::runtime_error);
}

}  // namespace
}  // namespace dme
