#include "dme/saved_configuration.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "dme/atomic_value.h"
#include "dme/container.h"
#include "dme/engine.h"
#include "dme/json.h"
#include "dme/result.h"
#include "dme/structure.h"
#include "json_documents.h"

namespace dme {
namespace {

constexpr std::uint32_t RU = AllowedMethods::R | AllowedMethods::U;
constexpr std::uint32_t ALL = AllowedMethods::C | AllowedMethods::R | AllowedMethods::U |
                              AllowedMethods::D | AllowedMethods::B | 0x8000u;

// A device's settings: a structure of a name and a port, and a read-only version.
struct Device {
    Device()
        : name(new StaticAtomicValue<std::string>("default", RU)),
          port(new StaticAtomicValue<int>(80, RU, 1, 9999)),
          engine(new DataModel(
                     new Structure({new Entry("net", new Structure({new Entry("name", name),
                                                                    new Entry("port", port)},
                                                                   RU | AllowedMethods::B, false)),
                                    new Entry("version", new StaticAtomicValue<std::string>(
                                                             "1.0", AllowedMethods::R))},
                                   RU | AllowedMethods::B, false),
                     lexicon, ALL),
                 "saved") {}

    std::string read(const std::string& uri) {
        std::string answer;
        EXPECT_EQ(engine.execute(READ, uri, Arguments(), "", answer, false), result::DONE);
        return answer;
    }
    int update(const std::string& uri, const std::string& body) {
        std::lock_guard<std::mutex> lock(mutex);
        std::string answer;
        return engine.execute(UPDATE, uri, Arguments(), body, answer, false);
    }

    const Lexicon lexicon{"href", "id", "count", "members", "expand", "select"};
    StaticAtomicValue<std::string>* name;
    StaticAtomicValue<int>* port;
    JsonDataModelEngine engine;
    std::mutex mutex;
};

class SavedConfigurationTest : public testing::Test {
  protected:
    SavedConfigurationTest() {
        char pattern[] = "/tmp/dme-saved-XXXXXX";
        const char* made = mkdtemp(pattern);
        if (made == nullptr) throw std::runtime_error("mkdtemp failed");
        directory_ = made;
    }
    ~SavedConfigurationTest() override { std::filesystem::remove_all(directory_); }

    SavedConfiguration::Options options(
        std::chrono::milliseconds interval = std::chrono::milliseconds(50)) const {
        return SavedConfiguration::Options{file(), {"/net", "/version"}, interval, nullptr};
    }
    std::string file() const { return directory_ + "/state.json"; }
    void write(const std::string& text) const { std::ofstream(file(), std::ios::binary) << text; }
    std::string saved() const { return test::fileContent(file()); }

    // Waits (at most ten seconds) until the saved file holds `text`.
    bool eventuallySaved(const std::string& text) const {
        for (int i = 0; i < 1000; ++i) {
            if (saved().find(text) != std::string::npos) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    std::string directory_;
};

TEST_F(SavedConfigurationTest, FlushWritesEverySubtreeAsOneJsonDocument) {
    Device device;
    SavedConfiguration config(device.engine, device.mutex, options());
    ASSERT_EQ(device.update("/net", R"({"name":"vara","port":8080})"), result::DONE);
    config.flush();
    const cxxtools::SerializationInfo document = parseJson(saved());
    EXPECT_EQ(formatJson(*document.findMember("/net")),
              R"({"href":"/net","name":"vara","port":8080})");
    EXPECT_EQ(formatJson(*document.findMember("/version")), R"("1.0")");
    EXPECT_FALSE(std::filesystem::exists(file() + ".tmp"));
}

TEST_F(SavedConfigurationTest, RestorePutsTheSavedValuesBack) {
    {
        Device device;
        SavedConfiguration config(device.engine, device.mutex, options());
        ASSERT_EQ(device.update("/net", R"({"name":"vara","port":8080})"), result::DONE);
        config.flush();
    }
    Device fresh;
    SavedConfiguration config(fresh.engine, fresh.mutex, options());
    EXPECT_EQ(config.restore(), std::vector<std::string>());
    EXPECT_EQ(fresh.read("/net/name"), R"("vara")");
    EXPECT_EQ(fresh.read("/net/port"), "8080");
    EXPECT_FALSE(fresh.engine.allOrNothingUpdates());
}

TEST_F(SavedConfigurationTest, AMissingFileRestoresNothingAndIsNoProblem) {
    Device device;
    SavedConfiguration config(device.engine, device.mutex, options());
    EXPECT_TRUE(config.restore().empty());
    EXPECT_EQ(device.read("/net/name"), R"("default")");
}

TEST_F(SavedConfigurationTest, AChangeIsWrittenAfterTheInterval) {
    Device device;
    SavedConfiguration config(device.engine, device.mutex, options());
    config.start();
    ASSERT_EQ(device.update("/net/name", R"("changed")"), result::DONE);
    EXPECT_TRUE(eventuallySaved(R"("name": "changed")"));
    ASSERT_EQ(device.update("/net/port", "81"), result::DONE);
    EXPECT_TRUE(eventuallySaved(R"("port": 81)"));
    config.stop();
}

TEST_F(SavedConfigurationTest, StopWritesAChangeStillWaitingForItsInterval) {
    Device device;
    SavedConfiguration config(device.engine, device.mutex, options(std::chrono::hours(1)));
    config.start();
    ASSERT_EQ(device.update("/net/name", R"("last")"), result::DONE);
    config.stop();
    EXPECT_NE(saved().find(R"("name": "last")"), std::string::npos) << saved();
}

TEST_F(SavedConfigurationTest, ASubtreeThatTakesNoUpdateIsSavedButNotRestored) {
    write(R"({"/net": {"name": "vara"}, "/version": "0.9"})");
    Device device;
    SavedConfiguration config(device.engine, device.mutex, options());
    EXPECT_TRUE(config.restore().empty());
    EXPECT_EQ(device.read("/version"), R"("1.0")");
}

TEST_F(SavedConfigurationTest, AFileOfGarbageIsMovedAsideAndTheDefaultsKept) {
    write("garbage \x01\x02");
    Device device;
    SavedConfiguration config(device.engine, device.mutex, options());
    const std::vector<std::string> problems = config.restore();
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_NE(problems[0].find("moved aside to " + file() + ".corrupt"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(file()));
    EXPECT_EQ(test::fileContent(file() + ".corrupt"), "garbage \x01\x02");
    EXPECT_EQ(device.read("/net/name"), R"("default")");
}

TEST_F(SavedConfigurationTest, ATruncatedFileIsMovedAsideAndTheDefaultsKept) {
    write(R"({"/net": {"name": "vara", "po)");
    Device device;
    SavedConfiguration config(device.engine, device.mutex, options());
    EXPECT_EQ(config.restore().size(), 1u);
    EXPECT_TRUE(std::filesystem::exists(file() + ".corrupt"));
    EXPECT_EQ(device.read("/net/name"), R"("default")");
}

TEST_F(SavedConfigurationTest, ASubtreeTheModelNoLongerAcceptsKeepsItsDefaultsAndIsReported) {
    write(R"({"/net": {"name": "vara", "port": 123456}, "/version": "0.9"})");
    Device device;
    SavedConfiguration config(device.engine, device.mutex, options());
    const std::vector<std::string> problems = config.restore();
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].rfind("/net: not restored (", 0), 0u) << problems[0];
    EXPECT_EQ(device.read("/net/name"), R"("default")");
    EXPECT_EQ(device.read("/net/port"), "80");
    EXPECT_EQ(device.read("/version"), R"("1.0")");
}

TEST_F(SavedConfigurationTest, ASubtreeMissingFromTheFileIsReported) {
    write(R"({"/net": {"name": "vara"}})");
    Device device;
    SavedConfiguration config(device.engine, device.mutex, options());
    EXPECT_EQ(config.restore(), std::vector<std::string>{"/version: nothing saved, defaults kept"});
    EXPECT_EQ(device.read("/net/name"), R"("vara")");
}

TEST_F(SavedConfigurationTest, AFileInAMissingDirectoryIsAClearError) {
    Device device;
    SavedConfiguration::Options unwritable = options();
    unwritable.file = directory_ + "/missing-directory/state.json";
    SavedConfiguration config(device.engine, device.mutex, unwritable);
    try {
        config.flush();
        FAIL() << "no error";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()).rfind("Cannot write " + unwritable.file + " (open)", 0), 0u)
            << e.what();
    }
}

}  // namespace
}  // namespace dme
