#pragma once

#include <cxxtools/serializationinfo.h>

#include <functional>
#include <string>

#include "dme/context.h"
#include "dme/hash_string.h"
#include "dme/methods.h"
#include "dme/smart_pointer.h"
#include "dme/value.h"

namespace dme {

// A node that does something when a client sends it a CREATE request: `execute` runs with the
// request's input and output documents and its result is the request's. A READ, where allowed,
// answers the action's own uri as a text. Actions have no children and are always expanded.
// Not thread-safe; not copyable.
class Action : public Value {
  public:
    // Allows `allowed`, unchanged.
    explicit Action(AllowedMethods allowed);
    // Allows CREATE only.
    Action();
    Action(const Action&) = delete;
    Action& operator=(const Action&) = delete;

    // -1 when the requested path ends here, 4 when it goes on below the action.
    int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Writes the text form of the current uri as the scalar of `out` itself; returns 0.
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Returns execute(ctx, in, out).
    int create(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Performs the action; returns the request's result code.
    virtual int execute(Context& ctx, const SerializationInfo& in, SerializationInfo& out) = 0;
};

// A placeholder action: every execution returns the same result, ignores its input and writes
// nothing. Without a message of its own it records "Executed on path '<path>'" with its own
// path at its first execution and keeps that text afterwards. Not thread-safe; not copyable.
class ActionStub : public Action {
  public:
    // An empty message.
    explicit ActionStub(int result);
    ActionStub(const std::string& message, int result);

    // Sets the message on the first execution when it is empty; returns `result`.
    int execute(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;

    const std::string& message() const { return message_; }
    int result() const { return result_; }

  private:
    std::string message_;
    int result_;
};

// An action that forwards the request's input as an UPDATE to a target node, which hangs below
// the action under the empty name. The target checks its own allowed methods and permissions
// (inherited through the action) and validates the input as any update would; its result code,
// or its exception, is the execution's. The target is owned when given by pointer and only
// referred to when given by reference. Not thread-safe; not copyable.
class ActionValue : public Action {
  public:
    // Both attach `target` below the action. `target` must not be null.
    explicit ActionValue(Value* target);
    explicit ActionValue(Value& target);

    // The empty name (Path::emptyName()), for any child.
    const ConstHashString& getChildKey(Value* child) override;
    // Runs the request as an UPDATE without forced expansion on the target, then restores the
    // context's method and expansion flag, also when the target throws. Returns the target's
    // result.
    int execute(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;

    Value& target() const { return *target_; }

  private:
    SmartPointer<Value> target_;
};

// An action that calls a function of the application with the request's input and output
// documents, with or without the request's context. Execution returns 0, also when no function
// is set; exceptions of the function pass to the caller. Not thread-safe; not copyable.
class ApiAction : public Action {
  public:
    using Function = std::function<void(const cxxtools::SerializationInfo& in,
                                        cxxtools::SerializationInfo& out)>;
    using ContextFunction = std::function<void(Context& ctx, const cxxtools::SerializationInfo& in,
                                               cxxtools::SerializationInfo& out)>;

    explicit ApiAction(Function function);
    explicit ApiAction(ContextFunction contextFunction);

    // Calls the function that is set, if any; returns 0.
    int execute(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;

  private:
    Function function_;
    ContextFunction contextFunction_;
};

}  // namespace dme
