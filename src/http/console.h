#pragma once

#include <optional>
#include <string>

#include "answer.h"
#include "dme/context.h"
#include "dme/http/server.h"

namespace dme {
namespace http {

// Whether `path` (percent-decoded, query string removed) names a page of the browser console:
// "/" or "/console/<file>".
bool isConsolePath(const std::string& path);

// The answer to `method` on the console page at `path`, which isConsolePath accepts: the file
// with its media type, an entity tag and headers that keep the page from loading anything from
// elsewhere (304 when `ifNoneMatch` names the tag, 404 for an unknown file, 405 for a method
// other than GET and HEAD). "/console/config.json" tells the page where `options` serve the tree
// and which member and argument names `lexicon` gives it.
Answer consoleAnswer(const std::string& path, const std::string& method,
                     const std::string& ifNoneMatch, const ServerOptions& options,
                     const Lexicon& lexicon);

}  // namespace http
}  // namespace dme
