#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "dme/hash_string.h"
#include "dme/methods.h"
#include "dme/policy.h"

namespace dme {

class Context;

// Checks a set of permission policies without a resource tree. Policies are registered under
// names, optionally below a registered parent so that inheritance can be exercised; the rights
// that each yields for a request context are compared with expected method sets while a
// readable report is accumulated, one line per comparison. A mismatch is never an exception:
// it shows in the result and in the report. Labels are written to the report unchanged.
// Not thread-safe. Not copyable.
class PermissionPoliciesTester {
  public:
    // A holder that stands for no node: it has no children and holds a copy of its policy.
    // Not copyable.
    class PermissionPolicyHolderTest : public PermissionPolicyHolder {
      public:
        explicit PermissionPolicyHolderTest(const PermissionPolicy& policy);

        // Appends nothing: the holder has no children.
        void findPermissionPolicyHolders(const ConstHashString& name,
                                         std::vector<PermissionPolicyHolder*>& out) const override;

        using PermissionPolicyHolder::getRights;
        using PermissionPolicyHolder::setPermissionPolicy;
        // The held policy's rights, with any inheritance cache refreshed first.
        AllowedMethods getRights(const Context& ctx) const;
        // Replaces the held policy by a copy of `policy`, keeping its parent holder.
        void setPermissionPolicy(const PermissionPolicy& policy);
    };

    PermissionPoliciesTester() = default;
    PermissionPoliciesTester(const PermissionPoliciesTester&) = delete;
    PermissionPoliciesTester& operator=(const PermissionPoliciesTester&) = delete;

    // Registers a copy of `policy` as `name`, below the holder registered as `parentName`
    // unless that is empty. Throws std::invalid_argument "Invalid empty name" for an empty
    // name, "A policy with same name already exists" for a registered one and "No parent
    // policy with given name found" for an unknown parent; nothing is registered then.
    void add(const std::string& name, const PermissionPolicy& policy,
             const std::string& parentName);
    // Replaces the policy registered as `name` by a copy of `policy`, keeping its parent.
    // Throws std::invalid_argument "No policy with given name found" for an unknown name.
    void replace(const std::string& name, const PermissionPolicy& policy);

    // Compares `holder.getRights(ctx, true)` with `expected` and appends the line
    // "<label> - get rights <rights> (expects <expected>)" to `report`, both sets in their
    // five-letter form. Returns whether they are equal.
    static bool testPolicyRights(const Context& ctx, const PermissionPolicyHolder& holder,
                                 AllowedMethods expected, const std::string& label,
                                 std::string& report);
    // Runs `testPolicyRights` on the holder registered as `name`. For an unknown name it
    // appends "No policy defined with name <name>" and a newline to `report` and returns false.
    bool testOne(const std::string& name, const Context& ctx, AllowedMethods expected,
                 const std::string& label, std::string& report) const;
    // Runs `testOne` for each (name, expected) pair in order, all with `label`; returns whether
    // every one passed (true for an empty list).
    bool testMulti(const Context& ctx,
                   const std::vector<std::pair<std::string, AllowedMethods>>& expectations,
                   const std::string& label, std::string& report) const;
    // Runs `testPolicyRights` with `expected` on every registered holder in ascending name
    // order; returns whether all matched (true when nothing is registered).
    bool testAll(const Context& ctx, AllowedMethods expected, const std::string& label,
                 std::string& report) const;

  private:
    std::map<std::string, PermissionPolicyHolderTest> holders_;
};

}  // namespace dme
