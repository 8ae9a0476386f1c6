#include "dme/context.h"

#include <stdexcept>

#include "../tree/names/walk_room.h"
#include "dme/exception.h"

namespace dme {
namespace {

const RequestInfo& emptyRequestInfo() {
    static const RequestInfo empty;
    return empty;
}

}  // namespace

Context::Context(const Lexicon& lexicon, Method method, const std::string& uri, Arguments args,
                 const RequestInfo& requestInfo, bool forceExpand)
    : lexicon_(lexicon),
      requestInfo_(requestInfo),
      method_(method),
      pathBrowser_(uri),
      arguments_(std::move(args)),
      forceExpand_(forceExpand),
      currentPath_(std::string()),
      select_(extractSelect()) {
    if ((static_cast<std::uint32_t>(method) & METHOD_MASK) == 0) {
        throw std::invalid_argument("Invalid method");
    }
    const unsigned int room = internal::walkRoom(pathBrowser_.request().size());
    currentPath_.reserve(room);
    expandLevels_.reserve(room + 1);
    setExpandLevel(extractExpandLevel());
}

Context::Context(const Lexicon& lexicon, Method method, const std::string& uri,
                 const Arguments& args, bool forceExpand)
    : Context(lexicon, method, uri, args, emptyRequestInfo(), forceExpand) {}

Context::Context(Context& parent, Method method, const std::string& uri, bool forceExpand)
    : Context(parent.lexicon_, method, uri, parent.arguments_, parent.requestInfo_, forceExpand) {}

bool Context::hasToBeExpanded() const {
    return forceExpand_ || pathBrowser_.isRequested() || expandLevel() != 0;
}

unsigned int Context::extractExpandLevel() const {
    if (lexicon_.expandArgument == nullptr) return 0;
    const std::string name = lexicon_.expandArgument;
    long long level = 0;
    arguments_.getIntegerArg(name, level, 0);
    if (static_cast<unsigned long long>(level) > 4294967295ULL) {
        Exception::throwArgumentOutOfRange(name, std::to_string(level), "");
    }
    return static_cast<unsigned int>(level);
}

std::string Context::extractSelect() const {
    std::string text;
    if (lexicon_.selectArgument != nullptr) {
        arguments_.getStringArg(lexicon_.selectArgument, text, "");
    }
    return text;
}

// currentPath_ is the browser's path at the last `next`, and only `prev` has changed the browser
// since, which takes segments off its end: the browser's path before this step is a prefix of
// currentPath_. So only the segments below it are dropped and the new name appended, instead
// of copying the whole path. The first step replaces the initial empty relative path.
void Context::next(const ConstHashString& name) {
    expandLevels_.push_back(expandLevel());
    const unsigned int depth = pathBrowser_.current().size();
    pathBrowser_.push_back(name);
    if (!currentPath_.isAbsolute()) {
        currentPath_ = pathBrowser_.current();
        return;
    }
    while (currentPath_.size() > depth) currentPath_.pop_back_nohash();
    currentPath_.push_back(name);
}

void Context::nextWithId(const ConstHashString& id) {
    currentId_ = id;
    next(id);
}

void Context::prev() {
    pathBrowser_.pop_back();
    if (!expandLevels_.empty()) expandLevels_.pop_back();
}

void Context::pushParameters(Method method, bool forceExpand) {
    parameterStack_.emplace_back(method_, forceExpand_);
    method_ = method;
    forceExpand_ = forceExpand;
}

void Context::popParameters() {
    if (parameterStack_.empty()) return;
    method_ = parameterStack_.back().first;
    forceExpand_ = parameterStack_.back().second;
    parameterStack_.pop_back();
}

void Context::setExpandLevel(unsigned int level) {
    if (!expandLevels_.empty()) {
        throw std::runtime_error("Expand level can be set only prior to request execution");
    }
    expandLevels_.push_back(level);
}

void Context::decrementExpandLevel() {
    if (!expandLevels_.empty() && expandLevels_.back() > 0) --expandLevels_.back();
}

bool isValidationPass(const Context& ctx) {
    return ctx.customs().find<ValidationPass>() != nullptr;
}

}  // namespace dme
