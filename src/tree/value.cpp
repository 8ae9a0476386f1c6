#include "dme/value.h"

#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>

#include "methods_query.h"

namespace dme {
namespace {

constexpr std::uint32_t BROWSE = AllowedMethods::B;
constexpr std::uint32_t ANY_RIGHT = 0x1F;

}  // namespace

const char* const Value::SECRET_TEXT = "(secret)";

Value::Value(AllowedMethods allowed, bool alwaysExpanded)
    : allowedMethods_(allowed), alwaysExpanded_(alwaysExpanded) {}

Value::~Value() = default;

void Value::findPermissionPolicyHolders(const ConstHashString&,
                                        std::vector<PermissionPolicyHolder*>& out) const {
    out.clear();
}

int Value::process(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    if (ctx.getUrl().empty()) return internalProcess(ctx, in, out);
    const int rc = checkMethodAllowance(static_cast<Method>(BROWSE), ctx);
    if (rc != result::DONE) return rc;
    return browse(ctx, in, out);
}

int Value::internalProcess(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    if (const auto query = ctx.customs().find<internal::MethodsQuery>()) {
        query->allowed = getMethodsAllowance(READ + UPDATE + CREATE + DELETE, ctx);
        return result::DONE;
    }
    const Method method = ctx.method();
    switch (method) {
        case SCHEMA:
            return getSchema(ctx, in, out);
        case SUBSCRIBE: {
            if (isExpandNeeded(ctx)) return _subscribe(ctx, in, out);
            const int rc = checkMethodAllowance(SUBSCRIBE, ctx);
            return rc != result::DONE ? rc : result::UNKNOWN_METHOD;
        }
        case UNSUBSCRIBE:
            return _unsubscribe(ctx, in, out);
        default:
            break;
    }
    const int rc = checkMethodAllowance(method, ctx);
    switch (method) {
        case READ:
            return readHere(ctx, rc, in, out);
        case CREATE:
            return rc != result::DONE ? rc : create(ctx, in, out);
        case UPDATE:
            return rc != result::DONE ? rc : update(ctx, in, out);
        case DELETE:
            return rc != result::DONE ? rc : destroy(ctx, in, out);
        default:
            return rc != result::DONE ? rc : result::UNKNOWN_METHOD;
    }
}

// A node the session may see in any way but not read is listed by its path only, and the
// request succeeds; its content is produced only for a session that may read it.
int Value::readHere(Context& ctx, int rc, const SerializationInfo& in, SerializationInfo& out) {
    const bool mayRead = rc == result::DONE;
    const std::string& pathKey = ctx.lexicon().resourcePathKey;
    if (isResourcePathNeeded() && !getMethodsAllowance(ANY_RIGHT, ctx).empty() &&
        !pathKey.empty()) {
        const std::string path = ctx.currentUri();
        const bool encoded = ctx.customs().find<PercentEncodedResourcePaths>() != nullptr;
        out.addMember(pathKey).setValue(encoded ? percentEncodePath(path) : path);
        rc = result::DONE;
    }
    if (!mayRead || !isExpandNeeded(ctx)) return rc;
    return read(ctx, in, out);
}

bool Value::isResourcePathNeeded() const {
    return !alwaysExpanded_;
}

void Value::setParent(Value* parent) {
    PermissionPolicyHolder::setParent(parent);
    parent_ = parent;
    updatePath();
}

Value* Value::parent() const {
    return parent_;
}

const Path& Value::path() const {
    return path_;
}

const char* Value::getType() const {
    return "unknown";
}

bool Value::isModifiable() const {
    return isMethodAllowed(UPDATE);
}

int Value::serializeReadOnly(Context&, const SerializationInfo&, SerializationInfo& out) {
    out.addMember("readonly").setValue(true);
    return result::DONE;
}

int Value::serializeSchemaFormat(Context&, const SerializationInfo&, SerializationInfo&) {
    return result::DONE;
}

int Value::serializeChildSchema(Context&, const SerializationInfo&, SerializationInfo&) {
    return result::DONE;
}

int Value::subscribe(Context& ctx, ISubscribable::IObserver& observer) {
    if (observer_.load() != nullptr) {
        throw std::runtime_error("Attempt to subscribe twice to dme::Value " +
                                 static_cast<std::string>(ctx.currentUri()));
    }
    const int rc = subscribeToValue(ctx);
    if (rc == result::DONE) observer_.store(&observer);
    return rc;
}

int Value::unsubscribe(Context& ctx, ISubscribable::IObserver& observer) {
    if (observer_.load() != &observer) {
        throw std::runtime_error("Attempt to unsubscribe from unknown observer in dme::Value " +
                                 static_cast<std::string>(ctx.currentUri()));
    }
    observer_.store(nullptr);
    return unsubscribeToValue(ctx);
}

const ConstHashString& Value::getOwnKey() {
    return parent_->getChildKey(this);
}

const ConstHashString& Value::getChildKey(Value*) {
    throw std::runtime_error("Cannot get child key in a value");
}

int Value::subscribeToValue(Context&) {
    return result::NOT_SUPPORTED;
}
int Value::unsubscribeToValue(Context&) {
    return result::NOT_SUPPORTED;
}

int Value::read(Context&, const SerializationInfo&, SerializationInfo&) {
    return result::NOT_SUPPORTED;
}
int Value::update(Context&, const SerializationInfo&, SerializationInfo&) {
    return result::NOT_SUPPORTED;
}
int Value::create(Context&, const SerializationInfo&, SerializationInfo&) {
    return result::NOT_SUPPORTED;
}
int Value::destroy(Context&, const SerializationInfo&, SerializationInfo&) {
    return result::NOT_SUPPORTED;
}

int Value::_subscribe(Context& ctx, const SerializationInfo&, SerializationInfo&) {
    if (!subscriberManager_) subscriberManager_ = std::make_unique<SubscriberManager>();
    return subscriberManager_->add(*this, ctx);
}

int Value::_unsubscribe(Context& ctx, const SerializationInfo&, SerializationInfo&) {
    if (!subscriberManager_) return result::NOT_FOUND;
    return subscriberManager_->remove(*this, ctx);
}

int Value::checkMethodAllowance(Method method, const Context& ctx) const {
    if (method == SCHEMA) return result::DONE;
    if (!isMethodAllowed(method)) return result::NOT_ALLOWED;
    return hasPermission(method, ctx) ? result::DONE : result::FORBIDDEN;
}

AllowedMethods Value::getMethodsAllowance(AllowedMethods requested, const Context& ctx) const {
    return requested & allowedMethods_ & getRights(ctx, false);
}

int Value::getSchema(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    out.addMember("type").setValue(getType());
    if (isModifiable()) {
        serializeSchemaFormat(ctx, in, out);
    } else {
        serializeReadOnly(ctx, in, out);
    }
    return serializeChildSchema(ctx, in, out);
}

bool Value::isExpandNeeded(Context& ctx) const {
    if (alwaysExpanded_) return true;
    if (!ctx.hasToBeExpanded()) return false;
    ctx.decrementExpandLevel();
    return true;
}

// Reads the observer once: a request may detach it meanwhile, so a change already on its way
// can still reach a detached observer. The node's own subscriber manager, the observer that
// subscriptions attach, lives as long as the node.
int Value::notifyChange() const {
    ISubscribable::IObserver* observer = observer_.load();
    if (observer != nullptr) observer->onChange(std::chrono::steady_clock::now());
    return result::DONE;
}

Value* Value::rootParent() {
    Value* node = this;
    while (node->parent_ != nullptr) node = node->parent_;
    return node;
}

void Value::updatePath() {
    if (parent_ == nullptr) return;
    const ConstHashString& key = getOwnKey();
    if (key.empty()) {
        path_.clear();
        return;
    }
    // Built with room for exactly one more segment than the parent's path: every node keeps its
    // path for life, so capacity left over by growth would be paid for by every node.
    const Path& parentPath = parent_->path();
    Path path;
    path.reserve(parentPath.size() + 1);
    path = parentPath;
    path.push_back(key);
    path_ = std::move(path);
}

}  // namespace dme
