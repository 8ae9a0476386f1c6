#include "dme/structure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "dme/json.h"
#include "dme/path.h"
#include "dme/policy.h"
#include "dme/result.h"
#include "leaf_nodes.h"
#include "request.h"

namespace dme {
namespace {

using test::ALL_METHODS;
using test::attachRoot;
using test::FunctionLeaf;
using test::Request;
using test::StringLeaf;
using ::testing::ElementsAre;
using ::testing::StrEq;
using ::testing::ThrowsMessage;
using SerializationInfo = cxxtools::SerializationInfo;

// A root structure that is always expanded (so it writes no resource path of its own),
// attached with `rights`.
std::unique_ptr<Structure> makeRoot(const std::vector<Element*>& elements,
                                    AllowedMethods rights = ALL_METHODS) {
    auto root = std::make_unique<Structure>(elements, ALL_METHODS, true);
    attachRoot(*root, rights);
    return root;
}

SerializationInfo textDocument(const std::string& text) {
    SerializationInfo document;
    document.setValue(text);
    return document;
}

// ---- Structure: type and schema ----

TEST(StructureTest, TypeIsObject) {
    Structure structure({}, ALL_METHODS, false);
    EXPECT_STREQ(structure.getType(), "object");
}

TEST(StructureTest, SchemaOfAnEmptyModifiableStructure) {
    auto root = makeRoot({});
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"type":"object","properties":{}})");
}

TEST(StructureTest, SchemaOfAnEmptyReadOnlyStructure) {
    Structure root({}, AllowedMethods::R, true);
    attachRoot(root);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"type":"object","readonly":true,"properties":{}})");
}

TEST(StructureTest, SchemaListsOneSchemaPerMemberInOrder) {
    Structure* inner = new Structure({new Entry("x", new StringLeaf)},
                                     AllowedMethods::R | AllowedMethods::B, false);
    auto root = makeRoot({new Entry("b", new StringLeaf), new Entry("a", inner)});
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"type":"object","properties":{"b":{"type":"string"},)"
              R"("a":{"type":"object","readonly":true,"properties":{"x":{"type":"string"}}}}})");
}

TEST(StructureTest, SchemaOfAMemberAddressedByPath) {
    Structure* inner = new Structure({new Entry("x", new StringLeaf)}, ALL_METHODS, false);
    auto root = makeRoot({new Entry("s", inner)});
    Request request(SCHEMA, "/s");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"type":"object","properties":{"x":{"type":"string"}}})");
}

TEST(StructureTest, SerializeSchemaPropertiesAddsEachMembersSchemaUnderItsName) {
    auto root = makeRoot(
        {new Entry("x", new StringLeaf), new Entry("y", new StringLeaf("", AllowedMethods::R))});
    Request request(SCHEMA, "/");
    SerializationInfo out;
    EXPECT_EQ(root->serializeSchemaProperties(request.context(), SerializationInfo(), out),
              result::DONE);
    EXPECT_EQ(formatJson(out), R"({"x":{"type":"string"},"y":{"type":"string","readonly":true}})");
}

// A structure whose members' schemas report a failure.
class FailingSchemaStructure : public Structure {
  public:
    using Structure::Structure;
    int serializeSchemaProperties(Context& ctx, const SerializationInfo& in,
                                  SerializationInfo& out) override {
        Structure::serializeSchemaProperties(ctx, in, out);
        return 5;
    }
};

TEST(StructureTest, ChildSchemaKeepsThePropertiesAndReturnsTheirResult) {
    FailingSchemaStructure root({new Entry("x", new StringLeaf)}, ALL_METHODS, true);
    attachRoot(root);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(root), 5);
    EXPECT_EQ(formatJson(request.out()),
              R"({"type":"object","properties":{"x":{"type":"string"}}})");
}

// ---- Structure: attachment and keys ----

TEST(StructureTest, SetParentRebuildsTheMembersPaths) {
    StringLeaf leaf;
    Structure* inner = new Structure({new Entry("x", leaf)}, ALL_METHODS, false);
    auto root = makeRoot({new Entry("s", inner)});
    EXPECT_EQ(static_cast<std::string>(inner->path()), "/s");
    EXPECT_EQ(static_cast<std::string>(leaf.path()), "/s/x");
    EXPECT_EQ(leaf.parent(), inner);
}

TEST(StructureTest, AttachingBelowAnotherStructureRebuildsThePathsBelow) {
    StringLeaf leaf;
    Structure inner({new Entry("x", leaf)}, ALL_METHODS, false);
    inner.setParent(nullptr);
    EXPECT_EQ(static_cast<std::string>(leaf.path()), "/x");
    Structure outer({new Entry("top", inner)}, ALL_METHODS, true);
    outer.setParent(nullptr);
    EXPECT_EQ(static_cast<std::string>(inner.path()), "/top");
    EXPECT_EQ(static_cast<std::string>(leaf.path()), "/top/x");
}

TEST(StructureTest, GetChildKeyGivesTheMemberNameAlsoInsideGroups) {
    StringLeaf direct;
    StringLeaf grouped;
    Structure structure({new Entry("a", direct), new Container({new Entry("g", grouped)})},
                        ALL_METHODS, false);
    EXPECT_EQ(structure.getChildKey(&direct).str(), "a");
    EXPECT_EQ(structure.getChildKey(&grouped).str(), "g");
}

TEST(StructureTest, GetChildKeyOfAForeignChildThrows) {
    StringLeaf stranger;
    Structure structure({new Entry("a", new StringLeaf)}, ALL_METHODS, false);
    EXPECT_THAT([&] { structure.getChildKey(&stranger); },
                ThrowsMessage<std::runtime_error>(StrEq("Cannot find child key in structure")));
}

TEST(StructureTest, FindPermissionPolicyHoldersAppendsTheNamedMember) {
    StringLeaf leaf;
    StringLeaf earlier;
    Structure structure({new Entry("a", new StringLeaf), new Container({new Entry("x", leaf)})},
                        ALL_METHODS, false);
    std::vector<PermissionPolicyHolder*> holders{&earlier};
    structure.findPermissionPolicyHolders("x", holders);
    EXPECT_THAT(holders, ElementsAre(&earlier, &leaf));
}

TEST(StructureTest, FindPermissionPolicyHoldersLeavesTheListAsItIsForAnUnknownName) {
    StringLeaf earlier;
    Structure structure({new Entry("a", new StringLeaf)}, ALL_METHODS, false);
    std::vector<PermissionPolicyHolder*> holders{&earlier};
    structure.findPermissionPolicyHolders("b", holders);
    EXPECT_THAT(holders, ElementsAre(&earlier));
}

TEST(StructureTest, PolicyConfiguredByPathReachesTheMember) {
    StringLeaf* leaf = new StringLeaf("1");
    Structure* inner = new Structure({new Entry("x", leaf)}, ALL_METHODS, false);
    auto root = makeRoot({new Entry("s", inner)});
    PathBrowser browser(std::string("/s/x"));
    root->configurePermissionPolicy(browser, StaticPolicy(AllowedMethods::R),
                                    PermissionPolicyHolder::DefaultPolicyReplacer());
    Request update(UPDATE, "/s/x");
    EXPECT_EQ(update.run(*root, textDocument("2")), result::FORBIDDEN);
    Request read(READ, "/s/x");
    EXPECT_EQ(read.run(*root), result::DONE);
    EXPECT_EQ(formatJson(read.out()), R"("1")");
}

// ---- Structure: browse ----

TEST(StructureTest, BrowseWithoutARemainingSegmentGivesMinus1) {
    auto root = makeRoot({new Entry("x", new StringLeaf)});
    Request request(READ, "/");
    SerializationInfo out;
    EXPECT_EQ(root->browse(request.context(), SerializationInfo(), out), result::PATH_ENDS_HERE);
}

TEST(StructureTest, BrowseToAnUnknownMemberGives3) {
    auto root = makeRoot({new Entry("x", new StringLeaf)});
    Request request(READ, "/nothing");
    EXPECT_EQ(request.run(*root), result::NOT_FOUND);
    EXPECT_EQ(formatJson(request.out()), "null");
}

TEST(StructureTest, BrowseReachesAMemberTwoLevelsDown) {
    Structure* inner = new Structure({new Entry("x", new StringLeaf("deep"))}, ALL_METHODS, false);
    auto root = makeRoot({new Entry("s", inner)});
    Request request(READ, "/s/x");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"("deep")");
    EXPECT_EQ(request.context().currentUri().size(), 0u);
}

// ---- Structure: read ----

TEST(StructureTest, ReadListsEveryMemberInDeclarationOrder) {
    auto root =
        makeRoot({new Entry("b", new StringLeaf("2")), new Entry("a", new StringLeaf("1"))});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"b":"2","a":"1"})");
}

TEST(StructureTest, ReadOfAnEmptyStructureIsAnEmptyObject) {
    auto root = makeRoot({});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), "{}");
}

TEST(StructureTest, ReadIgnoresAFailingMember) {
    auto root = makeRoot(
        {new Entry("a", new StringLeaf("1")),
         new Entry("b", new FunctionLeaf([](Context&, const SerializationInfo&,
                                            SerializationInfo&) { return result::FORBIDDEN; }))});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"a":"1"})");
}

TEST(StructureTest, ReadOfAStructureThatIsNotAlwaysExpandedStartsWithItsPath) {
    Structure root({new Entry("a", new StringLeaf("1"))}, ALL_METHODS, false);
    attachRoot(root);
    Request request(READ, "/");
    EXPECT_EQ(request.run(root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"href":"/","a":"1"})");
}

TEST(StructureTest, WalkStateIsRestoredWhenAMemberThrows) {
    auto root = makeRoot({new Entry(
        "x", new FunctionLeaf([](Context&, const SerializationInfo&, SerializationInfo&) -> int {
            throw std::runtime_error("broken");
        }))});
    Request request(READ, "/", "expand=2&select=x,y");
    EXPECT_THROW(request.run(*root), std::runtime_error);
    EXPECT_EQ(request.context().currentUri().size(), 0u);
    EXPECT_EQ(request.context().select().depth(), 1u);
    EXPECT_EQ(request.context().expandLevel(), 2u);
}

// ---- Structure: update ----

TEST(StructureTest, UpdateSkipsUnknownKeysAndUpdatesKnownOnes) {
    StringLeaf* known = new StringLeaf("old");
    auto root = makeRoot({new Entry("known", known)});
    SerializationInfo body;
    body.addMember("unknown").setValue(1);
    body.addMember("known").setValue(2);
    Request request(UPDATE, "/");
    EXPECT_EQ(request.run(*root, body), result::DONE);
    EXPECT_EQ(known->text(), "2");
}

TEST(StructureTest, UpdateFollowsTheOrderOfTheInput) {
    std::vector<std::string> journal;
    auto recorder = [&journal](const std::string& name) {
        return [&journal, name](Context&, const SerializationInfo&, SerializationInfo&) {
            journal.push_back(name);
            return result::DONE;
        };
    };
    auto root = makeRoot({new Entry("a", new FunctionLeaf(nullptr, recorder("a"))),
                          new Entry("b", new FunctionLeaf(nullptr, recorder("b")))});
    SerializationInfo body;
    body.addMember("b").setValue(1);
    body.addMember("a").setValue(2);
    Request request(UPDATE, "/");
    EXPECT_EQ(request.run(*root, body), result::DONE);
    EXPECT_THAT(journal, ElementsAre("b", "a"));
}

TEST(StructureTest, UpdateIgnoresAMemberThatRefuses) {
    StringLeaf* readOnly = new StringLeaf("old", AllowedMethods::R);
    StringLeaf* writable = new StringLeaf("old");
    auto root = makeRoot({new Entry("r", readOnly), new Entry("w", writable)});
    SerializationInfo body;
    body.addMember("r").setValue("new");
    body.addMember("w").setValue("new");
    Request request(UPDATE, "/");
    EXPECT_EQ(request.run(*root, body), result::DONE);
    EXPECT_EQ(readOnly->text(), "old");
    EXPECT_EQ(writable->text(), "new");
}

// ---- Structure: subscriptions ----

TEST(StructureTest, SubscribeReachesEveryMember) {
    StringLeaf* a = new StringLeaf;
    StringLeaf* b = new StringLeaf;
    auto root = makeRoot({new Entry("a", a), new Container({new Entry("b", b)})});
    Request request(SUBSCRIBE, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(a->subscriptions(), 1);
    EXPECT_EQ(b->subscriptions(), 1);
    EXPECT_EQ(a->unsubscriptions(), 0);
}

TEST(StructureTest, UnsubscribeReachesEveryMember) {
    StringLeaf* a = new StringLeaf;
    StringLeaf* b = new StringLeaf;
    auto root = makeRoot({new Entry("a", a), new Entry("b", b)});
    Request request(UNSUBSCRIBE, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(a->unsubscriptions(), 1);
    EXPECT_EQ(b->unsubscriptions(), 1);
    EXPECT_EQ(a->subscriptions(), 0);
}

// ---- CompositeValue ----

// {"a":{"b":{"c":1},"d":"x"},"e":[1,2]}
SerializationInfo sampleContent() {
    SerializationInfo content;
    SerializationInfo& a = content.addMember("a");
    a.addMember("b").addMember("c").setValue(1);
    a.addMember("d").setValue("x");
    SerializationInfo& e = content.addMember("e");
    e.setCategory(SerializationInfo::Array);
    e.addMember().setValue(1);
    e.addMember().setValue(2);
    return content;
}

// A composite over a fixed document; counts the calls of its two operations and keeps the last
// document given to setValue.
class DocumentComposite : public CompositeValue {
  public:
    explicit DocumentComposite(SerializationInfo content, AllowedMethods allowed = ALL_METHODS,
                               bool alwaysExpanded = true, int setResult = result::DONE)
        : CompositeValue(allowed, alwaysExpanded),
          content_(std::move(content)),
          setResult_(setResult) {}

    SerializationInfo getValue(Context&) override {
        ++getValueCalls;
        return content_;
    }
    int setValue(Context&, const SerializationInfo& value) override {
        ++setValueCalls;
        received = value;
        return setResult_;
    }

    int getValueCalls = 0;
    int setValueCalls = 0;
    SerializationInfo received;

  private:
    SerializationInfo content_;
    int setResult_;
};

TEST(CompositeValueTest, ReadOfADeepMemberGivesItsSubtreeWithoutAName) {
    DocumentComposite* composite = new DocumentComposite(sampleContent());
    auto root = makeRoot({new Entry("composite", composite)});
    Request request(READ, "/composite/a/b");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"c":1})");
    EXPECT_EQ(request.out().name(), "");
}

TEST(CompositeValueTest, ReadOfAScalarMember) {
    auto root = makeRoot({new Entry("composite", new DocumentComposite(sampleContent()))});
    Request request(READ, "/composite/a/d");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"("x")");
}

TEST(CompositeValueTest, UnknownMemberGives3) {
    auto root = makeRoot({new Entry("composite", new DocumentComposite(sampleContent()))});
    Request top(READ, "/composite/zz");
    EXPECT_EQ(top.run(*root), result::NOT_FOUND);
    Request deep(READ, "/composite/a/zz");
    EXPECT_EQ(deep.run(*root), result::NOT_FOUND);
    EXPECT_EQ(formatJson(deep.out()), "null");
}

TEST(CompositeValueTest, UpdateOfAMemberGives8WithoutCallingSetValue) {
    DocumentComposite* composite = new DocumentComposite(sampleContent());
    auto root = makeRoot({new Entry("composite", composite)});
    Request request(UPDATE, "/composite/a");
    EXPECT_EQ(request.run(*root, textDocument("new")), result::NOT_SUPPORTED);
    EXPECT_EQ(composite->setValueCalls, 0);
}

TEST(CompositeValueTest, CreateAndDeleteOfAMemberGive8) {
    auto root = makeRoot({new Entry("composite", new DocumentComposite(sampleContent()))});
    Request create(CREATE, "/composite/a");
    EXPECT_EQ(create.run(*root, textDocument("new")), result::NOT_SUPPORTED);
    Request destroy(DELETE, "/composite/a");
    EXPECT_EQ(destroy.run(*root), result::NOT_SUPPORTED);
}

TEST(CompositeValueTest, UpdateOfTheCompositeCallsSetValueAndReturnsItsResult) {
    DocumentComposite* composite = new DocumentComposite(sampleContent(), ALL_METHODS, true, 5);
    auto root = makeRoot({new Entry("composite", composite)});
    SerializationInfo body;
    body.addMember("k").setValue("v");
    Request request(UPDATE, "/composite");
    EXPECT_EQ(request.run(*root, body), 5);
    EXPECT_EQ(composite->setValueCalls, 1);
    EXPECT_EQ(formatJson(composite->received), R"({"k":"v"})");
}

TEST(CompositeValueTest, ReadCallsGetValueTwiceAndCopiesEveryMember) {
    DocumentComposite* composite = new DocumentComposite(sampleContent());
    auto root = makeRoot({new Entry("composite", composite)});
    Request request(READ, "/composite");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"a":{"b":{"c":1},"d":"x"},"e":[1,2]})");
    EXPECT_EQ(composite->getValueCalls, 2);
}

TEST(CompositeValueTest, ReadOfAnArrayContentIsAnArray) {
    SerializationInfo content;
    content.setCategory(SerializationInfo::Array);
    content.addMember().setValue(1);
    content.addMember().setValue("two");
    auto root = makeRoot({new Entry("composite", new DocumentComposite(content))});
    Request request(READ, "/composite");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"([1,"two"])");
}

TEST(CompositeValueTest, ReadOfAnEmptyContentIsAnEmptyObject) {
    auto root = makeRoot({new Entry("composite", new DocumentComposite(SerializationInfo()))});
    Request request(READ, "/composite");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), "{}");
}

TEST(CompositeValueTest, CompositeThatIsNotAlwaysExpandedStartsWithItsPath) {
    SerializationInfo content;
    content.addMember("k").setValue("v");
    auto root =
        makeRoot({new Entry("composite", new DocumentComposite(content, ALL_METHODS, false))});
    Request request(READ, "/composite");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"href":"/composite","k":"v"})");
}

TEST(CompositeValueTest, BrowseCallsGetValueOnce) {
    DocumentComposite* composite = new DocumentComposite(sampleContent());
    auto root = makeRoot({new Entry("composite", composite)});
    Request request(READ, "/composite/a/b/c");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), "1");
    EXPECT_EQ(composite->getValueCalls, 1);
}

TEST(CompositeValueTest, MissingPermissionBelowTheTopGives6) {
    auto root = makeRoot({new Entry("composite", new DocumentComposite(sampleContent()))},
                         AllowedMethods::R | AllowedMethods::B);
    Request update(UPDATE, "/composite/a");
    EXPECT_EQ(update.run(*root, textDocument("new")), result::FORBIDDEN);
    Request read(READ, "/composite/a/d");
    EXPECT_EQ(read.run(*root), result::DONE);
    EXPECT_EQ(formatJson(read.out()), R"("x")");
}

TEST(CompositeValueTest, AllowedMethodsAreNotConsultedBelowTheTop) {
    auto root = makeRoot(
        {new Entry("composite", new DocumentComposite(sampleContent(), AllowedMethods::B, true))});
    Request top(READ, "/composite");
    EXPECT_EQ(top.run(*root), result::NOT_ALLOWED);
    Request below(READ, "/composite/a/d");
    EXPECT_EQ(below.run(*root), result::DONE);
    EXPECT_EQ(formatJson(below.out()), R"("x")");
}

TEST(CompositeValueTest, WriteBelowTheTopGives8EvenWhenUpdateIsNotAllowed) {
    auto root = makeRoot({new Entry(
        "composite",
        new DocumentComposite(sampleContent(), AllowedMethods::R | AllowedMethods::B, true))});
    Request request(UPDATE, "/composite/a");
    EXPECT_EQ(request.run(*root, textDocument("new")), result::NOT_SUPPORTED);
}

TEST(CompositeValueTest, SchemaBelowTheTopWithoutThatRightGives6) {
    auto root = makeRoot({new Entry("composite", new DocumentComposite(sampleContent()))});
    Request request(SCHEMA, "/composite/a");
    EXPECT_EQ(request.run(*root), result::FORBIDDEN);
}

TEST(CompositeValueTest, OtherMethodsBelowTheTopGive7) {
    auto root = makeRoot({new Entry("composite", new DocumentComposite(sampleContent()))},
                         AllowedMethods(0xFFFFFFFF));
    Request request(SCHEMA, "/composite/a");
    EXPECT_EQ(request.run(*root), result::UNKNOWN_METHOD);
}

TEST(CompositeValueTest, WalkStateIsRestoredAfterBrowsing) {
    auto root = makeRoot({new Entry("composite", new DocumentComposite(sampleContent()))});
    Request request(READ, "/composite/a/b");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(request.context().currentUri().size(), 0u);
    EXPECT_EQ(request.context().expandLevel(), 0u);
}

TEST(CompositeValueTest, InternalBrowseWalksTheDocumentItIsGiven) {
    DocumentComposite composite(sampleContent());
    attachRoot(composite);
    SerializationInfo document;
    document.addMember("k").setValue("v");
    Request request(READ, "/k");
    SerializationInfo out;
    EXPECT_EQ(composite.internalBrowse(request.context(), document, SerializationInfo(), out),
              result::DONE);
    EXPECT_EQ(formatJson(out), R"("v")");
    EXPECT_EQ(composite.getValueCalls, 0);
}

}  // namespace
}  // namespace dme
