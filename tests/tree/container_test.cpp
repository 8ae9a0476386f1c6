#include "dme/container.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "dme/json.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "leaf_nodes.h"
#include "request.h"

namespace dme {
namespace {

using test::ALL_METHODS;
using test::attachRoot;
using test::FunctionLeaf;
using test::Request;
using test::StringLeaf;
using SerializationInfo = cxxtools::SerializationInfo;

// A root structure that is always expanded (so it writes no resource path of its own),
// attached with every right.
std::unique_ptr<Structure> makeRoot(const std::vector<Element*>& elements) {
    auto root = std::make_unique<Structure>(elements, ALL_METHODS, true);
    attachRoot(*root);
    return root;
}

// A leaf that tells when it is destroyed.
class ProbeLeaf : public StringLeaf {
  public:
    explicit ProbeLeaf(bool& destroyed) : destroyed_(destroyed) {}
    ~ProbeLeaf() override { destroyed_ = true; }

  private:
    bool& destroyed_;
};

FunctionLeaf::Operation answer(int rc) {
    return [rc](Context&, const SerializationInfo&, SerializationInfo&) { return rc; };
}

FunctionLeaf::Operation writeNothing() {
    return answer(result::DONE);
}

template <class E>
FunctionLeaf::Operation throwing(const E& error) {
    return [error](Context&, const SerializationInfo&, SerializationInfo&) -> int { throw error; };
}

SerializationInfo textDocument(const std::string& text) {
    SerializationInfo document;
    document.setValue(text);
    return document;
}

// ---- Container: lookups ----

TEST(ContainerTest, FindReturnsTheEntryThatHoldsTheName) {
    Entry* a = new Entry("a", new StringLeaf);
    Entry* b = new Entry("b", new StringLeaf);
    Container container({a, b});
    EXPECT_EQ(container.find("b"), b);
    EXPECT_EQ(container.find("a"), a);
}

TEST(ContainerTest, FindReturnsTheNestedGroupThatHoldsTheName) {
    Container* group = new Container({new Entry("x", new StringLeaf)});
    Container container({new Entry("a", new StringLeaf), group});
    EXPECT_EQ(container.find("x"), group);
}

TEST(ContainerTest, FindReturnsNullForAnUnknownName) {
    Container container({new Entry("a", new StringLeaf)});
    EXPECT_EQ(container.find("b"), nullptr);
}

TEST(ContainerTest, FindReturnsTheFirstOfTwoGroupsThatHoldTheName) {
    Container* first = new Container({new Entry("x", new StringLeaf)});
    Container* second = new Container({new Entry("x", new StringLeaf)});
    Container container({first, second});
    EXPECT_EQ(container.find("x"), first);
}

TEST(ContainerTest, ContainsSeesTheMembersOfNestedGroups) {
    Container container({new Container({new Container({new Entry("deep", new StringLeaf)})})});
    EXPECT_TRUE(container.contains("deep"));
    EXPECT_FALSE(container.contains("shallow"));
}

TEST(ContainerTest, FindValueReturnsTheValueHeldInANestedGroup) {
    StringLeaf leaf;
    Container container({new Entry("a", new StringLeaf), new Container({new Entry("x", leaf)})});
    EXPECT_EQ(container.findValue("x"), &leaf);
    EXPECT_EQ(container.findValue("y"), nullptr);
}

TEST(ContainerTest, GetValueNameAnswersForAValueInANestedGroup) {
    StringLeaf leaf;
    StringLeaf stranger;
    Container container({new Entry("a", new StringLeaf), new Container({new Entry("x", leaf)})});
    ASSERT_NE(container.getValueName(&leaf), nullptr);
    EXPECT_EQ(container.getValueName(&leaf)->str(), "x");
    EXPECT_EQ(container.getValueName(&stranger), nullptr);
}

TEST(ContainerTest, NullElementsAreSkippedByLookups) {
    StringLeaf leaf;
    Entry* entry = new Entry("x", leaf);
    Container container({nullptr, entry, nullptr});
    EXPECT_EQ(container.find("x"), entry);
    EXPECT_EQ(container.find("y"), nullptr);
    EXPECT_EQ(container.findValue("x"), &leaf);
    ASSERT_NE(container.getValueName(&leaf), nullptr);
    EXPECT_EQ(container.getValueName(&leaf)->str(), "x");
}

TEST(ContainerTest, NullElementsAreSkippedWhenProcessingAndAttaching) {
    auto root = makeRoot({nullptr, new Entry("x", new StringLeaf("1")), nullptr});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"x":"1"})");
}

TEST(ContainerTest, DestructionDeletesTheElementsAndTheValuesTheyOwn) {
    bool owned = false;
    bool borrowedDestroyed = false;
    ProbeLeaf borrowed(borrowedDestroyed);
    { Container container({new Entry("a", new ProbeLeaf(owned)), new Entry("b", borrowed)}); }
    EXPECT_TRUE(owned);
    EXPECT_FALSE(borrowedDestroyed);
}

// ---- Container: processing ----

TEST(ContainerTest, TwoGroupsThatBothHoldXRouteXToTheFirstGroupOnly) {
    StringLeaf first("old");
    StringLeaf second("old");
    auto root =
        makeRoot({new Container({new Entry("x", first)}), new Container({new Entry("x", second)})});
    Request request(UPDATE, "/x");
    EXPECT_EQ(request.run(*root, textDocument("new")), result::DONE);
    EXPECT_EQ(first.text(), "new");
    EXPECT_EQ(second.text(), "old");
    EXPECT_EQ(second.updates(), 0);
}

TEST(ContainerTest, ProcessOfAnUnknownNameGives3AndLeavesOutUntouched) {
    Container container({new Entry("a", new StringLeaf("1"))});
    Request request(READ, "/");
    request.out().addMember("kept").setValue(7);
    EXPECT_EQ(container.process(request.context(), SerializationInfo(), request.out(), "b"),
              result::NOT_FOUND);
    EXPECT_EQ(formatJson(request.out()), R"({"kept":7})");
}

TEST(ContainerTest, ProcessOfANameGivesTheResultOfTheElementThatHoldsIt) {
    FunctionLeaf leaf(answer(5));
    attachRoot(leaf);
    Container container({new Entry("a", leaf)});
    Request request(READ, "/a");
    SerializationInfo out;
    EXPECT_EQ(container.process(request.context(), SerializationInfo(), out, "a"), 5);
}

TEST(ContainerTest, ProcessWithoutANameServesEveryElementInOrderAndIgnoresFailures) {
    StringLeaf a("1");
    StringLeaf b("2");
    FunctionLeaf fails(answer(result::FORBIDDEN));
    for (Value* leaf : std::vector<Value*>{&a, &b, &fails}) attachRoot(*leaf);
    Container container({new Entry("b", b), new Entry("fails", fails), new Entry("a", a)});
    Request request(READ, "/");
    SerializationInfo out;
    EXPECT_EQ(container.process(request.context(), SerializationInfo(), out, ""), result::DONE);
    EXPECT_EQ(formatJson(out), R"({"b":"2","a":"1"})");
}

// ---- Entry: construction and lookups ----

TEST(EntryTest, EveryConstructorKeepsTheNameAndTheValue) {
    StringLeaf leaf;
    const std::string name = "member";
    Entry fromCharsAndReference("member", leaf);
    Entry fromStringAndReference(name, leaf);
    Entry fromStringReferenceAndFlag(name, leaf, false);
    EXPECT_EQ(fromCharsAndReference.getName(), "member");
    EXPECT_EQ(fromStringAndReference.getName(), "member");
    EXPECT_EQ(fromStringReferenceAndFlag.getName(), "member");
    EXPECT_EQ(fromCharsAndReference.getValue(), &leaf);
    EXPECT_EQ(fromStringAndReference.getValue(), &leaf);
    EXPECT_EQ(fromStringReferenceAndFlag.getValue(), &leaf);
}

TEST(EntryTest, EntriesAreAlwaysSerializedUnlessToldOtherwise) {
    StringLeaf leaf;
    EXPECT_TRUE(Entry("a", leaf).alwaysSerialized());
    EXPECT_TRUE(Entry(std::string("a"), leaf).alwaysSerialized());
    EXPECT_TRUE(Entry("a", new StringLeaf).alwaysSerialized());
    EXPECT_TRUE(Entry(std::string("a"), new StringLeaf).alwaysSerialized());
    EXPECT_FALSE(Entry(std::string("a"), leaf, false).alwaysSerialized());
    EXPECT_FALSE(Entry(std::string("a"), new StringLeaf, false).alwaysSerialized());
    EXPECT_TRUE(Entry(std::string("a"), leaf, true).alwaysSerialized());
}

TEST(EntryTest, PointerConstructorsOwnTheValue) {
    bool fromChars = false;
    bool fromString = false;
    bool fromStringAndFlag = false;
    {
        Entry a("a", new ProbeLeaf(fromChars));
        Entry b(std::string("b"), new ProbeLeaf(fromString));
        Entry c(std::string("c"), new ProbeLeaf(fromStringAndFlag), false);
        EXPECT_FALSE(fromChars);
        EXPECT_EQ(c.getName(), "c");
    }
    EXPECT_TRUE(fromChars);
    EXPECT_TRUE(fromString);
    EXPECT_TRUE(fromStringAndFlag);
}

TEST(EntryTest, ReferenceConstructorsLeaveTheValueToTheCaller) {
    bool destroyed = false;
    ProbeLeaf leaf(destroyed);
    {
        Entry a("a", leaf);
        Entry b(std::string("b"), leaf);
        Entry c(std::string("c"), leaf, false);
    }
    EXPECT_FALSE(destroyed);
}

TEST(EntryTest, GetValueNameAnswersOnlyForItsOwnValue) {
    StringLeaf leaf;
    StringLeaf stranger;
    Entry entry("a", leaf);
    ASSERT_NE(entry.getValueName(&leaf), nullptr);
    EXPECT_EQ(entry.getValueName(&leaf)->str(), "a");
    EXPECT_EQ(entry.getValueName(&stranger), nullptr);
}

TEST(EntryTest, ContainsAndFindValueMatchTheNameOnly) {
    StringLeaf leaf;
    Entry entry("a", leaf);
    EXPECT_TRUE(entry.contains("a"));
    EXPECT_FALSE(entry.contains("b"));
    EXPECT_EQ(entry.findValue("a"), &leaf);
    EXPECT_EQ(entry.findValue("b"), nullptr);
}

TEST(EntryTest, GetNameReturnsACopy) {
    StringLeaf leaf;
    Entry entry("a", leaf);
    std::string name = entry.getName();
    name += "changed";
    EXPECT_EQ(entry.getName(), "a");
}

TEST(EntryTest, ReNameReplacesTheNameAndItsHash) {
    StringLeaf leaf("1");
    Entry* entry = new Entry("old", leaf);
    auto root = makeRoot({entry});
    entry->reName("new");
    EXPECT_EQ(entry->getName(), "new");
    EXPECT_TRUE(entry->contains(ConstHashString("new")));
    EXPECT_FALSE(entry->contains(ConstHashString("old")));
    Request request(READ, "/new");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"("1")");
}

TEST(EntryTest, SetParentAttachesTheValueBelowTheParent) {
    StringLeaf leaf;
    Structure parent({new Entry("x", leaf)}, ALL_METHODS, true);
    Entry entry("x", leaf);
    entry.setParent(&parent);
    EXPECT_EQ(leaf.parent(), &parent);
    EXPECT_EQ(static_cast<std::string>(leaf.path()), "/x");
}

// ---- Entry: processing a named member ----

TEST(EntryTest, ProcessOfAnotherNameGives3WithoutEnteringTheMember) {
    StringLeaf leaf("1");
    Entry entry("a", leaf);
    Request request(READ, "/b");
    SerializationInfo out;
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, "b"), result::NOT_FOUND);
    EXPECT_EQ(leaf.reads(), 0);
    EXPECT_TRUE(out.isNull());
    EXPECT_EQ(request.context().currentUri().size(), 0u);
}

TEST(EntryTest, NamedMemberWritesIntoTheCallersOut) {
    auto root = makeRoot({new Entry("x", new StringLeaf("1"))});
    Request request(READ, "/x");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"("1")");
}

TEST(EntryTest, TheChildRunsOneStepDeeperAndTheStepIsUndoneAfterwards) {
    std::string seenAt;
    FunctionLeaf* leaf =
        new FunctionLeaf([&seenAt](Context& ctx, const SerializationInfo&, SerializationInfo&) {
            seenAt = static_cast<std::string>(ctx.currentUri());
            return result::DONE;
        });
    auto root = makeRoot({new Entry("x", leaf)});
    Request request(READ, "/x");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(seenAt, "/x");
    EXPECT_EQ(request.context().currentUri().size(), 0u);
}

TEST(EntryTest, NamedMemberResultIsReturnedAsItIs) {
    auto root = makeRoot({new Entry("x", new FunctionLeaf(answer(5)))});
    Request request(READ, "/x");
    EXPECT_EQ(request.run(*root), 5);
}

TEST(EntryTest, NamedMemberThatThrowsLeavesTheWalkStateRestored) {
    auto root = makeRoot({new Entry("x", new FunctionLeaf(throwing(std::runtime_error("x"))))});
    Request request(READ, "/x");
    EXPECT_THROW(request.run(*root), std::runtime_error);
    EXPECT_EQ(request.context().currentUri().size(), 0u);
}

TEST(EntryTest, ListingWithAnotherMethodHandsTheCallersOutToTheChild) {
    StringLeaf leaf("old");
    attachRoot(leaf);
    Entry entry("x", leaf);
    Request request(UPDATE, "/");
    request.out().addMember("kept").setValue(7);
    EXPECT_EQ(entry.process(request.context(), textDocument("new"), request.out(), ""),
              result::DONE);
    EXPECT_EQ(leaf.text(), "new");
    EXPECT_EQ(formatJson(request.out()), R"({"kept":7})");
}

TEST(EntryTest, ListingWithAnotherMethodReturnsTheChildsResult) {
    StringLeaf leaf;
    attachRoot(leaf);
    Entry entry("x", leaf);
    Request request(DELETE, "/");
    SerializationInfo out;
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, ""),
              result::NOT_SUPPORTED);
}

// ---- Entry: listing ----

TEST(EntryTest, ListingAddsTheChildUnderTheMemberName) {
    StringLeaf leaf("1");
    attachRoot(leaf);
    Entry entry("x", leaf);
    Request request(READ, "/");
    SerializationInfo out;
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, ""), result::DONE);
    EXPECT_EQ(formatJson(out), R"({"x":"1"})");
}

TEST(EntryTest, ListingKeepsTheMemberNameWhenTheChildNamesItsAnswer) {
    FunctionLeaf leaf([](Context&, const SerializationInfo&, SerializationInfo& out) {
        out.setName("other");
        out.setValue("v");
        return result::DONE;
    });
    attachRoot(leaf);
    Entry entry("x", leaf);
    Request request(READ, "/");
    SerializationInfo out;
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, ""), result::DONE);
    ASSERT_EQ(out.memberCount(), 1u);
    EXPECT_EQ(out.begin()->name(), "x");
    EXPECT_EQ(formatJson(out), R"({"x":"v"})");
}

TEST(EntryTest, ListingAddsTheChildsWholeDocumentAfterTheMembersBefore) {
    FunctionLeaf leaf([](Context&, const SerializationInfo&, SerializationInfo& out) {
        out.addMember("a").setValue(1);
        SerializationInfo& list = out.addMember("list");
        list.setCategory(SerializationInfo::Array);
        list.addMember().setValue("t");
        list.addMember().addMember("deep").setValue(true);
        return result::DONE;
    });
    attachRoot(leaf);
    Entry entry("x", leaf);
    Request request(READ, "/");
    SerializationInfo out;
    out.addMember("before").setValue(0);
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, ""), result::DONE);
    EXPECT_EQ(formatJson(out), R"({"before":0,"x":{"a":1,"list":["t",{"deep":true}]}})");
}

TEST(EntryTest, ListingLeavesOutAMemberThatTheSelectionExcludesWithoutReadingIt) {
    StringLeaf* excluded = new StringLeaf("2");
    auto root = makeRoot({new Entry("a", new StringLeaf("1")), new Entry("b", excluded)});
    Request request(READ, "/", "select=a");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"a":"1"})");
    EXPECT_EQ(excluded->reads(), 0);
}

TEST(EntryTest, UnselectedMemberGives0AndRestoresSelectionAndPath) {
    StringLeaf leaf("2");
    Entry entry("b", leaf);
    Request request(READ, "/", "select=a");
    SerializationInfo out;
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, ""), result::DONE);
    EXPECT_TRUE(out.isNull());
    EXPECT_EQ(request.context().select().depth(), 1u);
    EXPECT_EQ(request.context().currentUri().size(), 0u);
}

TEST(EntryTest, SelectedMemberRestoresSelectionAndPath) {
    StringLeaf leaf("1");
    attachRoot(leaf);
    Entry entry("a", leaf);
    Request request(READ, "/", "select=a");
    SerializationInfo out;
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, ""), result::DONE);
    EXPECT_EQ(formatJson(out), R"({"a":"1"})");
    EXPECT_EQ(request.context().select().depth(), 1u);
    EXPECT_EQ(request.context().currentUri().size(), 0u);
}

TEST(EntryTest, SelectionReachesIntoNestedStructures) {
    Structure* inner =
        new Structure({new Entry("x", new StringLeaf("1")), new Entry("y", new StringLeaf("2"))},
                      ALL_METHODS, false);
    auto root = makeRoot({new Entry("s", inner), new Entry("t", new StringLeaf("3"))});
    Request request(READ, "/", "expand=1&select=s/x");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"s":{"href":"/s","x":"1"}})");
}

TEST(EntryTest, SelectingAMemberWithoutChildrenSelectsNothingBelowIt) {
    Structure* inner = new Structure({new Entry("x", new StringLeaf("1"))}, ALL_METHODS, false);
    auto root = makeRoot({new Entry("s", inner)});
    Request request(READ, "/", "expand=1&select=s");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"s":{"href":"/s"}})");
}

TEST(EntryTest, UnexpandedStructureMemberShowsOnlyItsPath) {
    StringLeaf* leaf = new StringLeaf("1");
    Structure* inner = new Structure({new Entry("x", leaf)}, ALL_METHODS, false);
    auto root = makeRoot({new Entry("s", inner)});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"s":{"href":"/s"}})");
    EXPECT_EQ(leaf->reads(), 0);
}

TEST(EntryTest, ExpandedStructureMemberShowsItsMembers) {
    Structure* inner = new Structure({new Entry("x", new StringLeaf("1"))}, ALL_METHODS, false);
    auto root = makeRoot({new Entry("s", inner)});
    Request request(READ, "/", "expand=1");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"s":{"href":"/s","x":"1"}})");
}

TEST(EntryTest, EachMemberStartsFromTheExpandLevelOfItsParent) {
    Structure* first = new Structure({new Entry("x", new StringLeaf("1"))}, ALL_METHODS, false);
    Structure* second = new Structure({new Entry("y", new StringLeaf("2"))}, ALL_METHODS, false);
    auto root = makeRoot({new Entry("s1", first), new Entry("s2", second)});
    Request request(READ, "/", "expand=1");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"s1":{"href":"/s1","x":"1"},"s2":{"href":"/s2","y":"2"}})");
    EXPECT_EQ(request.context().expandLevel(), 1u);
}

TEST(EntryTest, ChildInvalidArgumentLeavesTheMemberOutAndGives1) {
    FunctionLeaf leaf(throwing(std::invalid_argument("bad")));
    attachRoot(leaf);
    Entry entry("x", leaf);
    Request request(READ, "/", "select=x");
    SerializationInfo out;
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, ""), result::FAILED);
    EXPECT_TRUE(out.isNull());
    EXPECT_EQ(request.context().select().depth(), 1u);
    EXPECT_EQ(request.context().currentUri().size(), 0u);
}

TEST(EntryTest, ChildInvalidArgumentDoesNotFailTheStructure) {
    auto root = makeRoot({new Entry("x", new FunctionLeaf(throwing(std::invalid_argument("b")))),
                          new Entry("y", new StringLeaf("2"))});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"y":"2"})");
}

TEST(EntryTest, ChildRuntimeErrorPropagatesWithTheWalkStateRestored) {
    FunctionLeaf leaf([](Context& ctx, const SerializationInfo&, SerializationInfo&) -> int {
        ctx.decrementExpandLevel();
        throw std::runtime_error("broken");
    });
    attachRoot(leaf);
    Entry entry("x", leaf);
    Request request(READ, "/", "expand=3&select=x");
    SerializationInfo out;
    EXPECT_THROW(entry.process(request.context(), SerializationInfo(), out, ""),
                 std::runtime_error);
    EXPECT_EQ(request.context().select().depth(), 1u);
    EXPECT_EQ(request.context().currentUri().size(), 0u);
    EXPECT_EQ(request.context().expandLevel(), 3u);
    EXPECT_TRUE(out.isNull());
}

TEST(EntryTest, ChildNonStandardThrowPropagatesWithTheWalkStateRestored) {
    FunctionLeaf leaf(throwing(42));
    attachRoot(leaf);
    Entry entry("x", leaf);
    Request request(READ, "/", "select=x");
    SerializationInfo out;
    EXPECT_THROW(entry.process(request.context(), SerializationInfo(), out, ""), int);
    EXPECT_EQ(request.context().select().depth(), 1u);
    EXPECT_EQ(request.context().currentUri().size(), 0u);
}

TEST(EntryTest, ChildFailureLeavesTheMemberOutAndIsReturned) {
    FunctionLeaf leaf([](Context&, const SerializationInfo&, SerializationInfo& out) {
        out.setValue("partial");
        return 5;
    });
    attachRoot(leaf);
    Entry entry("x", leaf);
    Request request(READ, "/");
    SerializationInfo out;
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, ""), 5);
    EXPECT_TRUE(out.isNull());
}

// ---- Entry: empty results ----

TEST(EntryTest, EmptyTextIsLeftOutWhenNotAlwaysSerialized) {
    auto root = makeRoot({new Entry(std::string("x"), new StringLeaf(""), false),
                          new Entry("y", new StringLeaf("2"))});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"y":"2"})");
}

TEST(EntryTest, EmptyTextLeftOutGives3) {
    StringLeaf leaf("");
    attachRoot(leaf);
    Entry entry(std::string("x"), leaf, false);
    Request request(READ, "/");
    SerializationInfo out;
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, ""), result::NOT_FOUND);
    EXPECT_TRUE(out.isNull());
}

TEST(EntryTest, EmptyTextIsShownWhenAlwaysSerialized) {
    auto root = makeRoot({new Entry(std::string("x"), new StringLeaf(""), true)});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"x":""})");
}

TEST(EntryTest, VoidResultIsLeftOutWhenNotAlwaysSerialized) {
    FunctionLeaf leaf(writeNothing());
    attachRoot(leaf);
    Entry entry(std::string("x"), leaf, false);
    Request request(READ, "/");
    SerializationInfo out;
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, ""), result::NOT_FOUND);
    EXPECT_TRUE(out.isNull());
}

TEST(EntryTest, VoidResultIsShownAsNullWhenAlwaysSerialized) {
    auto root = makeRoot({new Entry("x", new FunctionLeaf(writeNothing()))});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"x":null})");
}

TEST(EntryTest, NullScalarIsLeftOutWhenNotAlwaysSerialized) {
    FunctionLeaf leaf([](Context&, const SerializationInfo&, SerializationInfo& out) {
        out.setNull();
        return result::DONE;
    });
    attachRoot(leaf);
    Entry entry(std::string("x"), leaf, false);
    Request request(READ, "/");
    SerializationInfo out;
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, ""), result::NOT_FOUND);
}

TEST(EntryTest, EmptyObjectIsShownWhenNotAlwaysSerialized) {
    FunctionLeaf* leaf =
        new FunctionLeaf([](Context&, const SerializationInfo&, SerializationInfo& out) {
            out.setCategory(SerializationInfo::Object);
            return result::DONE;
        });
    auto root = makeRoot({new Entry(std::string("x"), leaf, false)});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"x":{}})");
}

TEST(EntryTest, FalseIsShownWhenNotAlwaysSerialized) {
    FunctionLeaf* leaf =
        new FunctionLeaf([](Context&, const SerializationInfo&, SerializationInfo& out) {
            out.setValue(false);
            return result::DONE;
        });
    auto root = makeRoot({new Entry(std::string("x"), leaf, false)});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"x":false})");
}

TEST(EntryTest, UnexpandedMemberWithoutResourcePathIsLeftOutWhenNotAlwaysSerialized) {
    Structure* inner = new Structure({new Entry("x", new StringLeaf("1"))}, ALL_METHODS, false);
    auto root =
        makeRoot({new Entry(std::string("s"), inner, false), new Entry("y", new StringLeaf("2"))});
    Request request(READ, "/", "", test::bareLexicon());
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"y":"2"})");
}

// ---- Entry: schema ----

TEST(EntryTest, SchemaListingAddsEachMembersSchema) {
    auto root = makeRoot({new Entry("x", new StringLeaf), new Entry("y", new StringLeaf)});
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"type":"object","properties":{"x":{"type":"string"},"y":{"type":"string"}}})");
}

TEST(EntryTest, SchemaListingFollowsTheSelection) {
    auto root = makeRoot({new Entry("x", new StringLeaf), new Entry("y", new StringLeaf)});
    Request request(SCHEMA, "/", "select=y");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"type":"object","properties":{"y":{"type":"string"}}})");
}

// ---- UpdateOnlyEntry ----

TEST(UpdateOnlyEntryTest, ReadOfTheStructureShowsTheMemberAsNullWithoutReadingIt) {
    StringLeaf* secret = new StringLeaf("hidden");
    auto root = makeRoot({new Entry("a", new StringLeaf("1")), new UpdateOnlyEntry("pw", secret)});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"a":"1","pw":null})");
    EXPECT_EQ(secret->reads(), 0);
}

TEST(UpdateOnlyEntryTest, ReadOfTheMemberItselfIsNull) {
    StringLeaf* secret = new StringLeaf("hidden");
    auto root = makeRoot({new UpdateOnlyEntry("pw", secret)});
    Request request(READ, "/pw");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), "null");
    EXPECT_EQ(secret->reads(), 0);
}

TEST(UpdateOnlyEntryTest, ReadWithAnotherNameGives3) {
    StringLeaf secret("hidden");
    UpdateOnlyEntry entry("pw", secret);
    Request request(READ, "/other");
    SerializationInfo out;
    EXPECT_EQ(entry.process(request.context(), SerializationInfo(), out, "other"),
              result::NOT_FOUND);
    EXPECT_TRUE(out.isNull());
}

TEST(UpdateOnlyEntryTest, UpdateOfTheMemberReachesTheChild) {
    StringLeaf* secret = new StringLeaf("old");
    auto root = makeRoot({new UpdateOnlyEntry(std::string("pw"), secret)});
    Request request(UPDATE, "/pw");
    EXPECT_EQ(request.run(*root, textDocument("new")), result::DONE);
    EXPECT_EQ(secret->text(), "new");
}

TEST(UpdateOnlyEntryTest, UpdateOfTheStructureReachesTheChild) {
    StringLeaf secret("old");
    auto root = makeRoot({new UpdateOnlyEntry("pw", secret)});
    SerializationInfo body;
    body.addMember("pw").setValue("new");
    Request request(UPDATE, "/");
    EXPECT_EQ(request.run(*root, body), result::DONE);
    EXPECT_EQ(secret.text(), "new");
}

TEST(UpdateOnlyEntryTest, UpdateWithoutABodyGives3AndChangesNothing) {
    StringLeaf* secret = new StringLeaf("old");
    auto root = makeRoot({new UpdateOnlyEntry("pw", secret)});
    Request request(UPDATE, "/pw");
    EXPECT_EQ(request.run(*root), result::NOT_FOUND);
    EXPECT_EQ(secret->updates(), 0);
    EXPECT_EQ(secret->text(), "old");
}

TEST(UpdateOnlyEntryTest, SchemaWithoutABodyLeavesTheMemberOut) {
    auto root =
        makeRoot({new Entry("a", new StringLeaf), new UpdateOnlyEntry("pw", new StringLeaf)});
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"type":"object","properties":{"a":{"type":"string"}}})");
}

// ---- ConditionalContainer ----

bool isRead(Context& ctx) {
    return ctx.method() == READ;
}

TEST(ConditionalContainerTest, TrueConditionServesTheMembers) {
    auto root = makeRoot({new ConditionalContainer(isRead, {new Entry("x", new StringLeaf("1"))})});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"x":"1"})");
}

TEST(ConditionalContainerTest, FalseConditionHidesTheMembersFromAListing) {
    StringLeaf* hidden = new StringLeaf("1");
    auto root = makeRoot(
        {new ConditionalContainer([](Context&) { return false; }, {new Entry("x", hidden)}),
         new Entry("y", new StringLeaf("2"))});
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"y":"2"})");
    EXPECT_EQ(hidden->reads(), 0);
}

TEST(ConditionalContainerTest, FalseConditionGives3ForANamedMember) {
    StringLeaf* hidden = new StringLeaf("old");
    auto root = makeRoot({new ConditionalContainer(isRead, {new Entry("x", hidden)})});
    Request request(UPDATE, "/x");
    EXPECT_EQ(request.run(*root, textDocument("new")), result::NOT_FOUND);
    EXPECT_EQ(hidden->text(), "old");
}

TEST(ConditionalContainerTest, ConditionIsAskedWithTheRequestsContext) {
    const Context* seen = nullptr;
    StringLeaf leaf("1");
    attachRoot(leaf);
    ConditionalContainer group(
        [&seen](Context& ctx) {
            seen = &ctx;
            return true;
        },
        {new Entry("x", leaf)});
    Request request(READ, "/");
    SerializationInfo out;
    EXPECT_EQ(group.process(request.context(), SerializationInfo(), out, "x"), result::DONE);
    EXPECT_EQ(seen, &request.context());
    EXPECT_EQ(formatJson(out), R"("1")");
}

TEST(ConditionalContainerTest, EmptyConditionThrowsBadFunctionCall) {
    ConditionalContainer group(std::function<bool(Context&)>(),
                               {new Entry("x", new StringLeaf("1"))});
    Request request(READ, "/");
    SerializationInfo out;
    EXPECT_THROW(group.process(request.context(), SerializationInfo(), out, ""),
                 std::bad_function_call);
}

TEST(ConditionalContainerTest, LookupsSeeTheMembersWithoutAskingTheCondition) {
    int asked = 0;
    StringLeaf leaf;
    ConditionalContainer group(
        [&asked](Context&) {
            ++asked;
            return false;
        },
        {new Entry("x", leaf)});
    EXPECT_NE(group.find("x"), nullptr);
    EXPECT_TRUE(group.contains("x"));
    EXPECT_EQ(group.findValue("x"), &leaf);
    ASSERT_NE(group.getValueName(&leaf), nullptr);
    EXPECT_EQ(group.getValueName(&leaf)->str(), "x");
    EXPECT_EQ(asked, 0);
}

// ---- SchemaCustomisationContainer ----

std::unique_ptr<Structure> makeCustomisedRoot(bool bulkApplicable, bool inSchema) {
    return makeRoot(
        {new Entry("a", new StringLeaf("1")),
         new SchemaCustomisationContainer({new Entry("x", new StringLeaf("2")),
                                           new Entry("y", new StringLeaf("3", AllowedMethods::R))},
                                          bulkApplicable, inSchema)});
}

TEST(SchemaCustomisationContainerTest, NotBulkApplicableMarksEveryMembersSchema) {
    auto root = makeCustomisedRoot(false, true);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"type":"object","properties":{"a":{"type":"string"},)"
              R"("x":{"type":"string","bulkApplicable":false},)"
              R"("y":{"type":"string","readonly":true,"bulkApplicable":false}}})");
}

TEST(SchemaCustomisationContainerTest, HiddenFromTheSchemaYieldsNothingForItsMembers) {
    auto root = makeCustomisedRoot(false, false);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"type":"object","properties":{"a":{"type":"string"}}})");
}

TEST(SchemaCustomisationContainerTest, HiddenFromTheSchemaEvenWhenBulkApplicable) {
    auto root = makeCustomisedRoot(true, false);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"type":"object","properties":{"a":{"type":"string"}}})");
}

TEST(SchemaCustomisationContainerTest, BulkApplicableLeavesTheSchemaUnchanged) {
    auto root = makeCustomisedRoot(true, true);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"type":"object","properties":{"a":{"type":"string"},)"
              R"("x":{"type":"string"},"y":{"type":"string","readonly":true}}})");
}

TEST(SchemaCustomisationContainerTest, OtherMethodsServeTheMembersUnchanged) {
    auto root = makeCustomisedRoot(false, false);
    Request request(READ, "/");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"a":"1","x":"2","y":"3"})");
}

TEST(SchemaCustomisationContainerTest, MemberAddressedByNameHasItsOwnSchemaMarked) {
    auto root = makeCustomisedRoot(false, true);
    Request request(SCHEMA, "/x");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"type":"string","bulkApplicable":false})");
}

TEST(SchemaCustomisationContainerTest, MemberAddressedByNameHiddenFromTheSchemaGivesNothing) {
    auto root = makeCustomisedRoot(false, false);
    Request request(SCHEMA, "/x");
    EXPECT_EQ(request.run(*root), result::DONE);
    EXPECT_EQ(formatJson(request.out()), "null");
}

TEST(SchemaCustomisationContainerTest, MembersFailureIsReturnedWithoutOutput) {
    auto root = makeCustomisedRoot(false, true);
    Request request(SCHEMA, "/y/below");
    EXPECT_EQ(request.run(*root), result::NOT_ALLOWED);
    EXPECT_EQ(formatJson(request.out()), "null");
}

TEST(SchemaCustomisationContainerTest, UnknownMemberGives3) {
    SchemaCustomisationContainer group({new Entry("x", new StringLeaf)}, false, true);
    Request request(SCHEMA, "/z");
    SerializationInfo out;
    EXPECT_EQ(group.process(request.context(), SerializationInfo(), out, "z"), result::NOT_FOUND);
    EXPECT_TRUE(out.isNull());
}

}  // namespace
}  // namespace dme
