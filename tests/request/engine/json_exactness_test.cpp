// Values travel through the JSON engine exactly: numbers keep every digit and their sign,
// member names are written as the characters they are, and text keeps a leading U+FEFF.
#include <gtest/gtest.h>

#include <string>

#include "dme/atomic_value.h"
#include "dme/container.h"
#include "dme/engine.h"
#include "dme/json.h"
#include "dme/result.h"
#include "dme/structure.h"

namespace dme {
namespace {

class JsonExactnessTest : public testing::Test {
  protected:
    JsonExactnessTest()
        : root_(
              new Structure({new Entry("d", new StaticAtomicValue<double>(0, RU)),
                             new Entry("f", new StaticAtomicValue<float>(0, RU)),
                             new Entry("s", new StaticAtomicValue<std::string>("", RU)),
                             new Entry("caf\xc3\xa9", new StaticAtomicValue<std::string>("x", RU))},
                            RU + AllowedMethods::B, false)),
          engine_(new DataModel(root_, lexicon_, RU + AllowedMethods::B), "exact") {}

    // Updates `uri` with `body` and returns what a READ of it then answers.
    std::string storeAndRead(const std::string& uri, const std::string& body) {
        std::string answer;
        EXPECT_EQ(engine_.execute(UPDATE, uri, Arguments(), body, answer, false), result::DONE)
            << body;
        EXPECT_EQ(engine_.execute(READ, uri, Arguments(), "", answer, false), result::DONE);
        return answer;
    }

    std::string read(const std::string& uri) {
        std::string answer;
        EXPECT_EQ(engine_.execute(READ, uri, Arguments(), "", answer, false), result::DONE);
        return answer;
    }

    static constexpr std::uint32_t RU = AllowedMethods::R | AllowedMethods::U;
    const Lexicon lexicon_{"href", "id", "count", "items", "expand", "select"};
    Structure* root_;
    JsonDataModelEngine engine_;
};

TEST_F(JsonExactnessTest, DoublesKeepEveryDigit) {
    for (const char* number : {"0.30000000000000004", "3.141592653589793", "123456789.12345679",
                               "2.2250738585072014e-308", "5e-324", "1.7976931348623157e+308"}) {
        EXPECT_EQ(storeAndRead("/d", number), number);
    }
}

TEST_F(JsonExactnessTest, ANegativeZeroKeepsItsSign) {
    EXPECT_EQ(storeAndRead("/d", "-0.0"), "-0.0");
    EXPECT_EQ(storeAndRead("/d", "-0.0"), storeAndRead("/d", storeAndRead("/d", "-0.0")));
}

TEST_F(JsonExactnessTest, WholeDoublesAreWrittenWithoutAFraction) {
    EXPECT_EQ(storeAndRead("/d", "2.0"), "2");
    EXPECT_EQ(storeAndRead("/d", "1e21"), "1e+21");
}

TEST_F(JsonExactnessTest, FloatsAreWrittenInTheirShortestForm) {
    EXPECT_EQ(storeAndRead("/f", "0.1"), "0.1");
    EXPECT_EQ(storeAndRead("/f", "16777217"), "16777216");
}

TEST_F(JsonExactnessTest, ANonAsciiMemberNameIsWrittenAsItsCharacters) {
    EXPECT_EQ(read("/"), R"({"href":"/","d":0,"f":0,"s":"","caf\u00e9":"x"})");
    EXPECT_EQ(storeAndRead("/caf\xc3\xa9", R"("y")"), R"("y")");
}

TEST_F(JsonExactnessTest, ATextKeepsALeadingByteOrderMark) {
    EXPECT_EQ(storeAndRead("/s", R"("\ufeffabc")"), R"("\ufeffabc")");
}

TEST(JsonEmptyNameTest, AnEmptyMemberNameIsReadAndWrittenBack) {
    const std::string document = R"({"":0})";
    EXPECT_EQ(formatJson(parseJson(document)), document);
}

}  // namespace
}  // namespace dme
