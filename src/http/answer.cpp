#include "answer.h"

#include <microhttpd.h>

#include "dme/http/error_document.h"
#include "dme/json.h"

namespace dme {
namespace http {
namespace {

constexpr unsigned int FIRST_ERROR_STATUS = 400;

// Whether `body` is JSON text of an object with an "error" member.
bool isErrorDocument(const std::string& body) {
    try {
        return parseJson(body).findMember("error") != nullptr;
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace

Answer statusAnswer(unsigned int status, bool beautify) {
    const char* phrase = MHD_get_reason_phrase_for(status);
    return documentAnswer(status, errorDocument(status, phrase, {}), beautify);
}

Answer documentAnswer(unsigned int status, const cxxtools::SerializationInfo& document,
                      bool beautify) {
    return {status, formatJson(document, beautify), {}};
}

Answer engineAnswer(int resultCode, Method method, std::string body, const StatusTable& table,
                    bool beautify) {
    const unsigned int status = table.statusOf(resultCode, method);
    if (status >= FIRST_ERROR_STATUS && !isErrorDocument(body)) {
        return statusAnswer(status, beautify);
    }
    return {status, std::move(body), {}};
}

}  // namespace http
}  // namespace dme
