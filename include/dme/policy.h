#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "dme/hash_string.h"
#include "dme/methods.h"

namespace dme {

class Context;
class PathBrowser;
class PermissionPolicyHolder;

// Decides which methods the calling session may apply to a node. Policies form a tree parallel
// to the resource tree: each knows the holder above it, so an inheriting policy can defer to the
// nearest ancestor that decides for itself. Policies are evaluated on the request thread only:
// the inheritance cache is written from const operations without a lock. Copied only through
// `copy()`, which keeps the parent holder.
class PermissionPolicy {
  public:
    virtual ~PermissionPolicy();
    // A new heap copy owned by the caller (null for the none policy).
    virtual PermissionPolicy* copy() const = 0;
    // The rights of the request in `ctx`; `refresh` re-walks any inheritance cache.
    virtual AllowedMethods getRights(const Context& ctx, bool refresh) const = 0;
    // The policy that actually decides for this node.
    virtual const PermissionPolicy* getAppliedPolicy() const = 0;

    // Whether `method` shares any bit with `getRights(ctx, false)`: SUBSCRIBE (0x8100) is
    // granted by SCHEMA (0x8000) rights. A none policy's empty rights never grant.
    bool hasPermission(Method method, const Context& ctx) const;
    // True exactly for the process-wide NONE object (identity, not type).
    bool isNone() const { return this == &NONE; }
    // The holder whose policy this one inherits from; null at construction and for the root.
    const PermissionPolicyHolder* parent() const { return parentHolder_; }
    void setParent(const PermissionPolicyHolder* parent) { parentHolder_ = parent; }
    // The parent holder's policy; NONE without a parent holder, and also when that holder holds
    // no policy, so that an inheritance walk always ends on a policy.
    const PermissionPolicy* parentPolicy() const;

    // The library's single none policy; lives for the whole program.
    static const PermissionPolicy& NONE;

  protected:
    PermissionPolicy() = default;
    PermissionPolicy(const PermissionPolicy&) = default;
    PermissionPolicy& operator=(const PermissionPolicy&) = default;

  private:
    const PermissionPolicyHolder* parentHolder_ = nullptr;
};

// Grants nothing; the end of every inheritance chain. Never duplicated: `copy()` returns null,
// the single NONE object is shared by reference. Stateless apart from the parent holder.
class NonePolicy : public PermissionPolicy {
  public:
    NonePolicy() = default;
    PermissionPolicy* copy() const override;
    AllowedMethods getRights(const Context& ctx, bool refresh) const override;
    const PermissionPolicy* getAppliedPolicy() const override;
};

// Grants a fixed set of methods whatever the request. Immutable apart from the parent holder.
class StaticPolicy : public PermissionPolicy {
  public:
    explicit StaticPolicy(AllowedMethods rights) : rights_(rights) {}
    PermissionPolicy* copy() const override;
    AllowedMethods getRights(const Context& ctx, bool refresh) const override;
    const PermissionPolicy* getAppliedPolicy() const override;
    AllowedMethods rights() const { return rights_; }

  private:
    AllowedMethods rights_;
};

// Grants whatever the nearest non-inheriting ancestor grants; the default of every node. The
// applied policy is cached on first use and refreshed only when a caller asks for it, so a
// policy replaced higher up is seen only after a refresh. A cache holding NONE counts as empty,
// so a chain that ends at the top is walked again on every call. Two process-wide counters
// (unsynchronised) count how often rights are asked for and how often the chain is walked.
// `copy()` keeps the parent holder and the cached policy.
class InheritedPolicy : public PermissionPolicy {
  public:
    InheritedPolicy() = default;
    PermissionPolicy* copy() const override;
    // Counts the call, then asks the cached applied policy (refreshed first when `refresh`).
    AllowedMethods getRights(const Context& ctx, bool refresh) const override;
    // Counts the call, then walks up the holders to the first policy that decides for itself
    // (NONE at the top).
    const PermissionPolicy* getAppliedPolicy() const override;
    // The cached applied policy; re-evaluated when `refresh` is set or nothing is cached.
    const PermissionPolicy* getCachedAppliedPolicy(bool refresh) const;

    // The two counters below count over every engine of the process; they may be read and
    // reset from any thread. Sets both counters to zero.
    static void resetCallCounters();
    // Calls of `getRights` since load or the last reset.
    static std::uint32_t getRightsCallCounter();
    // Evaluations of `getAppliedPolicy` (refreshes included) since load or the last reset.
    static std::uint32_t getAppliedPolicyCallCounter();

  private:
    mutable const PermissionPolicy* cachedAppliedPolicy_ = &NONE;
};

// Decides how a new policy takes the place of a holder's current one. Implementations are
// expected to be stateless.
class PermissionPolicyReplacer {
  public:
    // Returns a new policy, which the holder then owns.
    virtual PermissionPolicy* operator()(const PermissionPolicy& current,
                                         const PermissionPolicy& replacement) const = 0;
    virtual ~PermissionPolicyReplacer();
};

// The base through which every node owns its permission policy (shared, so copies of nodes may
// share one). Answers permission questions for its node and lets the application replace the
// policy on one node or on every node a path pattern reaches ("+" stands for every item of a
// collection). Configuration is meant to happen while no request is served; nothing is locked.
// Not copyable.
class PermissionPolicyHolder {
  public:
    // Returns `replacement.copy()`, ignoring the current policy.
    class DefaultPolicyReplacer : public PermissionPolicyReplacer {
      public:
        PermissionPolicy* operator()(const PermissionPolicy& current,
                                     const PermissionPolicy& replacement) const override;
    };

    // Holds a new InheritedPolicy.
    PermissionPolicyHolder();
    // Takes ownership of `policy`; deletes it when the shared ownership cannot be set up.
    explicit PermissionPolicyHolder(PermissionPolicy* policy);
    // Holds `policy.copy()`.
    explicit PermissionPolicyHolder(const PermissionPolicy& policy);
    PermissionPolicyHolder(const PermissionPolicyHolder&) = delete;
    PermissionPolicyHolder& operator=(const PermissionPolicyHolder&) = delete;

    virtual ~PermissionPolicyHolder();
    // Appends the holders of the children that the path segment `name` designates.
    virtual void findPermissionPolicyHolders(const ConstHashString& name,
                                             std::vector<PermissionPolicyHolder*>& out) const = 0;

    // The held policy (null only after the none policy was set through the default replacer).
    const PermissionPolicy* permissionPolicy() const { return policy_.get(); }
    // The held policy's answers; no rights without a policy.
    bool hasPermission(Method method, const Context& ctx) const;
    AllowedMethods getRights(const Context& ctx, bool refresh) const;
    // Links the held policy to the parent node's holder.
    void setParent(const PermissionPolicyHolder* parent);
    // Replaces the policy by `replacer(current, policy)`, keeping the parent holder of the old
    // one. Setting NONE through the default replacer leaves the holder without a policy. When
    // the replacer throws, the old policy stays.
    void setPermissionPolicy(const PermissionPolicy& policy,
                             const PermissionPolicyReplacer& replacer);
    // Sets the policy of every holder that the rest of `browser`'s requested path reaches. An
    // unknown segment is reported on the standard error stream and changes nothing.
    void configurePermissionPolicy(PathBrowser& browser, const PermissionPolicy& policy,
                                   const PermissionPolicyReplacer& replacer);

  private:
    std::shared_ptr<PermissionPolicy> policy_;
};

}  // namespace dme
