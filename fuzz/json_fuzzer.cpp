// Fuzzes the JSON reader and writer. The input is JSON text. Text that the reader refuses must
// be refused with JsonSyntaxError at an offset inside the text; text that it accepts must be
// written back, compact and indented, as text that reads to the same document and is written
// again to the same text. The one document that the writer refuses, by design, is one with an
// object under the empty name inside an object ({"":{}}): it must then throw std::logic_error,
// and only then.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "dme/json.h"
#include "json_documents.h"

namespace {

void check(bool condition) {
    if (!condition) __builtin_trap();
}

// Whether `node` or a node below it is an object holding an object under the empty name.
bool hasUnnamedObjectMember(const cxxtools::SerializationInfo& node) {
    const bool object = node.category() == cxxtools::SerializationInfo::Object;
    for (const cxxtools::SerializationInfo& member : node) {
        const bool memberIsObject = member.category() == cxxtools::SerializationInfo::Object;
        if ((object && member.name().empty() && memberIsObject) || hasUnnamedObjectMember(member)) {
            return true;
        }
    }
    return false;
}

void roundTrip(const cxxtools::SerializationInfo& document, bool beautify) {
    std::string text;
    try {
        text = dme::formatJson(document, beautify);
    } catch (const std::logic_error& e) {
        check(hasUnnamedObjectMember(document) &&
              std::string(e.what()) == "can't serialize object without name into another object");
        return;
    }
    check(!hasUnnamedObjectMember(document));
    const cxxtools::SerializationInfo again = dme::parseJson(text);
    std::string why;
    check(dme::test::sameDocument(document, again, why));
    check(dme::formatJson(again, beautify) == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    cxxtools::SerializationInfo document;
    try {
        document = dme::parseJson(text);
    } catch (const dme::JsonSyntaxError& e) {
        check(e.offset() <= text.size());
        return 0;
    }
    roundTrip(document, false);
    roundTrip(document, true);
    return 0;
}
