#include "dme/select.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace dme {
namespace {

using ::testing::ElementsAre;

void collectPaths(const Select::Properties& level, const std::string& prefix,
                  std::vector<std::string>& paths) {
    for (const Select::Property& property : level) {
        const std::string path = prefix + property.name().str();
        paths.push_back(path);
        collectPaths(property.children(), path + "/", paths);
    }
}

// Every selected path of the tree, depth first, in stored order: "a/b" gives "a", "a/b".
std::vector<std::string> selectedPaths(const Select::Properties& root) {
    std::vector<std::string> paths;
    collectPaths(root, "", paths);
    return paths;
}

// ---- Parsing ----

TEST(SelectParsingTest, EmptyTextSelectsEverything) {
    Select select("");
    EXPECT_TRUE(select.selectAll());
    EXPECT_TRUE(select.root().empty());
    EXPECT_EQ(select.depth(), 0u);
}

TEST(SelectParsingTest, SingleCommaSelectsEverything) {
    Select select(",");
    EXPECT_TRUE(select.selectAll());
    EXPECT_TRUE(select.root().empty());
    EXPECT_EQ(select.depth(), 0u);
}

TEST(SelectParsingTest, OnlyCommasSelectEverything) {
    Select select(",,,");
    EXPECT_TRUE(select.selectAll());
    EXPECT_EQ(select.depth(), 0u);
}

TEST(SelectParsingTest, NamedPropertyStartsWalkAtRoot) {
    Select select("a");
    EXPECT_FALSE(select.selectAll());
    EXPECT_EQ(select.depth(), 1u);
    EXPECT_THAT(selectedPaths(select.root()), ElementsAre("a"));
}

TEST(SelectParsingTest, ItemsKeepOrderOfAppearance) {
    Select select("b,a,c");
    EXPECT_THAT(selectedPaths(select.root()), ElementsAre("b", "a", "c"));
}

TEST(SelectParsingTest, EmptyItemsAreSkipped) {
    Select select(",a,,b,");
    EXPECT_THAT(selectedPaths(select.root()), ElementsAre("a", "b"));
}

TEST(SelectParsingTest, BlanksAreNotTrimmed) {
    Select select("a, b ");
    EXPECT_THAT(selectedPaths(select.root()), ElementsAre("a", " b "));
}

TEST(SelectParsingTest, BlankItemNamesBlankProperty) {
    Select select(" ");
    EXPECT_FALSE(select.selectAll());
    EXPECT_THAT(selectedPaths(select.root()), ElementsAre(" "));
}

TEST(SelectParsingTest, SlashesBuildNestedLevels) {
    Select select("a/b/c");
    EXPECT_THAT(selectedPaths(select.root()), ElementsAre("a", "a/b", "a/b/c"));
}

TEST(SelectParsingTest, CommonPrefixIsMergedIntoOneProperty) {
    Select select("a/b,a/c");
    ASSERT_EQ(select.root().size(), 1u);
    EXPECT_THAT(selectedPaths(select.root()), ElementsAre("a", "a/b", "a/c"));
}

TEST(SelectParsingTest, ReversedItemsKeepChildrenInOrderOfAppearance) {
    Select select("a/c,a/b");
    ASSERT_EQ(select.root().size(), 1u);
    EXPECT_THAT(selectedPaths(select.root()), ElementsAre("a", "a/c", "a/b"));
}

TEST(SelectParsingTest, LaterBareNameKeepsEarlierChildren) {
    Select select("a/b,a");
    EXPECT_THAT(selectedPaths(select.root()), ElementsAre("a", "a/b"));
}

TEST(SelectParsingTest, LaterPathAddsChildrenToEarlierBareName) {
    Select select("a,a/b");
    EXPECT_THAT(selectedPaths(select.root()), ElementsAre("a", "a/b"));
}

TEST(SelectParsingTest, RepeatedItemIsStoredOnce) {
    Select select("a,b,a");
    EXPECT_THAT(selectedPaths(select.root()), ElementsAre("a", "b"));
}

TEST(SelectParsingTest, DoubleSlashGivesSegmentWithEmptyName) {
    Select select("a//b");
    ASSERT_EQ(select.root().size(), 1u);
    const Select::Properties& belowA = select.root()[0].children();
    ASSERT_EQ(belowA.size(), 1u);
    EXPECT_EQ(belowA[0].name().str(), "");
    ASSERT_EQ(belowA[0].children().size(), 1u);
    EXPECT_EQ(belowA[0].children()[0].name().str(), "b");
}

TEST(SelectParsingTest, LeadingSlashGivesSegmentWithEmptyName) {
    Select select("/a");
    ASSERT_EQ(select.root().size(), 1u);
    EXPECT_EQ(select.root()[0].name().str(), "");
    EXPECT_THAT(selectedPaths(select.root()[0].children()), ElementsAre("a"));
}

TEST(SelectParsingTest, TrailingSlashAddsNothing) {
    Select select("a/");
    ASSERT_EQ(select.root().size(), 1u);
    EXPECT_EQ(select.root()[0].name().str(), "a");
    EXPECT_TRUE(select.root()[0].children().empty());
}

TEST(SelectParsingTest, LoneSlashSelectsEmptyName) {
    Select select("/");
    EXPECT_FALSE(select.selectAll());
    ASSERT_EQ(select.root().size(), 1u);
    EXPECT_EQ(select.root()[0].name().str(), "");
    EXPECT_TRUE(select.root()[0].children().empty());
}

// ---- Property and Properties ----

TEST(SelectPropertyTest, NameIsTheSliceBetweenBeginAndEnd) {
    Select::Property property("xabcx", 1, 4);
    EXPECT_EQ(property.name().str(), "abc");
    EXPECT_TRUE(property.children().empty());
}

TEST(SelectPropertyTest, EmptySliceGivesEmptyName) {
    Select::Property property("abc", 2, 2);
    EXPECT_EQ(property.name().str(), "");
}

TEST(SelectPropertiesTest, FindReturnsNullForUnknownName) {
    Select::Properties properties;
    properties.emplace("a", 0, 1);
    EXPECT_EQ(properties.find(ConstHashString("b")), nullptr);
}

TEST(SelectPropertiesTest, FindOnEmptySequenceReturnsNull) {
    Select::Properties properties;
    EXPECT_EQ(properties.find(ConstHashString("a")), nullptr);
}

TEST(SelectPropertiesTest, FindReturnsPropertyWithEqualName) {
    Select::Properties properties;
    properties.emplace("a", 0, 1);
    properties.emplace("b", 0, 1);
    const Select::Property* found = properties.find(ConstHashString(std::string("b")));
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found, &properties[1]);
}

TEST(SelectPropertiesTest, FindDoesNotMatchPrefix) {
    Select::Properties properties;
    properties.emplace("ab", 0, 2);
    EXPECT_EQ(properties.find(ConstHashString("a")), nullptr);
}

TEST(SelectPropertiesTest, EmplaceAppendsNewName) {
    Select::Properties properties;
    properties.emplace("a", 0, 1);
    Select::Property& added = properties.emplace("xb", 1, 2);
    ASSERT_EQ(properties.size(), 2u);
    EXPECT_EQ(&added, &properties[1]);
    EXPECT_EQ(added.name().str(), "b");
}

TEST(SelectPropertiesTest, EmplaceOfKnownNameReturnsExistingWithItsChildren) {
    Select::Properties properties;
    Select::Property& first = properties.emplace("a", 0, 1);
    first.children().emplace("b", 0, 1);
    Select::Property& again = properties.emplace("a", 0, 1);
    EXPECT_EQ(&again, &first);
    EXPECT_EQ(properties.size(), 1u);
    EXPECT_THAT(selectedPaths(properties), ElementsAre("a", "a/b"));
}

TEST(SelectPropertiesTest, AddReturnsPropertyOfLastSegment) {
    Select::Properties properties;
    Select::Property& last = properties.add("a/b/c", 0, 5);
    EXPECT_EQ(last.name().str(), "c");
    EXPECT_EQ(&last, &properties[0].children()[0].children()[0]);
}

TEST(SelectPropertiesTest, AddWithTrailingSlashReturnsLastNamedSegment) {
    Select::Properties properties;
    Select::Property& last = properties.add("a/", 0, 2);
    EXPECT_EQ(&last, &properties[0]);
}

TEST(SelectPropertiesTest, AddReadsOnlyTheGivenRange) {
    Select::Properties properties;
    properties.add("x,a/b,y/z", 2, 5);
    EXPECT_THAT(selectedPaths(properties), ElementsAre("a", "a/b"));
}

TEST(SelectPropertiesTest, AddIgnoresSlashBeyondRange) {
    Select::Properties properties;
    properties.add("ab/c", 0, 2);
    EXPECT_THAT(selectedPaths(properties), ElementsAre("ab"));
}

TEST(SelectPropertiesTest, AddMergesWithExistingPath) {
    Select::Properties properties;
    properties.add("a/b", 0, 3);
    Select::Property& last = properties.add("a/c", 0, 3);
    EXPECT_EQ(&last, &properties[0].children()[1]);
    EXPECT_THAT(selectedPaths(properties), ElementsAre("a", "a/b", "a/c"));
}

// ---- Walking ----

TEST(SelectionStepTest, TellsWhetherTheNameIsSelectedAndPopsAtTheEndOfTheScope) {
    Select select("a/b");
    {
        SelectionStep a(select, ConstHashString("a"));
        EXPECT_TRUE(a.selected());
        SelectionStep x(select, ConstHashString("x"));
        EXPECT_FALSE(x.selected());
        EXPECT_EQ(select.depth(), 3u);
    }
    EXPECT_EQ(select.depth(), 1u);
}

TEST(SelectionStepTest, PopsWhenAnExceptionPasses) {
    Select select("a/b");
    EXPECT_THROW(
        {
            SelectionStep a(select, ConstHashString("a"));
            throw std::runtime_error("boom");
        },
        std::runtime_error);
    EXPECT_EQ(select.depth(), 1u);
}

TEST(SelectWalkTest, SelectAllPushesAnyNameAsSelected) {
    Select select("");
    EXPECT_TRUE(select.push("x"));
    EXPECT_TRUE(select.push("y"));
    EXPECT_EQ(select.depth(), 0u);
    select.pop();
    select.pop();
    EXPECT_EQ(select.depth(), 0u);
}

TEST(SelectWalkTest, SelectAllPopWithoutPushChangesNothing) {
    Select select(",");
    select.pop();
    select.pop();
    EXPECT_TRUE(select.push("a"));
    EXPECT_EQ(select.depth(), 0u);
}

TEST(SelectWalkTest, SelectAllFindAndPushReturnsNullAndPushesNothing) {
    Select select("");
    EXPECT_EQ(select.findAndPush("a"), nullptr);
    EXPECT_EQ(select.depth(), 0u);
}

TEST(SelectWalkTest, SiblingSelectedAndOtherNameNot) {
    Select select("a,b");
    EXPECT_TRUE(select.push("a"));
    select.pop();
    EXPECT_FALSE(select.push("c"));
    select.pop();
    EXPECT_EQ(select.depth(), 1u);
}

TEST(SelectWalkTest, SecondItemIsSelected) {
    Select select("a,b");
    EXPECT_TRUE(select.push("b"));
    select.pop();
}

TEST(SelectWalkTest, PathSelectsChildBelowParent) {
    Select select("a/b");
    EXPECT_TRUE(select.push("a"));
    EXPECT_TRUE(select.push("b"));
    EXPECT_EQ(select.depth(), 3u);
}

TEST(SelectWalkTest, PathDoesNotSelectOtherChildBelowParent) {
    Select select("a/b");
    EXPECT_TRUE(select.push("a"));
    EXPECT_FALSE(select.push("x"));
}

TEST(SelectWalkTest, NameWithoutChildrenSelectsNothingBelow) {
    Select select("a");
    EXPECT_TRUE(select.push("a"));
    EXPECT_FALSE(select.push("b"));
}

TEST(SelectWalkTest, ChildNameIsNotSelectedAtTopLevel) {
    Select select("a/b");
    EXPECT_FALSE(select.push("b"));
}

TEST(SelectWalkTest, NothingIsSelectedBelowUnselectedChild) {
    Select select("a/b");
    EXPECT_FALSE(select.push("x"));
    EXPECT_FALSE(select.push("b"));
    EXPECT_FALSE(select.push("a"));
    EXPECT_EQ(select.depth(), 4u);
}

TEST(SelectWalkTest, MergedChildrenAreBothSelected) {
    Select select("a/b,a/c");
    ASSERT_TRUE(select.push("a"));
    EXPECT_TRUE(select.push("b"));
    select.pop();
    EXPECT_TRUE(select.push("c"));
    select.pop();
    EXPECT_FALSE(select.push("d"));
}

TEST(SelectWalkTest, ReversedItemsSelectSamePaths) {
    Select select("a/c,a/b");
    ASSERT_TRUE(select.push("a"));
    EXPECT_TRUE(select.push("b"));
    select.pop();
    EXPECT_TRUE(select.push("c"));
    select.pop();
    EXPECT_FALSE(select.push("d"));
}

TEST(SelectWalkTest, PopReturnsToParentLevel) {
    Select select("a/b,c");
    ASSERT_TRUE(select.push("a"));
    EXPECT_FALSE(select.push("c"));
    select.pop();
    select.pop();
    EXPECT_TRUE(select.push("c"));
    EXPECT_EQ(select.depth(), 2u);
}

TEST(SelectWalkTest, PopAfterUnselectedPushRestoresLevel) {
    Select select("a");
    EXPECT_FALSE(select.push("x"));
    select.pop();
    EXPECT_TRUE(select.push("a"));
}

TEST(SelectWalkTest, PushAfterTooManyPopsIsFalse) {
    Select select("a");
    select.pop();
    EXPECT_EQ(select.depth(), 0u);
    EXPECT_FALSE(select.push("a"));
    EXPECT_EQ(select.depth(), 0u);
}

TEST(SelectWalkTest, PopOnEmptiedStackDoesNothing) {
    Select select("a");
    select.pop();
    select.pop();
    EXPECT_EQ(select.depth(), 0u);
    EXPECT_FALSE(select.push("a"));
}

TEST(SelectWalkTest, FindAndPushReturnsChildrenOfFoundProperty) {
    Select select("a/b");
    const Select::Properties* level = select.findAndPush("a");
    EXPECT_EQ(level, &select.root()[0].children());
    EXPECT_EQ(select.depth(), 2u);
}

TEST(SelectWalkTest, FindAndPushOfUnknownNamePushesNull) {
    Select select("a");
    EXPECT_EQ(select.findAndPush("x"), nullptr);
    EXPECT_EQ(select.depth(), 2u);
}

TEST(SelectWalkTest, FindAndPushBelowNullLevelPushesNull) {
    Select select("a/b");
    ASSERT_EQ(select.findAndPush("x"), nullptr);
    EXPECT_EQ(select.findAndPush("b"), nullptr);
    EXPECT_EQ(select.depth(), 3u);
}

TEST(SelectWalkTest, FindAndPushOnEmptiedStackPushesNothing) {
    Select select("a");
    select.pop();
    EXPECT_EQ(select.findAndPush("a"), nullptr);
    EXPECT_EQ(select.depth(), 0u);
}

TEST(SelectWalkTest, EmptyNameIsSelectable) {
    Select select("a//b");
    ASSERT_TRUE(select.push("a"));
    ASSERT_TRUE(select.push(""));
    EXPECT_TRUE(select.push("b"));
}

// ---- Copying and moving ----

TEST(SelectCopyTest, CopyWalksItsOwnTree) {
    Select original("a/b");
    Select copy(original);
    EXPECT_EQ(copy.findAndPush("a"), &copy.root()[0].children());
    EXPECT_NE(&copy.root()[0], &original.root()[0]);
}

TEST(SelectCopyTest, CopyOutlivesOriginal) {
    auto original = std::make_unique<Select>("a/b,c");
    Select copy(*original);
    original.reset();
    EXPECT_THAT(selectedPaths(copy.root()), ElementsAre("a", "a/b", "c"));
    EXPECT_TRUE(copy.push("a"));
    EXPECT_TRUE(copy.push("b"));
}

TEST(SelectCopyTest, CopyOfSelectAllSelectsEverything) {
    Select original("");
    Select copy(original);
    EXPECT_TRUE(copy.selectAll());
    EXPECT_EQ(copy.depth(), 0u);
    EXPECT_TRUE(copy.push("x"));
}

TEST(SelectCopyTest, CopyStartsWalkAtRootWhateverTheOriginalsPosition) {
    Select original("a/b");
    ASSERT_TRUE(original.push("a"));
    Select copy(original);
    EXPECT_EQ(copy.depth(), 1u);
    EXPECT_TRUE(copy.push("a"));
}

TEST(SelectCopyTest, CopyAssignmentWalksItsOwnTree) {
    Select original("a/b");
    Select target("x");
    target = original;
    EXPECT_THAT(selectedPaths(target.root()), ElementsAre("a", "a/b"));
    EXPECT_EQ(target.depth(), 1u);
    EXPECT_EQ(target.findAndPush("a"), &target.root()[0].children());
}

TEST(SelectCopyTest, CopyAssignmentOfSelectAllEmptiesStack) {
    const Select all(",");
    Select target("x");
    target = all;
    EXPECT_TRUE(target.selectAll());
    EXPECT_EQ(target.depth(), 0u);
    EXPECT_TRUE(target.push("y"));
}

TEST(SelectCopyTest, MovedToSelectWalksItsOwnRoot) {
    Select source("a/b");
    Select moved(std::move(source));
    EXPECT_EQ(moved.depth(), 1u);
    EXPECT_EQ(moved.findAndPush("a"), &moved.root()[0].children());
}

TEST(SelectCopyTest, MoveAssignedSelectWalksItsOwnRoot) {
    Select target("");
    target = Select("a/b");
    EXPECT_FALSE(target.selectAll());
    EXPECT_EQ(target.depth(), 1u);
    EXPECT_EQ(target.findAndPush("a"), &target.root()[0].children());
}

TEST(SelectCopyTest, PropertyCopyIsDeep) {
    Select::Properties properties;
    properties.add("a/b", 0, 3);
    Select::Property copy = properties[0];
    copy.children().emplace("c", 0, 1);
    EXPECT_THAT(selectedPaths(properties), ElementsAre("a", "a/b"));
    EXPECT_THAT(selectedPaths(copy.children()), ElementsAre("b", "c"));
}

}  // namespace
}  // namespace dme
