// UPDATE case: 100 members of one structure written from one JSON body.

#include <cxxtools/serializationinfo.h>
#include <cxxtools/string.h>
#include <cxxtools/utf8codec.h>
#include <rapidjson/document.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "dme/json.h"
#include "support.h"

namespace dme {
namespace bench {
namespace {

constexpr unsigned int MEMBERS = 100;

std::string memberName(unsigned int m) {
    return numbered("p", m, 2);
}

// The two bodies that the benchmarks apply in turn, so that every update changes every value.
struct UpdateBodies {
    std::vector<std::string> texts;
    std::vector<std::vector<std::string>> values;
};

const UpdateBodies& bodies() {
    static const UpdateBodies data = [] {
        UpdateBodies result;
        for (const char* prefix : {"first-", "second-"}) {
            JsonBuffer buffer;
            JsonWriter writer(buffer);
            std::vector<std::string> values;
            writer.StartObject();
            for (unsigned int m = 0; m < MEMBERS; ++m) {
                values.push_back(numbered(prefix, m, 2));
                writeKey(writer, memberName(m));
                writeText(writer, values.back());
            }
            writer.EndObject();
            result.texts.emplace_back(buffer.GetString(), buffer.GetSize());
            result.values.push_back(std::move(values));
        }
        return result;
    }();
    return data;
}

// The READ answer of /conf after the first body was applied.
std::string readAfterFirstBody() {
    JsonBuffer buffer;
    JsonWriter writer(buffer);
    writer.StartObject();
    writeKey(writer, "href");
    writeText(writer, "/conf");
    for (unsigned int m = 0; m < MEMBERS; ++m) {
        writeKey(writer, memberName(m));
        writeText(writer, bodies().values[0][m]);
    }
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

struct ConfTree {
    std::unique_ptr<JsonDataModelEngine> engine;

    ConfTree() {
        std::vector<Element*> members;
        for (unsigned int m = 0; m < MEMBERS; ++m) {
            members.push_back(stringLeaf(memberName(m), numbered("initial-", m, 2)));
        }
        engine = makeEngine(structure({new Entry("conf", structure(members))}));
    }
};

void updateEngine(benchmark::State& state) {
    static ConfTree tree;
    JsonDataModelEngine& engine = *tree.engine;
    std::string out;
    if (!requireDone(state,
                     engine.execute(UPDATE, "/conf", Arguments(), bodies().texts[0], out, false)) ||
        !requireSameText(state, "null", out) ||
        !requireDone(state, engine.execute(READ, "/conf", Arguments(), "", out, false)) ||
        !requireSameText(state, readAfterFirstBody(), out)) {
        return;
    }
    std::size_t next = 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            engine.execute(UPDATE, "/conf", Arguments(), bodies().texts[next], out, false));
        next ^= 1;
    }
}

// The application's settings as the baselines keep them, looked up by member name.
class Settings {
  public:
    Settings() {
        for (unsigned int m = 0; m < MEMBERS; ++m) values_[memberName(m)] = "";
    }
    // The stored text of `name`, or null for an unknown name.
    std::string* find(const std::string& name) {
        auto found = values_.find(name);
        return found == values_.end() ? nullptr : &found->second;
    }
    // Fails the benchmark unless the stored texts are those of body `index`.
    bool require(benchmark::State& state, std::size_t index) {
        for (unsigned int m = 0; m < MEMBERS; ++m) {
            if (values_[memberName(m)] != bodies().values[index][m]) {
                state.SkipWithError("a member was not updated");
                return false;
            }
        }
        return true;
    }

  private:
    std::unordered_map<std::string, std::string> values_;
};

// Parses the body with the engine's parser and stores every known member's text, encoded as
// UTF-8 as the engine stores it.
void floorUpdate(Settings& settings, const std::string& body) {
    const cxxtools::SerializationInfo document = parseJson(body);
    for (const cxxtools::SerializationInfo& member : document) {
        std::string* target = settings.find(member.name());
        if (target == nullptr) continue;
        cxxtools::String text;
        member.getValue(text);
        *target = cxxtools::Utf8Codec::encode(text);
    }
}

// Parses the body (refusing invalid UTF-8) with RapidJSON and stores every known member's text.
void handWrittenUpdate(Settings& settings, const std::string& body) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(body.data(), body.size());
    if (document.HasParseError() || !document.IsObject()) return;
    for (const auto& member : document.GetObject()) {
        std::string* target = settings.find(member.name.GetString());
        if (target == nullptr || !member.value.IsString()) continue;
        target->assign(member.value.GetString(), member.value.GetStringLength());
    }
}

template <class Apply>
void measureUpdate(benchmark::State& state, Apply apply) {
    Settings settings;
    apply(settings, bodies().texts[0]);
    if (!settings.require(state, 0)) return;
    std::size_t next = 1;
    for (auto _ : state) {
        apply(settings, bodies().texts[next]);
        next ^= 1;
    }
}

void updateFloor(benchmark::State& state) {
    measureUpdate(state, floorUpdate);
}

void updateHandWritten(benchmark::State& state) {
    measureUpdate(state, handWrittenUpdate);
}

const int updateCase =
    declareCase({"update_100_members", "UPDATE /conf: 100 string members from one JSON body", "",
                 "", 0.0, 0.0, ""});

}  // namespace

BENCHMARK(updateEngine)->Name("update_100_members/engine")->Unit(benchmark::kMicrosecond);
BENCHMARK(updateFloor)->Name("update_100_members/floor")->Unit(benchmark::kMicrosecond);
BENCHMARK(updateHandWritten)->Name("update_100_members/handwritten")->Unit(benchmark::kMicrosecond);

}  // namespace bench
}  // namespace dme
