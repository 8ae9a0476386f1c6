// The writer's output is compared with a corpus of documents and the texts that the document
// model's own formatter wrote for them (tests/data/json_format_corpus.txt), compact and
// indented; the corpus holds no floating values and no non-ASCII member names, whose texts
// were wrong there.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "dme/json.h"
#include "json_documents.h"

namespace dme {
namespace {

struct CorpusCase {
    std::string input;
    std::string compact;
    std::string beautified;
};

// Reads the corpus: for each case a line "=== input" and the input text, "--- compact" and the
// compact text, "--- beautified" and the indented text (several lines); "=== end" closes it.
std::vector<CorpusCase> readCorpus() {
    std::istringstream corpus(
        test::fileContent(std::string(DME_TEST_DATA_DIR) + "/json_format_corpus.txt"));
    std::vector<CorpusCase> cases;
    std::string* section = nullptr;
    std::string line;
    while (std::getline(corpus, line)) {
        if (line == "=== input" || line == "=== end") {
            if (!cases.empty()) cases.back().beautified += '\n';
            if (line == "=== end") break;
            cases.emplace_back();
            section = &cases.back().input;
        } else if (line == "--- compact") {
            section = &cases.back().compact;
        } else if (line == "--- beautified") {
            section = &cases.back().beautified;
        } else if (section != nullptr) {
            if (!section->empty()) *section += '\n';
            *section += line;
        }
    }
    return cases;
}

TEST(JsonCorpus, HoldsTheCases) {
    EXPECT_EQ(readCorpus().size(), 107u);
}

TEST(JsonCorpus, CompactTextsAreTheSame) {
    for (const CorpusCase& c : readCorpus()) {
        EXPECT_EQ(formatJson(parseJson(c.input), false), c.compact) << c.input;
    }
}

TEST(JsonCorpus, IndentedTextsAreTheSame) {
    for (const CorpusCase& c : readCorpus()) {
        EXPECT_EQ(formatJson(parseJson(c.input), true), c.beautified) << c.input;
    }
}

}  // namespace
}  // namespace dme
