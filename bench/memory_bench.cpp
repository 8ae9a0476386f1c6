// Memory case: heap bytes per string leaf in a tree of 100,000 leaves at depth 4.

#include <cxxtools/serializationinfo.h>
#include <malloc.h>
#include <rapidjson/document.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "dme/json.h"
#include "support.h"

namespace dme {
namespace bench {
namespace {

// /a/b/cKK/leafNNN: 100 structures c00..c99 of 1,000 leaves leaf000..leaf999 each, holding
// "value-KKNNN". Names and values fit in std::string's inline buffer, as short names do.
constexpr unsigned int GROUPS = 100;
constexpr unsigned int LEAVES_PER_GROUP = 1000;
constexpr unsigned int LEAVES = GROUPS * LEAVES_PER_GROUP;

std::string groupName(unsigned int g) {
    return numbered("c", g, 2);
}
std::string leafName(unsigned int l) {
    return numbered("leaf", l, 3);
}
std::string leafText(unsigned int g, unsigned int l) {
    return numbered("value-", g, 2) + numbered("", l, 3);
}

// The bytes that the allocator has handed out and not taken back, chunk overhead included.
std::size_t heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Times `build` (returning the owner of what it built) and reports the heap bytes it kept per
// leaf; `check` (taking the built object) must confirm that one leaf holds its value.
template <class Build, class Check>
void measureMemory(benchmark::State& state, Build build, Check check) {
    double bytesPerLeaf = 0;
    for (auto _ : state) {
        const std::size_t before = heapInUse();
        auto built = build();
        const std::size_t after = heapInUse();
        state.PauseTiming();
        bytesPerLeaf = static_cast<double>(after - before) / LEAVES;
        const bool holdsValue = check(*built);
        built.reset();
        state.ResumeTiming();
        if (!holdsValue) {
            state.SkipWithError("the built tree does not hold the leaf's value");
            return;
        }
    }
    state.counters["bytes_per_leaf"] = bytesPerLeaf;
}

const char* const CHECKED_URI = "/a/b/c42/leaf123";
const std::string CHECKED_TEXT = "value-42123";

std::unique_ptr<JsonDataModelEngine> buildEngine() {
    std::vector<Element*> groups;
    for (unsigned int g = 0; g < GROUPS; ++g) {
        std::vector<Element*> leaves;
        for (unsigned int l = 0; l < LEAVES_PER_GROUP; ++l) {
            leaves.push_back(stringLeaf(leafName(l), leafText(g, l)));
        }
        groups.push_back(new Entry(groupName(g), structure(leaves)));
    }
    return makeEngine(structure({new Entry("a", structure({new Entry("b", structure(groups))}))}));
}

bool engineHoldsValue(JsonDataModelEngine& engine) {
    std::string answer;
    return engine.execute(READ, CHECKED_URI, Arguments(), "", answer, false) == 0 &&
           answer == "\"" + CHECKED_TEXT + "\"";
}

std::unique_ptr<cxxtools::SerializationInfo> buildFloor() {
    auto document = std::make_unique<cxxtools::SerializationInfo>();
    cxxtools::SerializationInfo& b = document->addMember("a").addMember("b");
    for (unsigned int g = 0; g < GROUPS; ++g) {
        cxxtools::SerializationInfo& group = b.addMember(groupName(g));
        for (unsigned int l = 0; l < LEAVES_PER_GROUP; ++l) {
            setText(group.addMember(leafName(l)), leafText(g, l));
        }
    }
    return document;
}

bool floorHoldsValue(const cxxtools::SerializationInfo& document) {
    const cxxtools::SerializationInfo& leaf =
        document.getMember("a").getMember("b").getMember("c42").getMember("leaf123");
    return formatJson(leaf) == "\"" + CHECKED_TEXT + "\"";
}

rapidjson::Value copiedText(const std::string& text, rapidjson::Document::AllocatorType& pool) {
    return rapidjson::Value(text.data(), static_cast<rapidjson::SizeType>(text.size()), pool);
}

std::unique_ptr<rapidjson::Document> buildHandWritten() {
    auto document = std::make_unique<rapidjson::Document>();
    auto& pool = document->GetAllocator();
    rapidjson::Value b(rapidjson::kObjectType);
    for (unsigned int g = 0; g < GROUPS; ++g) {
        rapidjson::Value group(rapidjson::kObjectType);
        for (unsigned int l = 0; l < LEAVES_PER_GROUP; ++l) {
            group.AddMember(copiedText(leafName(l), pool), copiedText(leafText(g, l), pool), pool);
        }
        b.AddMember(copiedText(groupName(g), pool), group, pool);
    }
    rapidjson::Value a(rapidjson::kObjectType);
    a.AddMember("b", b, pool);
    document->SetObject().AddMember("a", a, pool);
    return document;
}

bool handWrittenHoldsValue(const rapidjson::Document& document) {
    const rapidjson::Value& leaf = document["a"]["b"]["c42"]["leaf123"];
    return leaf.IsString() && CHECKED_TEXT == leaf.GetString();
}

void memoryEngine(benchmark::State& state) {
    measureMemory(state, buildEngine, engineHoldsValue);
}

void memoryFloor(benchmark::State& state) {
    measureMemory(state, buildFloor, floorHoldsValue);
}

void memoryHandWritten(benchmark::State& state) {
    measureMemory(state, buildHandWritten, handWrittenHoldsValue);
}

const int memoryCase =
    declareCase({"memory_leaf_depth4", "heap bytes per string leaf at depth 4 (100,000 leaves)",
                 "bytes_per_leaf", "B", 0.0, 512.0, "<= 512 B"});

}  // namespace

BENCHMARK(memoryEngine)->Name("memory_leaf_depth4/engine")->Unit(benchmark::kMillisecond);
BENCHMARK(memoryFloor)->Name("memory_leaf_depth4/floor")->Unit(benchmark::kMillisecond);
BENCHMARK(memoryHandWritten)->Name("memory_leaf_depth4/handwritten")->Unit(benchmark::kMillisecond);

}  // namespace bench
}  // namespace dme
