// DataModelEngine::allowedMethods: the methods a node has, narrowed by what the session may do
// there, without running anything on the node.
#include <gtest/gtest.h>

#include <string>

#include "dme/atomic_value.h"
#include "dme/engine.h"
#include "dme/policy.h"
#include "dme/result.h"
#include "dme/structure.h"

namespace dme {
namespace {

constexpr unsigned int ADMIN_ROLE = 1;

// Grants everything to a session with the admin role, READ and browsing to any other.
class AdminPolicy : public PermissionPolicy {
  public:
    PermissionPolicy* copy() const override { return new AdminPolicy(*this); }
    AllowedMethods getRights(const Context& ctx, bool) const override {
        if (ctx.requestInfo().session().hasRole(ADMIN_ROLE)) return AllowedMethods(0xFFFFFFFF);
        return READ + AllowedMethods::B;
    }
    const PermissionPolicy* getAppliedPolicy() const override { return this; }
};

// Counts the stores, so that a test can see that asking changes nothing.
class WatchedText : public StaticAtomicValue<std::string> {
  public:
    WatchedText() : StaticAtomicValue<std::string>("x", READ + UPDATE) {}
    int setValue(Context& ctx, const std::string& value) override {
        ++stores;
        return StaticAtomicValue<std::string>::setValue(ctx, value);
    }
    int stores = 0;
};

class EngineAllowedMethodsTest : public testing::Test {
  protected:
    EngineAllowedMethodsTest()
        : text_(new WatchedText),
          engine_(new DataModel(
                      new Structure({new Entry("text", text_),
                                     new Entry("fixed", new StaticAtomicValue<int>(1, READ)),
                                     new Entry("hidden", new StaticAtomicValue<int>(2, READ))},
                                    READ + UPDATE + AllowedMethods::B, false),
                      lexicon_, AllowedMethods(0xFFFFFFFF)),
                  "test") {
        engine_.dataModel()->root()->setPermissionPolicy(
            AdminPolicy(), PermissionPolicyHolder::DefaultPolicyReplacer());
    }

    AllowedMethods allowed(const std::string& uri, const RequestInfo& info, int expected) {
        AllowedMethods methods(CREATE);
        EXPECT_EQ(engine_.allowedMethods(uri, info, methods), expected) << uri;
        return methods;
    }

    Lexicon lexicon_{"href", "id", "count", "members", "expand", "select"};
    WatchedText* text_;
    DataModelEngine engine_;
    const RequestInfo admin_{SessionInfo(UserInfo("admin", 1, {ADMIN_ROLE}), {}), {}};
    const RequestInfo guest_{SessionInfo(UserInfo("guest", 2, {}), {}), {}};
};

TEST_F(EngineAllowedMethodsTest, AWritableLeafAllowsTheAdminToReadAndUpdate) {
    EXPECT_EQ(allowed("/text", admin_, result::DONE), READ + UPDATE);
}

TEST_F(EngineAllowedMethodsTest, TheSessionsRightsNarrowWhatTheNodeHas) {
    EXPECT_EQ(allowed("/text", guest_, result::DONE), AllowedMethods(READ));
}

TEST_F(EngineAllowedMethodsTest, AReadOnlyLeafAllowsOnlyReadingWhateverTheRights) {
    EXPECT_EQ(allowed("/fixed", admin_, result::DONE), AllowedMethods(READ));
}

TEST_F(EngineAllowedMethodsTest, TheRootAnswersForItself) {
    EXPECT_EQ(allowed("/", admin_, result::DONE), READ + UPDATE);
}

TEST_F(EngineAllowedMethodsTest, APathThatNamesNothingIsNotFoundAndAllowsNothing) {
    EXPECT_EQ(allowed("/missing", admin_, result::NOT_FOUND), AllowedMethods());
}

TEST_F(EngineAllowedMethodsTest, ANodeTheSessionMayNotBrowseToIsForbiddenAndAllowsNothing) {
    engine_.dataModel()->root()->setPermissionPolicy(
        StaticPolicy(READ), PermissionPolicyHolder::DefaultPolicyReplacer());
    EXPECT_EQ(allowed("/text", admin_, result::FORBIDDEN), AllowedMethods());
}

TEST_F(EngineAllowedMethodsTest, AskingStoresNothing) {
    allowed("/text", admin_, result::DONE);
    EXPECT_EQ(text_->stores, 0);
}

}  // namespace
}  // namespace dme
