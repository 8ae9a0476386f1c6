#include "dme/path.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace dme {
namespace {

std::size_t stringHash(const std::string& text) {
    return std::hash<std::string>{}(text);
}

// The hash-combine of the segment hashes, written out independently of the library.
std::size_t pathHash(const std::vector<std::string>& segments) {
    std::size_t h = 0;
    for (const std::string& segment : segments) {
        h ^= stringHash(segment) + 0x9e3779b9 + (h << 6) + (h >> 2);
    }
    return h;
}

std::string text(const Path& path) {
    return path;
}

std::vector<std::string> texts(const std::vector<ConstHashString>& names) {
    std::vector<std::string> result;
    for (const ConstHashString& name : names) result.push_back(name.str());
    return result;
}

template <class Exception, class Action>
std::string messageOf(Action action) {
    try {
        action();
    } catch (const Exception& e) {
        return e.what();
    }
    return "no exception";
}

// Construction and parsing.

TEST(PathTest, DefaultIsTheAbsoluteRoot) {
    const Path root;
    EXPECT_TRUE(root.isAbsolute());
    EXPECT_TRUE(root.empty());
    EXPECT_EQ(root.size(), 0u);
    EXPECT_EQ(root.hash(), 0u);
    EXPECT_EQ(text(root), "/");
}

TEST(PathTest, EmptyTextIsTheEmptyRelativePath) {
    const Path path("");
    EXPECT_FALSE(path.isAbsolute());
    EXPECT_TRUE(path.empty());
    EXPECT_EQ(path.hash(), 0u);
    EXPECT_EQ(text(path), "");
}

TEST(PathTest, RootAndEmptyRelativePathAreEqual) {
    EXPECT_TRUE(Path() == Path(""));
}

TEST(PathTest, SlashAloneIsTheRoot) {
    const Path path("/");
    EXPECT_TRUE(path.isAbsolute());
    EXPECT_TRUE(path.empty());
    EXPECT_TRUE(path == Path());
}

TEST(PathTest, ZeroLengthIsEmptyAndRelative) {
    const Path path("a", 0, 0);
    EXPECT_TRUE(path.empty());
    EXPECT_FALSE(path.isAbsolute());
    EXPECT_FALSE(Path("/a", 0, 0).isAbsolute());
}

TEST(PathTest, ZeroLengthDoesNotReadTheText) {
    const char* none = nullptr;
    const Path path(none, 5, 0);
    EXPECT_TRUE(path.empty());
    EXPECT_EQ(path.hash(), 0u);
}

TEST(PathTest, ParsesAbsoluteUri) {
    const Path path("/system/network/0/address");
    EXPECT_TRUE(path.isAbsolute());
    ASSERT_EQ(path.size(), 4u);
    EXPECT_EQ(path[0].str(), "system");
    EXPECT_EQ(path[1].str(), "network");
    EXPECT_EQ(path[2].str(), "0");
    EXPECT_EQ(path[3].str(), "address");
}

TEST(PathTest, ParsesRelativeUri) {
    const Path path("a/b");
    EXPECT_FALSE(path.isAbsolute());
    ASSERT_EQ(path.size(), 2u);
    EXPECT_EQ(path[0].str(), "a");
    EXPECT_EQ(path[1].str(), "b");
}

TEST(PathTest, TrailingSlashAddsNoSegment) {
    const Path path("/a/b/");
    EXPECT_EQ(path.size(), 2u);
    EXPECT_EQ(text(path), "/a/b");
    EXPECT_EQ(text(Path("a/b/")), "a/b");
}

TEST(PathTest, DoubledSlashThrowsInvalidArgumentNamingTheText) {
    EXPECT_THROW(Path("/a//b"), std::invalid_argument);
    EXPECT_EQ(messageOf<std::invalid_argument>([] { Path("/a//b"); }),
              "ERROR - Invalid empty segment ('//') in path: /a//b");
}

TEST(PathTest, LeadingDoubledSlashThrows) {
    EXPECT_EQ(messageOf<std::invalid_argument>([] { Path("//a"); }),
              "ERROR - Invalid empty segment ('//') in path: //a");
}

TEST(PathTest, DoubledSlashMessageNamesOnlyTheParsedStretch) {
    EXPECT_EQ(messageOf<std::invalid_argument>([] { Path("x//y/z", 1, 3); }),
              "ERROR - Invalid empty segment ('//') in path: //y");
}

TEST(PathTest, DoubledSlashOutsideTheStretchIsIgnored) {
    const Path path(std::string("/a/b//"), 0, 4);
    EXPECT_EQ(text(path), "/a/b");
}

TEST(PathTest, StretchParsesOnlyItsCharacters) {
    const Path path(std::string("/a/b?x=1"), 0, 4);
    EXPECT_TRUE(path.isAbsolute());
    EXPECT_EQ(text(path), "/a/b");
}

TEST(PathTest, StretchIsAbsoluteWhenItStartsWithSlash) {
    const Path path("xx/a/b", 2, 4);
    EXPECT_TRUE(path.isAbsolute());
    EXPECT_EQ(text(path), "/a/b");
}

TEST(PathTest, StretchIsRelativeWhenItStartsWithAName) {
    const Path path("/ab/c", 2, 4);
    EXPECT_FALSE(path.isAbsolute());
    EXPECT_EQ(text(path), "b/c");
}

TEST(PathTest, StretchAtTheEndIsEmpty) {
    const Path path("ab", 2, 1);
    EXPECT_TRUE(path.empty());
    EXPECT_FALSE(path.isAbsolute());
}

TEST(PathTest, StretchBeyondTheEndThrowsOutOfRange) {
    EXPECT_THROW(Path("ab", 3, 1), std::out_of_range);
    EXPECT_THROW(Path(std::string("ab"), 3, 1), std::out_of_range);
}

TEST(PathTest, DoubleSlashOutsideTheStretchIsNotLookedAt) {
    const Path path("/a//b", 0, 2);
    EXPECT_EQ(text(path), "/a");
    EXPECT_THROW(Path("/a//b", 0, 4), std::invalid_argument);
}

TEST(PathTest, DoubleSlashMessageQuotesTheStretchOnly) {
    try {
        Path("x/a//b/y", 1, 5);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "ERROR - Invalid empty segment ('//') in path: /a//b");
    }
}

TEST(PathTest, StretchPastTheEndStopsAtTheEnd) {
    const Path path("/a/bc", 3, 100);
    EXPECT_FALSE(path.isAbsolute());
    EXPECT_EQ(text(path), "bc");
    EXPECT_EQ(path.hash(), pathHash({"bc"}));
}

TEST(PathTest, StringIsParsedUpToItsFirstNul) {
    const Path path(std::string("/a\0/b", 5));
    EXPECT_EQ(path.size(), 1u);
    EXPECT_EQ(text(path), "/a");
}

TEST(PathTest, StringStretchIsParsedUpToTheFirstNul) {
    const Path path(std::string("/a\0/b", 5), 0, 5);
    EXPECT_EQ(text(path), "/a");
}

TEST(PathTest, DotSegmentsAreKeptWhenParsing) {
    const Path path("/a/./b");
    ASSERT_EQ(path.size(), 3u);
    EXPECT_EQ(path[1].str(), ".");
    EXPECT_EQ(text(path), "/a/./b");
    EXPECT_EQ(text(Path("a/../b")), "a/../b");
}

// Class constants.

TEST(PathTest, CurrentIsTheRelativeDotPath) {
    EXPECT_FALSE(Path::CURRENT.isAbsolute());
    ASSERT_EQ(Path::CURRENT.size(), 1u);
    EXPECT_EQ(Path::CURRENT[0].str(), ".");
}

TEST(PathTest, ParentIsTheRelativeDotDotPath) {
    EXPECT_FALSE(Path::PARENT.isAbsolute());
    ASSERT_EQ(Path::PARENT.size(), 1u);
    EXPECT_EQ(Path::PARENT[0].str(), "..");
}

TEST(PathTest, NameConstants) {
    EXPECT_EQ(Path::emptyName().str(), "");
    EXPECT_EQ(Path::currentName().str(), ".");
    EXPECT_EQ(Path::parentName().str(), "..");
    EXPECT_EQ(Path::parentName().hash(), stringHash(".."));
}

// Segment access.

TEST(PathTest, FrontAndBackAreTheOuterSegments) {
    const Path path("/a/b/c");
    EXPECT_EQ(path.front().str(), "a");
    EXPECT_EQ(path.back().str(), "c");
}

TEST(PathTest, FrontAndBackOfEmptyPathAreTheEmptyName) {
    const Path root;
    EXPECT_EQ(&root.front(), &Path::emptyName());
    EXPECT_EQ(&root.back(), &Path::emptyName());
    EXPECT_EQ(root.back().str(), "");
}

TEST(PathTest, IndexOutOfRangeGivesTheEmptyName) {
    const Path path("/a");
    EXPECT_EQ(path[0].str(), "a");
    EXPECT_EQ(&path[1], &Path::emptyName());
    EXPECT_EQ(&Path()[0], &Path::emptyName());
}

TEST(PathTest, AtReturnsTheSegment) {
    EXPECT_EQ(Path("/a/b").at(1).str(), "b");
}

TEST(PathTest, AtOutOfRangeThrowsOutOfRange) {
    EXPECT_THROW(Path("/a/b").at(2), std::out_of_range);
    EXPECT_THROW(Path().at(0), std::out_of_range);
}

// Hash.

TEST(PathTest, HashCombinesSegmentHashesInOrder) {
    EXPECT_EQ(Path("/a/b").hash(), pathHash({"a", "b"}));
    EXPECT_EQ(Path("system/network/0").hash(), pathHash({"system", "network", "0"}));
    EXPECT_NE(Path("a/b").hash(), Path("b/a").hash());
}

TEST(PathTest, AbsoluteMarkDoesNotEnterTheHash) {
    EXPECT_EQ(Path("/a/b").hash(), Path("a/b").hash());
}

TEST(PathTest, PushBackAppendsAndUpdatesHash) {
    Path path;
    path.push_back("a");
    path.push_back(ConstHashString(7u));
    EXPECT_EQ(text(path), "/a/7");
    EXPECT_EQ(path.hash(), pathHash({"a", "7"}));
}

TEST(PathTest, PushBackNohashAlsoKeepsHashCurrent) {
    Path path("x");
    path.push_back_nohash("y");
    EXPECT_EQ(text(path), "x/y");
    EXPECT_EQ(path.hash(), pathHash({"x", "y"}));
}

TEST(PathTest, PopBackRemovesLastSegmentAndUpdatesHash) {
    Path path("/a/b/c");
    path.pop_back();
    EXPECT_EQ(text(path), "/a/b");
    EXPECT_EQ(path.hash(), pathHash({"a", "b"}));
}

TEST(PathTest, PopBackNohashAlsoKeepsHashCurrent) {
    Path path("/a/b/c");
    path.pop_back_nohash();
    EXPECT_EQ(path.hash(), pathHash({"a", "b"}));
    path.pop_back_nohash();
    path.pop_back_nohash();
    EXPECT_EQ(path.hash(), 0u);
}

TEST(PathTest, PopBackOnEmptyPathThrowsAndChangesNothing) {
    Path root;
    EXPECT_EQ(messageOf<std::out_of_range>([&] { root.pop_back(); }),
              "Trying to remove segment on root path");
    EXPECT_TRUE(root.isAbsolute());
    EXPECT_TRUE(root.empty());
    EXPECT_EQ(root.hash(), 0u);
}

TEST(PathTest, PopBackNohashOnEmptyPathThrows) {
    Path path("");
    EXPECT_EQ(messageOf<std::out_of_range>([&] { path.pop_back_nohash(); }),
              "Trying to remove segment on root path");
}

TEST(PathTest, ClearKeepsHashAndAbsoluteMark) {
    Path path("/a/b");
    const std::size_t before = path.hash();
    ASSERT_NE(before, 0u);
    path.clear();
    EXPECT_EQ(path.size(), 0u);
    EXPECT_TRUE(path.empty());
    EXPECT_EQ(path.hash(), before);
    EXPECT_TRUE(path.isAbsolute());
}

TEST(PathTest, ReserveKeepsSegmentsHashAndAbsoluteMark) {
    Path path("/a/b");
    path.reserve(10);
    EXPECT_EQ(text(path), "/a/b");
    EXPECT_EQ(path.hash(), pathHash({"a", "b"}));
    path.push_back("c");
    EXPECT_EQ(text(path), "/a/b/c");
    EXPECT_EQ(path.hash(), pathHash({"a", "b", "c"}));
}

TEST(PathTest, ReserveBelowTheSizeKeepsEverySegment) {
    Path path("a/b/c");
    path.reserve(1);
    EXPECT_EQ(text(path), "a/b/c");
    EXPECT_FALSE(path.isAbsolute());
}

TEST(PathTest, PushBackOfItsOwnSegmentsAppendsCopies) {
    Path path("/a/bc");
    for (int i = 0; i < 6; ++i) path.push_back(path.back());
    path.push_back(path.front());
    EXPECT_EQ(text(path), "/a/bc/bc/bc/bc/bc/bc/bc/a");
    EXPECT_EQ(path.hash(), pathHash({"a", "bc", "bc", "bc", "bc", "bc", "bc", "bc", "a"}));
}

TEST(PathTest, UpdateHashAfterClearResetsHashToZero) {
    Path path("/a/b");
    path.clear();
    path.updateHash();
    EXPECT_EQ(path.hash(), 0u);
}

TEST(PathTest, ClearedPathDiffersFromRootUntilHashUpdated) {
    Path path("/a");
    path.clear();
    EXPECT_FALSE(path == Path());
    path.updateHash();
    EXPECT_TRUE(path == Path());
}

TEST(PathTest, PushAfterClearHashesOnlyTheNewSegments) {
    Path path("/a/b");
    path.clear();
    path.push_back("c");
    EXPECT_EQ(path.hash(), pathHash({"c"}));
    EXPECT_TRUE(path == Path("/c"));
}

// Equality.

TEST(PathTest, AbsoluteMarkIsNotCompared) {
    EXPECT_TRUE(Path("/a") == Path("a"));
}

TEST(PathTest, SameSegmentsAreEqual) {
    EXPECT_TRUE(Path("/a/b") == Path("/a/b/"));
    Path built;
    built.push_back("a");
    built.push_back("b");
    EXPECT_TRUE(built == Path("/a/b"));
}

TEST(PathTest, DifferentSegmentsAreUnequal) {
    EXPECT_FALSE(Path("/a/b") == Path("/a/c"));
    EXPECT_FALSE(Path("/a/b") == Path("/b/a"));
}

TEST(PathTest, PrefixIsUnequal) {
    EXPECT_FALSE(Path("/a") == Path("/a/b"));
    EXPECT_FALSE(Path() == Path("/a"));
}

// Joining.

TEST(PathTest, JoiningResolvesDotSegments) {
    Path path("/a");
    path += Path("./b/../c");
    EXPECT_EQ(text(path), "/a/c");
    EXPECT_TRUE(path.isAbsolute());
    EXPECT_EQ(path.hash(), pathHash({"a", "c"}));
}

TEST(PathTest, JoiningResolvesDotSegmentsOfTheLeftPart) {
    Path path("/a/./b/..");
    path += Path("c");
    EXPECT_EQ(text(path), "/a/c");
}

TEST(PathTest, JoiningAnEmptyRelativePathStillResolves) {
    Path path("/a/./b");
    path += Path("");
    EXPECT_EQ(text(path), "/a/b");
    EXPECT_EQ(path.hash(), pathHash({"a", "b"}));
}

TEST(PathTest, JoiningAbsolutePathReplaces) {
    Path path("/a");
    path += Path("/x");
    EXPECT_EQ(text(path), "/x");
    EXPECT_EQ(path.hash(), pathHash({"x"}));
}

TEST(PathTest, JoiningAbsolutePathMakesRelativePathAbsolute) {
    Path path("a/b");
    path += Path("/x/./y");
    EXPECT_TRUE(path.isAbsolute());
    EXPECT_EQ(text(path), "/x/./y");
}

TEST(PathTest, JoiningKeepsRelativeMark) {
    Path path("a");
    path += Path("b");
    EXPECT_FALSE(path.isAbsolute());
    EXPECT_EQ(text(path), "a/b");
}

TEST(PathTest, JoiningParentClimbsToTheRoot) {
    Path path("/a/b");
    path += Path::PARENT;
    EXPECT_EQ(text(path), "/a");
    path += Path::PARENT;
    EXPECT_EQ(text(path), "/");
    EXPECT_TRUE(path == Path());
}

TEST(PathTest, JoiningCurrentChangesNothing) {
    Path path("/a");
    path += Path::CURRENT;
    EXPECT_EQ(text(path), "/a");
}

TEST(PathTest, JoiningAboveTheRootThrows) {
    Path path("a");
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { path += Path("../.."); }),
              "trying to move above root path");
}

TEST(PathTest, FailedJoinKeepsTheAppendedSegments) {
    Path path("a");
    EXPECT_THROW(path += Path("../.."), std::invalid_argument);
    EXPECT_EQ(text(path), "a/../..");
}

TEST(PathTest, JoiningReturnsThePath) {
    Path path("/a");
    EXPECT_EQ(&(path += Path("b")), &path);
}

TEST(PathTest, JoiningAPathToItselfRepeatsIt) {
    Path path("a/b");
    path += path;
    EXPECT_EQ(text(path), "a/b/a/b");
    EXPECT_EQ(path.hash(), pathHash({"a", "b", "a", "b"}));
}

TEST(PathTest, PlusJoinsWithoutChangingItsOperands) {
    const Path left("/a");
    const Path right("b/./c");
    EXPECT_EQ(text(left + right), "/a/b/c");
    EXPECT_EQ(text(left), "/a");
    EXPECT_EQ(text(right), "b/./c");
}

// Relative paths between paths.

TEST(PathTest, BuildRelativeClimbsFromTheDivergingSegment) {
    const Path relative = Path("/a/b/c").buildRelative(Path("/a/x/y"), "");
    EXPECT_EQ(text(relative), "../../b/c");
    EXPECT_FALSE(relative.isAbsolute());
    EXPECT_EQ(relative.hash(), pathHash({"..", "..", "b", "c"}));
}

TEST(PathTest, BuildRelativeBelowFrom) {
    EXPECT_EQ(text(Path("/a/b").buildRelative(Path("/a"), "")), "b");
    EXPECT_EQ(text(Path("/a/b").buildRelative(Path(), "")), "a/b");
}

TEST(PathTest, BuildRelativeAboveFrom) {
    EXPECT_EQ(text(Path("/a").buildRelative(Path("/a/b/c"), "")), "../..");
    EXPECT_EQ(text(Path().buildRelative(Path("/a/b"), "")), "../..");
}

TEST(PathTest, BuildRelativeToItselfIsEmpty) {
    const Path relative = Path("/a/b").buildRelative(Path("/a/b"), "");
    EXPECT_TRUE(relative.empty());
    EXPECT_EQ(relative.hash(), 0u);
    EXPECT_EQ(text(relative), "");
}

TEST(PathTest, BuildRelativeStartsFromThePrefix) {
    EXPECT_EQ(text(Path("/a/b").buildRelative(Path("/x"), "base")), "base/../a/b");
    const Path rooted = Path("/a").buildRelative(Path("/x"), "/");
    EXPECT_TRUE(rooted.isAbsolute());
    EXPECT_EQ(text(rooted), "/../a");
}

// String form.

TEST(PathTest, ConvertsToString) {
    const std::string converted = Path("/system/network");
    EXPECT_EQ(converted, "/system/network");
}

TEST(PathTest, StreamsItsStringForm) {
    std::ostringstream os;
    os << Path("/a/b/") << '|' << Path() << '|' << Path("") << '|' << Path("x/y");
    EXPECT_EQ(os.str(), "/a/b|/||x/y");
}

// Splitting and resolving.

TEST(SplitTest, CutsAtSlashes) {
    EXPECT_EQ(texts(split("a/b")), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(texts(split("abc")), (std::vector<std::string>{"abc"}));
}

TEST(SplitTest, DropsEmptySegments) {
    EXPECT_EQ(texts(split("/a/b/")), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(texts(split("//a///b//")), (std::vector<std::string>{"a", "b"}));
}

TEST(SplitTest, EmptyOrSlashOnlyGivesNoSegments) {
    EXPECT_TRUE(split("").empty());
    EXPECT_TRUE(split("/").empty());
    EXPECT_TRUE(split("///").empty());
}

TEST(SplitTest, SegmentsCarryTheirHash) {
    const std::vector<ConstHashString> segments = split("/net/0");
    ASSERT_EQ(segments.size(), 2u);
    EXPECT_EQ(segments[0].hash(), stringHash("net"));
    EXPECT_TRUE(segments[1] == ConstHashString(0u));
}

TEST(ConsolidateTest, DropsDotSegments) {
    EXPECT_EQ(texts(consolidate(split("./a/./b/."))), (std::vector<std::string>{"a", "b"}));
}

TEST(ConsolidateTest, DotDotRemovesThePreviousSegment) {
    EXPECT_EQ(texts(consolidate(split("a/../b/c/.."))), (std::vector<std::string>{"b"}));
    EXPECT_TRUE(consolidate(split("a/b/../..")).empty());
}

TEST(ConsolidateTest, KeepsOtherSegments) {
    EXPECT_EQ(texts(consolidate(split("a/...b/..c"))),
              (std::vector<std::string>{"a", "...b", "..c"}));
}

TEST(ConsolidateTest, EmptyInputGivesEmptyOutput) {
    EXPECT_TRUE(consolidate({}).empty());
}

TEST(ConsolidateTest, DotDotAtTheStartThrows) {
    EXPECT_EQ(messageOf<std::invalid_argument>([] { consolidate(split("../a")); }),
              "trying to move above root path");
}

TEST(ConsolidateTest, DotDotAfterOnlyDotsThrows) {
    EXPECT_THROW(consolidate(split("./..")), std::invalid_argument);
}

TEST(ConsolidateTest, TooManyDotDotsThrow) {
    EXPECT_THROW(consolidate(split("a/b/../../..")), std::invalid_argument);
}

// Path browsing.

TEST(PathBrowserTest, DefaultRequestsAndStandsOnTheRoot) {
    const PathBrowser browser;
    EXPECT_TRUE(browser.request().isAbsolute());
    EXPECT_TRUE(browser.request().empty());
    EXPECT_TRUE(browser.current().isAbsolute());
    EXPECT_TRUE(browser.current().empty());
    EXPECT_TRUE(browser.currentRelative().isAbsolute());
    EXPECT_TRUE(browser.currentRelative().empty());
    EXPECT_TRUE(browser.requestIsRoot());
    EXPECT_TRUE(browser.isRequested());
    EXPECT_FALSE(browser.isBeyondRequested());
    EXPECT_EQ(&browser.requested(), &Path::emptyName());
    EXPECT_EQ(&browser.back(), &Path::emptyName());
}

TEST(PathBrowserTest, ConstructionStandsOnTheRootOneParentPerRequestedSegment) {
    const PathBrowser browser(std::string("/a/b"));
    EXPECT_EQ(text(browser.request()), "/a/b");
    EXPECT_EQ(text(browser.current()), "/");
    EXPECT_EQ(text(browser.currentRelative()), "../..");
    EXPECT_EQ(browser.currentRelative().hash(), pathHash({"..", ".."}));
    EXPECT_EQ(browser.requested().str(), "a");
    EXPECT_FALSE(browser.requestIsRoot());
    EXPECT_FALSE(browser.isRequested());
    EXPECT_FALSE(browser.isBeyondRequested());
}

TEST(PathBrowserTest, TakesAParsedPath) {
    const PathBrowser browser(Path("x/y/z"));
    EXPECT_EQ(text(browser.request()), "x/y/z");
    EXPECT_EQ(text(browser.currentRelative()), "../../..");
}

TEST(PathBrowserTest, RootRequestIsRequestedAtOnce) {
    const PathBrowser browser(std::string("/"));
    EXPECT_TRUE(browser.requestIsRoot());
    EXPECT_TRUE(browser.isRequested());
    EXPECT_TRUE(browser.currentRelative().empty());
    EXPECT_FALSE(browser.currentRelative().isAbsolute());
}

TEST(PathBrowserTest, PushDescendsAlongTheRequest) {
    PathBrowser browser(std::string("/a/b"));
    browser.push();
    EXPECT_EQ(text(browser.current()), "/a");
    EXPECT_EQ(text(browser.currentRelative()), "..");
    EXPECT_EQ(browser.back().str(), "a");
    EXPECT_EQ(browser.requested().str(), "b");
    EXPECT_FALSE(browser.isRequested());
}

TEST(PathBrowserTest, PushingEveryRequestedSegmentReachesTheRequest) {
    PathBrowser browser(std::string("/a/b"));
    browser.push();
    browser.push();
    EXPECT_EQ(text(browser.current()), "/a/b");
    EXPECT_TRUE(browser.current() == browser.request());
    EXPECT_TRUE(browser.currentRelative().empty());
    EXPECT_EQ(browser.currentRelative().hash(), 0u);
    EXPECT_TRUE(browser.isRequested());
    EXPECT_FALSE(browser.isBeyondRequested());
    EXPECT_EQ(&browser.requested(), &Path::emptyName());
}

TEST(PathBrowserTest, PushBackBelowTheRequestGoesBeyondIt) {
    PathBrowser browser(std::string("/a/b"));
    browser.push();
    browser.push();
    browser.push_back("c");
    EXPECT_EQ(text(browser.current()), "/a/b/c");
    EXPECT_EQ(text(browser.currentRelative()), "c");
    EXPECT_TRUE(browser.isBeyondRequested());
    EXPECT_FALSE(browser.isRequested());
    EXPECT_EQ(browser.back().str(), "c");
    EXPECT_EQ(&browser.requested(), &Path::emptyName());
}

TEST(PathBrowserTest, PushBackWithinTheRequestStepsLikePush) {
    PathBrowser browser(std::string("/a/b"));
    browser.push_back("a");
    EXPECT_EQ(text(browser.current()), "/a");
    EXPECT_EQ(text(browser.currentRelative()), "..");
    EXPECT_EQ(browser.requested().str(), "b");
}

TEST(PathBrowserTest, PopBackThreeTimesReturnsToTheStart) {
    PathBrowser browser(std::string("/a/b"));
    browser.push();
    browser.push();
    browser.push_back("c");
    browser.pop_back();
    EXPECT_EQ(text(browser.current()), "/a/b");
    EXPECT_TRUE(browser.currentRelative().empty());
    EXPECT_TRUE(browser.isRequested());
    browser.pop_back();
    EXPECT_EQ(text(browser.current()), "/a");
    EXPECT_EQ(text(browser.currentRelative()), "..");
    browser.pop_back();
    EXPECT_EQ(text(browser.current()), "/");
    EXPECT_EQ(text(browser.currentRelative()), "../..");
    EXPECT_EQ(browser.requested().str(), "a");
}

TEST(PathBrowserTest, PushAndPopBackFanOutOverSiblings) {
    PathBrowser browser(std::string("/a/b"));
    browser.push();
    browser.push();
    for (const char* child : {"x", "y"}) {
        browser.push_back(child);
        EXPECT_EQ(text(browser.currentRelative()), child);
        browser.pop_back();
    }
    EXPECT_TRUE(browser.isRequested());
    EXPECT_TRUE(browser.currentRelative().empty());
}

TEST(PathBrowserTest, PushAtTheRequestedNodeThrowsAndChangesNothing) {
    PathBrowser browser(std::string("/a"));
    browser.push();
    EXPECT_EQ(messageOf<std::out_of_range>([&] { browser.push(); }),
              "Trying to remove segment on root path");
    EXPECT_EQ(text(browser.current()), "/a");
    EXPECT_TRUE(browser.currentRelative().empty());
    EXPECT_TRUE(browser.isRequested());
}

TEST(PathBrowserTest, PopBackAtTheRootThrowsAndChangesNothing) {
    PathBrowser browser(std::string("/a"));
    EXPECT_EQ(messageOf<std::out_of_range>([&] { browser.pop_back(); }),
              "Trying to remove segment on root path");
    EXPECT_EQ(text(browser.current()), "/");
    EXPECT_EQ(text(browser.currentRelative()), "..");
    EXPECT_EQ(browser.requested().str(), "a");
}

TEST(PercentEncodePathTest, KeepsWhatAPathSegmentMayHoldAndTheSlashes) {
    EXPECT_EQ(percentEncodePath("/a-b.c_d~e/!$&'()*+,;=:@/Z9"), "/a-b.c_d~e/!$&'()*+,;=:@/Z9");
}

TEST(PercentEncodePathTest, EncodesSpacesPercentQuestionMarksAndHashes) {
    EXPECT_EQ(percentEncodePath("/a b/50%/x?y#z"), "/a%20b/50%25/x%3Fy%23z");
}

TEST(PercentEncodePathTest, EncodesEachByteOfANonAsciiCharacterInUpperCaseHex) {
    EXPECT_EQ(percentEncodePath("/caf\xC3\xA9"), "/caf%C3%A9");
}

TEST(PercentDecodeTest, DecodesEscapesInEitherCase) {
    EXPECT_EQ(percentDecode("/a%20b/caf%c3%A9/%2F"), "/a b/caf\xC3\xA9//");
}

TEST(PercentDecodeTest, LeavesPlusSignsAndPlainTextAlone) {
    EXPECT_EQ(percentDecode("a+b/c"), "a+b/c");
}

TEST(PercentDecodeTest, RefusesAnEscapeWithoutTwoHexDigits) {
    for (const char* bad : {"%", "a%2", "%zz", "%2g"}) {
        EXPECT_EQ(messageOf<std::invalid_argument>([&] { percentDecode(bad); }),
                  "Malformed percent-encoding")
            << bad;
    }
}

TEST(PercentDecodeTest, UndoesPercentEncodePath) {
    const std::string path = "/a b/50%/caf\xC3\xA9/x?y";
    EXPECT_EQ(percentDecode(percentEncodePath(path)), path);
}

}  // namespace
}  // namespace dme
