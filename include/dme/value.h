#pragma once

#include <cxxtools/serializationinfo.h>

#include <atomic>
#include <memory>
#include <vector>

#include "dme/context.h"
#include "dme/hash_string.h"
#include "dme/methods.h"
#include "dme/path.h"
#include "dme/policy.h"
#include "dme/result.h"
#include "dme/subscription.h"

namespace dme {

// The abstract base of every node of the resource tree. A request walks the tree through
// `process`: each node checks the method against its allowed methods and its permission policy,
// then either hands the request to the child named by the next requested segment (`browse`) or,
// at the requested node, performs it (`read`, `update`, `create`, `destroy`, schema or
// subscription). Derived node types override only what they need; the order of the virtual
// operations is part of the binary interface. A node knows its parent (not owned) and its own
// path, and reports changes to one attached observer. Not thread-safe: requests on one tree run
// one at a time. The exception is notifyChange, which may run on any thread while requests
// attach and detach the observer: the observer pointer is atomic. Not copyable.
class Value : public PermissionPolicyHolder, public ISubscribable {
  public:
    using SerializationInfo = cxxtools::SerializationInfo;

    // `alwaysExpanded`: the node is serialised in full at any expand level and is never shown
    // as a bare resource path.
    Value(AllowedMethods allowed, bool alwaysExpanded);
    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;

    ~Value() override;
    // Clears `out`: a leaf holds no named holders below it.
    void findPermissionPolicyHolders(const ConstHashString& name,
                                     std::vector<PermissionPolicyHolder*>& out) const override;
    // Entry of the request walk: browse towards the requested node, or serve the request here.
    virtual int process(Context& ctx, const SerializationInfo& in, SerializationInfo& out);
    // Whether a READ writes the resource-path member (`!alwaysExpanded` here).
    virtual bool isResourcePathNeeded() const;
    // Attaches the node below `parent` and rebuilds its path.
    virtual void setParent(Value* parent);
    virtual Value* parent() const;
    virtual const Path& path() const;
    // The schema "type" word ("unknown" here).
    virtual const char* getType() const;
    // Whether UPDATE is allowed; decides between the schema's format and read-only members.
    virtual bool isModifiable() const;
    // Adds "readonly": true; returns 0.
    virtual int serializeReadOnly(Context& ctx, const SerializationInfo& in,
                                  SerializationInfo& out);
    // Adds the schema members that describe a modifiable node (none here); returns 0.
    virtual int serializeSchemaFormat(Context& ctx, const SerializationInfo& in,
                                      SerializationInfo& out);
    // Adds the schema of the node's children (none here); returns 0.
    virtual int serializeChildSchema(Context& ctx, const SerializationInfo& in,
                                     SerializationInfo& out);
    // Attaches the single observer when `subscribeToValue` agrees; std::runtime_error when one
    // is attached already.
    int subscribe(Context& ctx, ISubscribable::IObserver& observer) override;
    // Detaches `observer`; std::runtime_error when it is not the attached one.
    int unsubscribe(Context& ctx, ISubscribable::IObserver& observer) override;
    // Hands the request on to the child named by the next requested segment.
    virtual int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) = 0;
    // The name under which the parent holds this node; requires a parent.
    virtual const ConstHashString& getOwnKey();
    // The name under which this node holds `child`; std::runtime_error here.
    virtual const ConstHashString& getChildKey(Value* child);
    // Whether the node's value can be observed: 8 (not supported) here.
    virtual int subscribeToValue(Context& ctx);
    virtual int unsubscribeToValue(Context& ctx);
    // The request operations; each returns 8 (not supported) here.
    virtual int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out);
    virtual int update(Context& ctx, const SerializationInfo& in, SerializationInfo& out);
    virtual int create(Context& ctx, const SerializationInfo& in, SerializationInfo& out);
    virtual int destroy(Context& ctx, const SerializationInfo& in, SerializationInfo& out);
    // Registers / removes the context's Subscription ticket with this node's subscriber manager.
    virtual int _subscribe(Context& ctx, const SerializationInfo& in, SerializationInfo& out);
    virtual int _unsubscribe(Context& ctx, const SerializationInfo& in, SerializationInfo& out);

    // Serves the request at the requested node, by method.
    int internalProcess(Context& ctx, const SerializationInfo& in, SerializationInfo& out);
    // 0 when `method` is allowed here and the session holds it; 2 not allowed; 6 forbidden.
    // SCHEMA is always allowed.
    int checkMethodAllowance(Method method, const Context& ctx) const;
    bool isMethodAllowed(Method method) const { return (method & allowedMethods_).bits() != 0; }
    // `requested` restricted to the allowed methods and the session's rights.
    AllowedMethods getMethodsAllowance(AllowedMethods requested, const Context& ctx) const;
    // Writes "type", then the format or read-only members, then the children's schema.
    int getSchema(Context& ctx, const SerializationInfo& in, SerializationInfo& out);
    // True when the node is always expanded, or when the context still has to expand (which
    // spends one expand level).
    bool isExpandNeeded(Context& ctx) const;
    // Tells the attached observer, if any, with the current steady-clock time; returns 0.
    // May be called from any thread.
    int notifyChange() const;
    // The top of the tree this node hangs in (the node itself without a parent).
    Value* rootParent();
    // Rebuilds the node's path from its parent's path and its own key.
    void updatePath();

    AllowedMethods allowedMethods() const { return allowedMethods_; }
    bool alwaysExpanded() const { return alwaysExpanded_; }
    // A secret node (a password) never has its value echoed: the texts it refuses are named
    // as SECRET_TEXT in the errors it throws. Not secret by default.
    void setSecret(bool secret) { secret_ = secret; }
    bool isSecret() const { return secret_; }
    // What a secret node's refused text is replaced by in errors: "(secret)".
    static const char* const SECRET_TEXT;
    // The subscriber manager, or null before the first subscription.
    const SubscriberManager* subscriberManager() const { return subscriberManager_.get(); }

  private:
    int readHere(Context& ctx, int rc, const SerializationInfo& in, SerializationInfo& out);

    AllowedMethods allowedMethods_;
    bool alwaysExpanded_;
    bool secret_ = false;
    Value* parent_ = nullptr;
    Path path_;
    std::unique_ptr<SubscriberManager> subscriberManager_;
    std::atomic<ISubscribable::IObserver*> observer_{nullptr};
};

}  // namespace dme
