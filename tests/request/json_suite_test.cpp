// The public JSON conformance corpus (tests/data/JSONTestSuite, MIT licence): what must be
// accepted is, what must be refused is, nothing crashes, and every accepted document is
// written back as JSON that reads to the same document.

// 64-bit directory offsets: a 32-bit readdir() fails with EOVERFLOW on file systems that hand
// out 64-bit offsets (ext4 hashes, 32-bit programs under qemu-user).
#define _FILE_OFFSET_BITS 64
#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "dme/json.h"
#include "json_documents.h"

namespace dme {
namespace {

const std::string SUITE = std::string(DME_TEST_DATA_DIR) + "/JSONTestSuite/";

// The names of the files in `folder` that start with `prefix`, sorted.
std::vector<std::string> filesOf(const std::string& folder, const std::string& prefix) {
    std::vector<std::string> names;
    if (DIR* directory = opendir((SUITE + folder).c_str())) {
        while (const dirent* entry = readdir(directory)) {
            const std::string name = entry->d_name;
            if (name.rfind(prefix, 0) == 0 && name.size() > 5) names.push_back(name);
        }
        closedir(directory);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Parses the file; true when it is accepted. Any exception other than JsonSyntaxError fails
// the test.
bool accepted(const std::string& path, cxxtools::SerializationInfo& document) {
    try {
        document = parseJson(test::fileContent(path));
        return true;
    } catch (const JsonSyntaxError&) {
        return false;
    }
}

// Writes `document` compact and indented and checks that both read back to it.
void expectWrittenBackUnchanged(const cxxtools::SerializationInfo& document,
                                const std::string& file) {
    for (const bool beautify : {false, true}) {
        const std::string text = formatJson(document, beautify);
        cxxtools::SerializationInfo again;
        ASSERT_NO_THROW(again = parseJson(text)) << file << " wrote " << text;
        std::string why;
        EXPECT_TRUE(test::sameDocument(document, again, why)) << file << ": " << why;
    }
}

TEST(JsonTestSuite, TheCorpusIsThere) {
    EXPECT_EQ(filesOf("test_parsing", "y_").size(), 95u);
    EXPECT_EQ(filesOf("test_parsing", "n_").size(), 188u);
    EXPECT_EQ(filesOf("test_parsing", "i_").size(), 35u);
}

TEST(JsonTestSuite, EveryDocumentThatMustBeAcceptedIsAndIsWrittenBackUnchanged) {
    for (const std::string& file : filesOf("test_parsing", "y_")) {
        cxxtools::SerializationInfo document;
        EXPECT_TRUE(accepted(SUITE + "test_parsing/" + file, document)) << file;
        expectWrittenBackUnchanged(document, file);
    }
}

TEST(JsonTestSuite, EveryTextThatMustBeRefusedIs) {
    for (const std::string& file : filesOf("test_parsing", "n_")) {
        cxxtools::SerializationInfo document;
        EXPECT_FALSE(accepted(SUITE + "test_parsing/" + file, document)) << file;
    }
}

TEST(JsonTestSuite, TextsLeftToTheParserAreAcceptedOrRefusedCleanly) {
    for (const std::string& file : filesOf("test_parsing", "i_")) {
        cxxtools::SerializationInfo document;
        if (accepted(SUITE + "test_parsing/" + file, document)) {
            expectWrittenBackUnchanged(document, file);
        }
    }
}

TEST(JsonTestSuite, TransformCasesAreAcceptedOrRefusedCleanly) {
    const std::vector<std::string> files = filesOf("test_transform", "");
    EXPECT_EQ(files.size(), 22u);
    for (const std::string& file : files) {
        cxxtools::SerializationInfo document;
        if (accepted(SUITE + "test_transform/" + file, document)) {
            expectWrittenBackUnchanged(document, file);
        }
    }
}

}  // namespace
}  // namespace dme
