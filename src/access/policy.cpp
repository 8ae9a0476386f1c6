#include "dme/policy.h"

#include <atomic>
#include <sstream>

#include "dme/diagnostics.h"
#include "dme/path.h"

namespace dme {
namespace {

const NonePolicy noneObject;
// Shared by every engine of the process, which may run requests on several threads at once.
std::atomic<std::uint32_t> rightsCalls{0};
std::atomic<std::uint32_t> appliedPolicyCalls{0};

}  // namespace

const PermissionPolicy& PermissionPolicy::NONE = noneObject;

PermissionPolicy::~PermissionPolicy() = default;

bool PermissionPolicy::hasPermission(Method method, const Context& ctx) const {
    return !(method & getRights(ctx, false)).empty();
}

const PermissionPolicy* PermissionPolicy::parentPolicy() const {
    if (parentHolder_ == nullptr) return &NONE;
    const PermissionPolicy* policy = parentHolder_->permissionPolicy();
    return policy != nullptr ? policy : &NONE;
}

PermissionPolicy* NonePolicy::copy() const {
    return nullptr;
}

AllowedMethods NonePolicy::getRights(const Context&, bool) const {
    return AllowedMethods();
}

const PermissionPolicy* NonePolicy::getAppliedPolicy() const {
    return this;
}

PermissionPolicy* StaticPolicy::copy() const {
    return new StaticPolicy(*this);
}

AllowedMethods StaticPolicy::getRights(const Context&, bool) const {
    return rights_;
}

const PermissionPolicy* StaticPolicy::getAppliedPolicy() const {
    return this;
}

PermissionPolicy* InheritedPolicy::copy() const {
    return new InheritedPolicy(*this);
}

AllowedMethods InheritedPolicy::getRights(const Context& ctx, bool refresh) const {
    rightsCalls.fetch_add(1, std::memory_order_relaxed);
    return getCachedAppliedPolicy(refresh)->getRights(ctx, refresh);
}

const PermissionPolicy* InheritedPolicy::getAppliedPolicy() const {
    appliedPolicyCalls.fetch_add(1, std::memory_order_relaxed);
    return parentPolicy()->getAppliedPolicy();
}

const PermissionPolicy* InheritedPolicy::getCachedAppliedPolicy(bool refresh) const {
    if (!refresh && !cachedAppliedPolicy_->isNone()) return cachedAppliedPolicy_;
    cachedAppliedPolicy_ = getAppliedPolicy();
    return cachedAppliedPolicy_;
}

void InheritedPolicy::resetCallCounters() {
    rightsCalls.store(0, std::memory_order_relaxed);
    appliedPolicyCalls.store(0, std::memory_order_relaxed);
}

std::uint32_t InheritedPolicy::getRightsCallCounter() {
    return rightsCalls.load(std::memory_order_relaxed);
}

std::uint32_t InheritedPolicy::getAppliedPolicyCallCounter() {
    return appliedPolicyCalls.load(std::memory_order_relaxed);
}

PermissionPolicyReplacer::~PermissionPolicyReplacer() = default;

PermissionPolicy* PermissionPolicyHolder::DefaultPolicyReplacer::operator()(
    const PermissionPolicy&, const PermissionPolicy& replacement) const {
    return replacement.copy();
}

PermissionPolicyHolder::PermissionPolicyHolder() : policy_(std::make_shared<InheritedPolicy>()) {}

PermissionPolicyHolder::PermissionPolicyHolder(PermissionPolicy* policy) : policy_(policy) {}

PermissionPolicyHolder::PermissionPolicyHolder(const PermissionPolicy& policy)
    : policy_(policy.copy()) {}

PermissionPolicyHolder::~PermissionPolicyHolder() = default;

bool PermissionPolicyHolder::hasPermission(Method method, const Context& ctx) const {
    return policy_ && policy_->hasPermission(method, ctx);
}

AllowedMethods PermissionPolicyHolder::getRights(const Context& ctx, bool refresh) const {
    return policy_ ? policy_->getRights(ctx, refresh) : AllowedMethods();
}

void PermissionPolicyHolder::setParent(const PermissionPolicyHolder* parent) {
    if (policy_) policy_->setParent(parent);
}

void PermissionPolicyHolder::setPermissionPolicy(const PermissionPolicy& policy,
                                                 const PermissionPolicyReplacer& replacer) {
    const PermissionPolicy& current = policy_ ? *policy_ : PermissionPolicy::NONE;
    const PermissionPolicyHolder* parent = current.parent();
    policy_.reset(replacer(current, policy));
    setParent(parent);
}

void PermissionPolicyHolder::configurePermissionPolicy(PathBrowser& browser,
                                                       const PermissionPolicy& policy,
                                                       const PermissionPolicyReplacer& replacer) {
    const ConstHashString& segment = browser.requested();
    if (segment.empty()) {
        setPermissionPolicy(policy, replacer);
        return;
    }
    std::vector<PermissionPolicyHolder*> holders;
    findPermissionPolicyHolders(segment, holders);
    if (holders.empty()) {
        std::ostringstream report;
        report << '"' << segment << "\" Not found (" << browser.request() << ")\n";
        diagnose(report.str());
        return;
    }
    for (PermissionPolicyHolder* holder : holders) {
        if (holder == nullptr) continue;  // e.g. a collection without a reference item
        browser.push();
        holder->configurePermissionPolicy(browser, policy, replacer);
        browser.pop_back();
    }
}

}  // namespace dme
