#include "dme/session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace dme {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Locale : SessionInfo::ICustom {
    explicit Locale(std::string tag) : tag(std::move(tag)) {}
    std::string tag;
};

struct Quota : SessionInfo::ICustom {
    explicit Quota(int limit) : limit(limit) {}
    int limit;
};

const char* const kDuplicateText =
    "TypeIndexContainer - Error: Multiple instances of same type found";
const char* const kNullText =
    "TypeIndexContainer - Error: unable to get type of an empty (null) SharedElement";

std::string printed(const std::vector<NamedFlag>& flags) {
    std::ostringstream out;
    out << flags;
    return out.str();
}

std::vector<std::string> namesOf(const std::vector<NamedFlag>& flags) {
    std::vector<std::string> names;
    for (const NamedFlag& flag : flags) names.push_back(flag.name());
    return names;
}

template <class Exception, class Action>
void expectThrowWithText(Action action, const std::string& text) {
    try {
        action();
        ADD_FAILURE() << "no exception thrown";
    } catch (const Exception& e) {
        EXPECT_EQ(std::string(e.what()), text);
    }
}

// ---- NamedFlag ----

TEST(NamedFlagTest, BuiltFromCharPointer) {
    NamedFlag flag("admin");
    EXPECT_EQ(flag.name(), "admin");
}

TEST(NamedFlagTest, BuiltFromString) {
    NamedFlag flag(std::string("admin"));
    EXPECT_EQ(flag.name(), "admin");
}

TEST(NamedFlagTest, EqualWhenNamesEqual) {
    EXPECT_TRUE(NamedFlag("a") == NamedFlag(std::string("a")));
    EXPECT_FALSE(NamedFlag("a") != NamedFlag("a"));
}

TEST(NamedFlagTest, UnequalWhenNamesDiffer) {
    EXPECT_FALSE(NamedFlag("a") == NamedFlag("A"));
    EXPECT_TRUE(NamedFlag("a") != NamedFlag("ab"));
}

TEST(NamedFlagTest, OrderedByteWiseByName) {
    EXPECT_TRUE(NamedFlag("B") < NamedFlag("a"));
    EXPECT_TRUE(NamedFlag("a") < NamedFlag("ab"));
    EXPECT_FALSE(NamedFlag("b") < NamedFlag("a"));
    EXPECT_FALSE(NamedFlag("a") < NamedFlag("a"));
}

TEST(NamedFlagTest, PrintsItsName) {
    std::ostringstream out;
    out << NamedFlag("debug");
    EXPECT_EQ(out.str(), "debug");
}

TEST(NamedFlagTest, EmptyVectorPrintsNone) {
    EXPECT_EQ(printed({}), "none");
}

TEST(NamedFlagTest, SingleFlagPrintsInParentheses) {
    EXPECT_EQ(printed({"a"}), "(a)");
}

TEST(NamedFlagTest, FlagsPrintSeparatedByCommaAndBlank) {
    EXPECT_EQ(printed({"a", "b", "c"}), "(a, b, c)");
}

// ---- UserInfo ----

TEST(UserInfoTest, StoresNameAndId) {
    UserInfo user("op", 7, {});
    EXPECT_EQ(user.name(), "op");
    EXPECT_EQ(user.id(), 7u);
}

TEST(UserInfoTest, RolesAreSortedAscending) {
    UserInfo user("op", 7, {5, 1, 3});
    EXPECT_THAT(user.roles(), ElementsAre(1u, 3u, 5u));
}

TEST(UserInfoTest, DuplicateRolesAreKept) {
    UserInfo user("op", 7, {3, 1, 3});
    EXPECT_THAT(user.roles(), ElementsAre(1u, 3u, 3u));
}

TEST(UserInfoTest, HasRoleFindsGivenRole) {
    UserInfo user("op", 7, {5, 1, 3});
    EXPECT_TRUE(user.hasRole(3));
    EXPECT_TRUE(user.hasRole(1));
    EXPECT_TRUE(user.hasRole(5));
}

TEST(UserInfoTest, HasRoleIsFalseForUnknownRole) {
    UserInfo user("op", 7, {5, 1, 3});
    EXPECT_FALSE(user.hasRole(2));
    EXPECT_FALSE(user.hasRole(6));
}

TEST(UserInfoTest, DefaultIsAnonymousUser) {
    UserInfo user;
    EXPECT_EQ(user.name(), "#unknown");
    EXPECT_EQ(user.id(), 4294967295u);
    EXPECT_THAT(user.roles(), IsEmpty());
    EXPECT_FALSE(user.hasRole(0));
}

// ---- SessionInfo ----

TEST(SessionInfoTest, DefaultHasAnonymousUserNoFlagsNoCustoms) {
    SessionInfo session;
    EXPECT_EQ(session.user().name(), "#unknown");
    EXPECT_EQ(session.user().id(), 4294967295u);
    EXPECT_THAT(session.user().roles(), IsEmpty());
    EXPECT_THAT(session.flags(), IsEmpty());
    EXPECT_TRUE(session.customs().empty());
}

TEST(SessionInfoTest, ServesAsItsUser) {
    SessionInfo session(UserInfo("op", 7, {2}), {});
    const UserInfo& user = session;
    EXPECT_EQ(user.name(), "op");
    EXPECT_TRUE(session.hasRole(2));
}

TEST(SessionInfoTest, CopiesTheUser) {
    UserInfo user("op", 7, {4, 2});
    SessionInfo session(user, {});
    EXPECT_EQ(session.user().name(), "op");
    EXPECT_EQ(session.user().id(), 7u);
    EXPECT_THAT(session.user().roles(), ElementsAre(2u, 4u));
}

TEST(SessionInfoTest, FlagsAreSortedAndFound) {
    SessionInfo session(UserInfo(), {"b", "a"});
    EXPECT_THAT(namesOf(session.flags()), ElementsAre("a", "b"));
    EXPECT_TRUE(session.hasFlag("a"));
    EXPECT_TRUE(session.hasFlag("b"));
    EXPECT_EQ(printed(session.flags()), "(a, b)");
}

TEST(SessionInfoTest, DuplicateFlagsAreKept) {
    SessionInfo session(UserInfo(), {"b", "a", "b"});
    EXPECT_THAT(namesOf(session.flags()), ElementsAre("a", "b", "b"));
}

TEST(SessionInfoTest, HasFlagIsFalseForUnknownFlag) {
    SessionInfo session(UserInfo(), {"b", "a"});
    EXPECT_FALSE(session.hasFlag("c"));
    EXPECT_FALSE(session.hasFlag(""));
}

TEST(SessionInfoTest, ContainerConstructorSortsFlagsAndTakesCustoms) {
    auto locale = std::make_shared<Locale>("de");
    SessionInfo::Customs customs{locale};
    SessionInfo session(UserInfo(), {"b", "a"}, std::move(customs));
    EXPECT_THAT(namesOf(session.flags()), ElementsAre("a", "b"));
    EXPECT_EQ(session.customs().get<Locale>(), locale);
}

TEST(SessionInfoTest, VectorConstructorKeepsFlagOrderAsGiven) {
    const std::vector<std::shared_ptr<SessionInfo::ICustom>> customs;
    SessionInfo session(UserInfo(), {"b", "a"}, customs);
    EXPECT_THAT(namesOf(session.flags()), ElementsAre("b", "a"));
}

TEST(SessionInfoTest, VectorConstructorWithSortedFlagsFindsThem) {
    const std::vector<std::shared_ptr<SessionInfo::ICustom>> customs;
    SessionInfo session(UserInfo(), {"a", "b"}, customs);
    EXPECT_TRUE(session.hasFlag("a"));
    EXPECT_TRUE(session.hasFlag("b"));
}

TEST(SessionInfoTest, VectorConstructorStoresCustoms) {
    auto locale = std::make_shared<Locale>("fr");
    auto quota = std::make_shared<Quota>(3);
    const std::vector<std::shared_ptr<SessionInfo::ICustom>> customs{quota, locale};
    SessionInfo session(UserInfo(), {}, customs);
    EXPECT_EQ(session.customs().size(), 2u);
    EXPECT_EQ(session.customs().get<Locale>()->tag, "fr");
    EXPECT_EQ(session.customs().get<Quota>()->limit, 3);
}

TEST(SessionInfoTest, VectorConstructorRejectsTwoCustomsOfOneClass) {
    const std::vector<std::shared_ptr<SessionInfo::ICustom>> customs{
        std::make_shared<Locale>("de"), std::make_shared<Locale>("fr")};
    expectThrowWithText<std::invalid_argument>(
        [&] { SessionInfo session(UserInfo(), {}, customs); }, kDuplicateText);
}

TEST(SessionInfoTest, VectorConstructorRejectsNullCustom) {
    const std::vector<std::shared_ptr<SessionInfo::ICustom>> customs{std::make_shared<Locale>("de"),
                                                                     nullptr};
    expectThrowWithText<std::runtime_error>([&] { SessionInfo session(UserInfo(), {}, customs); },
                                            kNullText);
}

TEST(SessionInfoTest, SingleCustomConstructorSortsFlagsAndStoresCustom) {
    SessionInfo session(UserInfo(), {"b", "a"}, std::make_shared<Quota>(9));
    EXPECT_THAT(namesOf(session.flags()), ElementsAre("a", "b"));
    EXPECT_EQ(session.customs().size(), 1u);
    EXPECT_EQ(session.customs().get<Quota>()->limit, 9);
}

TEST(SessionInfoTest, SingleCustomConstructorRejectsNull) {
    expectThrowWithText<std::runtime_error>(
        [] { SessionInfo session(UserInfo(), {}, std::shared_ptr<SessionInfo::ICustom>()); },
        kNullText);
}

TEST(SessionInfoTest, ListConstructorSortsFlagsAndStoresCustoms) {
    SessionInfo session(UserInfo(), {"b", "a"},
                        {std::make_shared<Locale>("it"), std::make_shared<Quota>(1)});
    EXPECT_THAT(namesOf(session.flags()), ElementsAre("a", "b"));
    EXPECT_EQ(session.customs().get<Locale>()->tag, "it");
    EXPECT_EQ(session.customs().get<Quota>()->limit, 1);
}

TEST(SessionInfoTest, ListConstructorRejectsTwoCustomsOfOneClass) {
    expectThrowWithText<std::invalid_argument>(
        [] {
            SessionInfo session(UserInfo(), {},
                                {std::make_shared<Quota>(1), std::make_shared<Locale>("de"),
                                 std::make_shared<Quota>(2)});
        },
        kDuplicateText);
}

TEST(SessionInfoTest, ListConstructorRejectsNullCustom) {
    expectThrowWithText<std::runtime_error>(
        [] {
            SessionInfo session(
                UserInfo(), {},
                {std::shared_ptr<SessionInfo::ICustom>(), std::make_shared<Quota>(2)});
        },
        kNullText);
}

TEST(SessionInfoTest, CustomIsFoundOnlyByItsExactType) {
    SessionInfo session(UserInfo(), {}, std::make_shared<Locale>("de"));
    EXPECT_TRUE(session.customs().contains<Locale>());
    EXPECT_FALSE(session.customs().contains<Quota>());
    EXPECT_FALSE(session.customs().contains<SessionInfo::ICustom>());
}

TEST(SessionInfoTest, CopySharesCustoms) {
    auto locale = std::make_shared<Locale>("de");
    SessionInfo session(UserInfo(), {}, {locale});
    SessionInfo copy(session);
    EXPECT_EQ(copy.customs().get<Locale>(), locale);
}

// ---- RequestInfo ----

TEST(RequestInfoTest, DefaultHasEmptySessionAndNoFlags) {
    RequestInfo request;
    EXPECT_EQ(request.session().user().name(), "#unknown");
    EXPECT_EQ(request.session().user().id(), 4294967295u);
    EXPECT_THAT(request.session().flags(), IsEmpty());
    EXPECT_TRUE(request.session().customs().empty());
    EXPECT_THAT(request.flags(), IsEmpty());
}

TEST(RequestInfoTest, TakesSessionAndSortsFlags) {
    RequestInfo request(SessionInfo(UserInfo("op", 7, {}), {"s"}), {"b", "a"});
    EXPECT_EQ(request.session().user().name(), "op");
    EXPECT_THAT(namesOf(request.session().flags()), ElementsAre("s"));
    EXPECT_THAT(namesOf(request.flags()), ElementsAre("a", "b"));
    EXPECT_TRUE(request.hasFlag("a"));
    EXPECT_TRUE(request.hasFlag("b"));
}

TEST(RequestInfoTest, HasFlagIsFalseForUnknownFlag) {
    RequestInfo request(SessionInfo(), {"a"});
    EXPECT_FALSE(request.hasFlag("b"));
}

TEST(RequestInfoTest, RequestFlagIsNotSeenBySession) {
    RequestInfo request(SessionInfo(UserInfo(), {"session"}), {"request"});
    EXPECT_FALSE(request.session().hasFlag("request"));
}

TEST(RequestInfoTest, SessionFlagIsNotSeenByRequest) {
    RequestInfo request(SessionInfo(UserInfo(), {"session"}), {"request"});
    EXPECT_FALSE(request.hasFlag("session"));
    EXPECT_TRUE(request.session().hasFlag("session"));
}

}  // namespace
}  // namespace dme
