#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dme/arguments.h"
#include "dme/hash_string.h"
#include "dme/methods.h"
#include "dme/path.h"
#include "dme/select.h"
#include "dme/session.h"
#include "quill/common/type_indexed_container.h"

namespace dme {

// The application's names for the document members and query arguments that the library itself
// writes and reads. Owned by the application and referred to (never copied) by the data model
// and every context, so it must outlive them. Empty strings and null argument names switch the
// corresponding feature off.
struct Lexicon {
    std::string resourcePathKey;           // member holding a node's own resource path
    std::string idKey;                     // member holding a collection item's id
    std::string countKey;                  // member holding a collection's number of items
    std::string itemsKey;                  // member holding a collection's items; empty: bare array
    const char* expandArgument = nullptr;  // query argument carrying the expand level
    const char* selectArgument = nullptr;  // query argument carrying the property selection
};

// The state of one request: what was asked (method, path, arguments, the caller's request
// info), where the walk of the tree stands, the expand levels, the property selection and the
// custom objects attached to the request. Built by the engine for one request and used by one
// thread. The lexicon and request info are referred to and must outlive the context.
// Not copyable: nodes that need a sub-request build a child context from this one.
class Context {
  public:
    // Per-request extension objects attached by the application or by nodes; at most one per
    // dynamic type.
    class ICustom {
      public:
        virtual ~ICustom() = default;
    };
    using Customs = quill::common::TypeIndexedContainer<ICustom>;

    // Parses the uri and the selection, validates the method and sets the expand level.
    // Throws std::invalid_argument("Invalid method") when the method shares no bit with the
    // method mask, and dme::Exception for a malformed expand argument.
    Context(const Lexicon& lexicon, Method method, const std::string& uri, Arguments args,
            const RequestInfo& requestInfo, bool forceExpand);
    // As above, with an empty request info (no session, no flags).
    Context(const Lexicon& lexicon, Method method, const std::string& uri, const Arguments& args,
            bool forceExpand);
    // A child context for a sub-request: the parent's lexicon, request info and a copy of its
    // arguments; path, expand level and selection are computed afresh.
    Context(Context& parent, Method method, const std::string& uri, bool forceExpand);

    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    const Lexicon& lexicon() const { return lexicon_; }
    const RequestInfo& requestInfo() const { return requestInfo_; }
    Method method() const { return method_; }
    bool forceExpand() const { return forceExpand_; }
    const Arguments& arguments() const { return arguments_; }
    const PathBrowser& pathBrowser() const { return pathBrowser_; }
    const Path& currentPath() const { return currentPath_; }
    const ConstHashString& currentId() const { return currentId_; }
    Select& select() { return select_; }
    const Select& select() const { return select_; }
    Customs& customs() { return customs_; }
    const Customs& customs() const { return customs_; }

    // The whole requested path.
    const Path& requestedUri() const { return pathBrowser_.request(); }
    // The path of the node being visited now.
    const Path& currentUri() const { return pathBrowser_.current(); }
    // The requested segment at the current depth; the empty name at or beyond the request's end.
    const ConstHashString& getUrl() const { return pathBrowser_.requested(); }
    // True when expansion is forced, when the walk stands at the requested node, or when the
    // expand level in force is not 0.
    bool hasToBeExpanded() const;
    // The expand level in force (0 before the walk has been set up).
    unsigned int expandLevel() const { return expandLevels_.empty() ? 0 : expandLevels_.back(); }

    // The expand level given by the lexicon's expand argument (0 when switched off or absent).
    // Throws dme::Exception "Argument out of range" for values outside [0, 4294967295] and
    // "Argument invalid type" for text that is not a number.
    unsigned int extractExpandLevel() const;
    // The select argument's text, or "" when switched off or absent.
    std::string extractSelect() const;

    // Enters the child `name`: copies the expand level in force and extends the path.
    void next(const ConstHashString& name);
    // Records `id` as the current item id, then enters it like `next`.
    void nextWithId(const ConstHashString& id);
    // Leaves the child entered last. Every `next` is paired with one `prev`.
    void prev();
    // Saves the method and force-expand flag in force and replaces them.
    void pushParameters(Method method, bool forceExpand);
    // Restores the method and force-expand flag saved by the last `pushParameters`.
    void popParameters();
    // Sets the initial expand level; std::runtime_error once the walk has begun.
    void setExpandLevel(unsigned int level);
    // Lowers the expand level in force by one, not below 0.
    void decrementExpandLevel();

  private:
    const Lexicon& lexicon_;
    const RequestInfo& requestInfo_;
    Method method_;
    PathBrowser pathBrowser_;
    Arguments arguments_;
    bool forceExpand_;
    std::vector<std::pair<Method, bool>> parameterStack_;
    Path currentPath_;
    ConstHashString currentId_;
    std::vector<unsigned int> expandLevels_;
    Select select_;
    Customs customs_;
};

// The checking pass of an all-or-nothing UPDATE (DataModelEngine::setAllOrNothingUpdates): the
// engine first runs the request with this custom object in the context, and only when that
// pass succeeds runs it again to apply it. During the checking pass a node checks what it
// would store, throwing or failing as the applying pass would, and stores nothing.
class ValidationPass : public Context::ICustom {};

// Paging of collection READs (DataModelEngine::setPagingArguments): with this custom object in
// the context, the collection that a READ addresses lists at most the query argument named
// `limit` items, starting at the index given by the one named `offset` (both unsigned
// integers, by default no limit and 0); its count member still holds the total. Collections
// met below the addressed node are listed whole.
class PagingArguments : public Context::ICustom {
  public:
    PagingArguments(std::string limit, std::string offset)
        : limit(std::move(limit)), offset(std::move(offset)) {}
    const std::string limit;
    const std::string offset;
};

// With this custom object in the context (DataModelEngine::setPercentEncodedResourcePaths),
// resource paths in answers are written percent-encoded (percentEncodePath).
class PercentEncodedResourcePaths : public Context::ICustom {};

// True while `ctx` runs the checking pass of an all-or-nothing UPDATE. A node of the
// application's own that stores values (other than through AtomicValue::setValue, which the
// library already holds back) must check this and store nothing while it is true.
bool isValidationPass(const Context& ctx);

// Scope guards for the walk, used by every node that steps the context itself (structures,
// arrays, collections, actions, and an application's own container nodes): each undoes its step
// when it goes out of scope, also when an exception passes, so that the context is left as it
// was found. They live on the stack of the node that steps; not copyable.

// Enters a child of the walk for the lifetime of the object: by default a member or an array
// element (Context::next); with ITEM a collection item, recording its id (Context::nextWithId).
// Leaves it again with Context::prev.
class WalkStep {
  public:
    enum Kind { MEMBER, ITEM };

    WalkStep(Context& ctx, const ConstHashString& name, Kind kind = MEMBER) : ctx_(ctx) {
        if (kind == ITEM) {
            ctx_.nextWithId(name);
        } else {
            ctx_.next(name);
        }
    }
    ~WalkStep() { ctx_.prev(); }
    WalkStep(const WalkStep&) = delete;
    WalkStep& operator=(const WalkStep&) = delete;

  private:
    Context& ctx_;
};

// Runs the request under another method and force-expand flag for the lifetime of the object
// (Context::pushParameters); the context's own are restored on leaving (popParameters).
class ParametersScope {
  public:
    ParametersScope(Context& ctx, Method method, bool forceExpand) : ctx_(ctx) {
        ctx_.pushParameters(method, forceExpand);
    }
    ~ParametersScope() { ctx_.popParameters(); }
    ParametersScope(const ParametersScope&) = delete;
    ParametersScope& operator=(const ParametersScope&) = delete;

  private:
    Context& ctx_;
};

}  // namespace dme
