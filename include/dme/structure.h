#pragma once

#include <cxxtools/serializationinfo.h>

#include <vector>

#include "dme/container.h"
#include "dme/context.h"
#include "dme/hash_string.h"
#include "dme/methods.h"
#include "dme/value.h"

namespace dme {

// The object node of the resource tree: its members are described by a list of elements
// (entries and groups) and its JSON form is an object with one key per member. Members' result
// codes do not fail a read or an update of the structure as a whole: a failing member is left
// out, or not updated. Owns its member descriptors. Not thread-safe; not copyable.
class Structure : public Value {
  public:
    // Takes ownership of every non-null element of `elements`. The members are attached to the
    // structure when the structure itself is attached (`setParent`).
    Structure(const std::vector<Element*>& elements, AllowedMethods allowed, bool alwaysExpanded);

    ~Structure() override;
    // Appends the member value called `name` to `out`, if there is one; `out` is not cleared.
    void findPermissionPolicyHolders(const ConstHashString& name,
                                     std::vector<PermissionPolicyHolder*>& out) const override;
    // Attaches the structure below `parent`, then rebuilds every member's path below it.
    void setParent(Value* parent) override;
    // "object".
    const char* getType() const override;
    // Adds nothing; returns 0.
    int serializeSchemaFormat(Context& ctx, const SerializationInfo& in,
                              SerializationInfo& out) override;
    // Adds "properties" holding one schema per member; returns serializeSchemaProperties'
    // result.
    int serializeChildSchema(Context& ctx, const SerializationInfo& in,
                             SerializationInfo& out) override;
    // -1 when no segment remains; else the member named by the next segment serves the request
    // (3 when there is none).
    int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // The member name of `child`; std::runtime_error("Cannot find child key in structure")
    // when no member holds it.
    const ConstHashString& getChildKey(Value* child) override;
    // Makes `out` an object and lets every member add itself under its name; returns 0.
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Hands each member of `in`, in the input's order, to the member of that name; unknown
    // names and members' failures are skipped; returns 0.
    int update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Subscribes, or unsubscribes, every member; returns the members' combined result.
    int _subscribe(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    int _unsubscribe(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // In a SCHEMA request every member adds its own schema under its name.
    virtual int serializeSchemaProperties(Context& ctx, const SerializationInfo& in,
                                          SerializationInfo& out);

    const Container& members() const { return members_; }

  private:
    int processAllMembers(Context& ctx, const SerializationInfo& in, SerializationInfo& out);

    Container members_;
};

// An object-like node whose whole content is produced at once by the derived class as a
// document; sub-members of that document can be read by path without being nodes of their own.
// Below the composite's top only the permission policy is consulted, not the allowed methods,
// and nothing can be written. `getValue` is called twice per read and must have no side effects.
// Not thread-safe; not copyable.
class CompositeValue : public Value {
  public:
    CompositeValue(AllowedMethods allowed, bool alwaysExpanded);

    // Walks into the current content along the remaining path.
    int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Writes the content's members into `out`, which becomes an array when the content is one
    // and an object otherwise; returns 0.
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Returns `setValue(ctx, in)`.
    int update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // The current content.
    virtual SerializationInfo getValue(Context& ctx) = 0;
    // Replaces the content; returns a result code.
    virtual int setValue(Context& ctx, const SerializationInfo& value) = 0;

    // Serves the request on the part of `value` named by the remaining path: 3 for an unknown
    // member, 6 without the permission for the method, the part without a name for READ (0),
    // 8 for CREATE, UPDATE and DELETE, 7 for any other method. The context is stepped back on
    // return, also when an exception passes.
    int internalBrowse(Context& ctx, SerializationInfo& value, const SerializationInfo& in,
                       SerializationInfo& out);

  private:
    int serveReached(Context& ctx, const SerializationInfo& value, SerializationInfo& out);
};

}  // namespace dme
