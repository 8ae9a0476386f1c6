#include "dme/http/error_document.h"

#include <typeindex>

#include "answer.h"
#include "dme/result.h"

namespace dme {
namespace http {

cxxtools::SerializationInfo errorDocument(long long code, const std::string& message,
                                          const std::vector<std::string>& details) {
    cxxtools::SerializationInfo document;
    cxxtools::SerializationInfo& error = document.addMember("error");
    error.addMember("code").setValue(code);
    error.addMember("message").setValue(message);
    cxxtools::SerializationInfo& list = error.addMember("details");
    list.setCategory(cxxtools::SerializationInfo::Array);
    for (const std::string& detail : details) list.addMember().setValue(detail);
    return document;
}

cxxtools::SerializationInfo errorDocument(const Exception& exception) {
    std::vector<std::string> details{shortenedDetail(exception.detail1)};
    if (!exception.detail2.empty()) details.push_back(shortenedDetail(exception.detail2));
    return errorDocument(exception.id, exception.message, details);
}

ExceptionHandlers::Entry defaultExceptionHandler() {
    return {std::type_index(typeid(Exception)),
            [](std::exception& e, Context&, const cxxtools::SerializationInfo&,
               cxxtools::SerializationInfo& out) {
                const auto* rejected = dynamic_cast<const Exception*>(&e);
                if (rejected == nullptr) return ExceptionHandlers::NOT_HANDLED;
                // Swapped in rather than move-assigned: cxxtools' move assignment loses the
                // members that `out` held before.
                cxxtools::SerializationInfo document = errorDocument(*rejected);
                out.swap(document);
                return result::INVALID_ARGUMENT;
            }};
}

ExceptionHandlers defaultExceptionHandlers() {
    return ExceptionHandlers({defaultExceptionHandler()});
}

}  // namespace http
}  // namespace dme
