#include "support.h"

#include <cstdio>

#include "dme/atomic_value.h"
#include "dme/structure.h"

namespace dme {
namespace bench {

namespace {

std::vector<CaseInfo>& cases() {
    static std::vector<CaseInfo> declared;
    return declared;
}

}  // namespace

int declareCase(const CaseInfo& info) {
    cases().push_back(info);
    return 0;
}

const std::vector<CaseInfo>& declaredCases() {
    return cases();
}

const Lexicon& lexicon() {
    static const Lexicon names{"href", "id", "count", "members", "expand", "select"};
    return names;
}

AllowedMethods readUpdateBrowse() {
    return READ + UPDATE + AllowedMethods::B;
}

const Arguments& unlimitedExpansion() {
    static const Arguments expandAll{{"expand", "4294967295"}};
    return expandAll;
}

std::string numbered(const std::string& prefix, unsigned int n, unsigned int width) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%0*u", static_cast<int>(width), n);
    return prefix + digits;
}

Entry* stringLeaf(const std::string& name, const std::string& value) {
    return new Entry(name, new StaticAtomicValue<std::string>(value, READ + UPDATE));
}

Value* structure(const std::vector<Element*>& members) {
    return new Structure(members, readUpdateBrowse(), false);
}

std::unique_ptr<JsonDataModelEngine> makeEngine(Value* root) {
    return std::make_unique<JsonDataModelEngine>(new DataModel(root, lexicon(), readUpdateBrowse()),
                                                 "bench");
}

void setText(cxxtools::SerializationInfo& si, const std::string& value) {
    si.setValue(value);
}

void writeKey(JsonWriter& writer, const std::string& key) {
    writer.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
}

void writeText(JsonWriter& writer, const std::string& text) {
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

bool requireSameText(benchmark::State& state, const std::string& expected,
                     const std::string& actual) {
    if (expected == actual) return true;
    state.SkipWithError("the output differs from the expected JSON text");
    std::fprintf(stderr, "expected %zu bytes: %.200s\n     got %zu bytes: %.200s\n",
                 expected.size(), expected.c_str(), actual.size(), actual.c_str());
    return false;
}

bool requireDone(benchmark::State& state, int status) {
    if (status == 0) return true;
    state.SkipWithError(("the engine answered " + std::to_string(status)).c_str());
    return false;
}

void measureEngine(benchmark::State& state, JsonDataModelEngine& engine, Method method,
                   const std::string& uri, const Arguments& arguments, const std::string& body,
                   const std::string& expected) {
    std::string answer;
    const int status = engine.execute(method, uri, arguments, body, answer, false);
    if (!requireDone(state, status) || !requireSameText(state, expected, answer)) return;
    for (auto _ : state) {
        std::string out;
        benchmark::DoNotOptimize(engine.execute(method, uri, arguments, body, out, false));
        benchmark::DoNotOptimize(out.data());
    }
}

}  // namespace bench
}  // namespace dme
