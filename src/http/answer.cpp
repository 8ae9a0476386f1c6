#include "answer.h"

#include <microhttpd.h>

#include "../request/utf8.h"
#include "dme/exception.h"
#include "dme/http/error_document.h"
#include "dme/json.h"
#include "dme/result.h"

namespace dme {
namespace http {
namespace {

constexpr unsigned int FIRST_ERROR_STATUS = 400;
constexpr char ELLIPSIS[] = "\xE2\x80\xA6";

// Cuts the long text details of an error document; true when one was cut.
bool shortenDetails(cxxtools::SerializationInfo& error) {
    cxxtools::SerializationInfo* details = error.findMember("details");
    if (details == nullptr) return false;
    bool cut = false;
    for (cxxtools::SerializationInfo& detail : *details) {
        if (!detail.isString() && !detail.isString8()) continue;
        const std::string text = utf8::textOf(detail);
        if (text.size() <= MAX_DETAIL_BYTES) continue;
        detail.setValue(shortenedDetail(text));
        cut = true;
    }
    return cut;
}

// When `body` is JSON text of an object with an "error" member, its document with the details
// cut, and true.
bool readErrorDocument(const std::string& body, cxxtools::SerializationInfo& document) {
    try {
        document = parseJson(body);
    } catch (const std::exception&) {
        return false;
    }
    return document.findMember("error") != nullptr;
}

// A body that is no JSON was refused without a document: the parser's reason and offset become
// its details.
void explainSyntaxError(Answer& answer, const std::string& body, bool beautify) {
    if (answer.body != statusAnswer(MHD_HTTP_BAD_REQUEST, beautify).body) return;
    try {
        parseJson(body);
    } catch (const JsonSyntaxError& e) {
        answer.body = formatJson(errorDocument(MHD_HTTP_BAD_REQUEST, "Malformed JSON",
                                               {e.what(), std::to_string(e.offset())}),
                                 beautify);
    }
}

}  // namespace

std::string shortenedDetail(const std::string& detail) {
    if (detail.size() <= MAX_DETAIL_BYTES) return detail;
    std::size_t end = MAX_DETAIL_BYTES - (sizeof ELLIPSIS - 1);
    while (end > 0 && (static_cast<unsigned char>(detail[end]) & 0xC0) == 0x80) --end;
    return detail.substr(0, end) + ELLIPSIS;
}

Answer statusAnswer(unsigned int status, bool beautify) {
    const char* phrase = MHD_get_reason_phrase_for(status);
    return documentAnswer(status, errorDocument(status, phrase, {}), beautify);
}

Answer documentAnswer(unsigned int status, const cxxtools::SerializationInfo& document,
                      bool beautify) {
    return {status, formatJson(document, beautify), {}};
}

namespace {

// engineAnswer without its result code.
Answer answerOfStatus(unsigned int status, std::string body, bool beautify) {
    if (status < FIRST_ERROR_STATUS) return {status, std::move(body), {}};
    cxxtools::SerializationInfo document;
    if (!readErrorDocument(body, document)) return statusAnswer(status, beautify);
    if (shortenDetails(document.getMember("error")))
        return documentAnswer(status, document, beautify);
    return {status, std::move(body), {}};
}

}  // namespace

Answer engineAnswer(int resultCode, Method method, std::string body, const StatusTable& table,
                    bool beautify) {
    Answer answer = answerOfStatus(table.statusOf(resultCode, method), std::move(body), beautify);
    answer.resultCode = resultCode;
    return answer;
}

Answer runOnEngine(JsonDataModelEngine& engine, Method method, const std::string& uri,
                   const Arguments& arguments, const RequestInfo& requestInfo,
                   const std::string& body, const StatusTable& table, bool beautify) {
    std::string out;
    int code = result::FAILED;
    try {
        code = engine.execute(method, uri, arguments, requestInfo, body, out, beautify);
    } catch (const Exception& rejected) {
        Answer answer = documentAnswer(MHD_HTTP_BAD_REQUEST, errorDocument(rejected), beautify);
        answer.resultCode = result::INVALID_ARGUMENT;
        return answer;
    }
    Answer answer = engineAnswer(code, method, std::move(out), table, beautify);
    if (answer.status == MHD_HTTP_BAD_REQUEST && !body.empty()) {
        explainSyntaxError(answer, body, beautify);
    }
    return answer;
}

}  // namespace http
}  // namespace dme
