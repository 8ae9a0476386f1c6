#include "dme/policy_tester.h"

#include <sstream>
#include <stdexcept>
#include <tuple>

namespace dme {

PermissionPoliciesTester::PermissionPolicyHolderTest::PermissionPolicyHolderTest(
    const PermissionPolicy& policy)
    : PermissionPolicyHolder(policy) {}

void PermissionPoliciesTester::PermissionPolicyHolderTest::findPermissionPolicyHolders(
    const ConstHashString&, std::vector<PermissionPolicyHolder*>&) const {}

AllowedMethods PermissionPoliciesTester::PermissionPolicyHolderTest::getRights(
    const Context& ctx) const {
    return getRights(ctx, true);
}

void PermissionPoliciesTester::PermissionPolicyHolderTest::setPermissionPolicy(
    const PermissionPolicy& policy) {
    setPermissionPolicy(policy, DefaultPolicyReplacer());
}

void PermissionPoliciesTester::add(const std::string& name, const PermissionPolicy& policy,
                                   const std::string& parentName) {
    if (name.empty()) throw std::invalid_argument("Invalid empty name");
    if (holders_.count(name) != 0) {
        throw std::invalid_argument("A policy with same name already exists");
    }
    const PermissionPolicyHolderTest* parent = nullptr;
    if (!parentName.empty()) {
        const auto found = holders_.find(parentName);
        if (found == holders_.end()) {
            throw std::invalid_argument("No parent policy with given name found");
        }
        parent = &found->second;
    }
    PermissionPolicyHolderTest& holder =
        holders_
            .emplace(std::piecewise_construct, std::forward_as_tuple(name),
                     std::forward_as_tuple(policy))
            .first->second;
    if (parent != nullptr) holder.setParent(parent);
}

void PermissionPoliciesTester::replace(const std::string& name, const PermissionPolicy& policy) {
    const auto found = holders_.find(name);
    if (found == holders_.end()) throw std::invalid_argument("No policy with given name found");
    found->second.setPermissionPolicy(policy);
}

bool PermissionPoliciesTester::testPolicyRights(const Context& ctx,
                                                const PermissionPolicyHolder& holder,
                                                AllowedMethods expected, const std::string& label,
                                                std::string& report) {
    const AllowedMethods rights = holder.getRights(ctx, true);
    std::ostringstream line;
    line << label << " - get rights " << rights << " (expects " << expected << ")\n";
    report += line.str();
    return rights == expected;
}

bool PermissionPoliciesTester::testOne(const std::string& name, const Context& ctx,
                                       AllowedMethods expected, const std::string& label,
                                       std::string& report) const {
    const auto found = holders_.find(name);
    if (found == holders_.end()) {
        report += "No policy defined with name " + name + "\n";
        return false;
    }
    return testPolicyRights(ctx, found->second, expected, label, report);
}

bool PermissionPoliciesTester::testMulti(
    const Context& ctx, const std::vector<std::pair<std::string, AllowedMethods>>& expectations,
    const std::string& label, std::string& report) const {
    bool passed = true;
    for (const auto& expectation : expectations) {
        passed = testOne(expectation.first, ctx, expectation.second, label, report) && passed;
    }
    return passed;
}

bool PermissionPoliciesTester::testAll(const Context& ctx, AllowedMethods expected,
                                       const std::string& label, std::string& report) const {
    bool passed = true;
    for (const auto& entry : holders_) {
        passed = testPolicyRights(ctx, entry.second, expected, label, report) && passed;
    }
    return passed;
}

}  // namespace dme
