#include "dme/engine.h"

#include <memory>
#include <stdexcept>

#include "../../tree/methods_query.h"
#include "dme/subscription.h"

namespace dme {
namespace {

void noDelete(DataModel*) {}
void deleteModel(DataModel* model) {
    delete model;
}

DataModel* requireModel(DataModel* dataModel) {
    if (dataModel == nullptr) throw std::invalid_argument("No data model provided");
    return dataModel;
}

}  // namespace

DataModelEngine::DataModelEngine(DataModel* dataModel, const std::string&)
    : dataModel_(requireModel(dataModel), deleteModel) {
    init();
}

DataModelEngine::DataModelEngine(DataModel& dataModel, const std::string&)
    : dataModel_(&dataModel, noDelete) {
    init();
}

DataModelEngine::~DataModelEngine() {
    terminate();
    notifierManager_.reset();
    dataModel_.reset();
}

void DataModelEngine::init() {
    if (!dataModel_) return;
    dataModel_->init();
    if (!notifierManager_) notifierManager_ = std::make_unique<NotifierManager>();
}

void DataModelEngine::terminate() {
    if (dataModel_) dataModel_->terminate();
}

const Lexicon* DataModelEngine::lexicon() const {
    return dataModel_ ? dataModel_->lexicon() : nullptr;
}

int DataModelEngine::execute(Method method, const std::string& uri, const Arguments& arguments,
                             const cxxtools::SerializationInfo& in,
                             cxxtools::SerializationInfo& out) {
    static const RequestInfo anonymous;
    return execute(method, uri, arguments, anonymous, in, out);
}

int DataModelEngine::execute(Method method, const std::string& uri, const Arguments& arguments,
                             const RequestInfo& requestInfo, const cxxtools::SerializationInfo& in,
                             cxxtools::SerializationInfo& out) {
    try {
        if (method == UPDATE && allOrNothingUpdates_) {
            Context check(*lexicon(), method, uri, Arguments(arguments), requestInfo, false);
            addOptions(check);
            check.customs().add(std::make_shared<ValidationPass>());
            cxxtools::SerializationInfo checked;
            const int status = processRequest(dataModel_.get(), check, in, checked);
            if (status != result::DONE) {
                out.swap(checked);
                return status;
            }
        }
        Context ctx(*lexicon(), method, uri, Arguments(arguments), requestInfo, false);
        addOptions(ctx);
        return processRequest(dataModel_.get(), ctx, in, out);
    } catch (const std::invalid_argument&) {
        return result::INVALID_ARGUMENT;
    }
}

int DataModelEngine::subscribe(IDataModelObserver& observer, const std::string& uri,
                               const Arguments& arguments, const std::chrono::milliseconds& period,
                               ObserverOption option) {
    const Subscription subscription = notifierManager_->add(observer, uri, arguments, period);
    int status = result::FAILED;
    try {
        Context ctx(*lexicon(), SUBSCRIBE, uri, arguments, false);
        ctx.customs().add(std::make_shared<Subscription>(subscription));
        const cxxtools::SerializationInfo in;
        cxxtools::SerializationInfo out;
        status = processRequest(dataModel_.get(), ctx, in, out);
        if (status == result::DONE && option == ObserverOption::IMMEDIATE_NOTIFICATION) {
            notifierManager_->notifyNow(ctx.customs().get<Subscription>()->id());
        }
    } catch (...) {
        notifierManager_->remove(subscription);
        throw;
    }
    if (status != result::DONE) notifierManager_->remove(subscription);
    return status;
}

// Besides forgetting the observer's subscriptions, the nodes they reached are released, so that
// subscribing and unsubscribing repeatedly leaves nothing behind in the tree.
void DataModelEngine::unsubscribe(IDataModelObserver& observer) {
    for (const Notifier& notifier : notifierManager_->notifiers()) {
        if (&notifier.observer() == &observer) releaseInTree(notifier);
    }
    notifierManager_->removeAll(observer);
}

void DataModelEngine::releaseInTree(const Notifier& notifier) {
    try {
        Context ctx(*lexicon(), UNSUBSCRIBE, notifier.uri(), notifier.arguments(), false);
        ctx.customs().add(std::make_shared<Subscription>(notifierManager_.get(), notifier.id()));
        const cxxtools::SerializationInfo in;
        cxxtools::SerializationInfo out;
        processRequest(dataModel_.get(), ctx, in, out);
    } catch (const std::exception&) {
        // The uri was valid when the subscription was made; a tree that changed since only
        // keeps a stale id, which the notifier manager ignores.
    }
}

void DataModelEngine::setPagingArguments(const std::string& limit, const std::string& offset) {
    if (limit.empty() && offset.empty()) {
        paging_.reset();
    } else {
        paging_ = std::make_shared<PagingArguments>(limit, offset);
    }
}

void DataModelEngine::addOptions(Context& ctx) const {
    if (paging_ && ctx.method() == READ) ctx.customs().add(paging_);
    if (percentEncodedResourcePaths_) {
        static const auto encoded = std::make_shared<PercentEncodedResourcePaths>();
        ctx.customs().add(encoded);
    }
}

int DataModelEngine::allowedMethods(const std::string& uri, const RequestInfo& requestInfo,
                                    AllowedMethods& allowed) {
    allowed = AllowedMethods();
    try {
        Context ctx(*lexicon(), SCHEMA, uri, Arguments(), requestInfo, false);
        const auto query = std::make_shared<internal::MethodsQuery>();
        ctx.customs().add(query);
        cxxtools::SerializationInfo in;
        cxxtools::SerializationInfo out;
        const int status = processRequest(dataModel_.get(), ctx, in, out);
        if (status == result::DONE) allowed = query->allowed;
        return status;
    } catch (const std::invalid_argument&) {
        return result::INVALID_ARGUMENT;
    }
}

}  // namespace dme
