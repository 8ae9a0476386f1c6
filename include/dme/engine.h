#pragma once

#include <cxxtools/serializationinfo.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <typeindex>
#include <utility>
#include <vector>

#include "dme/arguments.h"
#include "dme/context.h"
#include "dme/exception.h"
#include "dme/methods.h"
#include "dme/notifier.h"
#include "dme/session.h"
#include "dme/smart_pointer.h"
#include "dme/value.h"

namespace dme {

// Hooks into the life of a data model, implemented by the application. Handlers are referred
// to, not owned: they must outlive the data model. `terminate` may be called twice.
class DMExtensionHandler {
  public:
    virtual ~DMExtensionHandler() = default;
    // Called by DataModel::init, in registration order.
    virtual void init(Value& root) = 0;
    // Called before every request, in registration order. The result does not stop the
    // request (throw to stop it).
    virtual int preProcess(Context& ctx) = 0;
    // Called after every request, in reverse registration order; the result is ignored.
    virtual int postProcess(int status, Context& ctx) = 0;
    // Called by DataModel::terminate, in reverse registration order.
    virtual void terminate(Value& root) = 0;
};

// Binds the root of a resource tree to the lexicon, the methods allowed at the root (installed
// on the root as its StaticPolicy, so that every inheriting node takes them), the application's
// exception handlers and its extension handlers. Constructors taking `Value*` own the root;
// those taking `Value&` borrow it. The lexicon and handlers are referred to and must outlive
// the data model. Not copyable; used by one request thread at a time.
class DataModel {
  public:
    using ExtensionHandlers = std::vector<std::reference_wrapper<DMExtensionHandler>>;

    DataModel(Value* root, const Lexicon& lexicon, AllowedMethods allowed);
    DataModel(Value& root, const Lexicon& lexicon, AllowedMethods allowed);
    DataModel(Value* root, const Lexicon& lexicon, AllowedMethods allowed,
              const ExceptionHandlers& exceptionHandlers);
    DataModel(Value& root, const Lexicon& lexicon, AllowedMethods allowed,
              const ExceptionHandlers& exceptionHandlers);
    DataModel(Value* root, const Lexicon& lexicon, AllowedMethods allowed,
              const ExtensionHandlers& extensionHandlers);
    DataModel(Value& root, const Lexicon& lexicon, AllowedMethods allowed,
              const ExtensionHandlers& extensionHandlers);
    DataModel(Value* root, const Lexicon& lexicon, AllowedMethods allowed,
              const ExceptionHandlers& exceptionHandlers,
              const ExtensionHandlers& extensionHandlers);
    DataModel(Value& root, const Lexicon& lexicon, AllowedMethods allowed,
              const ExceptionHandlers& exceptionHandlers,
              const ExtensionHandlers& extensionHandlers);
    DataModel(const DataModel&) = delete;
    DataModel& operator=(const DataModel&) = delete;

    // Detaches the root from any parent, then runs every extension handler's `init`.
    void init();
    // Runs the handlers' `preProcess` in order; returns the first non-zero result, else 0.
    int preProcess(Context& ctx);
    // Runs the handlers' `postProcess` in reverse order; returns the first non-zero result.
    int postProcess(int status, Context& ctx);
    // Runs the handlers' `terminate` in reverse order.
    void terminate();
    // Adds an exception handler unless its type has one already.
    void registerExceptionHandler(ExceptionHandlers::Entry&& handler);
    // Appends an extension handler (no duplicate check).
    void registerExtensionHandler(DMExtensionHandler& handler);

    Value* root() const { return root_.get(); }
    const Lexicon* lexicon() const { return lexicon_; }
    AllowedMethods allowedMethods() const { return allowedMethods_; }
    const ExceptionHandlers& exceptionHandlers() const { return exceptionHandlers_; }

  private:
    DataModel(SmartPointer<Value> root, const Lexicon& lexicon, AllowedMethods allowed,
              const ExceptionHandlers& exceptionHandlers,
              const ExtensionHandlers& extensionHandlers);

    SmartPointer<Value> root_;
    const Lexicon* lexicon_;
    AllowedMethods allowedMethods_;
    ExceptionHandlers exceptionHandlers_;
    ExtensionHandlers extensionHandlers_;
};

// Runs one request on the data model's tree: the extension handlers' preProcess, the walk from
// the root, postProcess, and the exception handlers for anything thrown by the walk. An
// exception that no handler claims gives 12 and a two-line report on the standard error stream;
// a thrown object that is not a std::exception gives 1.
int processRequest(DataModel* dataModel, Context& ctx, const cxxtools::SerializationInfo& in,
                   cxxtools::SerializationInfo& out);

// How a subscription made through DataModelEngine::subscribe starts.
enum class ObserverOption : unsigned int {
    // The observer hears only of changes made after the subscription.
    CHANGES_ONLY = 0,
    // The observer also receives a first notification at once.
    IMMEDIATE_NOTIFICATION = 1,
};

// The library's entry object: owns (or borrows) one data model and one notifier manager, whose
// thread delivers change notifications. Requests run on the caller's thread and take no lock:
// the application runs them one at a time. Construct with a `DataModel*` to hand ownership over,
// with a `DataModel&` to keep it. Not copyable.
class DataModelEngine {
  public:
    // Throws std::invalid_argument("No data model provided") for a null pointer. `name` is
    // accepted and not used.
    DataModelEngine(DataModel* dataModel, const std::string& name);
    DataModelEngine(DataModel& dataModel, const std::string& name);
    DataModelEngine(const DataModelEngine&) = delete;
    DataModelEngine& operator=(const DataModelEngine&) = delete;
    // Terminates the data model, stops the notifier thread, releases the data model.
    virtual ~DataModelEngine();

    // Initialises the data model and creates the notifier manager if there is none yet.
    void init();
    // Terminates the data model's extension handlers.
    void terminate();

    DataModel* dataModel() { return dataModel_.get(); }
    const DataModel* dataModel() const { return dataModel_.get(); }
    // The data model's lexicon, or null without a data model.
    const Lexicon* lexicon() const;
    NotifierManager* notifierManager() const { return notifierManager_.get(); }

    // Runs one request with an empty request info. Returns the result code (10 for an invalid
    // method); the answer is in `out`.
    int execute(Method method, const std::string& uri, const Arguments& arguments,
                const cxxtools::SerializationInfo& in, cxxtools::SerializationInfo& out);
    // Runs one request on behalf of `requestInfo`'s session.
    int execute(Method method, const std::string& uri, const Arguments& arguments,
                const RequestInfo& requestInfo, const cxxtools::SerializationInfo& in,
                cxxtools::SerializationInfo& out);
    // Subscribes `observer` to changes below `uri`, notified at most once per `period`. Returns
    // the tree's result; on failure nothing stays registered.
    int subscribe(IDataModelObserver& observer, const std::string& uri, const Arguments& arguments,
                  const std::chrono::milliseconds& period, ObserverOption option);
    // Removes every subscription of `observer` and releases the nodes they observed.
    void unsubscribe(IDataModelObserver& observer);
    // The methods among READ, UPDATE, CREATE and DELETE that the node at `uri` has and that
    // `requestInfo`'s session may use there, in `allowed`. Walks the tree as a SCHEMA request
    // (the extension handlers see one) but runs nothing on the node. Returns 0, or the walk's
    // result when it cannot reach the node (3 for a path that names nothing, 6 for a node the
    // session may not browse to), leaving `allowed` empty.
    int allowedMethods(const std::string& uri, const RequestInfo& requestInfo,
                       AllowedMethods& allowed);

    // Off by default: an UPDATE is applied member by member, and one that fails part of the way
    // leaves the members before the failure changed. On: every UPDATE runs twice, a checking
    // pass (isValidationPass) in which nodes check the body and store nothing, and, only when
    // that pass answers 0, the applying pass; a refused UPDATE answers the checking pass's
    // result and document and changes nothing, so observers hear of no change. The checking
    // pass also refuses a body that cannot be an object's (an array, a scalar) sent to a
    // structure, with "Invalid type". Set it before requests run.
    void setAllOrNothingUpdates(bool on) { allOrNothingUpdates_ = on; }
    bool allOrNothingUpdates() const { return allOrNothingUpdates_; }
    // Off by default (empty names): a collection READ lists every item. With names, a READ
    // addressing a collection is paged by the query arguments so named (see PagingArguments);
    // text that is not an unsigned integer there is refused with "Argument invalid type" or
    // "Argument out of range". Set it before requests run.
    void setPagingArguments(const std::string& limit, const std::string& offset);
    // Off by default: resource paths are written as the tree names them. On: written
    // percent-encoded, ready to be used in a URL (percentEncodePath). Set it before requests
    // run.
    void setPercentEncodedResourcePaths(bool on) { percentEncodedResourcePaths_ = on; }

  private:
    void releaseInTree(const Notifier& notifier);
    // Adds the custom objects of the engine's options to `ctx`.
    void addOptions(Context& ctx) const;

    std::unique_ptr<DataModel, std::function<void(DataModel*)>> dataModel_;
    std::unique_ptr<NotifierManager> notifierManager_;
    bool allOrNothingUpdates_ = false;
    bool percentEncodedResourcePaths_ = false;
    std::shared_ptr<PagingArguments> paging_;
};

// A DataModelEngine that speaks JSON text: it parses the request body, runs the request and
// formats the answer. Same ownership and threading rules as DataModelEngine.
class JsonDataModelEngine : public DataModelEngine {
  public:
    JsonDataModelEngine(DataModel* dataModel, const std::string& name);
    JsonDataModelEngine(DataModel& dataModel, const std::string& name);
    ~JsonDataModelEngine() override;

    // Parses `body` into `inSi`. Returns 0 (also for an empty body, which leaves `inSi`
    // unchanged) or 10 for text that is not one well-formed JSON value, after a report on the
    // standard error stream. `outSi` is not written.
    int extractJsonFromBody(cxxtools::SerializationInfo& inSi, const std::string& body,
                            cxxtools::SerializationInfo& outSi);
    // Runs one request with a JSON body and writes the JSON answer (indented when `beautify`).
    int execute(Method method, const std::string& uri, const Arguments& arguments,
                const RequestInfo& requestInfo, const std::string& inBody, std::string& outBody,
                bool beautify);
    // As above with an empty request info.
    int execute(Method method, const std::string& uri, const Arguments& arguments,
                const std::string& inBody, std::string& outBody, bool beautify);
    using DataModelEngine::execute;
};

}  // namespace dme
