#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <typeinfo>

#include "dme/diagnostics.h"
#include "dme/engine.h"
#include "dme/policy.h"

namespace dme {

DataModel::DataModel(Value* root, const Lexicon& lexicon, AllowedMethods allowed)
    : DataModel(root, lexicon, allowed, ExceptionHandlers(), ExtensionHandlers()) {}
DataModel::DataModel(Value& root, const Lexicon& lexicon, AllowedMethods allowed)
    : DataModel(root, lexicon, allowed, ExceptionHandlers(), ExtensionHandlers()) {}
DataModel::DataModel(Value* root, const Lexicon& lexicon, AllowedMethods allowed,
                     const ExceptionHandlers& exceptionHandlers)
    : DataModel(root, lexicon, allowed, exceptionHandlers, ExtensionHandlers()) {}
DataModel::DataModel(Value& root, const Lexicon& lexicon, AllowedMethods allowed,
                     const ExceptionHandlers& exceptionHandlers)
    : DataModel(root, lexicon, allowed, exceptionHandlers, ExtensionHandlers()) {}
DataModel::DataModel(Value* root, const Lexicon& lexicon, AllowedMethods allowed,
                     const ExtensionHandlers& extensionHandlers)
    : DataModel(root, lexicon, allowed, ExceptionHandlers(), extensionHandlers) {}
DataModel::DataModel(Value& root, const Lexicon& lexicon, AllowedMethods allowed,
                     const ExtensionHandlers& extensionHandlers)
    : DataModel(root, lexicon, allowed, ExceptionHandlers(), extensionHandlers) {}

DataModel::DataModel(Value* root, const Lexicon& lexicon, AllowedMethods allowed,
                     const ExceptionHandlers& exceptionHandlers,
                     const ExtensionHandlers& extensionHandlers)
    : DataModel(SmartPointer<Value>(root), lexicon, allowed, exceptionHandlers, extensionHandlers) {
}

DataModel::DataModel(Value& root, const Lexicon& lexicon, AllowedMethods allowed,
                     const ExceptionHandlers& exceptionHandlers,
                     const ExtensionHandlers& extensionHandlers)
    : DataModel(SmartPointer<Value>(root), lexicon, allowed, exceptionHandlers, extensionHandlers) {
}

DataModel::DataModel(SmartPointer<Value> root, const Lexicon& lexicon, AllowedMethods allowed,
                     const ExceptionHandlers& exceptionHandlers,
                     const ExtensionHandlers& extensionHandlers)
    : root_(std::move(root)),
      lexicon_(&lexicon),
      allowedMethods_(allowed),
      exceptionHandlers_(exceptionHandlers),
      extensionHandlers_(extensionHandlers) {
    root_->setPermissionPolicy(StaticPolicy(allowed),
                               PermissionPolicyHolder::DefaultPolicyReplacer());
}

void DataModel::init() {
    root_->setParent(nullptr);
    for (DMExtensionHandler& handler : extensionHandlers_) handler.init(*root_);
}

int DataModel::preProcess(Context& ctx) {
    for (DMExtensionHandler& handler : extensionHandlers_) {
        const int rc = handler.preProcess(ctx);
        if (rc != result::DONE) return rc;
    }
    return result::DONE;
}

int DataModel::postProcess(int status, Context& ctx) {
    for (auto handler = extensionHandlers_.rbegin(); handler != extensionHandlers_.rend();
         ++handler) {
        const int rc = handler->get().postProcess(status, ctx);
        if (rc != result::DONE) return rc;
    }
    return result::DONE;
}

void DataModel::terminate() {
    for (auto handler = extensionHandlers_.rbegin(); handler != extensionHandlers_.rend();
         ++handler) {
        handler->get().terminate(*root_);
    }
}

void DataModel::registerExceptionHandler(ExceptionHandlers::Entry&& handler) {
    exceptionHandlers_.registerHandler(std::move(handler));
}

void DataModel::registerExtensionHandler(DMExtensionHandler& handler) {
    extensionHandlers_.emplace_back(handler);
}

namespace {

std::string demangledName(const std::type_info& type) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    return status == 0 && name ? std::string(name.get()) : std::string(type.name());
}

void reportUnclaimed(const std::exception& e, const Context& ctx) {
    std::ostringstream report;
    report << "ERROR - Uncatched exception \"" << demangledName(typeid(e))
           << "\" in DME while processing request: " << ctx.method() << " \"" << ctx.requestedUri()
           << "\" (in:\"" << ctx.currentPath() << "\")\n"
           << "Exception text: " << e.what() << "\n";
    diagnose(report.str());
}

}  // namespace

int processRequest(DataModel* dataModel, Context& ctx, const cxxtools::SerializationInfo& in,
                   cxxtools::SerializationInfo& out) {
    dataModel->preProcess(ctx);
    try {
        const int status = dataModel->root()->process(ctx, in, out);
        dataModel->postProcess(status, ctx);
        return status;
    } catch (std::exception& e) {
        const int status = dataModel->exceptionHandlers().handleException(e, ctx, in, out);
        if (status == result::UNHANDLED) reportUnclaimed(e, ctx);
        return status;
    } catch (...) {
        return result::FAILED;
    }
}

}  // namespace dme
