// Fuzzes the JSON reader and writer. The input is JSON text. Text that the reader refuses must
// be refused with JsonSyntaxError at an offset inside the text; text that it accepts must be
// written back, compact and indented, as text that reads to the same document and is written
// again to the same text.

#include <cstddef>
#include <cstdint>
#include <string>

#include "dme/json.h"
#include "json_documents.h"

namespace {

void check(bool condition) {
    if (!condition) __builtin_trap();
}

void roundTrip(const cxxtools::SerializationInfo& document, bool beautify) {
    const std::string text = dme::formatJson(document, beautify);
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
