#include "dme/policy.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "dme/arguments.h"
#include "dme/context.h"
#include "dme/path.h"
#include "recorded_diagnostics.h"
#include "request.h"

namespace dme {
namespace {

// A holder whose children are found by name; "+" designates every child, as it designates
// every item of a collection.
class TreeHolder : public PermissionPolicyHolder {
  public:
    TreeHolder() = default;
    explicit TreeHolder(const PermissionPolicy& policy) : PermissionPolicyHolder(policy) {}
    explicit TreeHolder(PermissionPolicy* policy) : PermissionPolicyHolder(policy) {}

    // Attaches `child` under `name` and links its policy to this holder.
    void attach(const std::string& name, TreeHolder& child) {
        children_.emplace_back(name, &child);
        child.setParent(this);
    }

    void findPermissionPolicyHolders(const ConstHashString& name,
                                     std::vector<PermissionPolicyHolder*>& out) const override {
        for (const auto& child : children_) {
            if (name.str() == "+" || name.str() == child.first) out.push_back(child.second);
        }
    }

  private:
    std::vector<std::pair<std::string, TreeHolder*>> children_;
};

// A static policy that reports its destruction, to observe who owns it.
// Sets a flag shared with the test when destroyed; the flag outlives whichever dies last.
class TrackedPolicy : public StaticPolicy {
  public:
    TrackedPolicy(AllowedMethods rights, std::shared_ptr<bool> destroyed)
        : StaticPolicy(rights), destroyed_(std::move(destroyed)) {}
    ~TrackedPolicy() override { *destroyed_ = true; }
    PermissionPolicy* copy() const override { return new TrackedPolicy(*this); }

  private:
    std::shared_ptr<bool> destroyed_;
};

// Records the arguments of each call and returns a new TrackedPolicy granting DELETE.
class RecordingReplacer : public PermissionPolicyReplacer {
  public:
    struct Call {
        const PermissionPolicy* current;
        const PermissionPolicy* replacement;
    };

    PermissionPolicy* operator()(const PermissionPolicy& current,
                                 const PermissionPolicy& replacement) const override {
        calls.push_back({&current, &replacement});
        made = new TrackedPolicy(DELETE, madeDestroyed);
        return made;
    }

    mutable std::vector<Call> calls;
    mutable PermissionPolicy* made = nullptr;
    std::shared_ptr<bool> madeDestroyed = std::make_shared<bool>(false);
};

class ThrowingReplacer : public PermissionPolicyReplacer {
  public:
    PermissionPolicy* operator()(const PermissionPolicy&, const PermissionPolicy&) const override {
        throw std::runtime_error("replacement refused");
    }
};

class PolicyTest : public ::testing::Test {
  protected:
    PolicyTest() { InheritedPolicy::resetCallCounters(); }

    Context ctx{test::bareLexicon(), READ, "/", Arguments(""), false};
    const PermissionPolicyHolder::DefaultPolicyReplacer byCopy;
};

// ---- NONE and NonePolicy ----

TEST_F(PolicyTest, NoneObjectIsNone) {
    EXPECT_TRUE(PermissionPolicy::NONE.isNone());
}

TEST_F(PolicyTest, AnotherNonePolicyObjectIsNotNone) {
    const NonePolicy other;
    EXPECT_FALSE(other.isNone());
}

TEST_F(PolicyTest, StaticPolicyIsNotNone) {
    EXPECT_FALSE(StaticPolicy(READ).isNone());
}

TEST_F(PolicyTest, NonePolicyCopyIsNull) {
    const NonePolicy other;
    EXPECT_EQ(other.copy(), nullptr);
}

TEST_F(PolicyTest, NoneObjectCopyIsNull) {
    EXPECT_EQ(PermissionPolicy::NONE.copy(), nullptr);
}

TEST_F(PolicyTest, NonePolicyGrantsNothing) {
    const NonePolicy other;
    EXPECT_EQ(other.getRights(ctx, false), AllowedMethods(0u));
    EXPECT_EQ(PermissionPolicy::NONE.getRights(ctx, true), AllowedMethods(0u));
}

TEST_F(PolicyTest, NonePolicyHasNoPermissionForAnyMethod) {
    const NonePolicy other;
    for (Method method : {CREATE, READ, UPDATE, DELETE, SCHEMA, SUBSCRIBE, UNSUBSCRIBE}) {
        EXPECT_FALSE(other.hasPermission(method, ctx)) << method;
        EXPECT_FALSE(PermissionPolicy::NONE.hasPermission(method, ctx)) << method;
    }
}

TEST_F(PolicyTest, NonePolicyAppliesItself) {
    const NonePolicy other;
    EXPECT_EQ(other.getAppliedPolicy(), &other);
    EXPECT_EQ(PermissionPolicy::NONE.getAppliedPolicy(), &PermissionPolicy::NONE);
}

// ---- StaticPolicy ----

TEST_F(PolicyTest, StaticPolicyGrantsItsRightsWithOrWithoutRefresh) {
    const StaticPolicy policy(READ | UPDATE);
    EXPECT_EQ(policy.getRights(ctx, false), AllowedMethods(0x06u));
    EXPECT_EQ(policy.getRights(ctx, true), AllowedMethods(0x06u));
}

TEST_F(PolicyTest, StaticPolicyAppliesItself) {
    const StaticPolicy policy(READ);
    EXPECT_EQ(policy.getAppliedPolicy(), &policy);
}

TEST_F(PolicyTest, StaticPolicyCopyKeepsRightsAndParent) {
    const TreeHolder parent;
    StaticPolicy policy(CREATE | DELETE);
    policy.setParent(&parent);
    std::unique_ptr<PermissionPolicy> copy(policy.copy());
    const auto* copied = dynamic_cast<const StaticPolicy*>(copy.get());
    ASSERT_NE(copied, nullptr);
    EXPECT_NE(copied, &policy);
    EXPECT_EQ(copied->rights(), AllowedMethods(0x09u));
    EXPECT_EQ(copied->parent(), &parent);
}

// ---- hasPermission: any common bit ----

TEST_F(PolicyTest, SubscribeIsNotGrantedByReadRights) {
    EXPECT_FALSE(StaticPolicy(READ).hasPermission(SUBSCRIBE, ctx));
}

TEST_F(PolicyTest, SubscribeIsGrantedBySchemaRights) {
    EXPECT_TRUE(StaticPolicy(SCHEMA).hasPermission(SUBSCRIBE, ctx));
}

TEST_F(PolicyTest, UnsubscribeIsGrantedBySchemaRights) {
    EXPECT_TRUE(StaticPolicy(SCHEMA).hasPermission(UNSUBSCRIBE, ctx));
}

TEST_F(PolicyTest, MethodOutsideStaticRightsIsRefused) {
    const StaticPolicy policy(READ | UPDATE);
    EXPECT_TRUE(policy.hasPermission(READ, ctx));
    EXPECT_TRUE(policy.hasPermission(UPDATE, ctx));
    EXPECT_FALSE(policy.hasPermission(CREATE, ctx));
    EXPECT_FALSE(policy.hasPermission(DELETE, ctx));
}

TEST_F(PolicyTest, EmptyStaticPolicyRefusesEverything) {
    const StaticPolicy policy(AllowedMethods(0u));
    for (Method method : {CREATE, READ, UPDATE, DELETE, SCHEMA, SUBSCRIBE, UNSUBSCRIBE}) {
        EXPECT_FALSE(policy.hasPermission(method, ctx)) << method;
    }
}

// ---- parent links ----

TEST_F(PolicyTest, NewPolicyHasNoParent) {
    EXPECT_EQ(StaticPolicy(READ).parent(), nullptr);
    EXPECT_EQ(InheritedPolicy().parent(), nullptr);
}

TEST_F(PolicyTest, SetParentIsReturnedByParent) {
    const TreeHolder holder;
    InheritedPolicy policy;
    policy.setParent(&holder);
    EXPECT_EQ(policy.parent(), &holder);
}

TEST_F(PolicyTest, ParentPolicyWithoutParentIsNone) {
    EXPECT_EQ(StaticPolicy(READ).parentPolicy(), &PermissionPolicy::NONE);
}

TEST_F(PolicyTest, ParentPolicyIsTheParentHoldersPolicy) {
    const TreeHolder parent{StaticPolicy(READ)};
    InheritedPolicy policy;
    policy.setParent(&parent);
    EXPECT_EQ(policy.parentPolicy(), parent.permissionPolicy());
}

TEST_F(PolicyTest, ParentPolicyOfAHolderWithoutPolicyIsNone) {
    const TreeHolder parent(PermissionPolicy::NONE);
    InheritedPolicy policy;
    policy.setParent(&parent);
    EXPECT_EQ(policy.parentPolicy(), &PermissionPolicy::NONE);
}

// ---- InheritedPolicy resolution ----

TEST_F(PolicyTest, InheritingChildOfReadUpdateParentMayReadAndUpdateButNotCreate) {
    TreeHolder root{StaticPolicy(READ | UPDATE)};
    TreeHolder child;
    root.attach("child", child);
    EXPECT_TRUE(child.hasPermission(READ, ctx));
    EXPECT_TRUE(child.hasPermission(UPDATE, ctx));
    EXPECT_FALSE(child.hasPermission(CREATE, ctx));
    EXPECT_EQ(child.getRights(ctx, false), AllowedMethods(0x06u));
}

TEST_F(PolicyTest, InheritingRootHasNoRights) {
    const TreeHolder root;
    EXPECT_EQ(root.getRights(ctx, false), AllowedMethods(0u));
    for (Method method : {CREATE, READ, UPDATE, DELETE, SCHEMA, SUBSCRIBE, UNSUBSCRIBE}) {
        EXPECT_FALSE(root.hasPermission(method, ctx)) << method;
    }
}

TEST_F(PolicyTest, InheritingRootAppliesNone) {
    const InheritedPolicy policy;
    EXPECT_EQ(policy.getAppliedPolicy(), &PermissionPolicy::NONE);
}

TEST_F(PolicyTest, InheritanceWalksUpToTheFirstDecidingPolicy) {
    TreeHolder root{StaticPolicy(DELETE)};
    TreeHolder child;
    TreeHolder grandchild;
    root.attach("child", child);
    child.attach("grandchild", grandchild);
    EXPECT_EQ(grandchild.permissionPolicy()->getAppliedPolicy(), root.permissionPolicy());
    EXPECT_EQ(grandchild.getRights(ctx, false), AllowedMethods(0x08u));
}

TEST_F(PolicyTest, InheritanceStopsAtNonePolicyOfAnAncestor) {
    TreeHolder root{StaticPolicy(READ)};
    TreeHolder middle(new NonePolicy());
    TreeHolder child;
    root.attach("middle", middle);
    middle.attach("child", child);
    EXPECT_EQ(child.getRights(ctx, true), AllowedMethods(0u));
}

TEST_F(PolicyTest, CachedAppliedPolicyIsFilledByFirstUse) {
    TreeHolder root{StaticPolicy(READ)};
    TreeHolder child;
    root.attach("child", child);
    const auto* policy = dynamic_cast<const InheritedPolicy*>(child.permissionPolicy());
    ASSERT_NE(policy, nullptr);
    EXPECT_EQ(policy->getCachedAppliedPolicy(false), root.permissionPolicy());
    EXPECT_EQ(InheritedPolicy::getAppliedPolicyCallCounter(), 1u);
    EXPECT_EQ(policy->getCachedAppliedPolicy(false), root.permissionPolicy());
    EXPECT_EQ(InheritedPolicy::getAppliedPolicyCallCounter(), 1u);
}

// ---- counters ----

TEST_F(PolicyTest, CountersAreZeroAfterReset) {
    TreeHolder root{StaticPolicy(READ)};
    TreeHolder child;
    root.attach("child", child);
    child.getRights(ctx, true);
    InheritedPolicy::resetCallCounters();
    EXPECT_EQ(InheritedPolicy::getRightsCallCounter(), 0u);
    EXPECT_EQ(InheritedPolicy::getAppliedPolicyCallCounter(), 0u);
}

TEST_F(PolicyTest, CachedRightsWalkTheChainOnce) {
    TreeHolder root{StaticPolicy(READ)};
    TreeHolder child;
    root.attach("child", child);
    child.getRights(ctx, false);
    child.getRights(ctx, false);
    EXPECT_EQ(InheritedPolicy::getAppliedPolicyCallCounter(), 1u);
    EXPECT_EQ(InheritedPolicy::getRightsCallCounter(), 2u);
}

TEST_F(PolicyTest, RefreshedRightsWalkTheChainEachTime) {
    TreeHolder root{StaticPolicy(READ)};
    TreeHolder child;
    root.attach("child", child);
    child.getRights(ctx, true);
    child.getRights(ctx, true);
    EXPECT_EQ(InheritedPolicy::getAppliedPolicyCallCounter(), 2u);
    EXPECT_EQ(InheritedPolicy::getRightsCallCounter(), 2u);
}

TEST_F(PolicyTest, EachInheritingLevelOfTheWalkIsCounted) {
    TreeHolder root{StaticPolicy(READ)};
    TreeHolder child;
    TreeHolder grandchild;
    root.attach("child", child);
    child.attach("grandchild", grandchild);
    grandchild.getRights(ctx, false);
    EXPECT_EQ(InheritedPolicy::getAppliedPolicyCallCounter(), 2u);
    EXPECT_EQ(InheritedPolicy::getRightsCallCounter(), 1u);
}

TEST_F(PolicyTest, ChainEndingAtNoneIsWalkedOnEveryCall) {
    TreeHolder root;
    TreeHolder child;
    root.attach("child", child);
    child.getRights(ctx, false);
    child.getRights(ctx, false);
    EXPECT_EQ(InheritedPolicy::getAppliedPolicyCallCounter(), 4u);
}

TEST_F(PolicyTest, StaticRightsAreNotCounted) {
    const TreeHolder root{StaticPolicy(READ)};
    root.getRights(ctx, true);
    EXPECT_EQ(InheritedPolicy::getRightsCallCounter(), 0u);
    EXPECT_EQ(InheritedPolicy::getAppliedPolicyCallCounter(), 0u);
}

TEST_F(PolicyTest, HasPermissionUsesTheCache) {
    TreeHolder root{StaticPolicy(READ)};
    TreeHolder child;
    root.attach("child", child);
    child.getRights(ctx, false);
    InheritedPolicy::resetCallCounters();
    EXPECT_TRUE(child.hasPermission(READ, ctx));
    EXPECT_EQ(InheritedPolicy::getAppliedPolicyCallCounter(), 0u);
    EXPECT_EQ(InheritedPolicy::getRightsCallCounter(), 1u);
}

// ---- cache staleness ----

class StaleCacheTest : public PolicyTest {
  protected:
    StaleCacheTest() {
        root.attach("middle", middle);
        middle.attach("leaf", leaf);
        leaf.getRights(ctx, false);
        middle.setPermissionPolicy(StaticPolicy(READ | UPDATE), byCopy);
    }

    TreeHolder root{StaticPolicy(READ)};
    TreeHolder middle;
    TreeHolder leaf;
};

TEST_F(StaleCacheTest, FilledCacheDoesNotSeeAPolicyReplacedAbove) {
    EXPECT_EQ(leaf.getRights(ctx, false), AllowedMethods(0x02u));
    EXPECT_FALSE(leaf.hasPermission(UPDATE, ctx));
}

TEST_F(StaleCacheTest, RefreshSeesAPolicyReplacedAbove) {
    EXPECT_EQ(leaf.getRights(ctx, true), AllowedMethods(0x06u));
}

TEST_F(StaleCacheTest, RefreshedCacheServesLaterCalls) {
    leaf.getRights(ctx, true);
    EXPECT_EQ(leaf.getRights(ctx, false), AllowedMethods(0x06u));
    EXPECT_TRUE(leaf.hasPermission(UPDATE, ctx));
}

// ---- InheritedPolicy copy ----

TEST_F(PolicyTest, InheritedCopyKeepsParentAndCache) {
    TreeHolder root{StaticPolicy(READ)};
    TreeHolder child;
    root.attach("child", child);
    child.getRights(ctx, false);
    std::unique_ptr<PermissionPolicy> copy(child.permissionPolicy()->copy());
    const auto* copied = dynamic_cast<const InheritedPolicy*>(copy.get());
    ASSERT_NE(copied, nullptr);
    EXPECT_EQ(copied->parent(), &root);
    InheritedPolicy::resetCallCounters();
    EXPECT_EQ(copied->getCachedAppliedPolicy(false), root.permissionPolicy());
    EXPECT_EQ(InheritedPolicy::getAppliedPolicyCallCounter(), 0u);
}

// ---- holder construction ----

TEST_F(PolicyTest, DefaultHolderInherits) {
    const TreeHolder holder;
    EXPECT_NE(dynamic_cast<const InheritedPolicy*>(holder.permissionPolicy()), nullptr);
}

TEST_F(PolicyTest, HolderTakesOwnershipOfAPolicyPointer) {
    auto destroyed = std::make_shared<bool>(false);
    auto* policy = new TrackedPolicy(READ, destroyed);
    {
        const TreeHolder holder(policy);
        EXPECT_EQ(holder.permissionPolicy(), policy);
        EXPECT_FALSE(*destroyed);
    }
    EXPECT_TRUE(*destroyed);
}

TEST_F(PolicyTest, HolderBuiltFromAReferenceHoldsACopy) {
    const StaticPolicy policy(UPDATE);
    const TreeHolder holder(policy);
    EXPECT_NE(holder.permissionPolicy(), &policy);
    EXPECT_EQ(holder.getRights(ctx, false), AllowedMethods(0x04u));
}

TEST_F(PolicyTest, HolderBuiltFromNoneHoldsNoPolicyAndGrantsNothing) {
    const TreeHolder holder(PermissionPolicy::NONE);
    EXPECT_EQ(holder.permissionPolicy(), nullptr);
    EXPECT_EQ(holder.getRights(ctx, true), AllowedMethods(0u));
    EXPECT_FALSE(holder.hasPermission(READ, ctx));
}

TEST_F(PolicyTest, HolderAnswersWithItsPolicy) {
    const TreeHolder holder{StaticPolicy(SCHEMA)};
    EXPECT_EQ(holder.getRights(ctx, false), AllowedMethods(0x8000u));
    EXPECT_TRUE(holder.hasPermission(SUBSCRIBE, ctx));
    EXPECT_FALSE(holder.hasPermission(READ, ctx));
}

TEST_F(PolicyTest, HolderSetParentLinksItsPolicy) {
    const TreeHolder parent;
    TreeHolder holder;
    holder.setParent(&parent);
    EXPECT_EQ(holder.permissionPolicy()->parent(), &parent);
}

// ---- setPermissionPolicy ----

TEST_F(PolicyTest, SetPolicyHoldsACopyOfTheRequestedPolicy) {
    TreeHolder holder;
    const StaticPolicy requested(CREATE);
    holder.setPermissionPolicy(requested, byCopy);
    EXPECT_NE(holder.permissionPolicy(), &requested);
    EXPECT_EQ(holder.getRights(ctx, false), AllowedMethods(0x01u));
}

TEST_F(PolicyTest, SetPolicyKeepsTheParentHolder) {
    TreeHolder root{StaticPolicy(READ)};
    TreeHolder child;
    root.attach("child", child);
    child.setPermissionPolicy(StaticPolicy(UPDATE), byCopy);
    EXPECT_EQ(child.permissionPolicy()->parent(), &root);
}

TEST_F(PolicyTest, InheritedPolicySetBelowAParentInheritsFromIt) {
    TreeHolder root{StaticPolicy(READ)};
    TreeHolder child{StaticPolicy(DELETE)};
    root.attach("child", child);
    child.setPermissionPolicy(InheritedPolicy(), byCopy);
    EXPECT_EQ(child.getRights(ctx, false), AllowedMethods(0x02u));
}

TEST_F(PolicyTest, SetPolicyReleasesTheOldPolicy) {
    auto destroyed = std::make_shared<bool>(false);
    TreeHolder holder(new TrackedPolicy(READ, destroyed));
    holder.setPermissionPolicy(StaticPolicy(UPDATE), byCopy);
    EXPECT_TRUE(*destroyed);
}

TEST_F(PolicyTest, SettingNoneByCopyLeavesNoPolicy) {
    TreeHolder root{StaticPolicy(READ)};
    TreeHolder child;
    root.attach("child", child);
    child.setPermissionPolicy(PermissionPolicy::NONE, byCopy);
    EXPECT_EQ(child.permissionPolicy(), nullptr);
    EXPECT_EQ(child.getRights(ctx, true), AllowedMethods(0u));
    EXPECT_FALSE(child.hasPermission(READ, ctx));
}

TEST_F(PolicyTest, HolderWithoutPolicyAcceptsAParent) {
    const TreeHolder parent;
    TreeHolder holder(PermissionPolicy::NONE);
    holder.setParent(&parent);
    EXPECT_EQ(holder.permissionPolicy(), nullptr);
}

TEST_F(PolicyTest, DefaultReplacerCopiesTheReplacementIgnoringTheCurrent) {
    const StaticPolicy current(READ);
    const StaticPolicy replacement(UPDATE);
    std::unique_ptr<PermissionPolicy> made(byCopy(current, replacement));
    const auto* copied = dynamic_cast<const StaticPolicy*>(made.get());
    ASSERT_NE(copied, nullptr);
    EXPECT_NE(copied, &replacement);
    EXPECT_EQ(copied->rights(), AllowedMethods(0x04u));
}

TEST_F(PolicyTest, DefaultReplacerYieldsNullForNone) {
    EXPECT_EQ(byCopy(StaticPolicy(READ), PermissionPolicy::NONE), nullptr);
}

TEST_F(PolicyTest, CustomReplacerGetsCurrentFirstAndRequestedSecond) {
    TreeHolder holder{StaticPolicy(READ)};
    const PermissionPolicy* old = holder.permissionPolicy();
    const StaticPolicy requested(UPDATE);
    const RecordingReplacer replacer;
    holder.setPermissionPolicy(requested, replacer);
    ASSERT_EQ(replacer.calls.size(), 1u);
    EXPECT_EQ(replacer.calls[0].current, old);
    EXPECT_EQ(replacer.calls[0].replacement, &requested);
}

TEST_F(PolicyTest, HolderOwnsWhatACustomReplacerReturns) {
    const RecordingReplacer replacer;
    {
        TreeHolder holder;
        holder.setPermissionPolicy(StaticPolicy(UPDATE), replacer);
        EXPECT_EQ(holder.permissionPolicy(), replacer.made);
        EXPECT_EQ(holder.getRights(ctx, false), AllowedMethods(0x08u));
        EXPECT_FALSE(*replacer.madeDestroyed);
    }
    EXPECT_TRUE(*replacer.madeDestroyed);
}

TEST_F(PolicyTest, CustomReplacerResultKeepsTheParentHolder) {
    TreeHolder root{StaticPolicy(READ)};
    TreeHolder child;
    root.attach("child", child);
    const RecordingReplacer replacer;
    child.setPermissionPolicy(StaticPolicy(UPDATE), replacer);
    EXPECT_EQ(child.permissionPolicy()->parent(), &root);
}

TEST_F(PolicyTest, CustomReplacerGetsNoneAsCurrentOfAHolderWithoutPolicy) {
    TreeHolder holder(PermissionPolicy::NONE);
    const RecordingReplacer replacer;
    holder.setPermissionPolicy(StaticPolicy(UPDATE), replacer);
    ASSERT_EQ(replacer.calls.size(), 1u);
    EXPECT_EQ(replacer.calls[0].current, &PermissionPolicy::NONE);
    EXPECT_EQ(holder.permissionPolicy(), replacer.made);
}

TEST_F(PolicyTest, FailingReplacerLeavesTheOldPolicy) {
    TreeHolder holder{StaticPolicy(READ)};
    const PermissionPolicy* old = holder.permissionPolicy();
    EXPECT_THROW(holder.setPermissionPolicy(StaticPolicy(UPDATE), ThrowingReplacer()),
                 std::runtime_error);
    EXPECT_EQ(holder.permissionPolicy(), old);
    EXPECT_EQ(holder.getRights(ctx, false), AllowedMethods(0x02u));
}

// ---- configurePermissionPolicy ----

// root / devices / {0, 1} / {name, other}; every node inherits, so nothing has rights until a
// policy is configured.
class ConfigureTest : public PolicyTest {
  protected:
    ConfigureTest() {
        root.attach("devices", devices);
        devices.attach("0", item0);
        devices.attach("1", item1);
        item0.attach("name", name0);
        item0.attach("other", other0);
        item1.attach("name", name1);
        item1.attach("other", other1);
    }

    // The rights of every node, in the order root, devices, item0, name0, other0, item1,
    // name1, other1, freshly resolved.
    std::vector<AllowedMethods> allRights() {
        std::vector<AllowedMethods> rights;
        for (const TreeHolder* holder :
             {&root, &devices, &item0, &name0, &other0, &item1, &name1, &other1}) {
            rights.push_back(holder->getRights(ctx, true));
        }
        return rights;
    }

    void configure(const std::string& uri, const PermissionPolicyReplacer& replacer) {
        PathBrowser browser(uri);
        root.configurePermissionPolicy(browser, StaticPolicy(DELETE), replacer);
    }

    TreeHolder root;
    TreeHolder devices;
    TreeHolder item0;
    TreeHolder item1;
    TreeHolder name0;
    TreeHolder other0;
    TreeHolder name1;
    TreeHolder other1;
};

const AllowedMethods kNone(0u);
const AllowedMethods kDelete(0x08u);

TEST_F(ConfigureTest, EmptyPathSetsTheRootsPolicy) {
    configure("/", byCopy);
    EXPECT_EQ(allRights(), std::vector<AllowedMethods>({kDelete, kDelete, kDelete, kDelete, kDelete,
                                                        kDelete, kDelete, kDelete}));
    EXPECT_NE(dynamic_cast<const StaticPolicy*>(root.permissionPolicy()), nullptr);
}

TEST_F(ConfigureTest, EmptyRelativePathSetsTheRootsPolicy) {
    configure("", byCopy);
    EXPECT_NE(dynamic_cast<const StaticPolicy*>(root.permissionPolicy()), nullptr);
}

TEST_F(ConfigureTest, NestedPathSetsOnlyThatNodeAndItsInheritingChildren) {
    configure("/devices/1", byCopy);
    EXPECT_EQ(allRights(), std::vector<AllowedMethods>(
                               {kNone, kNone, kNone, kNone, kNone, kDelete, kDelete, kDelete}));
    EXPECT_NE(dynamic_cast<const StaticPolicy*>(item1.permissionPolicy()), nullptr);
    EXPECT_NE(dynamic_cast<const InheritedPolicy*>(name1.permissionPolicy()), nullptr);
}

TEST_F(ConfigureTest, ConfiguredPolicyKeepsTheParentHolder) {
    configure("/devices/0/name", byCopy);
    EXPECT_EQ(name0.permissionPolicy()->parent(), &item0);
}

TEST_F(ConfigureTest, WildcardSetsTheMemberInEveryItemAndNothingElse) {
    configure("/devices/+/name", byCopy);
    EXPECT_EQ(allRights(), std::vector<AllowedMethods>(
                               {kNone, kNone, kNone, kDelete, kNone, kNone, kDelete, kNone}));
}

TEST_F(ConfigureTest, WildcardVisitsTheItemsInOrderWithTheirOwnPolicies) {
    const PermissionPolicy* old0 = item0.permissionPolicy();
    const PermissionPolicy* old1 = item1.permissionPolicy();
    const RecordingReplacer replacer;
    configure("/devices/+", replacer);
    ASSERT_EQ(replacer.calls.size(), 2u);
    EXPECT_EQ(replacer.calls[0].current, old0);
    EXPECT_EQ(replacer.calls[1].current, old1);
    EXPECT_EQ(item1.permissionPolicy(), replacer.made);
}

TEST_F(ConfigureTest, CustomReplacerIsUsedForTheTarget) {
    const RecordingReplacer replacer;
    configure("/devices/0/other", replacer);
    ASSERT_EQ(replacer.calls.size(), 1u);
    EXPECT_EQ(other0.permissionPolicy(), replacer.made);
}

TEST_F(ConfigureTest, UnknownSegmentIsReportedOnStandardError) {
    ::testing::internal::CaptureStderr();
    configure("/nosuch", byCopy);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "\"nosuch\" Not found (/nosuch)\n");
}

TEST_F(ConfigureTest, UnknownSegmentIsReportedToTheInstalledDiagnosticHandler) {
    dme::test::RecordedDiagnostics recorded;
    ::testing::internal::CaptureStderr();
    configure("/nosuch", byCopy);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(recorded.reports, std::vector<std::string>{"\"nosuch\" Not found (/nosuch)\n"});
}

TEST_F(ConfigureTest, UnknownSegmentChangesNothing) {
    ::testing::internal::CaptureStderr();
    configure("/nosuch", byCopy);
    ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(allRights(), std::vector<AllowedMethods>(
                               {kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone}));
    EXPECT_NE(dynamic_cast<const InheritedPolicy*>(root.permissionPolicy()), nullptr);
}

TEST_F(ConfigureTest, UnknownSegmentBelowAWildcardIsReportedOncePerBranch) {
    ::testing::internal::CaptureStderr();
    configure("/devices/+/nosuch", byCopy);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "\"nosuch\" Not found (/devices/+/nosuch)\n"
              "\"nosuch\" Not found (/devices/+/nosuch)\n");
}

TEST_F(ConfigureTest, UnknownSegmentDoesNotStopOtherBranches) {
    TreeHolder extra;
    item0.attach("extra", extra);
    ::testing::internal::CaptureStderr();
    configure("/devices/+/extra", byCopy);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "\"extra\" Not found (/devices/+/extra)\n");
    EXPECT_EQ(extra.getRights(ctx, true), kDelete);
}

TEST_F(ConfigureTest, ConfigurationLeavesTheBrowserWhereItStarted) {
    PathBrowser browser("/devices/+/name");
    root.configurePermissionPolicy(browser, StaticPolicy(DELETE), byCopy);
    EXPECT_EQ(static_cast<std::string>(browser.current()), "/");
    EXPECT_EQ(browser.requested(), ConstHashString("devices"));
}

}  // namespace
}  // namespace dme
