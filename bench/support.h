#pragma once

#include <benchmark/benchmark.h>
#include <cxxtools/serializationinfo.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <memory>
#include <string>
#include <vector>

#include "dme/arguments.h"
#include "dme/container.h"
#include "dme/context.h"
#include "dme/engine.h"
#include "dme/methods.h"

namespace dme {
namespace bench {

// The benchmark cases and their baselines. Every case measures one engine operation on a model
// built once; its baselines produce the same output from the same data without the engine:
// - "floor": the same cxxtools::SerializationInfo document built directly and formatted with
//   dme::formatJson (for an UPDATE: the body parsed with dme::parseJson and its values stored;
//   for a parse: the cxxtools JSON parser),
//   the least any engine over this document model can cost;
// - "handwritten": the same JSON text written (or parsed) with RapidJSON, what an application
//   without the engine would write.
// Benchmarks are named "<case>/engine", "<case>/floor" and "<case>/handwritten".

// What a case is measured by and what it should reach.
struct CaseInfo {
    std::string id;                  // the benchmark name prefix, e.g. "read_leaf_depth8"
    std::string title;               // one line for the table
    std::string counter;             // the counter compared, or empty to compare the time
    std::string counterUnit;         // the counter's unit as printed in the table
    double maxFloorRatio;            // engine / floor must not exceed this; 0 for no such target
    double maxEngineValue;           // the engine's own figure (ns, or the counter) must not exceed
                                     // this; 0 for no such target
    std::string targetText;          // the target as printed in the table
    double maxHandWrittenRatio = 0;  // engine / hand-written must not exceed this; 0 for none
};

// Declares a case for the results table; returns 0 so that it can initialise a static.
int declareCase(const CaseInfo& info);
// Every declared case, in declaration order.
const std::vector<CaseInfo>& declaredCases();

// The lexicon of every engine case: {"href","id","count","members","expand","select"}.
const Lexicon& lexicon();
// READ, UPDATE and browsing: what every node of the benchmark models allows.
AllowedMethods readUpdateBrowse();
// The query that expands a read without limit.
const Arguments& unlimitedExpansion();

// `prefix` followed by `n` in decimal, zero-padded to `width` digits.
std::string numbered(const std::string& prefix, unsigned int n, unsigned int width);
// A member `name` holding an owned StaticAtomicValue<std::string> of `value`.
Entry* stringLeaf(const std::string& name, const std::string& value);
// A structure that allows READ, UPDATE and browsing, is not always expanded and owns `members`.
Value* structure(const std::vector<Element*>& members);

// A JSON engine over a data model of `root` (owned) with the benchmark lexicon; the data model
// allows READ, UPDATE and browsing.
std::unique_ptr<JsonDataModelEngine> makeEngine(Value* root);

// A document node holding the text `value` as the floor writes it.
void setText(cxxtools::SerializationInfo& si, const std::string& value);

// RapidJSON writing into a std::string, as an application would use it.
using JsonBuffer = rapidjson::StringBuffer;
using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;
void writeKey(JsonWriter& writer, const std::string& key);
void writeText(JsonWriter& writer, const std::string& text);

// Marks the benchmark as failed unless `actual` is `expected`: the engine and its baselines must
// write the same text, or they measure nothing comparable. Returns whether they are equal.
bool requireSameText(benchmark::State& state, const std::string& expected,
                     const std::string& actual);
// Marks the benchmark as failed unless the engine answered 0.
bool requireDone(benchmark::State& state, int status);

// Runs the benchmark loop over one engine request after checking once that it answers 0 with
// `expected`.
void measureEngine(benchmark::State& state, JsonDataModelEngine& engine, Method method,
                   const std::string& uri, const Arguments& arguments, const std::string& body,
                   const std::string& expected);

// Runs the benchmark loop over `produce` (a callable returning the answer text) after checking
// once that it answers `expected`.
template <class Produce>
void measureText(benchmark::State& state, const std::string& expected, Produce produce) {
    if (!requireSameText(state, expected, produce())) return;
    for (auto _ : state) {
        std::string text = produce();
        benchmark::DoNotOptimize(text.data());
    }
}

}  // namespace bench
}  // namespace dme
