#include "dme/structure.h"

#include <stdexcept>

#include "dme/exception.h"
#include "dme/path.h"
#include "dme/result.h"

namespace dme {

// ---- Structure ----

Structure::Structure(const std::vector<Element*>& elements, AllowedMethods allowed,
                     bool alwaysExpanded)
    : Value(allowed, alwaysExpanded), members_(elements) {}

Structure::~Structure() = default;

void Structure::findPermissionPolicyHolders(const ConstHashString& name,
                                            std::vector<PermissionPolicyHolder*>& out) const {
    if (Value* child = members_.findValue(name)) out.push_back(child);
}

void Structure::setParent(Value* parent) {
    Value::setParent(parent);
    members_.setParent(this);
}

const char* Structure::getType() const {
    return "object";
}

int Structure::serializeSchemaFormat(Context&, const SerializationInfo&, SerializationInfo&) {
    return result::DONE;
}

int Structure::serializeChildSchema(Context& ctx, const SerializationInfo& in,
                                    SerializationInfo& out) {
    SerializationInfo properties;
    properties.setCategory(SerializationInfo::Object);
    const int rc = serializeSchemaProperties(ctx, in, properties);
    out.addMember("properties") <<= properties;
    return rc;
}

int Structure::browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    const ConstHashString& segment = ctx.getUrl();
    if (segment.empty()) return result::PATH_ENDS_HERE;
    return members_.process(ctx, in, out, segment);
}

const ConstHashString& Structure::getChildKey(Value* child) {
    const ConstHashString* name = members_.getValueName(child);
    if (name == nullptr) throw std::runtime_error("Cannot find child key in structure");
    return *name;
}

int Structure::read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    out.setCategory(SerializationInfo::Object);
    processAllMembers(ctx, in, out);
    return result::DONE;
}

// Member by member, as the body names them. In the checking pass of an all-or-nothing UPDATE a
// body that cannot be an object's (an array, a scalar) is refused as a whole first.
int Structure::update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    if (isValidationPass(ctx) && (in.category() == SerializationInfo::Array ||
                                  (in.category() == SerializationInfo::Value && !in.isNull()))) {
        Exception::throwInvalidType(
            ctx.currentUri().empty() ? std::string("/") : ctx.currentUri().back().str(), "object");
    }
    for (const SerializationInfo& member : in) {
        members_.process(ctx, member, out, ConstHashString(member.name()));
    }
    return result::DONE;
}

int Structure::_subscribe(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    return processAllMembers(ctx, in, out);
}

int Structure::_unsubscribe(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    return processAllMembers(ctx, in, out);
}

int Structure::serializeSchemaProperties(Context& ctx, const SerializationInfo& in,
                                         SerializationInfo& out) {
    return processAllMembers(ctx, in, out);
}

int Structure::processAllMembers(Context& ctx, const SerializationInfo& in,
                                 SerializationInfo& out) {
    return members_.process(ctx, in, out, Path::emptyName());
}

// ---- CompositeValue ----

CompositeValue::CompositeValue(AllowedMethods allowed, bool alwaysExpanded)
    : Value(allowed, alwaysExpanded) {}

int CompositeValue::browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    SerializationInfo value = getValue(ctx);
    return internalBrowse(ctx, value, in, out);
}

// The first call only tells whether the content is an array; the second supplies the members.
int CompositeValue::read(Context& ctx, const SerializationInfo&, SerializationInfo& out) {
    const bool isArray = getValue(ctx).category() == SerializationInfo::Array;
    out.setCategory(isArray ? SerializationInfo::Array : SerializationInfo::Object);
    const SerializationInfo content = getValue(ctx);
    for (const SerializationInfo& member : content) out.addMember(member.name()) <<= member;
    return result::DONE;
}

// The application's setter decides what it accepts, so the checking pass of an all-or-nothing
// UPDATE cannot check it and leaves it to the applying pass.
int CompositeValue::update(Context& ctx, const SerializationInfo& in, SerializationInfo&) {
    if (isValidationPass(ctx)) return result::DONE;
    return setValue(ctx, in);
}

int CompositeValue::internalBrowse(Context& ctx, SerializationInfo& value,
                                   const SerializationInfo& in, SerializationInfo& out) {
    const ConstHashString& segment = ctx.getUrl();
    if (segment.empty()) return serveReached(ctx, value, out);
    SerializationInfo* member = value.findMember(segment.str());
    if (member == nullptr) return result::NOT_FOUND;
    WalkStep step(ctx, segment);
    return internalBrowse(ctx, *member, in, out);
}

int CompositeValue::serveReached(Context& ctx, const SerializationInfo& value,
                                 SerializationInfo& out) {
    const Method method = ctx.method();
    if (!hasPermission(method, ctx)) return result::FORBIDDEN;
    switch (method) {
        case READ:
            out = value;
            out.setName(std::string());
            return result::DONE;
        case CREATE:
        case UPDATE:
        case DELETE:
            return result::NOT_SUPPORTED;
        default:
            return result::UNKNOWN_METHOD;
    }
}

}  // namespace dme
