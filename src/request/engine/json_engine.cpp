#include <string>

#include "dme/diagnostics.h"
#include "dme/engine.h"
#include "dme/json.h"

namespace dme {

JsonDataModelEngine::JsonDataModelEngine(DataModel* dataModel, const std::string& name)
    : DataModelEngine(dataModel, name) {}

JsonDataModelEngine::JsonDataModelEngine(DataModel& dataModel, const std::string& name)
    : DataModelEngine(dataModel, name) {}

JsonDataModelEngine::~JsonDataModelEngine() = default;

int JsonDataModelEngine::extractJsonFromBody(cxxtools::SerializationInfo& inSi,
                                             const std::string& body,
                                             cxxtools::SerializationInfo&) {
    if (body.empty()) return result::DONE;
    try {
        inSi = parseJson(body);
        return result::DONE;
    } catch (const std::exception& e) {
        diagnose(std::string("In JDM while deserializing inSi:\n") + e.what() + "\n");
        return result::INVALID_ARGUMENT;
    }
}

int JsonDataModelEngine::execute(Method method, const std::string& uri, const Arguments& arguments,
                                 const RequestInfo& requestInfo, const std::string& inBody,
                                 std::string& outBody, bool beautify) {
    cxxtools::SerializationInfo inSi;
    cxxtools::SerializationInfo outSi;
    int status = extractJsonFromBody(inSi, inBody, outSi);
    if (status == result::DONE) {
        status = DataModelEngine::execute(method, uri, arguments, requestInfo, inSi, outSi);
    }
    try {
        outBody = formatJson(outSi, beautify);
    } catch (const std::exception& e) {
        diagnose(std::string("In JDM while serializing outSi:\n") + e.what() + "\n");
    }
    return status;
}

int JsonDataModelEngine::execute(Method method, const std::string& uri, const Arguments& arguments,
                                 const std::string& inBody, std::string& outBody, bool beautify) {
    static const RequestInfo anonymous;
    return execute(method, uri, arguments, anonymous, inBody, outBody, beautify);
}

}  // namespace dme
