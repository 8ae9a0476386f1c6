#pragma once

#include <cxxtools/serializationinfo.h>

#include <memory>
#include <string>

#include "dme/arguments.h"
#include "dme/context.h"
#include "dme/value.h"

namespace dme {
namespace test {

// The lexicon used by the tests: every feature switched on.
inline const Lexicon& testLexicon() {
    static const Lexicon lexicon{"href", "id", "count", "members", "expand", "select"};
    return lexicon;
}

// A lexicon with every feature switched off.
inline const Lexicon& bareLexicon() {
    static const Lexicon lexicon{"", "", "", "", nullptr, nullptr};
    return lexicon;
}

// Runs one request directly on a tree root, without an engine: builds the context, calls
// `process` on the root and keeps the context for inspection afterwards.
class Request {
  public:
    Request(Method method, const std::string& uri, const std::string& query = "",
            const Lexicon& lexicon = testLexicon(), const RequestInfo& info = RequestInfo())
        : info_(info), context_(lexicon, method, uri, Arguments(query), info_, false) {}

    int run(Value& root, const cxxtools::SerializationInfo& in = cxxtools::SerializationInfo()) {
        return root.process(context_, in, out_);
    }

    Context& context() { return context_; }
    cxxtools::SerializationInfo& out() { return out_; }

  private:
    RequestInfo info_;
    Context context_;
    cxxtools::SerializationInfo out_;
};

}  // namespace test
}  // namespace dme
