#include "device_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "application.h"
#include "dme/arguments.h"
#include "dme/context.h"
#include "dme/engine.h"
#include "dme/exception.h"
#include "dme/json.h"
#include "dme/methods.h"
#include "dme/result.h"
#include "dme/session.h"

namespace example {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

struct Answer {
    int status;
    std::string body;
};

void PrintTo(const Answer& answer, std::ostream* os) {
    *os << answer.status << ' ' << answer.body;
}

// The request info of a built-in user; the empty name stands for an anonymous caller.
dme::RequestInfo callerOf(const std::string& user) {
    if (user.empty()) return dme::RequestInfo();
    return dme::RequestInfo(*builtInSession(user), {});
}

// The example model over the shipped factory file, with a clock that the test sets, served by
// the JSON engine.
class Gateway {
  public:
    explicit Gateway(const std::string& factoryFile = DME_DEVICE_FACTORY_FILE)
        : model_(factoryFile, [this] { return now_; }), engine_(model_.dataModel(), "test") {}

    Answer run(const std::string& user, dme::Method method, const std::string& uri,
               const std::string& body = "", const std::string& query = "") {
        Answer answer{0, ""};
        answer.status = engine_.execute(method, uri, dme::Arguments(query), callerOf(user), body,
                                        answer.body, false);
        return answer;
    }
    Answer read(const std::string& uri, const std::string& query = "") {
        return run("guest", dme::READ, uri, "", query);
    }

    void advance(std::chrono::seconds elapsed) { now_ += elapsed; }
    DeviceModel& model() { return model_; }
    dme::JsonDataModelEngine& engine() { return engine_; }

  private:
    std::chrono::seconds now_{5000};
    DeviceModel model_;
    dme::JsonDataModelEngine engine_;
};

// The error document of a rejected input, as the model writes it.
std::string rejection(const std::string& errorJson) {
    return "{\"error\":" + errorJson + "}";
}

MATCHER_P2(Answers, status, body, "") {
    return arg.status == status && arg.body == body;
}

// Lexicon, sessions, error documents

TEST(ExampleLexicon, NamesTheMembersAndArguments) {
    EXPECT_EQ(lexicon().resourcePathKey, "href");
    EXPECT_EQ(lexicon().idKey, "id");
    EXPECT_EQ(lexicon().countKey, "count");
    EXPECT_EQ(lexicon().itemsKey, "members");
    EXPECT_STREQ(lexicon().expandArgument, "expand");
    EXPECT_STREQ(lexicon().selectArgument, "select");
}

TEST(ExampleBuiltInUsers, AreGuestOperatorAndAdmin) {
    EXPECT_THAT(builtInUserNames(), ElementsAre("guest", "operator", "admin"));
}

TEST(ExampleBuiltInUsers, EachSessionHoldsItsUsersRoleOnly) {
    EXPECT_THAT(builtInSession("guest")->roles(), ElementsAre(GUEST));
    EXPECT_THAT(builtInSession("operator")->roles(), ElementsAre(OPERATOR));
    EXPECT_THAT(builtInSession("admin")->roles(), ElementsAre(ADMIN));
}

TEST(ExampleBuiltInUsers, SessionCarriesTheUsersName) {
    EXPECT_EQ(builtInSession("operator")->name(), "operator");
}

TEST(ExampleBuiltInUsers, UnknownNameHasNoSession) {
    EXPECT_FALSE(builtInSession("root").has_value());
    EXPECT_FALSE(builtInSession("Admin").has_value());
}

dme::Exception caught(void (*raise)()) {
    try {
        raise();
    } catch (const dme::Exception& e) {
        return e;
    }
    throw std::logic_error("nothing was thrown");
}

TEST(ExampleErrorDocument, HoldsIdMessageAndBothDetails) {
    const dme::Exception e = caught([] { dme::Exception::throwStringTooLong("abc", 2); });
    EXPECT_EQ(dme::formatJson(errorDocument(e)),
              R"({"error":{"code":5,"message":"String too long","details":["abc","2"]}})");
}

TEST(ExampleErrorDocument, LeavesOutAnEmptySecondDetail) {
    const dme::Exception e = caught([] { dme::Exception::throwValueNotInList("verbose"); });
    EXPECT_EQ(dme::formatJson(errorDocument(e)),
              R"({"error":{"code":9,"message":"Value not in list","details":["verbose"]}})");
}

TEST(ExampleExceptionHandlers, ReplaceTheAnswerByTheErrorDocumentOfARejectedInput) {
    dme::Context ctx(lexicon(), dme::READ, "/", dme::Arguments(), false);
    dme::Exception e = caught([] { dme::Exception::throwInvalidIpAddress("1.2.3"); });
    cxxtools::SerializationInfo out;
    out.addMember("partial").setValue(1);
    EXPECT_EQ(exceptionHandlers().handleException(e, ctx, cxxtools::SerializationInfo(), out), 10);
    EXPECT_EQ(dme::formatJson(out),
              R"({"error":{"code":6,"message":"Invalid IP address","details":["1.2.3"]}})");
}

TEST(ExampleExceptionHandlers, DeclineOtherExceptionsAndLeaveTheAnswer) {
    dme::Context ctx(lexicon(), dme::READ, "/", dme::Arguments(), false);
    std::runtime_error e("boom");
    cxxtools::SerializationInfo out;
    out.addMember("partial").setValue(1);
    EXPECT_EQ(exceptionHandlers().handleException(e, ctx, cxxtools::SerializationInfo(), out), 12);
    EXPECT_EQ(dme::formatJson(out), R"({"partial":1})");
}

// Role policy

dme::AllowedMethods rightsOf(const RolePolicy& policy, std::vector<unsigned int> roles,
                             dme::Method method = dme::READ) {
    const dme::RequestInfo caller(dme::SessionInfo(dme::UserInfo("u", 1, std::move(roles)), {}),
                                  {});
    dme::Context ctx(lexicon(), method, "/", dme::Arguments(), caller, false);
    return policy.getRights(ctx, false);
}

TEST(ExampleRolePolicy, GrantsTheRightsOfTheSessionsRole) {
    const RolePolicy policy({{GUEST, dme::READ}, {ADMIN, dme::UPDATE}});
    EXPECT_EQ(rightsOf(policy, {ADMIN}), dme::AllowedMethods(dme::UPDATE));
}

TEST(ExampleRolePolicy, GrantsTheUnionOfTheRightsOfSeveralRoles) {
    const RolePolicy policy({{GUEST, dme::READ}, {ADMIN, dme::UPDATE}});
    EXPECT_EQ(rightsOf(policy, {GUEST, ADMIN}), dme::READ + dme::UPDATE);
}

TEST(ExampleRolePolicy, GrantsNothingToARoleWithoutGrant) {
    const RolePolicy policy({{GUEST, dme::READ}});
    EXPECT_TRUE(rightsOf(policy, {OPERATOR}).empty());
}

TEST(ExampleRolePolicy, GrantsNothingToASessionWithoutRoles) {
    const RolePolicy policy({{GUEST, dme::READ}});
    EXPECT_TRUE(rightsOf(policy, {}).empty());
}

TEST(ExampleRolePolicy, GrantsBrowsingOnlyToASubscription) {
    const RolePolicy policy({{GUEST, dme::READ + dme::UPDATE}});
    EXPECT_EQ(rightsOf(policy, {GUEST}, dme::SUBSCRIBE),
              dme::AllowedMethods(dme::AllowedMethods::B));
}

TEST(ExampleRolePolicy, GrantsBrowsingToASubscriptionWithoutRoles) {
    const RolePolicy policy({{GUEST, dme::READ}});
    EXPECT_EQ(rightsOf(policy, {}, dme::SUBSCRIBE), dme::AllowedMethods(dme::AllowedMethods::B));
    EXPECT_EQ(rightsOf(policy, {}, dme::UNSUBSCRIBE), dme::AllowedMethods(dme::AllowedMethods::B));
}

TEST(ExampleRolePolicy, DecidesForItself) {
    const RolePolicy policy({{GUEST, dme::READ}});
    EXPECT_EQ(policy.getAppliedPolicy(), &policy);
}

TEST(ExampleRolePolicy, CopyKeepsTheGrants) {
    const RolePolicy policy({{GUEST, dme::READ}, {ADMIN, dme::DELETE}});
    std::unique_ptr<dme::PermissionPolicy> copy(policy.copy());
    EXPECT_EQ(rightsOf(dynamic_cast<const RolePolicy&>(*copy), {GUEST, ADMIN}),
              dme::READ + dme::DELETE);
}

// Structures, expansion and selection

TEST(GatewayTree, RootShowsItsMembersByTheirPaths) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/"),
                Answers(0, R"({"href":"/","system":{"href":"/system"},"status":{"href":"/status"},)"
                           R"("factory":{"href":"/factory"},"labels":{"href":"/labels"},)"
                           R"("network":{"href":"/network"},"users":{"href":"/users"}})"));
}

TEST(GatewayTree, SystemListsItsValuesButNotTheRebootAction) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/system"),
                Answers(0, R"({"href":"/system","hostname":"gateway","location":"",)"
                           R"("firmwareVersion":"2.4.1","timezoneOffset":60,"ntpEnabled":true,)"
                           R"("logLevel":"warning"})"));
}

TEST(GatewayTree, ExpandLevelShowsTheItemsOfACollection) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/users", "expand=1"),
                Answers(0, R"({"href":"/users","count":2,"members":[{"href":"/users/1"},)"
                           R"({"href":"/users/2"}]})"));
    EXPECT_THAT(gateway.read("/users", "expand=2"),
                Answers(0, R"({"href":"/users","count":2,"members":[)"
                           R"({"href":"/users/1","id":"1","name":"alice","role":"admin",)"
                           R"("enabled":true,"password":null},)"
                           R"({"href":"/users/2","id":"2","name":"bob","role":"operator",)"
                           R"("enabled":true,"password":null}]})"));
}

TEST(GatewayTree, SelectLimitsTheMembersRead) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/system", "select=hostname,logLevel"),
                Answers(0, R"({"href":"/system","hostname":"gateway","logLevel":"warning"})"));
}

TEST(GatewayTree, AnonymousCallerMayNotRead) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("", dme::READ, "/system").status, dme::result::FORBIDDEN);
}

TEST(GatewayTree, AnonymousCallerMayNotBrowseEvenForTheSchema) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("", dme::SCHEMA, "/system/hostname").status, dme::result::FORBIDDEN);
}

TEST(GatewayTree, SchemaShowsTheLimitsOfAValue) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("guest", dme::SCHEMA, "/system/hostname"),
                Answers(0, R"({"type":"string","default":"","minSize":1,"maxSize":63})"));
}

// Atomic values of /system

TEST(GatewaySystem, AdminUpdatesTheHostname) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::UPDATE, "/system/hostname", R"("office-gw")"),
                Answers(0, "null"));
    EXPECT_THAT(gateway.read("/system/hostname"), Answers(0, R"("office-gw")"));
}

TEST(GatewaySystem, OperatorMayNotUpdateTheSystem) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("operator", dme::UPDATE, "/system/hostname", R"("x")").status,
              dme::result::FORBIDDEN);
    EXPECT_THAT(gateway.read("/system/hostname"), Answers(0, R"("gateway")"));
}

TEST(GatewaySystem, GuestMayNotUpdateTheSystem) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("guest", dme::UPDATE, "/system/location", R"("attic")").status,
              dme::result::FORBIDDEN);
}

TEST(GatewaySystem, HostnameWithAnUnderscoreIsRefused) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::UPDATE, "/system/hostname", R"("my_gw")"),
                Answers(10, rejection(R"({"code":3,"message":"String invalid format",)"
                                      R"("details":["my_gw"]})")));
    EXPECT_THAT(gateway.read("/system/hostname"), Answers(0, R"("gateway")"));
}

TEST(GatewaySystem, HostnameEndingInAHyphenIsRefused) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("admin", dme::UPDATE, "/system/hostname", R"("gw-")").status,
              dme::result::INVALID_ARGUMENT);
}

TEST(GatewaySystem, EmptyHostnameIsTooShort) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::UPDATE, "/system/hostname", R"("")"),
                Answers(10, rejection(R"({"code":4,"message":"String too short",)"
                                      R"("details":["","1"]})")));
}

TEST(GatewaySystem, TimezoneOffsetAboveItsMaximumIsRefused) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::UPDATE, "/system/timezoneOffset", "900"),
                Answers(10, rejection(R"({"code":2,"message":"Value above maximum",)"
                                      R"("details":["timezoneOffset","840"]})")));
}

TEST(GatewaySystem, TimezoneOffsetGivenAsTextIsRefused) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::UPDATE, "/system/timezoneOffset", R"("60")"),
                Answers(10, rejection(R"({"code":0,"message":"Invalid type",)"
                                      R"("details":["timezoneOffset","integer"]})")));
}

TEST(GatewaySystem, FirmwareVersionIsReadOnly) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("admin", dme::UPDATE, "/system/firmwareVersion", R"("9")").status,
              dme::result::NOT_ALLOWED);
}

TEST(GatewaySystem, StructureUpdateChangesSeveralMembers) {
    Gateway gateway;
    EXPECT_EQ(
        gateway.run("admin", dme::UPDATE, "/system", R"({"location":"attic","ntpEnabled":false})")
            .status,
        0);
    EXPECT_THAT(gateway.read("/system", "select=location,ntpEnabled"),
                Answers(0, R"({"href":"/system","location":"attic","ntpEnabled":false})"));
}

// The enumeration

TEST(GatewayLogLevel, IsUpdatedByName) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("admin", dme::UPDATE, "/system/logLevel", R"("debug")").status,
              dme::result::DONE);
    EXPECT_THAT(gateway.read("/system/logLevel"), Answers(0, R"("debug")"));
}

TEST(GatewayLogLevel, UnknownNameIsRefused) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::UPDATE, "/system/logLevel", R"("verbose")"),
                Answers(10, rejection(R"({"code":9,"message":"Value not in list",)"
                                      R"("details":["verbose"]})")));
    EXPECT_THAT(gateway.read("/system/logLevel"), Answers(0, R"("warning")"));
}

TEST(GatewayLogLevel, SchemaListsTheNames) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("guest", dme::SCHEMA, "/system/logLevel"),
                Answers(0, R"({"type":"string","enum":["error","warning","info","debug"]})"));
}

// The reboot action and the status composite

TEST(GatewayReboot, AdminRebootsWithAReason) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::CREATE, "/system/reboot", R"({"reason":"maintenance"})"),
                Answers(0, R"({"bootCount":2,"lastReboot":"maintenance"})"));
    EXPECT_EQ(gateway.model().bootCount(), 2u);
}

TEST(GatewayReboot, WithoutBodyRecordsARequestedReboot) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::CREATE, "/system/reboot"),
                Answers(0, R"({"bootCount":2,"lastReboot":"requested"})"));
}

TEST(GatewayReboot, OperatorMayNotReboot) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("operator", dme::CREATE, "/system/reboot").status,
              dme::result::FORBIDDEN);
    EXPECT_EQ(gateway.model().bootCount(), 1u);
}

TEST(GatewayReboot, GuestMayNotReboot) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("guest", dme::CREATE, "/system/reboot").status, dme::result::FORBIDDEN);
    EXPECT_EQ(gateway.model().bootCount(), 1u);
}

TEST(GatewayReboot, ReasonThatIsNotTextIsRefused) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::CREATE, "/system/reboot", R"({"reason":5})"),
                Answers(10, rejection(R"({"code":0,"message":"Invalid type",)"
                                      R"("details":["reason","string"]})")));
    EXPECT_EQ(gateway.model().bootCount(), 1u);
}

TEST(GatewayReboot, ReasonLongerThan64BytesIsRefused) {
    Gateway gateway;
    const std::string reason(65, 'x');
    EXPECT_THAT(
        gateway.run("admin", dme::CREATE, "/system/reboot", R"({"reason":")" + reason + R"("})"),
        Answers(10, rejection(R"({"code":5,"message":"String too long","details":[")" + reason +
                              R"(","64"]})")));
}

TEST(GatewayReboot, BodyThatIsNotAnObjectIsRefused) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::CREATE, "/system/reboot", "[1]"),
                Answers(10, rejection(R"({"code":0,"message":"Invalid type",)"
                                      R"("details":["reboot","object"]})")));
}

TEST(GatewayReboot, CannotBeRead) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("admin", dme::READ, "/system/reboot").status, dme::result::NOT_ALLOWED);
}

TEST(GatewayStatus, ShowsTheStateAtBoot) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/status"),
                Answers(0, R"({"href":"/status","uptime":0,"bootCount":1,"lastReboot":"power-on",)"
                           R"("traffic":{"rxBytes":0,"txBytes":0}})"));
}

TEST(GatewayStatus, ChangesAsTimePasses) {
    Gateway gateway;
    gateway.advance(std::chrono::seconds(30));
    EXPECT_THAT(
        gateway.read("/status"),
        Answers(0, R"({"href":"/status","uptime":30,"bootCount":1,)"
                   R"("lastReboot":"power-on","traffic":{"rxBytes":375000,"txBytes":75000}})"));
}

TEST(GatewayStatus, RebootRestartsTheUptime) {
    Gateway gateway;
    gateway.advance(std::chrono::seconds(30));
    gateway.run("admin", dme::CREATE, "/system/reboot", R"({"reason":"update"})");
    gateway.advance(std::chrono::seconds(2));
    EXPECT_THAT(gateway.read("/status"),
                Answers(0, R"({"href":"/status","uptime":2,"bootCount":2,"lastReboot":"update",)"
                           R"("traffic":{"rxBytes":25000,"txBytes":5000}})"));
}

TEST(GatewayStatus, MemberIsReadByPath) {
    Gateway gateway;
    gateway.advance(std::chrono::seconds(4));
    EXPECT_THAT(gateway.read("/status/traffic/txBytes"), Answers(0, "10000"));
}

TEST(GatewayStatus, ObserverIsToldOfAReboot) {
    dme::test::WaitingObserver observer;  // outlives the engine, which may still notify it
    Gateway gateway;
    ASSERT_EQ(
        gateway.engine().subscribe(observer, "/status", dme::Arguments(),
                                   std::chrono::milliseconds(0), dme::ObserverOption::CHANGES_ONLY),
        0);
    gateway.run("admin", dme::CREATE, "/system/reboot");
    ASSERT_TRUE(observer.waitFor(1));
    EXPECT_EQ(observer.notifications()[0].uri, "/status");
    gateway.engine().unsubscribe(observer);
}

TEST(GatewayStatus, ObserverIsToldWhenTheApplicationSaysSo) {
    dme::test::WaitingObserver observer;  // outlives the engine, which may still notify it
    Gateway gateway;
    ASSERT_EQ(
        gateway.engine().subscribe(observer, "/status", dme::Arguments(),
                                   std::chrono::milliseconds(0), dme::ObserverOption::CHANGES_ONLY),
        0);
    gateway.model().notifyStatusChange();
    EXPECT_TRUE(observer.waitFor(1));
    gateway.engine().unsubscribe(observer);
}

TEST(GatewayStatus, UnknownMemberIsNotFound) {
    Gateway gateway;
    EXPECT_EQ(gateway.read("/status/temperature").status, dme::result::NOT_FOUND);
}

TEST(GatewayStatus, CannotBeUpdated) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("admin", dme::UPDATE, "/status", R"({"uptime":0})").status,
              dme::result::NOT_ALLOWED);
}

// Factory data from the file

TEST(GatewayFactory, ShowsTheShippedFile) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/factory"),
                Answers(0, R"({"href":"/factory","manufacturer":"Example Networks",)"
                           R"("model":"HG-200","serialNumber":"HG200-2024-000173",)"
                           R"("hardwareRevision":3,"manufactureDate":"2024-03-18",)"
                           R"("macAddresses":{"wan":"02:00:5e:10:00:01",)"
                           R"("lan":"02:00:5e:10:00:02","wlan":"02:00:5e:10:00:03"}})"));
}

TEST(GatewayFactory, NestedMemberIsReadByPath) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/factory/macAddresses/lan"), Answers(0, R"("02:00:5e:10:00:02")"));
}

TEST(GatewayFactory, UnknownMemberIsNotFound) {
    Gateway gateway;
    EXPECT_EQ(gateway.read("/factory/batch").status, dme::result::NOT_FOUND);
}

TEST(GatewayFactory, AdminCannotChangeTheFile) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("admin", dme::UPDATE, "/factory/model", R"("X")").status,
              dme::result::NOT_SUPPORTED);
}

TEST(GatewayFactory, GuestMayNotUpdateIt) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("guest", dme::UPDATE, "/factory/model", R"("X")").status,
              dme::result::FORBIDDEN);
}

TEST(GatewayFactory, MissingFileFailsTheRead) {
    Gateway gateway("/nonexistent/factory.json");
    EXPECT_EQ(gateway.read("/factory").status, dme::result::FAILED);
}

// Labels, a dynamic flat structure

TEST(GatewayLabels, ListsEveryLabel) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/labels"),
                Answers(0, R"({"href":"/labels","floor":"1","room":"hallway"})"));
}

TEST(GatewayLabels, OneLabelIsReadByPath) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/labels/room"), Answers(0, R"("hallway")"));
}

TEST(GatewayLabels, UnknownLabelIsNotFound) {
    Gateway gateway;
    EXPECT_EQ(gateway.read("/labels/garage").status, dme::result::NOT_FOUND);
}

TEST(GatewayLabels, AdminChangesOneLabel) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("admin", dme::UPDATE, "/labels/room", R"("kitchen")").status,
              dme::result::DONE);
    EXPECT_THAT(gateway.model().labels(), ElementsAre(Pair("floor", "1"), Pair("room", "kitchen")));
}

TEST(GatewayLabels, AdminReplacesAllLabels) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("admin", dme::UPDATE, "/labels", R"({"color":"white"})").status,
              dme::result::DONE);
    EXPECT_THAT(gateway.model().labels(), ElementsAre(Pair("color", "white")));
}

TEST(GatewayLabels, OperatorMayNotChangeThem) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("operator", dme::UPDATE, "/labels/room", R"("kitchen")").status,
              dme::result::FORBIDDEN);
    EXPECT_THAT(gateway.model().labels(), ElementsAre(Pair("floor", "1"), Pair("room", "hallway")));
}

// Network interfaces, a static collection with links

TEST(GatewayInterfaces, AreListedByTheirIds) {
    Gateway gateway;
    EXPECT_THAT(
        gateway.read("/network/interfaces", "expand=1"),
        Answers(0, R"({"href":"/network/interfaces","count":3,"members":[)"
                   R"({"href":"/network/interfaces/wan"},{"href":"/network/interfaces/lan"},)"
                   R"({"href":"/network/interfaces/wlan"}]})"));
}

TEST(GatewayInterfaces, ItemLinksToItsLowerLayers) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/network/interfaces/lan"),
                Answers(0, R"({"href":"/network/interfaces/lan","id":"lan","device":"br0",)"
                           R"("enabled":true,"address":"192.168.1.1","mtu":1500,)"
                           R"("lowerLayers":["/network/interfaces/wlan"]})"));
}

TEST(GatewayInterfaces, UnknownIdIsNotFound) {
    Gateway gateway;
    EXPECT_EQ(gateway.read("/network/interfaces/dsl").status, dme::result::NOT_FOUND);
}

TEST(GatewayInterfaces, OperatorUpdatesTheMtu) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("operator", dme::UPDATE, "/network/interfaces/lan/mtu", "1400").status,
              0);
    EXPECT_THAT(gateway.read("/network/interfaces/lan/mtu"), Answers(0, "1400"));
}

TEST(GatewayInterfaces, OperatorUpdatesSeveralMembersOfAnInterface) {
    Gateway gateway;
    EXPECT_EQ(gateway
                  .run("operator", dme::UPDATE, "/network/interfaces/wlan",
                       R"({"enabled":false,"address":"192.168.2.1"})")
                  .status,
              0);
    EXPECT_THAT(gateway.read("/network/interfaces/wlan", "select=enabled,address"),
                Answers(0, R"({"href":"/network/interfaces/wlan","enabled":false,)"
                           R"("address":"192.168.2.1"})"));
}

TEST(GatewayInterfaces, GuestMayNotUpdateAnInterface) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("guest", dme::UPDATE, "/network/interfaces/lan/mtu", "1400").status,
              dme::result::FORBIDDEN);
}

TEST(GatewayInterfaces, MtuBelowItsMinimumIsRefused) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("operator", dme::UPDATE, "/network/interfaces/lan/mtu", "100"),
                Answers(10, rejection(R"({"code":1,"message":"Value below minimum",)"
                                      R"("details":["mtu","576"]})")));
}

TEST(GatewayInterfaces, AddressThatIsNoIpv4AddressIsRefused) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("operator", dme::UPDATE, "/network/interfaces/lan/address",
                            R"("192.168.1.300")"),
                Answers(10, rejection(R"({"code":6,"message":"Invalid IP address",)"
                                      R"("details":["192.168.1.300"]})")));
}

TEST(GatewayInterfaces, EmptyAddressIsAccepted) {
    Gateway gateway;
    EXPECT_EQ(
        gateway.run("operator", dme::UPDATE, "/network/interfaces/lan/address", R"("")").status, 0);
}

TEST(GatewayInterfaces, DeviceNameIsReadOnly) {
    Gateway gateway;
    EXPECT_EQ(
        gateway.run("admin", dme::UPDATE, "/network/interfaces/lan/device", R"("br1")").status, 2);
}

TEST(GatewayInterfaces, LowerLayersCannotBeWritten) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("admin", dme::UPDATE, "/network/interfaces/lan/lowerLayers", "[]").status,
              2);
}

// The default route: a link, and an expanded link that shows its target

TEST(GatewayDefaultRoute, ReadsAsThePathOfTheInterface) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/network/defaultRoute"), Answers(0, R"("/network/interfaces/wan")"));
}

TEST(GatewayDefaultRoute, OperatorPointsItToAnotherInterface) {
    Gateway gateway;
    EXPECT_EQ(
        gateway
            .run("operator", dme::UPDATE, "/network/defaultRoute", R"("/network/interfaces/lan")")
            .status,
        0);
    EXPECT_THAT(gateway.read("/network/defaultRoute"), Answers(0, R"("/network/interfaces/lan")"));
}

TEST(GatewayDefaultRoute, AcceptsAPathRelativeToTheNetwork) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("operator", dme::UPDATE, "/network/defaultRoute", R"("interfaces/wlan")")
                  .status,
              0);
    EXPECT_THAT(gateway.read("/network/defaultRoute"), Answers(0, R"("/network/interfaces/wlan")"));
}

TEST(GatewayDefaultRoute, UnknownInterfaceIsRefused) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("operator", dme::UPDATE, "/network/defaultRoute",
                            R"("/network/interfaces/dsl")"),
                Answers(10, rejection(R"({"code":9,"message":"Value not in list",)"
                                      R"("details":["dsl"]})")));
}

TEST(GatewayDefaultRoute, PathOutsideTheInterfacesIsRefused) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("operator", dme::UPDATE, "/network/defaultRoute", R"("/users/1")"),
                Answers(10, rejection(R"({"code":8,"message":"Value out of range",)"
                                      R"("details":["defaultRoute"]})")));
    EXPECT_THAT(gateway.read("/network/defaultRoute"), Answers(0, R"("/network/interfaces/wan")"));
}

TEST(GatewayDefaultRoute, GuestMayNotChangeIt) {
    Gateway gateway;
    EXPECT_EQ(
        gateway.run("guest", dme::UPDATE, "/network/defaultRoute", R"("/network/interfaces/lan")")
            .status,
        6);
}

TEST(GatewayExpandedLink, ShowsTheInterfaceOfTheDefaultRoute) {
    Gateway gateway;
    const Answer wan = gateway.read("/network/interfaces/wan");
    EXPECT_THAT(wan, Answers(0, R"({"href":"/network/interfaces/wan","id":"wan","device":"eth1",)"
                                R"("enabled":true,"address":"203.0.113.10","mtu":1492,)"
                                R"("lowerLayers":[]})"));
    EXPECT_THAT(gateway.read("/network/gateway"), Answers(0, wan.body));
}

TEST(GatewayExpandedLink, FollowsTheDefaultRoute) {
    Gateway gateway;
    gateway.run("operator", dme::UPDATE, "/network/defaultRoute", R"("/network/interfaces/wlan")");
    EXPECT_THAT(gateway.read("/network/gateway"),
                Answers(0, gateway.read("/network/interfaces/wlan").body));
    EXPECT_EQ(gateway.read("/network/gateway", "select=device").body,
              R"({"href":"/network/interfaces/wlan","device":"wlan0"})");
}

TEST(GatewayExpandedLink, CannotBeUpdated) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("admin", dme::UPDATE, "/network/gateway", R"({"mtu":1400})").status,
              dme::result::NOT_ALLOWED);
}

// DNS servers, a static array

TEST(GatewayDnsServers, ListsBothAddresses) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/network/dnsServers"),
                Answers(0, R"(["192.0.2.53","198.51.100.53"])"));
}

TEST(GatewayDnsServers, OneServerIsReadByIndex) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/network/dnsServers/1"), Answers(0, R"("198.51.100.53")"));
}

TEST(GatewayDnsServers, OperatorReplacesBoth) {
    Gateway gateway;
    EXPECT_EQ(
        gateway.run("operator", dme::UPDATE, "/network/dnsServers", R"(["192.0.2.1","192.0.2.2"])")
            .status,
        0);
    EXPECT_THAT(gateway.read("/network/dnsServers"), Answers(0, R"(["192.0.2.1","192.0.2.2"])"));
}

TEST(GatewayDnsServers, OperatorReplacesOne) {
    Gateway gateway;
    EXPECT_EQ(
        gateway.run("operator", dme::UPDATE, "/network/dnsServers/0", R"("192.0.2.1")").status, 0);
    EXPECT_THAT(gateway.read("/network/dnsServers"),
                Answers(0, R"(["192.0.2.1","198.51.100.53"])"));
}

TEST(GatewayDnsServers, IndexPastTheEndIsRefused) {
    Gateway gateway;
    EXPECT_THAT(gateway.read("/network/dnsServers/2"),
                Answers(10, rejection(R"({"code":10,"message":"Index is out of the array bounds",)"
                                      R"("details":["2"]})")));
}

TEST(GatewayDnsServers, AddressThatIsNoIpv4AddressIsRefused) {
    Gateway gateway;
    EXPECT_EQ(
        gateway.run("operator", dme::UPDATE, "/network/dnsServers/0", R"("dns.example")").status,
        10);
    EXPECT_THAT(gateway.read("/network/dnsServers/0"), Answers(0, R"("192.0.2.53")"));
}

// Accounts, a modifiable collection

const char* const CAROL = R"({"name":"carol","role":"operator","password":"long-enough"})";

TEST(GatewayUsers, AdminCreatesAnAccount) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::CREATE, "/users", CAROL),
                Answers(0, R"({"href":"/users/3","id":"3","name":"carol","role":"operator",)"
                           R"("enabled":true,"password":null})"));
}

TEST(GatewayUsers, AccountMayBeCreatedUnderAChosenId) {
    Gateway gateway;
    EXPECT_EQ(
        gateway.run("admin", dme::CREATE, "/users", R"({"id":"carol","name":"carol"})").status, 0);
    EXPECT_THAT(gateway.read("/users/carol", "select=name"),
                Answers(0, R"({"href":"/users/carol","name":"carol","password":null})"));
}

TEST(GatewayUsers, PasswordIsNeverShown) {
    Gateway gateway;
    gateway.run("admin", dme::CREATE, "/users", CAROL);
    EXPECT_THAT(gateway.read("/users/3/password"), Answers(0, "null"));
}

TEST(GatewayUsers, ShortPasswordIsRefusedAndNothingIsCreated) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::CREATE, "/users", R"({"name":"dan","password":"short"})"),
                Answers(10, rejection(R"({"code":4,"message":"String too short",)"
                                      R"x("details":["(secret)","8"]})x")));
    EXPECT_EQ(gateway.read("/users").body, R"({"href":"/users","count":2,"members":[)"
                                           R"({"href":"/users/1"},{"href":"/users/2"}]})");
}

TEST(GatewayUsers, UnknownRoleIsRefused) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::CREATE, "/users", R"({"name":"dan","role":"root"})"),
                Answers(10, rejection(R"({"code":9,"message":"Value not in list",)"
                                      R"("details":["root"]})")));
}

TEST(GatewayUsers, AdminDeletesAnAccount) {
    Gateway gateway;
    EXPECT_THAT(gateway.run("admin", dme::DELETE, "/users/2"), Answers(0, "null"));
    EXPECT_EQ(gateway.read("/users/2").status, dme::result::NOT_FOUND);
    EXPECT_EQ(gateway.read("/users").body,
              R"({"href":"/users","count":1,"members":[{"href":"/users/1"}]})");
}

TEST(GatewayUsers, AccountsAreLimitedToFour) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("admin", dme::CREATE, "/users", R"({"name":"carol"})").status,
              dme::result::DONE);
    EXPECT_EQ(gateway.run("admin", dme::CREATE, "/users", R"({"name":"dan"})").status,
              dme::result::DONE);
    EXPECT_THAT(
        gateway.run("admin", dme::CREATE, "/users", R"({"name":"eve"})"),
        Answers(10, rejection(R"({"code":7,"message":)"
                              R"("The maximum number of items in the collection is reached",)"
                              R"("details":["/users"]})")));
}

TEST(GatewayUsers, ReplacingAllAccountsStopsAtTheLimit) {
    Gateway gateway;
    EXPECT_EQ(gateway
                  .run("admin", dme::UPDATE, "/users",
                       R"({"members":[{"name":"a"},{"name":"b"},{"name":"c"},)"
                       R"({"name":"d"},{"name":"e"}]})")
                  .status,
              10);
    EXPECT_EQ(gateway.read("/users", "select=name&expand=2").body,
              R"({"href":"/users","count":4,"members":[)"
              R"({"href":"/users/3","name":"a","password":null},)"
              R"({"href":"/users/4","name":"b","password":null},)"
              R"({"href":"/users/5","name":"c","password":null},)"
              R"({"href":"/users/6","name":"d","password":null}]})");
}

TEST(GatewayUsers, OperatorMayNotCreateAnAccount) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("operator", dme::CREATE, "/users", CAROL).status, dme::result::FORBIDDEN);
}

TEST(GatewayUsers, GuestMayNotDeleteAnAccount) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("guest", dme::DELETE, "/users/1").status, dme::result::FORBIDDEN);
    EXPECT_EQ(gateway.read("/users/1").status, dme::result::DONE);
}

TEST(GatewayUsers, AdminChangesARole) {
    Gateway gateway;
    EXPECT_EQ(gateway.run("admin", dme::UPDATE, "/users/2/role", R"("admin")").status,
              dme::result::DONE);
    EXPECT_THAT(gateway.read("/users/2/role"), Answers(0, R"("admin")"));
}

// Who may do what: one request per role on each kind of node.

struct Right {
    const char* user;
    dme::Method method;
    const char* uri;
    const char* body;
    int status;
};

void PrintTo(const Right& right, std::ostream* os) {
    *os << right.user << ' ' << right.method << ' ' << right.uri;
}

class GatewayRightsByRole : public ::testing::TestWithParam<Right> {};

TEST_P(GatewayRightsByRole, GiveTheExpectedStatus) {
    Gateway gateway;
    const Right& right = GetParam();
    EXPECT_EQ(gateway.run(right.user, right.method, right.uri, right.body).status, right.status);
}

// The status of each request for guest, operator and admin, in that order: 6 where the role may
// not, 0 where it may.
std::vector<Right> rightsOfEachRole(dme::Method method, const char* uri, const char* body,
                                    int guest, int operatorStatus, int admin) {
    return {{"guest", method, uri, body, guest},
            {"operator", method, uri, body, operatorStatus},
            {"admin", method, uri, body, admin}};
}

std::vector<Right> rightsTable() {
    std::vector<std::vector<Right>> rows{
        rightsOfEachRole(dme::READ, "/system", "", 0, 0, 0),
        rightsOfEachRole(dme::UPDATE, "/system/ntpEnabled", "false", 6, 6, 0),
        rightsOfEachRole(dme::UPDATE, "/system/logLevel", R"("info")", 6, 6, 0),
        rightsOfEachRole(dme::CREATE, "/system/reboot", "", 6, 6, 0),
        rightsOfEachRole(dme::READ, "/status", "", 0, 0, 0),
        rightsOfEachRole(dme::READ, "/factory/model", "", 0, 0, 0),
        rightsOfEachRole(dme::READ, "/labels", "", 0, 0, 0),
        rightsOfEachRole(dme::UPDATE, "/labels", R"({"a":"b"})", 6, 6, 0),
        rightsOfEachRole(dme::READ, "/network/interfaces/wan", "", 0, 0, 0),
        rightsOfEachRole(dme::UPDATE, "/network/interfaces/wan/enabled", "false", 6, 0, 0),
        rightsOfEachRole(dme::READ, "/network/interfaces/lan/lowerLayers", "", 0, 0, 0),
        rightsOfEachRole(dme::UPDATE, "/network/defaultRoute", R"("interfaces/lan")", 6, 0, 0),
        rightsOfEachRole(dme::READ, "/network/gateway", "", 0, 0, 0),
        rightsOfEachRole(dme::UPDATE, "/network/dnsServers/1", R"("192.0.2.9")", 6, 0, 0),
        rightsOfEachRole(dme::READ, "/users/1", "", 0, 0, 0),
        rightsOfEachRole(dme::UPDATE, "/users/1/enabled", "false", 6, 6, 0),
        rightsOfEachRole(dme::UPDATE, "/users/1/password", R"("long-enough")", 6, 6, 0),
        rightsOfEachRole(dme::CREATE, "/users", R"({"name":"x"})", 6, 6, 0),
        rightsOfEachRole(dme::DELETE, "/users/2", "", 6, 6, 0),
    };
    std::vector<Right> table;
    for (const auto& row : rows) table.insert(table.end(), row.begin(), row.end());
    return table;
}

INSTANTIATE_TEST_SUITE_P(EveryRole, GatewayRightsByRole, ::testing::ValuesIn(rightsTable()));

}  // namespace
}  // namespace example
