#include "console.h"

#include <cxxtools/serializationinfo.h>
#include <microhttpd.h>

#include <cstring>

#include "dme/json.h"
#include "embedded_files.h"
#include "headers.h"

namespace dme {
namespace http {
namespace {

constexpr char FOLDER[] = "/console/";
constexpr char INDEX[] = "index.html";
constexpr char CONFIGURATION[] = "config.json";
// The page runs its own script and style only, talks to its own origin and cannot be framed.
constexpr char SECURITY_POLICY[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; form-action 'none'; frame-ancestors 'none'; base-uri 'none'";

bool endsWith(const std::string& text, const char* suffix) {
    const std::size_t length = std::strlen(suffix);
    return text.size() >= length && text.compare(text.size() - length, length, suffix) == 0;
}

const char* mediaTypeOf(const std::string& name) {
    if (endsWith(name, ".html")) return "text/html; charset=utf-8";
    if (endsWith(name, ".css")) return "text/css; charset=utf-8";
    if (endsWith(name, ".js")) return "text/javascript; charset=utf-8";
    return "application/json";
}

// Where the page finds the tree (the base path, the schema and events prefixes), the paging
// arguments, and the names of the members and arguments of the tree's JSON.
std::string configuration(const ServerOptions& options, const Lexicon& lexicon) {
    cxxtools::SerializationInfo document;
    document.addMember("api").setValue(options.basePath);
    document.addMember("schema").setValue(options.schemaPrefix);
    document.addMember("events").setValue(options.eventsPrefix);
    document.addMember("limit").setValue(options.limitArgument);
    document.addMember("offset").setValue(options.offsetArgument);
    cxxtools::SerializationInfo& keys = document.addMember("keys");
    keys.addMember("href").setValue(lexicon.resourcePathKey);
    keys.addMember("id").setValue(lexicon.idKey);
    keys.addMember("count").setValue(lexicon.countKey);
    keys.addMember("items").setValue(lexicon.itemsKey);
    keys.addMember("expand").setValue(
        std::string(lexicon.expandArgument != nullptr ? lexicon.expandArgument : ""));
    return formatJson(document, false);
}

std::optional<std::string> fileContent(const std::string& name, const ServerOptions& options,
                                       const Lexicon& lexicon) {
    if (name == CONFIGURATION) return configuration(options, lexicon);
    for (const EmbeddedFile& file : consoleFiles()) {
        if (name == file.path) {
            return std::string(reinterpret_cast<const char*>(file.bytes), file.size);
        }
    }
    return std::nullopt;
}

// The file that `path` names: "/" is the page itself.
std::string fileName(const std::string& path) {
    return path == "/" ? std::string(INDEX) : path.substr(std::strlen(FOLDER));
}

}  // namespace

bool isConsolePath(const std::string& path) {
    return path == "/" || path.rfind(FOLDER, 0) == 0;
}

Answer consoleAnswer(const std::string& path, const std::string& method,
                     const std::string& ifNoneMatch, const ServerOptions& options,
                     const Lexicon& lexicon) {
    if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
        Answer refused = statusAnswer(MHD_HTTP_METHOD_NOT_ALLOWED, options.beautify);
        refused.headers.emplace_back(MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
        return refused;
    }
    const std::string name = fileName(path);
    std::optional<std::string> content = fileContent(name, options, lexicon);
    if (!content) return statusAnswer(MHD_HTTP_NOT_FOUND, options.beautify);
    const std::string tag = entityTag(*content);
    Answer answer{MHD_HTTP_OK,
                  std::move(*content),
                  {{MHD_HTTP_HEADER_CONTENT_TYPE, mediaTypeOf(name)},
                   {MHD_HTTP_HEADER_ETAG, tag},
                   {MHD_HTTP_HEADER_CACHE_CONTROL, "no-cache"},
                   {"Content-Security-Policy", SECURITY_POLICY},
                   {"X-Content-Type-Options", "nosniff"},
                   {"Referrer-Policy", "no-referrer"}}};
    if (noneMatchHolds(ifNoneMatch, tag)) {
        answer.status = MHD_HTTP_NOT_MODIFIED;
        answer.body.clear();
    }
    return answer;
}

}  // namespace http
}  // namespace dme
