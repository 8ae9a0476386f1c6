#include "dme/action.h"

#include <string>
#include <utility>

#include "dme/path.h"
#include "dme/result.h"

namespace dme {

// ---- Action ----

Action::Action(AllowedMethods allowed) : Value(allowed, true) {}

Action::Action() : Action(CREATE) {}

int Action::browse(Context& ctx, const SerializationInfo&, SerializationInfo&) {
    return ctx.getUrl().empty() ? result::PATH_ENDS_HERE : result::NO_CHILDREN;
}

int Action::read(Context& ctx, const SerializationInfo&, SerializationInfo& out) {
    out.setValue(static_cast<std::string>(ctx.currentUri()));
    return result::DONE;
}

int Action::create(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    return execute(ctx, in, out);
}

// ---- ActionStub ----

ActionStub::ActionStub(int result) : ActionStub(std::string(), result) {}

ActionStub::ActionStub(const std::string& message, int result)
    : message_(message), result_(result) {}

int ActionStub::execute(Context&, const SerializationInfo&, SerializationInfo&) {
    if (message_.empty()) {
        message_ = "Executed on path '" + static_cast<std::string>(path()) + "'";
    }
    return result_;
}

// ---- ActionValue ----

ActionValue::ActionValue(Value* target) : target_(target) {
    target_->setParent(this);
}

ActionValue::ActionValue(Value& target) : target_(target) {
    target_->setParent(this);
}

const ConstHashString& ActionValue::getChildKey(Value*) {
    return Path::emptyName();
}

int ActionValue::execute(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    ParametersScope asUpdate(ctx, UPDATE, false);
    return target_->process(ctx, in, out);
}

// ---- ApiAction ----

ApiAction::ApiAction(Function function) : function_(std::move(function)) {}

ApiAction::ApiAction(ContextFunction contextFunction)
    : contextFunction_(std::move(contextFunction)) {}

int ApiAction::execute(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    if (function_) {
        function_(in, out);
    } else if (contextFunction_) {
        contextFunction_(ctx, in, out);
    }
    return result::DONE;
}

}  // namespace dme
