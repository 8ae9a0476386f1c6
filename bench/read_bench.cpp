// READ cases: one leaf deep in the tree, a whole tree, a static collection and a selection.

#include <cxxtools/serializationinfo.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dme/atomic_value.h"
#include "dme/collection.h"
#include "dme/json.h"
#include "dme/static_collection.h"
#include "dme/structure.h"
#include "support.h"

namespace dme {
namespace bench {
namespace {

// An object as an application without the engine holds it: its resource path, its id (empty for
// none) and its text members, in order.
struct PlainObject {
    std::string href;
    std::string id;
    std::vector<std::pair<std::string, std::string>> texts;
};

void addObject(cxxtools::SerializationInfo& si, const PlainObject& object) {
    setText(si.addMember("href"), object.href);
    if (!object.id.empty()) setText(si.addMember("id"), object.id);
    for (const auto& [name, text] : object.texts) setText(si.addMember(name), text);
}

void writeObject(JsonWriter& writer, const PlainObject& object) {
    writer.StartObject();
    writeKey(writer, "href");
    writeText(writer, object.href);
    if (!object.id.empty()) {
        writeKey(writer, "id");
        writeText(writer, object.id);
    }
    for (const auto& [name, text] : object.texts) {
        writeKey(writer, name);
        writeText(writer, text);
    }
    writer.EndObject();
}

std::vector<Element*> leavesOf(const PlainObject& object) {
    std::vector<Element*> leaves;
    for (const auto& [name, text] : object.texts) leaves.push_back(stringLeaf(name, text));
    return leaves;
}

std::string textOf(const JsonBuffer& buffer) {
    return std::string(buffer.GetString(), buffer.GetSize());
}

// --- A leaf at depth 8: /a/b/c/d/e/f/g/leaf. Every structure on the path has ten members: the
// next one on the path, fifth, among nine string leaves.

const char* const LEAF_URI = "/a/b/c/d/e/f/g/leaf";
const std::string LEAF_TEXT = "the value of the leaf";

std::vector<Element*> amongSiblings(Element* member) {
    std::vector<Element*> members;
    for (unsigned int i = 1; i <= 9; ++i) {
        members.push_back(stringLeaf(numbered("x", i, 1), numbered("sibling-", i, 1)));
        if (i == 4) members.push_back(member);
    }
    return members;
}

struct DeepTree {
    std::unique_ptr<JsonDataModelEngine> engine;

    DeepTree() {
        Element* member = stringLeaf("leaf", LEAF_TEXT);
        for (const char* name : {"g", "f", "e", "d", "c", "b", "a"}) {
            member = new Entry(name, structure(amongSiblings(member)));
        }
        engine = makeEngine(structure(amongSiblings(member)));
    }
};

std::string floorLeaf() {
    cxxtools::SerializationInfo document;
    setText(document, LEAF_TEXT);
    return formatJson(document);
}

std::string handWrittenLeaf() {
    JsonBuffer buffer;
    JsonWriter writer(buffer);
    writeText(writer, LEAF_TEXT);
    return textOf(buffer);
}

void readLeafEngine(benchmark::State& state) {
    static DeepTree tree;
    measureEngine(state, *tree.engine, READ, LEAF_URI, Arguments(), "", floorLeaf());
}

void readLeafFloor(benchmark::State& state) {
    measureText(state, floorLeaf(), floorLeaf);
}

void readLeafHandWritten(benchmark::State& state) {
    measureText(state, floorLeaf(), handWrittenLeaf);
}

// --- The whole tree: 100 structures s00..s99 of 100 string leaves l00..l99 each.

struct PlainTree {
    std::vector<std::pair<std::string, PlainObject>> structures;
};

const PlainTree& wideData() {
    static const PlainTree data = [] {
        PlainTree tree;
        for (unsigned int s = 0; s < 100; ++s) {
            PlainObject object{"/" + numbered("s", s, 2), "", {}};
            for (unsigned int l = 0; l < 100; ++l) {
                object.texts.emplace_back(numbered("l", l, 2),
                                          numbered("value-", s, 2) + numbered("-", l, 2));
            }
            tree.structures.emplace_back(numbered("s", s, 2), std::move(object));
        }
        return tree;
    }();
    return data;
}

struct WideTree {
    std::unique_ptr<JsonDataModelEngine> engine;

    WideTree() {
        std::vector<Element*> members;
        for (const auto& [name, object] : wideData().structures) {
            members.push_back(new Entry(name, structure(leavesOf(object))));
        }
        engine = makeEngine(structure(members));
    }
};

std::string floorTree() {
    cxxtools::SerializationInfo document;
    setText(document.addMember("href"), "/");
    for (const auto& [name, object] : wideData().structures) {
        addObject(document.addMember(name), object);
    }
    return formatJson(document);
}

std::string handWrittenTree() {
    JsonBuffer buffer;
    JsonWriter writer(buffer);
    writer.StartObject();
    writeKey(writer, "href");
    writeText(writer, "/");
    for (const auto& [name, object] : wideData().structures) {
        writeKey(writer, name);
        writeObject(writer, object);
    }
    writer.EndObject();
    return textOf(buffer);
}

void readTreeEngine(benchmark::State& state) {
    static WideTree tree;
    measureEngine(state, *tree.engine, READ, "/", unlimitedExpansion(), "", floorTree());
}

void readTreeFloor(benchmark::State& state) {
    measureText(state, floorTree(), floorTree);
}

void readTreeHandWritten(benchmark::State& state) {
    measureText(state, floorTree(), handWrittenTree);
}

// --- A static collection /items of 1,000 items with ten string members m0..m9 each, listed
// with its count and its items under "members".

const std::vector<PlainObject>& itemData() {
    static const std::vector<PlainObject> data = [] {
        std::vector<PlainObject> items;
        for (unsigned int i = 1; i <= 1000; ++i) {
            PlainObject item{"/items/" + std::to_string(i), std::to_string(i), {}};
            for (unsigned int m = 0; m < 10; ++m) {
                item.texts.emplace_back(numbered("m", m, 1),
                                        numbered("item-", i, 4) + numbered("-", m, 1));
            }
            items.push_back(std::move(item));
        }
        return items;
    }();
    return data;
}

struct CollectionTree {
    std::unique_ptr<JsonDataModelEngine> engine;

    CollectionTree() {
        std::vector<CollectionItem*> items;
        for (const PlainObject& item : itemData()) {
            items.push_back(new CollectionItem(leavesOf(item), readUpdateBrowse(), false));
        }
        auto* collection = new StaticCollection(items, readUpdateBrowse(), false);
        engine = makeEngine(structure({new Entry("items", collection)}));
    }
};

std::string floorCollection() {
    cxxtools::SerializationInfo document;
    setText(document.addMember("href"), "/items");
    document.addMember("count").setValue(static_cast<unsigned int>(itemData().size()));
    cxxtools::SerializationInfo& members = document.addMember("members");
    members.setCategory(cxxtools::SerializationInfo::Array);
    for (const PlainObject& item : itemData()) addObject(members.addMember(), item);
    return formatJson(document);
}

std::string handWrittenCollection() {
    JsonBuffer buffer;
    JsonWriter writer(buffer);
    writer.StartObject();
    writeKey(writer, "href");
    writeText(writer, "/items");
    writeKey(writer, "count");
    writer.Uint(static_cast<unsigned int>(itemData().size()));
    writeKey(writer, "members");
    writer.StartArray();
    for (const PlainObject& item : itemData()) writeObject(writer, item);
    writer.EndArray();
    writer.EndObject();
    return textOf(buffer);
}

void readCollectionEngine(benchmark::State& state) {
    static CollectionTree tree;
    measureEngine(state, *tree.engine, READ, "/items", unlimitedExpansion(), "", floorCollection());
}

void readCollectionFloor(benchmark::State& state) {
    measureText(state, floorCollection(), floorCollection);
}

void readCollectionHandWritten(benchmark::State& state) {
    measureText(state, floorCollection(), handWrittenCollection);
}

// --- A selection of ten members (m000, m111, ..., m999) of the structure /big of 1,000 string
// members m000..m999. The baselines hold only the ten selected members.

std::string bigMemberText(unsigned int m) {
    return numbered("big-value-", m, 3);
}

const PlainObject& selectedData() {
    static const PlainObject data = [] {
        PlainObject selected{"/big", "", {}};
        for (unsigned int m = 0; m < 1000; m += 111) {
            selected.texts.emplace_back(numbered("m", m, 3), bigMemberText(m));
        }
        return selected;
    }();
    return data;
}

const Arguments& selectArguments() {
    static const Arguments arguments = [] {
        std::string names;
        for (const auto& member : selectedData().texts) {
            names += (names.empty() ? "" : ",") + member.first;
        }
        return Arguments{{"select", names}};
    }();
    return arguments;
}

struct BigStructure {
    std::unique_ptr<JsonDataModelEngine> engine;

    BigStructure() {
        std::vector<Element*> members;
        for (unsigned int m = 0; m < 1000; ++m) {
            members.push_back(stringLeaf(numbered("m", m, 3), bigMemberText(m)));
        }
        engine = makeEngine(structure({new Entry("big", structure(members))}));
    }
};

std::string floorSelect() {
    cxxtools::SerializationInfo document;
    addObject(document, selectedData());
    return formatJson(document);
}

std::string handWrittenSelect() {
    JsonBuffer buffer;
    JsonWriter writer(buffer);
    writeObject(writer, selectedData());
    return textOf(buffer);
}

void readSelectEngine(benchmark::State& state) {
    static BigStructure tree;
    measureEngine(state, *tree.engine, READ, "/big", selectArguments(), "", floorSelect());
}

void readSelectFloor(benchmark::State& state) {
    measureText(state, floorSelect(), floorSelect);
}

void readSelectHandWritten(benchmark::State& state) {
    measureText(state, floorSelect(), handWrittenSelect);
}

const int leafCase = declareCase({"read_leaf_depth8", "READ /a/b/c/d/e/f/g/leaf (one string leaf)",
                                  "", "", 3.0, 10000.0, "<= 3 x floor, < 10 us"});
const int treeCase =
    declareCase({"read_tree_10k", "READ / of 100 x 100 string leaves, unlimited expand", "", "",
                 1.5, 0.0, "<= 1.5 x floor, <= 2 x RapidJSON", 2.0});
const int collectionCase =
    declareCase({"read_collection_1k", "READ StaticCollection of 1,000 items x 10 members", "", "",
                 0.0, 0.0, ""});
const int selectCase =
    declareCase({"read_select_10_of_1k", "READ select=10 members of a 1,000-member structure", "",
                 "", 0.0, 0.0, ""});

}  // namespace

BENCHMARK(readLeafEngine)->Name("read_leaf_depth8/engine");
BENCHMARK(readLeafFloor)->Name("read_leaf_depth8/floor");
BENCHMARK(readLeafHandWritten)->Name("read_leaf_depth8/handwritten");
BENCHMARK(readTreeEngine)->Name("read_tree_10k/engine")->Unit(benchmark::kMicrosecond);
BENCHMARK(readTreeFloor)->Name("read_tree_10k/floor")->Unit(benchmark::kMicrosecond);
BENCHMARK(readTreeHandWritten)->Name("read_tree_10k/handwritten")->Unit(benchmark::kMicrosecond);
BENCHMARK(readCollectionEngine)->Name("read_collection_1k/engine")->Unit(benchmark::kMicrosecond);
BENCHMARK(readCollectionFloor)->Name("read_collection_1k/floor")->Unit(benchmark::kMicrosecond);
BENCHMARK(readCollectionHandWritten)
    ->Name("read_collection_1k/handwritten")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(readSelectEngine)->Name("read_select_10_of_1k/engine");
BENCHMARK(readSelectFloor)->Name("read_select_10_of_1k/floor");
BENCHMARK(readSelectHandWritten)->Name("read_select_10_of_1k/handwritten");

}  // namespace bench
}  // namespace dme
