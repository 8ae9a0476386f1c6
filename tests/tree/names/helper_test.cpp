#include "dme/helper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StrEq;
using ::testing::ThrowsMessage;
using utils::Helper;

// ---- invalidChar ----

TEST(HelperInvalidCharTest, ControlBytesAreInvalid) {
    EXPECT_TRUE(Helper::invalidChar('\x00'));
    EXPECT_TRUE(Helper::invalidChar('\x01'));
    EXPECT_TRUE(Helper::invalidChar('\x08'));
    EXPECT_TRUE(Helper::invalidChar('\x0B'));
    EXPECT_TRUE(Helper::invalidChar('\x0C'));
    EXPECT_TRUE(Helper::invalidChar('\x0E'));
    EXPECT_TRUE(Helper::invalidChar('\x1B'));
    EXPECT_TRUE(Helper::invalidChar('\x1F'));
}

TEST(HelperInvalidCharTest, TabLineFeedAndCarriageReturnAreValid) {
    EXPECT_FALSE(Helper::invalidChar('\t'));
    EXPECT_FALSE(Helper::invalidChar('\n'));
    EXPECT_FALSE(Helper::invalidChar('\r'));
}

TEST(HelperInvalidCharTest, SpaceAndPrintableAsciiAreValid) {
    EXPECT_FALSE(Helper::invalidChar(' '));
    EXPECT_FALSE(Helper::invalidChar('a'));
    EXPECT_FALSE(Helper::invalidChar('~'));
}

TEST(HelperInvalidCharTest, DeleteAndBytesFrom0x80UpAreValid) {
    EXPECT_FALSE(Helper::invalidChar('\x7F'));
    EXPECT_FALSE(Helper::invalidChar('\x80'));
    EXPECT_FALSE(Helper::invalidChar('\xC3'));
    EXPECT_FALSE(Helper::invalidChar('\xFF'));
}

// ---- isPrintable ----

TEST(HelperIsPrintableTest, LineBreaksAndTabsArePrintable) {
    EXPECT_TRUE(Helper::isPrintable("line1\r\nline2\tx"));
}

TEST(HelperIsPrintableTest, TheEmptyStringIsPrintable) {
    EXPECT_TRUE(Helper::isPrintable(""));
}

TEST(HelperIsPrintableTest, Utf8TextIsPrintable) {
    EXPECT_TRUE(Helper::isPrintable("caf\xC3\xA9 \xE2\x82\xAC"));
}

TEST(HelperIsPrintableTest, AnEscapeByteIsNotPrintable) {
    EXPECT_FALSE(Helper::isPrintable("red\x1B[0m"));
}

TEST(HelperIsPrintableTest, ANulByteIsNotPrintable) {
    EXPECT_FALSE(Helper::isPrintable(std::string("a\0b", 3)));
}

TEST(HelperIsPrintableTest, AControlByteAtTheEndIsNotPrintable) {
    EXPECT_FALSE(Helper::isPrintable("abc\x1F"));
}

// ---- split ----

TEST(HelperSplitTest, AnEmptyStringEmptiesTheOutputAndAddsNothing) {
    std::vector<std::string> out{"old"};
    Helper::split("", ',', out);
    EXPECT_THAT(out, IsEmpty());
}

TEST(HelperSplitTest, AStringWithoutSeparatorGivesOneItem) {
    std::vector<std::string> out;
    Helper::split("x", ',', out);
    EXPECT_THAT(out, ElementsAre("x"));
}

TEST(HelperSplitTest, ItemsAreCutAtEverySeparator) {
    std::vector<std::string> out;
    Helper::split("a/b/c", '/', out);
    EXPECT_THAT(out, ElementsAre("a", "b", "c"));
}

TEST(HelperSplitTest, TwoSeparatorsInARowGiveAnEmptyItem) {
    std::vector<std::string> out;
    Helper::split("a,,b", ',', out);
    EXPECT_THAT(out, ElementsAre("a", "", "b"));
}

TEST(HelperSplitTest, ATrailingSeparatorAddsNoEmptyLastItem) {
    std::vector<std::string> out;
    Helper::split("a,", ',', out);
    EXPECT_THAT(out, ElementsAre("a"));
}

TEST(HelperSplitTest, ALeadingSeparatorGivesAnEmptyFirstItem) {
    std::vector<std::string> out;
    Helper::split(",a", ',', out);
    EXPECT_THAT(out, ElementsAre("", "a"));
}

TEST(HelperSplitTest, ALoneSeparatorGivesOneEmptyItem) {
    std::vector<std::string> out;
    Helper::split(",", ',', out);
    EXPECT_THAT(out, ElementsAre(""));
}

TEST(HelperSplitTest, PreviousItemsAreReplaced) {
    std::vector<std::string> out{"old1", "old2"};
    Helper::split("new", ',', out);
    EXPECT_THAT(out, ElementsAre("new"));
}

// ---- getFileContent ----

// A fresh directory under the system's temporary directory, removed with everything in it.
class HelperFileTest : public testing::Test {
  protected:
    HelperFileTest() {
        char pattern[] = "/tmp/dme-helper-XXXXXX";
        const char* made = mkdtemp(pattern);
        if (made == nullptr) throw std::runtime_error("mkdtemp failed");
        directory_ = made;
    }
    ~HelperFileTest() override { std::filesystem::remove_all(directory_); }

    std::string path(const std::string& name) const { return directory_ + "/" + name; }

    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream file(path(name), std::ios::out | std::ios::binary | std::ios::trunc);
        file << content;
        return path(name);
    }

    const std::string& directory() const { return directory_; }

  private:
    std::string directory_;
};

TEST_F(HelperFileTest, AnEmptyFileGivesAnEmptyString) {
    EXPECT_EQ(Helper::getFileContent(write("empty", "")), "");
}

TEST_F(HelperFileTest, TheContentIsReturnedByteForByte) {
    const std::string content("line1\r\nline2\n\0\xFF\x1B end", 20);
    EXPECT_EQ(Helper::getFileContent(write("bytes", content)), content);
}

TEST_F(HelperFileTest, ALargeFileIsReadWhole) {
    const std::string content(300000, 'z');
    EXPECT_EQ(Helper::getFileContent(write("large", content)), content);
}

TEST_F(HelperFileTest, AMissingFileThrowsNamingThePath) {
    const std::string missing = path("missing.json");
    EXPECT_THAT([&] { Helper::getFileContent(missing); },
                ThrowsMessage<std::runtime_error>(StrEq("Couldn't open " + missing)));
}

TEST_F(HelperFileTest, ADirectoryCannotBeOpenedAsAFile) {
    EXPECT_THAT([&] { Helper::getFileContent(directory()); },
                ThrowsMessage<std::runtime_error>(StrEq("Couldn't open " + directory())));
}

TEST_F(HelperFileTest, EachCallReadsTheFileAsItIsNow) {
    const std::string file = write("changing", "first");
    EXPECT_EQ(Helper::getFileContent(file), "first");
    write("changing", "second text");
    EXPECT_EQ(Helper::getFileContent(file), "second text");
}

}  // namespace
