#include "dme/file_structure.h"

#include <cxxtools/serializationinfo.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "dme/atomic_value.h"
#include "dme/container.h"
#include "dme/engine.h"
#include "dme/json.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "leaf_nodes.h"
#include "request.h"

namespace dme {
namespace {

using test::ALL_METHODS;
using test::attachRoot;
using test::Request;
using SerializationInfo = cxxtools::SerializationInfo;

constexpr std::uint32_t READ_AND_UPDATE = AllowedMethods::R | AllowedMethods::U;
constexpr std::uint32_t READ_AND_BROWSE = AllowedMethods::R | AllowedMethods::B;
// Every method, and the rights that grant SCHEMA and SUBSCRIBE as well.
constexpr std::uint32_t ALL_AND_SCHEMA_RIGHTS = ALL_METHODS | 0x8000;

const char* const DEVICE = R"({"model":"X","hw":{"rev":2}})";

// A fresh directory under /tmp whose files the tests write, change and delete; removed with
// everything in it.
class FileTest : public testing::Test {
  protected:
    FileTest() {
        char pattern[] = "/tmp/dme-file-structure-XXXXXX";
        const char* made = mkdtemp(pattern);
        if (made == nullptr) throw std::runtime_error("mkdtemp failed");
        directory_ = made;
    }
    ~FileTest() override { std::filesystem::remove_all(directory_); }

    std::string path(const std::string& name) const { return directory_ + "/" + name; }

    void write(const std::string& name, const std::string& text) const {
        std::ofstream file(path(name), std::ios::out | std::ios::binary | std::ios::trunc);
        file << text;
    }

    void remove(const std::string& name) const { std::filesystem::remove(path(name)); }

    std::string text(const std::string& name) const {
        std::ifstream file(path(name), std::ios::in | std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

    const std::string& directory() const { return directory_; }

  private:
    std::string directory_;
};

// ---- construction, type and schema ----

TEST_F(FileTest, ConstructionDoesNotTouchTheFile) {
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    EXPECT_FALSE(node.contentLoaded());
    EXPECT_EQ(node.content().category(), SerializationInfo::Void);
    EXPECT_EQ(node.filePath(), path("device.json"));
}

TEST_F(FileTest, TypeIsObject) {
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    EXPECT_STREQ(node.getType(), "object");
}

TEST_F(FileTest, SchemaDescribesTheDeclaredMembersOnly) {
    write("device.json", DEVICE);
    FileStructure node(path("device.json"), {new Entry("serial", new test::StringLeaf("S1"))},
                       ALL_METHODS, true);
    attachRoot(node);
    Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(node), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"type":"object","properties":{"serial":{"type":"string"}}})");
}

// ---- loadContent ----

TEST_F(FileTest, LoadContentParsesTheFile) {
    write("device.json", DEVICE);
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    EXPECT_EQ(node.loadContent(), result::DONE);
    EXPECT_EQ(formatJson(node.content()), DEVICE);
}

TEST_F(FileTest, LoadContentDoesNotMarkTheContentLoaded) {
    write("device.json", DEVICE);
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    EXPECT_EQ(node.loadContent(), result::DONE);
    EXPECT_FALSE(node.contentLoaded());
}

TEST_F(FileTest, LoadContentOfAMissingFileFailsAndKeepsTheContent) {
    write("device.json", DEVICE);
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    ASSERT_EQ(node.loadContent(), result::DONE);
    remove("device.json");
    EXPECT_EQ(node.loadContent(), result::FAILED);
    EXPECT_EQ(formatJson(node.content()), DEVICE);
}

TEST_F(FileTest, LoadContentOfAnEmptyFileSucceedsAndKeepsTheContent) {
    write("device.json", DEVICE);
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    ASSERT_EQ(node.loadContent(), result::DONE);
    write("device.json", "");
    EXPECT_EQ(node.loadContent(), result::DONE);
    EXPECT_EQ(formatJson(node.content()), DEVICE);
}

TEST_F(FileTest, LoadContentOfTextThatIsNotJsonFails) {
    write("device.json", "not json");
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    EXPECT_EQ(node.loadContent(), result::FAILED);
    EXPECT_EQ(node.content().category(), SerializationInfo::Void);
}

TEST_F(FileTest, LoadContentOfADocumentThatIsNotAnObjectSucceeds) {
    for (const char* text : {"[1,2]", "5", "\"x\"", "true"}) {
        write("device.json", text);
        FileStructure node(path("device.json"), {}, ALL_METHODS, true);
        EXPECT_EQ(node.loadContent(), result::DONE) << text;
        EXPECT_EQ(formatJson(node.content()), text) << text;
    }
}

TEST_F(FileTest, LoadContentOfNullSucceeds) {
    write("device.json", "null");
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    EXPECT_EQ(node.loadContent(), result::DONE);
}

TEST_F(FileTest, ReadOfAFileHoldingAnArrayShowsTheDeclaredMembersOnly) {
    write("device.json", "[1,2,3]");
    FileStructure node(path("device.json"), {new Entry("serial", new test::StringLeaf("S1"))},
                       ALL_METHODS, true);
    attachRoot(node);
    Request request(READ, "/");
    EXPECT_EQ(request.run(node), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"serial":"S1"})");
    EXPECT_TRUE(node.contentLoaded());
}

TEST_F(FileTest, ReadOfAFileHoldingAScalarShowsTheDeclaredMembersOnly) {
    write("device.json", "42");
    FileStructure node(path("device.json"), {new Entry("serial", new test::StringLeaf("S1"))},
                       ALL_METHODS, true);
    attachRoot(node);
    Request request(READ, "/");
    EXPECT_EQ(request.run(node), result::DONE);
    EXPECT_EQ(formatJson(request.out()), R"({"serial":"S1"})");
}

TEST_F(FileTest, BrowseIntoAFileHoldingAnArrayFindsNothing) {
    write("device.json", "[1,2,3]");
    FileStructure node(path("device.json"), {new Entry("serial", new test::StringLeaf("S1"))},
                       ALL_METHODS, true);
    attachRoot(node);
    for (const char* uri : {"/model", "/0", "/1"}) {
        Request request(READ, uri);
        EXPECT_EQ(request.run(node), result::NOT_FOUND) << uri;
    }
    EXPECT_TRUE(node.contentLoaded());
}

TEST_F(FileTest, BrowseIntoAFileHoldingAScalarFindsNothingButDeclaredMembersRead) {
    write("device.json", "42");
    FileStructure node(path("device.json"), {new Entry("serial", new test::StringLeaf("S1"))},
                       ALL_METHODS, true);
    attachRoot(node);
    Request missing(READ, "/model");
    EXPECT_EQ(missing.run(node), result::NOT_FOUND);
    Request declared(READ, "/serial");
    EXPECT_EQ(declared.run(node), result::DONE);
    EXPECT_EQ(formatJson(declared.out()), R"("S1")");
}

TEST_F(FileTest, LoadContentOfTruncatedJsonFails) {
    write("device.json", R"({"model":)");
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    EXPECT_EQ(node.loadContent(), result::FAILED);
}

TEST_F(FileTest, LoadContentRefusesTextAfterTheDocument) {
    write("device.json", R"({"model":"X"} trailing)");
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    EXPECT_EQ(node.loadContent(), result::FAILED);
    EXPECT_EQ(node.content().category(), SerializationInfo::Void);
}

TEST_F(FileTest, LoadContentOfWhiteSpaceOnlyFailsForLackOfADocument) {
    write("device.json", " \n\t ");
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    EXPECT_EQ(node.loadContent(), result::FAILED);
}

TEST_F(FileTest, LoadContentOfADirectoryFails) {
    FileStructure node(directory(), {}, ALL_METHODS, true);
    EXPECT_EQ(node.loadContent(), result::FAILED);
}

// ---- ensureContentLoaded ----

TEST_F(FileTest, EnsureContentLoadedLoadsOnceAndRemembersIt) {
    write("device.json", DEVICE);
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    EXPECT_EQ(node.ensureContentLoaded(), result::DONE);
    EXPECT_TRUE(node.contentLoaded());
    write("device.json", R"({"model":"Y"})");
    EXPECT_EQ(node.ensureContentLoaded(), result::DONE);
    EXPECT_EQ(formatJson(node.content()), DEVICE);
}

TEST_F(FileTest, EnsureContentLoadedRetriesAFailedLoad) {
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    EXPECT_EQ(node.ensureContentLoaded(), result::FAILED);
    EXPECT_FALSE(node.contentLoaded());
    write("device.json", DEVICE);
    EXPECT_EQ(node.ensureContentLoaded(), result::DONE);
    EXPECT_TRUE(node.contentLoaded());
    EXPECT_EQ(formatJson(node.content()), DEVICE);
}

TEST_F(FileTest, AnEmptyFileCountsAsLoaded) {
    write("device.json", "");
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    EXPECT_EQ(node.ensureContentLoaded(), result::DONE);
    EXPECT_TRUE(node.contentLoaded());
}

// ---- requests on the file's members, run directly on the node ----

// A file structure as the root of a tree whose policy grants `rights`, over "device.json".
class FileMemberTest : public FileTest {
  protected:
    FileMemberTest() { write("device.json", DEVICE); }

    int run(Method method, const std::string& uri, AllowedMethods rights = ALL_METHODS,
            const std::string& body = "") {
        FileStructure node(path("device.json"), {}, ALL_METHODS, true);
        attachRoot(node, rights);
        Request request(method, uri);
        const int rc = node.process(
            request.context(), body.empty() ? SerializationInfo() : parseJson(body), request.out());
        answer = formatJson(request.out());
        return rc;
    }

    std::string answer;
};

TEST_F(FileMemberTest, ReadOfAFileMemberIsItsContent) {
    EXPECT_EQ(run(READ, "/hw"), result::DONE);
    EXPECT_EQ(answer, R"({"rev":2})");
}

TEST_F(FileMemberTest, ReadOfANestedFileMemberIsItsScalar) {
    EXPECT_EQ(run(READ, "/hw/rev"), result::DONE);
    EXPECT_EQ(answer, "2");
}

TEST_F(FileMemberTest, AFileMemberThatDoesNotExistIsNotFound) {
    EXPECT_EQ(run(READ, "/nothing"), result::NOT_FOUND);
    EXPECT_EQ(run(READ, "/hw/nothing"), result::NOT_FOUND);
}

TEST_F(FileMemberTest, APathBelowAFileScalarIsNotFound) {
    EXPECT_EQ(run(READ, "/model/x"), result::NOT_FOUND);
}

TEST_F(FileMemberTest, CreateUpdateAndDeleteOfAFileMemberAreNotSupported) {
    EXPECT_EQ(run(CREATE, "/hw", ALL_METHODS, R"({"rev":3})"), result::NOT_SUPPORTED);
    EXPECT_EQ(run(UPDATE, "/hw/rev", ALL_METHODS, "3"), result::NOT_SUPPORTED);
    EXPECT_EQ(run(DELETE, "/model"), result::NOT_SUPPORTED);
    EXPECT_EQ(text("device.json"), DEVICE);
}

TEST_F(FileMemberTest, AFileMemberFollowsTheStructuresPolicy) {
    EXPECT_EQ(run(READ, "/model", AllowedMethods::B), result::FORBIDDEN);
    EXPECT_EQ(answer, "null");
}

TEST_F(FileMemberTest, PermissionIsCheckedBeforeTheFileIsFoundReadOnly) {
    EXPECT_EQ(run(UPDATE, "/model", READ_AND_BROWSE, R"("Y")"), result::FORBIDDEN);
}

TEST_F(FileMemberTest, AnotherMethodPermittedOnAFileMemberIsUnknown) {
    EXPECT_EQ(run(SCHEMA, "/model", ALL_AND_SCHEMA_RIGHTS), result::UNKNOWN_METHOD);
    EXPECT_EQ(run(SUBSCRIBE, "/model", ALL_AND_SCHEMA_RIGHTS), result::UNKNOWN_METHOD);
}

TEST_F(FileMemberTest, SchemaOfAFileMemberNeedsSchemaRights) {
    EXPECT_EQ(run(SCHEMA, "/model"), result::FORBIDDEN);
}

TEST_F(FileMemberTest, FileMembersCannotBeReachedWhenTheStructureDoesNotAllowBrowsing) {
    FileStructure node(path("device.json"), {}, AllowedMethods::R, true);
    attachRoot(node);
    Request request(READ, "/model");
    EXPECT_EQ(request.run(node), result::NOT_ALLOWED);
    EXPECT_FALSE(node.contentLoaded());
}

TEST_F(FileMemberTest, ReadOfAStructureThatIsNotAlwaysExpandedStartsWithItsPath) {
    FileStructure node(path("device.json"), {new Entry("serial", new test::StringLeaf("S1"))},
                       ALL_METHODS, false);
    attachRoot(node);
    Request request(READ, "/");
    EXPECT_EQ(request.run(node), result::DONE);
    EXPECT_EQ(formatJson(request.out()),
              R"({"href":"/","model":"X","hw":{"rev":2},"serial":"S1"})");
}

TEST_F(FileMemberTest, InternalBrowseServesTheGivenDocument) {
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    attachRoot(node);
    Request request(READ, "/a/b");
    request.context().next("a");
    EXPECT_EQ(node.internalBrowse(request.context(), parseJson(R"({"b":[1,2]})"),
                                  SerializationInfo(), request.out()),
              result::DONE);
    EXPECT_EQ(formatJson(request.out()), "[1,2]");
}

TEST_F(FileMemberTest, InternalBrowseStepsTheContextBack) {
    FileStructure node(path("device.json"), {}, ALL_METHODS, true);
    attachRoot(node);
    Request request(READ, "/a/b/c");
    EXPECT_EQ(node.internalBrowse(request.context(), parseJson(R"({"a":{"b":{}}})"),
                                  SerializationInfo(), request.out()),
              result::NOT_FOUND);
    EXPECT_EQ(request.context().getUrl().str(), "a");
}

// ---- end to end through the JSON engine ----

// The tree, served as JSON:
//   /              structure
//   /fs            FileStructure over fs.json, declared member "serial" ("S1", writable)
//   /live          UpdatedFileStructure over live.json, declared member "serial" ("L1")
//   /shadow        FileStructure over shadow.json, declared member "model" ("declared")
// The data model grants `rights`; the engine is made by the first request.
class FileStructureEngineTest : public FileTest {
  protected:
    int execute(Method method, const std::string& uri, const std::string& body = "") {
        if (!engine_) {
            model_ = std::make_unique<DataModel>(root, test::testLexicon(), rights);
            engine_ = std::make_unique<JsonDataModelEngine>(*model_, "files");
        }
        return engine_->execute(method, uri, Arguments(), body, answer, false);
    }

    // The answer to a READ of `uri`, which must succeed.
    std::string read(const std::string& uri) {
        EXPECT_EQ(execute(READ, uri), result::DONE) << uri;
        return answer;
    }

    AllowedMethods rights = ALL_METHODS;
    StaticAtomicValue<std::string> serial{"S1", READ_AND_UPDATE};
    StaticAtomicValue<std::string> liveSerial{"L1", READ_AND_UPDATE};
    StaticAtomicValue<std::string> declaredModel{"declared", READ_AND_UPDATE};
    Structure root{
        {new Entry("fs", new FileStructure(path("fs.json"), {new Entry("serial", serial)},
                                           ALL_METHODS, true)),
         new Entry("live",
                   new UpdatedFileStructure(path("live.json"), {new Entry("serial", liveSerial)},
                                            ALL_METHODS, true)),
         new Entry("shadow",
                   new FileStructure(path("shadow.json"), {new Entry("model", declaredModel)},
                                     ALL_METHODS, true))},
        ALL_METHODS,
        true};
    std::string answer;

  private:
    std::unique_ptr<DataModel> model_;
    std::unique_ptr<JsonDataModelEngine> engine_;
};

TEST_F(FileStructureEngineTest, ReadOfANestedFileMember) {
    write("fs.json", DEVICE);
    EXPECT_EQ(read("/fs/hw/rev"), "2");
}

TEST_F(FileStructureEngineTest, ReadListsTheFilesMembersBeforeTheDeclaredOnes) {
    write("fs.json", DEVICE);
    EXPECT_EQ(read("/fs"), R"({"model":"X","hw":{"rev":2},"serial":"S1"})");
}

TEST_F(FileStructureEngineTest, ReadOfAMemberNeitherDeclaredNorInTheFileIsNotFound) {
    write("fs.json", DEVICE);
    EXPECT_EQ(execute(READ, "/fs/nothing"), result::NOT_FOUND);
}

TEST_F(FileStructureEngineTest, AFileHoldingAnArrayLoadsAndItsMembersAreNotFound) {
    write("fs.json", "[1,2,3]");
    EXPECT_EQ(execute(READ, "/fs/model"), result::NOT_FOUND);
    EXPECT_EQ(read("/fs"), R"({"serial":"S1"})");
    EXPECT_EQ(read("/fs/serial"), R"("S1")");
}

TEST_F(FileStructureEngineTest, AFileHoldingANumberLoadsAndItsMembersAreNotFound) {
    write("fs.json", "42");
    EXPECT_EQ(execute(READ, "/fs/model"), result::NOT_FOUND);
    EXPECT_EQ(read("/fs"), R"({"serial":"S1"})");
}

TEST_F(FileStructureEngineTest, AnUpdatedFileStructureShowsAFileThatTurnsIntoAnArray) {
    write("live.json", DEVICE);
    EXPECT_EQ(read("/live/model"), R"("X")");
    write("live.json", "[1,2]");
    EXPECT_EQ(execute(READ, "/live/model"), result::NOT_FOUND);
    EXPECT_EQ(read("/live"), R"({"serial":"L1"})");
}

TEST_F(FileStructureEngineTest, ReadOfADeclaredMember) {
    write("fs.json", DEVICE);
    EXPECT_EQ(read("/fs/serial"), R"("S1")");
}

TEST_F(FileStructureEngineTest, ADeclaredMemberHidesTheFileKeyOfTheSameName) {
    write("shadow.json", DEVICE);
    EXPECT_EQ(read("/shadow/model"), R"("declared")");
    EXPECT_EQ(read("/shadow/hw/rev"), "2");
}

TEST_F(FileStructureEngineTest, AReadOfTheWholeStructureListsTheFileKeyBeforeTheDeclaredOne) {
    write("shadow.json", DEVICE);
    EXPECT_EQ(read("/shadow"), R"({"model":"X","hw":{"rev":2},"model":"declared"})");
}

TEST_F(FileStructureEngineTest, AnUpdateOfAHidingDeclaredMemberChangesTheDeclaredMember) {
    write("shadow.json", DEVICE);
    EXPECT_EQ(execute(UPDATE, "/shadow/model", R"("Z")"), result::DONE);
    EXPECT_EQ(read("/shadow/model"), R"("Z")");
    EXPECT_EQ(text("shadow.json"), DEVICE);
}

TEST_F(FileStructureEngineTest, AnEmptyFileReadsAsTheDeclaredMembersOnly) {
    write("fs.json", "");
    EXPECT_EQ(read("/fs"), R"({"serial":"S1"})");
}

TEST_F(FileStructureEngineTest, AnEmptyFileCountsAsLoaded) {
    write("fs.json", "");
    EXPECT_EQ(read("/fs"), R"({"serial":"S1"})");
    write("fs.json", DEVICE);
    EXPECT_EQ(read("/fs"), R"({"serial":"S1"})");
    EXPECT_EQ(execute(READ, "/fs/model"), result::NOT_FOUND);
}

TEST_F(FileStructureEngineTest, AMissingFileFailsEachTimeUntilItExists) {
    EXPECT_EQ(execute(READ, "/fs"), result::FAILED);
    EXPECT_EQ(execute(READ, "/fs"), result::FAILED);
    EXPECT_EQ(execute(READ, "/fs/model"), result::FAILED);
    write("fs.json", DEVICE);
    EXPECT_EQ(read("/fs"), R"({"model":"X","hw":{"rev":2},"serial":"S1"})");
}

TEST_F(FileStructureEngineTest, OnceLoadedTheContentStaysWhenTheFileDisappears) {
    write("fs.json", DEVICE);
    EXPECT_EQ(read("/fs/model"), R"("X")");
    remove("fs.json");
    EXPECT_EQ(read("/fs"), R"({"model":"X","hw":{"rev":2},"serial":"S1"})");
}

TEST_F(FileStructureEngineTest, DeclaredMembersAreServedWithoutTheFile) {
    EXPECT_EQ(read("/fs/serial"), R"("S1")");
    EXPECT_EQ(execute(UPDATE, "/fs/serial", R"("S2")"), result::DONE);
    EXPECT_EQ(read("/fs/serial"), R"("S2")");
}

TEST_F(FileStructureEngineTest, AStructureWhoseFileIsMissingIsLeftOutOfItsParent) {
    write("live.json", "{}");
    write("shadow.json", "{}");
    EXPECT_EQ(read("/"), R"({"live":{"serial":"L1"},"shadow":{"model":"declared"}})");
}

TEST_F(FileStructureEngineTest, AFileThatIsNotJsonFailsUntilItIsRepaired) {
    write("fs.json", R"({"model":"X"} trailing)");
    EXPECT_EQ(execute(READ, "/fs"), result::FAILED);
    write("fs.json", R"({"model":"X"})");
    EXPECT_EQ(read("/fs"), R"({"model":"X","serial":"S1"})");
}

TEST_F(FileStructureEngineTest, AFileStructureDoesNotShowAnEditOfTheFile) {
    write("fs.json", DEVICE);
    EXPECT_EQ(read("/fs/model"), R"("X")");
    write("fs.json", R"({"model":"Y"})");
    EXPECT_EQ(read("/fs/model"), R"("X")");
    EXPECT_EQ(read("/fs"), R"({"model":"X","hw":{"rev":2},"serial":"S1"})");
}

TEST_F(FileStructureEngineTest, AnUpdatedFileStructureShowsAnEditOnTheNextRequest) {
    write("live.json", DEVICE);
    EXPECT_EQ(read("/live/model"), R"("X")");
    write("live.json", R"({"model":"Y"})");
    EXPECT_EQ(read("/live/model"), R"("Y")");
    write("live.json", R"({"model":"Z","extra":true})");
    EXPECT_EQ(read("/live"), R"({"model":"Z","extra":true,"serial":"L1"})");
}

TEST_F(FileStructureEngineTest, AnUpdatedFileStructureKeepsTheLastGoodContentOfAnInvalidFile) {
    write("live.json", DEVICE);
    EXPECT_EQ(read("/live/model"), R"("X")");
    write("live.json", R"({"model":)");
    EXPECT_EQ(read("/live/model"), R"("X")");
    EXPECT_EQ(read("/live"), R"({"model":"X","hw":{"rev":2},"serial":"L1"})");
}

TEST_F(FileStructureEngineTest, AnUpdatedFileStructureKeepsTheLastGoodContentOfAMissingFile) {
    write("live.json", DEVICE);
    EXPECT_EQ(read("/live/hw/rev"), "2");
    remove("live.json");
    EXPECT_EQ(read("/live/hw/rev"), "2");
}

TEST_F(FileStructureEngineTest, AnUpdatedFileStructureReloadsWhenBrowsingToADeclaredMember) {
    write("live.json", DEVICE);
    EXPECT_EQ(read("/live/model"), R"("X")");
    write("live.json", R"({"model":"Y"})");
    EXPECT_EQ(read("/live/serial"), R"("L1")");
    write("live.json", "not json");
    EXPECT_EQ(read("/live/model"), R"("Y")");
}

TEST_F(FileStructureEngineTest, AnUpdatedFileStructureFailsUntilItsFileExists) {
    EXPECT_EQ(execute(READ, "/live"), result::FAILED);
    EXPECT_EQ(execute(READ, "/live/model"), result::FAILED);
    write("live.json", DEVICE);
    EXPECT_EQ(read("/live/model"), R"("X")");
}

TEST_F(FileStructureEngineTest, AnUpdateOfAFileMemberIsNotSupported) {
    write("fs.json", DEVICE);
    EXPECT_EQ(execute(UPDATE, "/fs/model", R"("Y")"), result::NOT_SUPPORTED);
    EXPECT_EQ(execute(UPDATE, "/fs/hw", R"({"rev":3})"), result::NOT_SUPPORTED);
    EXPECT_EQ(read("/fs/model"), R"("X")");
    EXPECT_EQ(text("fs.json"), DEVICE);
}

TEST_F(FileStructureEngineTest, CreateAndDeleteOfAFileMemberAreNotSupported) {
    write("fs.json", DEVICE);
    EXPECT_EQ(execute(CREATE, "/fs/hw", R"({"rev":3})"), result::NOT_SUPPORTED);
    EXPECT_EQ(execute(DELETE, "/fs/model"), result::NOT_SUPPORTED);
    EXPECT_EQ(text("fs.json"), DEVICE);
}

TEST_F(FileStructureEngineTest, AnUpdateOfTheStructureChangesDeclaredMembersAndSkipsFileKeys) {
    write("fs.json", DEVICE);
    EXPECT_EQ(execute(UPDATE, "/fs", R"({"model":"Y","serial":"S2"})"), result::DONE);
    EXPECT_EQ(read("/fs"), R"({"model":"X","hw":{"rev":2},"serial":"S2"})");
    EXPECT_EQ(text("fs.json"), DEVICE);
}

TEST_F(FileStructureEngineTest, ASessionWithoutTheRightIsForbiddenFromAFileMember) {
    rights = READ_AND_BROWSE;
    write("fs.json", DEVICE);
    EXPECT_EQ(execute(UPDATE, "/fs/model", R"("Y")"), result::FORBIDDEN);
    EXPECT_EQ(read("/fs/model"), R"("X")");
}

TEST_F(FileStructureEngineTest, SchemaListsTheDeclaredMembersOnly) {
    write("fs.json", DEVICE);
    EXPECT_EQ(execute(SCHEMA, "/fs"), result::DONE);
    EXPECT_EQ(answer, R"({"type":"object","properties":{"serial":)"
                      R"({"type":"string","default":"","minSize":0,"maxSize":65535}}})");
}

}  // namespace
}  // namespace dme
