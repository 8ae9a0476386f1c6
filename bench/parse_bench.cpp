// JSON case: a 1 MiB request body (an array of small objects) parsed into a document.

#include <cxxtools/jsondeserializer.h>
#include <cxxtools/serializationinfo.h>
#include <cxxtools/utf8codec.h>
#include <rapidjson/document.h>

#include <sstream>
#include <string>

#include "dme/json.h"
#include "support.h"

namespace dme {
namespace bench {
namespace {

// Each object holds every scalar kind; the array grows until the text passes 1 MiB.
struct Body {
    std::string text;
    std::size_t objects = 0;
};

const Body& body() {
    static const Body data = [] {
        Body result;
        JsonBuffer buffer;
        JsonWriter writer(buffer);
        writer.StartArray();
        while (buffer.GetSize() < 1024 * 1024) {
            const unsigned int n = static_cast<unsigned int>(result.objects++);
            writer.StartObject();
            writeKey(writer, "id");
            writeText(writer, numbered("if-", n, 5));
            writeKey(writer, "label");
            writeText(writer, numbered("Interface \u00e9 ", n, 1));
            writeKey(writer, "enabled");
            writer.Bool(n % 2 == 0);
            writeKey(writer, "mtu");
            writer.Uint(1500 + n % 100);
            writeKey(writer, "ratio");
            writer.Double(n / 7.0);
            writeKey(writer, "gateway");
            writer.Null();
            writer.EndObject();
        }
        writer.EndArray();
        result.text.assign(buffer.GetString(), buffer.GetSize());
        return result;
    }();
    return data;
}

bool requireObjects(benchmark::State& state, std::size_t count) {
    if (count == body().objects) return true;
    state.SkipWithError("the parsed document does not hold every object");
    return false;
}

void parseEngine(benchmark::State& state) {
    if (!requireObjects(state, parseJson(body().text).memberCount())) return;
    for (auto _ : state) benchmark::DoNotOptimize(parseJson(body().text));
}

// The document model's own parser, which accepts some malformed text and types no scalar.
void parseFloor(benchmark::State& state) {
    auto parse = [] {
        std::istringstream in(body().text);
        cxxtools::JsonDeserializer deserializer(in, new cxxtools::Utf8Codec());
        return deserializer.si();
    };
    if (!requireObjects(state, parse().memberCount())) return;
    for (auto _ : state) benchmark::DoNotOptimize(parse());
}

void parseHandWritten(benchmark::State& state) {
    auto parse = [] {
        rapidjson::Document document;
        document.Parse<rapidjson::kParseValidateEncodingFlag>(body().text.c_str(),
                                                              body().text.size());
        return document.IsArray() ? document.Size() : 0;
    };
    if (!requireObjects(state, parse())) return;
    for (auto _ : state) benchmark::DoNotOptimize(parse());
}

const int parseCase =
    declareCase({"parse_1mib", "parseJson of a 1 MiB body (an array of small objects)", "", "", 0.0,
                 0.0, "<= 5 x RapidJSON", 5.0});

}  // namespace

BENCHMARK(parseEngine)->Name("parse_1mib/engine")->Unit(benchmark::kMillisecond);
BENCHMARK(parseFloor)->Name("parse_1mib/floor")->Unit(benchmark::kMillisecond);
BENCHMARK(parseHandWritten)->Name("parse_1mib/handwritten")->Unit(benchmark::kMillisecond);

}  // namespace bench
}  // namespace dme
