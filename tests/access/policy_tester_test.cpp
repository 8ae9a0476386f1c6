#include "dme/policy_tester.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "dme/arguments.h"
#include "dme/context.h"
#include "request.h"

namespace dme {
namespace {

using HolderTest = PermissionPoliciesTester::PermissionPolicyHolderTest;
using Expectations = std::vector<std::pair<std::string, AllowedMethods>>;

class PolicyTesterTest : public ::testing::Test {
  protected:
    // Expects `call` to throw std::invalid_argument with exactly `text`.
    template <class Call>
    static void expectInvalidArgument(Call call, const std::string& text) {
        try {
            call();
            ADD_FAILURE() << "no exception, expected: " << text;
        } catch (const std::invalid_argument& e) {
            EXPECT_EQ(std::string(e.what()), text);
        }
    }

    Context ctx{test::bareLexicon(), READ, "/", Arguments(""), false};
    PermissionPoliciesTester tester;
    std::string report;
};

// ---- registration ----

TEST_F(PolicyTesterTest, InheritingChildTakesTheRightsOfItsRegisteredParent) {
    tester.add("root", StaticPolicy(READ), "");
    tester.add("child", InheritedPolicy(), "root");
    EXPECT_TRUE(tester.testOne("child", ctx, READ, "child", report));
    EXPECT_EQ(report, "child - get rights _R___ (expects _R___)\n");
}

TEST_F(PolicyTesterTest, InheritingPolicyWithoutParentGrantsNothing) {
    tester.add("alone", InheritedPolicy(), "");
    EXPECT_TRUE(tester.testOne("alone", ctx, AllowedMethods(0u), "alone", report));
    EXPECT_EQ(report, "alone - get rights _____ (expects _____)\n");
}

TEST_F(PolicyTesterTest, NonePolicyRegistersAHolderGrantingNothing) {
    tester.add("none", PermissionPolicy::NONE, "");
    EXPECT_TRUE(tester.testOne("none", ctx, AllowedMethods(0u), "none", report));
}

TEST_F(PolicyTesterTest, AddWithEmptyNameFails) {
    expectInvalidArgument([&] { tester.add("", StaticPolicy(READ), ""); }, "Invalid empty name");
}

TEST_F(PolicyTesterTest, EmptyNameIsCheckedBeforeTheParent) {
    expectInvalidArgument([&] { tester.add("", StaticPolicy(READ), "nosuch"); },
                          "Invalid empty name");
}

TEST_F(PolicyTesterTest, AddWithExistingNameFails) {
    tester.add("root", StaticPolicy(READ), "");
    expectInvalidArgument([&] { tester.add("root", StaticPolicy(UPDATE), ""); },
                          "A policy with same name already exists");
}

TEST_F(PolicyTesterTest, FailedAddKeepsTheRegisteredPolicy) {
    tester.add("root", StaticPolicy(READ), "");
    EXPECT_THROW(tester.add("root", StaticPolicy(UPDATE), ""), std::invalid_argument);
    EXPECT_TRUE(tester.testOne("root", ctx, READ, "root", report));
}

TEST_F(PolicyTesterTest, AddBelowUnknownParentFails) {
    expectInvalidArgument([&] { tester.add("child", InheritedPolicy(), "nosuch"); },
                          "No parent policy with given name found");
}

TEST_F(PolicyTesterTest, AddBelowUnknownParentRegistersNothing) {
    EXPECT_THROW(tester.add("child", InheritedPolicy(), "nosuch"), std::invalid_argument);
    EXPECT_FALSE(tester.testOne("child", ctx, AllowedMethods(0u), "child", report));
    EXPECT_EQ(report, "No policy defined with name child\n");
}

TEST_F(PolicyTesterTest, AddBelowItselfFailsAsUnknownParent) {
    expectInvalidArgument([&] { tester.add("self", InheritedPolicy(), "self"); },
                          "No parent policy with given name found");
}

TEST_F(PolicyTesterTest, AddRegistersACopyOfThePolicy) {
    StaticPolicy policy(READ);
    tester.add("root", policy, "");
    policy = StaticPolicy(UPDATE);
    EXPECT_TRUE(tester.testOne("root", ctx, READ, "root", report));
}

// ---- replacement ----

TEST_F(PolicyTesterTest, ReplacedParentIsSeenByTheRefreshingTest) {
    tester.add("root", StaticPolicy(READ), "");
    tester.add("child", InheritedPolicy(), "root");
    ASSERT_TRUE(tester.testOne("child", ctx, READ, "before", report));
    tester.replace("root", StaticPolicy(READ | UPDATE));
    EXPECT_FALSE(tester.testOne("child", ctx, READ, "after", report));
    EXPECT_EQ(report,
              "before - get rights _R___ (expects _R___)\n"
              "after - get rights _RU__ (expects _R___)\n");
}

TEST_F(PolicyTesterTest, ReplacedPolicyKeepsItsParent) {
    tester.add("root", StaticPolicy(UPDATE), "");
    tester.add("child", StaticPolicy(DELETE), "root");
    tester.replace("child", InheritedPolicy());
    EXPECT_TRUE(tester.testOne("child", ctx, UPDATE, "child", report));
}

TEST_F(PolicyTesterTest, ReplaceOfUnknownNameFails) {
    expectInvalidArgument([&] { tester.replace("nosuch", StaticPolicy(READ)); },
                          "No policy with given name found");
}

// ---- testPolicyRights ----

TEST_F(PolicyTesterTest, MatchingRightsPassAndAreReported) {
    const HolderTest holder{StaticPolicy(READ | UPDATE)};
    EXPECT_TRUE(
        PermissionPoliciesTester::testPolicyRights(ctx, holder, READ | UPDATE, "rw", report));
    EXPECT_EQ(report, "rw - get rights _RU__ (expects _RU__)\n");
}

TEST_F(PolicyTesterTest, MismatchingRightsFailAndAreReported) {
    const HolderTest holder{StaticPolicy(READ)};
    EXPECT_FALSE(
        PermissionPoliciesTester::testPolicyRights(ctx, holder, READ | UPDATE, "rw", report));
    EXPECT_EQ(report, "rw - get rights _R___ (expects _RU__)\n");
}

TEST_F(PolicyTesterTest, ReportShowsEveryAllowedMethodLetter) {
    const HolderTest holder{StaticPolicy(AllowedMethods(0x1Fu))};
    EXPECT_FALSE(PermissionPoliciesTester::testPolicyRights(ctx, holder, AllowedMethods(0x11u),
                                                            "all", report));
    EXPECT_EQ(report, "all - get rights CRUDB (expects C___B)\n");
}

TEST_F(PolicyTesterTest, ReportLinesAreAppended) {
    const HolderTest holder{StaticPolicy(DELETE)};
    report = "earlier\n";
    PermissionPoliciesTester::testPolicyRights(ctx, holder, DELETE, "d", report);
    EXPECT_EQ(report, "earlier\nd - get rights ___D_ (expects ___D_)\n");
}

TEST_F(PolicyTesterTest, EmptyLabelIsWrittenAsIs) {
    const HolderTest holder{StaticPolicy(CREATE)};
    PermissionPoliciesTester::testPolicyRights(ctx, holder, CREATE, "", report);
    EXPECT_EQ(report, " - get rights C____ (expects C____)\n");
}

TEST_F(PolicyTesterTest, TestPolicyRightsRefreshesTheInheritanceCache) {
    HolderTest root{StaticPolicy(READ)};
    HolderTest middle{InheritedPolicy()};
    HolderTest leaf{InheritedPolicy()};
    middle.setParent(&root);
    leaf.setParent(&middle);
    ASSERT_EQ(leaf.getRights(ctx, false), AllowedMethods(0x02u));
    middle.setPermissionPolicy(StaticPolicy(DELETE));
    EXPECT_TRUE(PermissionPoliciesTester::testPolicyRights(ctx, leaf, DELETE, "leaf", report));
}

// ---- testOne ----

TEST_F(PolicyTesterTest, TestOneOfUnknownNameFailsAndIsReported) {
    EXPECT_FALSE(tester.testOne("nosuch", ctx, READ, "label", report));
    EXPECT_EQ(report, "No policy defined with name nosuch\n");
}

TEST_F(PolicyTesterTest, TestOnePassesTheLabelUnchanged) {
    tester.add("root", StaticPolicy(UPDATE), "");
    tester.testOne("root", ctx, UPDATE, "my label", report);
    EXPECT_EQ(report, "my label - get rights __U__ (expects __U__)\n");
}

// ---- testMulti ----

TEST_F(PolicyTesterTest, TestMultiOfNoExpectationsPasses) {
    EXPECT_TRUE(tester.testMulti(ctx, Expectations(), "none", report));
    EXPECT_EQ(report, "");
}

TEST_F(PolicyTesterTest, TestMultiReportsEachPairInOrder) {
    tester.add("a", StaticPolicy(READ), "");
    tester.add("b", StaticPolicy(UPDATE), "");
    EXPECT_TRUE(tester.testMulti(ctx, {{"b", UPDATE}, {"a", READ}}, "multi", report));
    EXPECT_EQ(report,
              "multi - get rights __U__ (expects __U__)\n"
              "multi - get rights _R___ (expects _R___)\n");
}

TEST_F(PolicyTesterTest, TestMultiFailsWhenOnePairMismatches) {
    tester.add("a", StaticPolicy(READ), "");
    tester.add("b", StaticPolicy(UPDATE), "");
    EXPECT_FALSE(tester.testMulti(ctx, {{"a", UPDATE}, {"b", UPDATE}}, "multi", report));
    EXPECT_EQ(report,
              "multi - get rights _R___ (expects __U__)\n"
              "multi - get rights __U__ (expects __U__)\n");
}

TEST_F(PolicyTesterTest, TestMultiWithUnknownNameReportsItAndFails) {
    tester.add("a", StaticPolicy(READ), "");
    EXPECT_FALSE(tester.testMulti(ctx, {{"nosuch", READ}, {"a", READ}}, "multi", report));
    EXPECT_EQ(report,
              "No policy defined with name nosuch\n"
              "multi - get rights _R___ (expects _R___)\n");
}

// ---- testAll ----

TEST_F(PolicyTesterTest, TestAllVisitsEveryPolicyInNameOrder) {
    tester.add("b", StaticPolicy(READ), "");
    tester.add("a", InheritedPolicy(), "b");
    EXPECT_TRUE(tester.testAll(ctx, READ, "all", report));
    EXPECT_EQ(report,
              "all - get rights _R___ (expects _R___)\n"
              "all - get rights _R___ (expects _R___)\n");
}

TEST_F(PolicyTesterTest, TestAllFailsWhenOnePolicyMismatchesAndReportsAll) {
    tester.add("a", StaticPolicy(READ), "");
    tester.add("b", StaticPolicy(UPDATE), "");
    tester.add("c", StaticPolicy(READ), "");
    EXPECT_FALSE(tester.testAll(ctx, READ, "all", report));
    EXPECT_EQ(report,
              "all - get rights _R___ (expects _R___)\n"
              "all - get rights __U__ (expects _R___)\n"
              "all - get rights _R___ (expects _R___)\n");
}

TEST_F(PolicyTesterTest, TestAllOfNoPoliciesPasses) {
    EXPECT_TRUE(tester.testAll(ctx, READ, "all", report));
    EXPECT_EQ(report, "");
}

// ---- PermissionPolicyHolderTest ----

TEST_F(PolicyTesterTest, HolderTestHasNoChildren) {
    const HolderTest holder{StaticPolicy(READ)};
    std::vector<PermissionPolicyHolder*> out{nullptr};
    holder.findPermissionPolicyHolders(ConstHashString("+"), out);
    EXPECT_EQ(out, std::vector<PermissionPolicyHolder*>{nullptr});
}

TEST_F(PolicyTesterTest, HolderTestHoldsACopyOfItsPolicy) {
    const StaticPolicy policy(READ);
    const HolderTest holder{policy};
    EXPECT_NE(holder.permissionPolicy(), &policy);
    EXPECT_EQ(holder.getRights(ctx), AllowedMethods(0x02u));
}

TEST_F(PolicyTesterTest, HolderTestSetPolicyKeepsTheParent) {
    HolderTest root{StaticPolicy(UPDATE)};
    HolderTest child{StaticPolicy(READ)};
    child.setParent(&root);
    child.setPermissionPolicy(InheritedPolicy());
    EXPECT_EQ(child.permissionPolicy()->parent(), &root);
    EXPECT_EQ(child.getRights(ctx), AllowedMethods(0x04u));
}

TEST_F(PolicyTesterTest, HolderTestRightsAreRefreshed) {
    HolderTest root{StaticPolicy(READ)};
    HolderTest middle{InheritedPolicy()};
    HolderTest leaf{InheritedPolicy()};
    middle.setParent(&root);
    leaf.setParent(&middle);
    ASSERT_EQ(leaf.getRights(ctx), AllowedMethods(0x02u));
    middle.setPermissionPolicy(StaticPolicy(CREATE));
    EXPECT_EQ(leaf.getRights(ctx), AllowedMethods(0x01u));
}

}  // namespace
}  // namespace dme
