#include "dme/arguments.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "dme/exception.h"

namespace {

using dme::Arguments;
using Pairs = std::vector<std::pair<std::string, std::string>>;

// Runs `thrower`, which must throw dme::Exception, and returns what it threw.
dme::Exception caught(const std::function<void()>& thrower) {
    try {
        thrower();
    } catch (const dme::Exception& e) {
        return e;
    }
    ADD_FAILURE() << "no dme::Exception was thrown";
    return dme::Exception(dme::Error::INVALID_TYPE, "nothing thrown");
}

void expectMalformed(const std::string& query) {
    const dme::Exception e = caught([&query] { const Arguments parsed(query); });
    EXPECT_EQ(static_cast<std::uint32_t>(e.id), 32u) << query;
    EXPECT_EQ(e.message, "Malformed query") << query;
    EXPECT_EQ(e.detail1, query);
    EXPECT_EQ(e.detail2, "") << query;
}

// ---- Construction -------------------------------------------------------------------------

TEST(ArgumentsConstructionTest, DefaultIsEmpty) {
    const Arguments args;
    EXPECT_TRUE(args.empty());
    EXPECT_EQ(args.size(), 0u);
}

TEST(ArgumentsConstructionTest, FromVectorCopiesPairsAsGiven) {
    const Pairs pairs = {{"b", "2"}, {"", "x"}, {"a", "%zz"}};
    const Arguments args(pairs);
    EXPECT_EQ(args.pairs(), pairs);
}

TEST(ArgumentsConstructionTest, FromInitializerListCopiesPairsAsGiven) {
    const Arguments args{{"=", "&"}, {"a", "1"}};
    EXPECT_EQ(args.pairs(), (Pairs{{"=", "&"}, {"a", "1"}}));
    EXPECT_EQ(args.size(), 2u);
    EXPECT_FALSE(args.empty());
}

TEST(ArgumentsConstructionTest, CopyAndMoveKeepThePairs) {
    const Arguments original{{"a", "1"}, {"b", "2"}};
    Arguments copy(original);
    EXPECT_EQ(copy.pairs(), original.pairs());
    const Arguments moved(std::move(copy));
    EXPECT_EQ(moved.pairs(), (Pairs{{"a", "1"}, {"b", "2"}}));
}

// ---- Query parsing ------------------------------------------------------------------------

TEST(ArgumentsQueryTest, EmptyQueryGivesNoPairs) {
    EXPECT_TRUE(Arguments(std::string()).empty());
}

TEST(ArgumentsQueryTest, NameAndValue) {
    EXPECT_EQ(Arguments(std::string("a=1")).pairs(), (Pairs{{"a", "1"}}));
}

TEST(ArgumentsQueryTest, PairsKeepTheirOrder) {
    EXPECT_EQ(Arguments(std::string("b=2&a=1&c=3")).pairs(),
              (Pairs{{"b", "2"}, {"a", "1"}, {"c", "3"}}));
}

TEST(ArgumentsQueryTest, NameWithoutEqualsHasEmptyValue) {
    EXPECT_EQ(Arguments(std::string("x")).pairs(), (Pairs{{"x", ""}}));
}

TEST(ArgumentsQueryTest, NameWithTrailingEqualsHasEmptyValue) {
    EXPECT_EQ(Arguments(std::string("x=")).pairs(), (Pairs{{"x", ""}}));
}

TEST(ArgumentsQueryTest, EqualsOfEarlierSegmentDoesNotSplitLaterSegment) {
    EXPECT_EQ(Arguments(std::string("a=1&b")).pairs(), (Pairs{{"a", "1"}, {"b", ""}}));
}

TEST(ArgumentsQueryTest, LastEqualsOfSegmentSplitsIt) {
    EXPECT_EQ(Arguments(std::string("a=b=c")).pairs(), (Pairs{{"a=b", "c"}}));
}

TEST(ArgumentsQueryTest, LastEqualsSplitsEachSegmentSeparately) {
    EXPECT_EQ(Arguments(std::string("a=b=c&d==e")).pairs(), (Pairs{{"a=b", "c"}, {"d=", "e"}}));
}

TEST(ArgumentsQueryTest, RepeatedNamesAreAllKept) {
    EXPECT_EQ(Arguments(std::string("a=1&a=2")).pairs(), (Pairs{{"a", "1"}, {"a", "2"}}));
}

TEST(ArgumentsQueryTest, EmptyNameIsMalformed) {
    expectMalformed("=1");
}

TEST(ArgumentsQueryTest, EmptySegmentBetweenAmpersandsIsMalformed) {
    expectMalformed("a=1&&b=2");
}

TEST(ArgumentsQueryTest, LeadingAmpersandIsMalformed) {
    expectMalformed("&a=1");
}

TEST(ArgumentsQueryTest, TrailingAmpersandIsMalformed) {
    expectMalformed("a=1&");
}

TEST(ArgumentsQueryTest, EmptyNameInLaterSegmentIsMalformed) {
    expectMalformed("a=1&=2");
}

TEST(ArgumentsQueryTest, PlusBecomesBlank) {
    EXPECT_EQ(Arguments(std::string("a+b=c+d")).pairs(), (Pairs{{"a b", "c d"}}));
}

TEST(ArgumentsQueryTest, PercentEscapeIsDecoded) {
    EXPECT_EQ(Arguments(std::string("q=a+b%2Fc")).pairs(), (Pairs{{"q", "a b/c"}}));
}

TEST(ArgumentsQueryTest, PercentEscapeAcceptsBothLetterCases) {
    EXPECT_EQ(Arguments(std::string("q=%4a%4B%aF")).pairs(), (Pairs{{"q", "JK\xAF"}}));
}

TEST(ArgumentsQueryTest, PercentEscapeInNameIsDecoded) {
    EXPECT_EQ(Arguments(std::string("a%3Db=c")).pairs(), (Pairs{{"a=b", "c"}}));
}

TEST(ArgumentsQueryTest, EscapedSeparatorsDoNotSplit) {
    EXPECT_EQ(Arguments(std::string("a=x%26y%3Dz&b=%2B")).pairs(),
              (Pairs{{"a", "x&y=z"}, {"b", "+"}}));
}

TEST(ArgumentsQueryTest, DecodedBytesAreStoredAsTheyAre) {
    const Arguments args(std::string("q=%00%C3%A9%FF"));
    ASSERT_EQ(args.size(), 1u);
    EXPECT_EQ(args.pairs()[0].second, std::string("\x00\xC3\xA9\xFF", 4));
}

TEST(ArgumentsQueryTest, PercentAtEndOfTextIsMalformed) {
    expectMalformed("q=%");
}

TEST(ArgumentsQueryTest, PercentWithOneDigitAtEndIsMalformed) {
    expectMalformed("q=%2");
}

TEST(ArgumentsQueryTest, PercentWithNonHexFirstDigitIsMalformed) {
    expectMalformed("q=%g0");
}

TEST(ArgumentsQueryTest, PercentWithNonHexSecondDigitIsMalformed) {
    expectMalformed("q=%0g");
}

TEST(ArgumentsQueryTest, PercentWithNoHexDigitsIsMalformed) {
    expectMalformed("q=%zz");
}

TEST(ArgumentsQueryTest, PercentAtEndOfValueSeesTheAmpersand) {
    expectMalformed("a=%&b=1");
}

TEST(ArgumentsQueryTest, PercentAtEndOfNameSeesTheEquals) {
    expectMalformed("a%=1");
}

TEST(ArgumentsQueryTest, PercentWithOneDigitAtEndOfValueSeesTheAmpersand) {
    expectMalformed("a=%4&b=1");
}

// ---- Getters --------------------------------------------------------------------------------

TEST(ArgumentsGetterTest, LookupFindsFirstPairOfTheName) {
    const Arguments args(std::string("a=1&a=2"));
    std::string out;
    EXPECT_TRUE(args.getStringArg("a", out));
    EXPECT_EQ(out, "1");
}

TEST(ArgumentsGetterTest, LookupIsCaseSensitive) {
    const Arguments args{{"Name", "x"}};
    std::string out = "untouched";
    EXPECT_FALSE(args.getStringArg("name", out));
    EXPECT_EQ(out, "untouched");
}

TEST(ArgumentsGetterTest, StringPresent) {
    const Arguments args{{"s", "hello world"}};
    std::string out;
    EXPECT_TRUE(args.getStringArg("s", out));
    EXPECT_EQ(out, "hello world");
}

TEST(ArgumentsGetterTest, StringPresentIgnoresDefault) {
    const Arguments args{{"s", ""}};
    std::string out = "before";
    EXPECT_TRUE(args.getStringArg("s", out, "fallback"));
    EXPECT_EQ(out, "");
}

TEST(ArgumentsGetterTest, StringAbsentLeavesOutputUntouched) {
    const Arguments args{{"other", "x"}};
    std::string out = "before";
    EXPECT_FALSE(args.getStringArg("s", out));
    EXPECT_EQ(out, "before");
}

TEST(ArgumentsGetterTest, StringAbsentAssignsDefault) {
    const Arguments args;
    std::string out = "before";
    EXPECT_FALSE(args.getStringArg("s", out, "fallback"));
    EXPECT_EQ(out, "fallback");
}

TEST(ArgumentsGetterTest, BooleanTrueAndFalse) {
    const Arguments args{{"t", "true"}, {"f", "false"}};
    bool out = false;
    EXPECT_TRUE(args.getBooleanArg("t", out));
    EXPECT_TRUE(out);
    EXPECT_TRUE(args.getBooleanArg("f", out));
    EXPECT_FALSE(out);
}

TEST(ArgumentsGetterTest, BooleanPresentIgnoresDefault) {
    const Arguments args{{"f", "false"}};
    bool out = true;
    EXPECT_TRUE(args.getBooleanArg("f", out, true));
    EXPECT_FALSE(out);
}

TEST(ArgumentsGetterTest, BooleanAbsentLeavesOutputUntouched) {
    const Arguments args;
    bool out = true;
    EXPECT_FALSE(args.getBooleanArg("b", out));
    EXPECT_TRUE(out);
}

TEST(ArgumentsGetterTest, BooleanAbsentAssignsDefault) {
    const Arguments args;
    bool out = false;
    EXPECT_FALSE(args.getBooleanArg("b", out, true));
    EXPECT_TRUE(out);
}

TEST(ArgumentsGetterTest, BooleanUpperCaseIsInvalidType) {
    const Arguments args{{"b", "TRUE"}};
    bool out = false;
    const dme::Exception e = caught([&] { args.getBooleanArg("b", out); });
    EXPECT_EQ(static_cast<std::uint32_t>(e.id), 33u);
    EXPECT_EQ(e.message, "Argument invalid type");
    EXPECT_EQ(e.detail1, "TRUE");
    EXPECT_EQ(e.detail2, "boolean");
}

TEST(ArgumentsGetterTest, BooleanDigitIsInvalidType) {
    const Arguments args{{"b", "1"}};
    bool out = false;
    const dme::Exception e = caught([&] { args.getBooleanArg("b", out, false); });
    EXPECT_EQ(static_cast<std::uint32_t>(e.id), 33u);
    EXPECT_EQ(e.message, "Argument invalid type");
    EXPECT_EQ(e.detail1, "1");
    EXPECT_EQ(e.detail2, "boolean");
}

TEST(ArgumentsGetterTest, IntegerNegative) {
    const Arguments args(std::string("n=-5"));
    long long out = 0;
    EXPECT_TRUE(args.getIntegerArg("n", out));
    EXPECT_EQ(out, -5);
}

TEST(ArgumentsGetterTest, IntegerPresentIgnoresDefault) {
    const Arguments args{{"n", "42"}};
    long long out = 0;
    EXPECT_TRUE(args.getIntegerArg("n", out, 7));
    EXPECT_EQ(out, 42);
}

TEST(ArgumentsGetterTest, IntegerAbsentLeavesOutputUntouched) {
    const Arguments args;
    long long out = 99;
    EXPECT_FALSE(args.getIntegerArg("n", out));
    EXPECT_EQ(out, 99);
}

TEST(ArgumentsGetterTest, IntegerAbsentAssignsDefault) {
    const Arguments args;
    long long out = 99;
    EXPECT_FALSE(args.getIntegerArg("n", out, -3));
    EXPECT_EQ(out, -3);
}

TEST(ArgumentsGetterTest, IntegerNotANumberIsInvalidType) {
    const Arguments args{{"n", "abc"}};
    long long out = 0;
    const dme::Exception e = caught([&] { args.getIntegerArg("n", out); });
    EXPECT_EQ(static_cast<std::uint32_t>(e.id), 33u);
    EXPECT_EQ(e.message, "Argument invalid type");
    EXPECT_EQ(e.detail1, "abc");
    EXPECT_EQ(e.detail2, "integer");
}

TEST(ArgumentsGetterTest, IntegerOverflowIsInvalidType) {
    const Arguments args{{"n", "9223372036854775808"}};
    long long out = 0;
    const dme::Exception e = caught([&] { args.getIntegerArg("n", out, 0); });
    EXPECT_EQ(static_cast<std::uint32_t>(e.id), 33u);
    EXPECT_EQ(e.detail1, "9223372036854775808");
    EXPECT_EQ(e.detail2, "integer");
}

TEST(ArgumentsGetterTest, UnsignedNegativeWrapsAround) {
    const Arguments args(std::string("n=-5"));
    unsigned long long out = 0;
    EXPECT_TRUE(args.getUnsignedIntegerArg("n", out));
    EXPECT_EQ(out, 18446744073709551611ull);
}

TEST(ArgumentsGetterTest, UnsignedPresentIgnoresDefault) {
    const Arguments args{{"n", "18446744073709551615"}};
    unsigned long long out = 0;
    EXPECT_TRUE(args.getUnsignedIntegerArg("n", out, 1));
    EXPECT_EQ(out, 18446744073709551615ull);
}

TEST(ArgumentsGetterTest, UnsignedAbsentLeavesOutputUntouched) {
    const Arguments args;
    unsigned long long out = 5;
    EXPECT_FALSE(args.getUnsignedIntegerArg("n", out));
    EXPECT_EQ(out, 5u);
}

TEST(ArgumentsGetterTest, UnsignedAbsentAssignsDefault) {
    const Arguments args;
    unsigned long long out = 5;
    EXPECT_FALSE(args.getUnsignedIntegerArg("n", out, 12));
    EXPECT_EQ(out, 12u);
}

TEST(ArgumentsGetterTest, UnsignedNotANumberIsInvalidType) {
    const Arguments args{{"n", "x1"}};
    unsigned long long out = 0;
    const dme::Exception e = caught([&] { args.getUnsignedIntegerArg("n", out); });
    EXPECT_EQ(static_cast<std::uint32_t>(e.id), 33u);
    EXPECT_EQ(e.message, "Argument invalid type");
    EXPECT_EQ(e.detail1, "x1");
    EXPECT_EQ(e.detail2, "unsigned integer");
}

TEST(ArgumentsGetterTest, UnsignedOverflowIsInvalidType) {
    const Arguments args{{"n", "18446744073709551616"}};
    unsigned long long out = 0;
    const dme::Exception e = caught([&] { args.getUnsignedIntegerArg("n", out, 0); });
    EXPECT_EQ(static_cast<std::uint32_t>(e.id), 33u);
    EXPECT_EQ(e.detail1, "18446744073709551616");
    EXPECT_EQ(e.detail2, "unsigned integer");
}

TEST(ArgumentsGetterTest, FailedConversionLeavesOutputUntouched) {
    const Arguments args{{"n", "abc"}};
    long long out = 17;
    EXPECT_THROW(args.getIntegerArg("n", out, 3), dme::Exception);
    EXPECT_EQ(out, 17);
}

// ---- Hash -----------------------------------------------------------------------------------

// The combination, written out independently of the library, over 32-bit values of the
// standard string hash.
std::uint32_t referenceHash(const Pairs& pairs) {
    const auto H = [](const std::string& s) {
        return static_cast<std::uint32_t>(std::hash<std::string>{}(s));
    };
    std::uint32_t h = 0;
    for (const auto& [name, value] : pairs) {
        const std::uint32_t a = H(name) + 0x9E3779B9u;
        const std::uint32_t b = H(value) + 0x9E3779B9u;
        const std::uint32_t p = (b + (a << 6) + (a >> 2)) ^ a;
        h = h ^ (p + (h >> 2) + (h << 6) + 0x9E3779B9u);
    }
    return h;
}

TEST(ArgumentsHashTest, EmptyListHashesToZero) {
    EXPECT_EQ(Arguments().hash(), 0u);
    EXPECT_EQ(Arguments(std::string()).hash(), 0u);
}

TEST(ArgumentsHashTest, EqualListsHashEqually) {
    const Arguments parsed(std::string("a=1&b=2"));
    const Arguments given{{"a", "1"}, {"b", "2"}};
    EXPECT_EQ(parsed.hash(), given.hash());
}

TEST(ArgumentsHashTest, SwappingTwoPairsChangesTheHash) {
    const Arguments ab{{"a", "1"}, {"b", "2"}};
    const Arguments ba{{"b", "2"}, {"a", "1"}};
    EXPECT_NE(ab.hash(), ba.hash());
}

TEST(ArgumentsHashTest, DifferentValueChangesTheHash) {
    EXPECT_NE((Arguments{{"a", "1"}}.hash()), (Arguments{{"a", "2"}}.hash()));
}

TEST(ArgumentsHashTest, OnePairFollowsTheCombination) {
    EXPECT_EQ((Arguments{{"expand", "2"}}.hash()), referenceHash({{"expand", "2"}}));
}

TEST(ArgumentsHashTest, SeveralPairsFollowTheCombination) {
    const Pairs pairs = {{"expand", "2"}, {"select", "name"}, {"", ""}};
    EXPECT_EQ(Arguments(pairs).hash(), referenceHash(pairs));
}

// Values worked out by hand from the combination and libstdc++'s 64-bit Murmur byte hash; the
// byte hash differs where std::size_t has 32 bits.
TEST(ArgumentsHashTest, KnownValuesWith64BitStringHash) {
    if (sizeof(std::size_t) != 8) GTEST_SKIP() << "literal values assume a 64-bit string hash";
    EXPECT_EQ((Arguments{{"a", "1"}}.hash()), 3860448698u);
    EXPECT_EQ((Arguments{{"a", "1"}, {"b", "2"}}.hash()), 269133291u);
    EXPECT_EQ((Arguments{{"b", "2"}, {"a", "1"}}.hash()), 1285242609u);
}

// The same lists with libstdc++'s 32-bit byte hash (MurmurHash2), as on 32-bit ARM.
TEST(ArgumentsHashTest, KnownValuesWith32BitStringHash) {
    if (sizeof(std::size_t) != 4) GTEST_SKIP() << "literal values assume a 32-bit string hash";
    EXPECT_EQ((Arguments{{"a", "1"}}.hash()), 853441553u);
    EXPECT_EQ((Arguments{{"a", "1"}, {"b", "2"}}.hash()), 561518277u);
    EXPECT_EQ((Arguments{{"b", "2"}, {"a", "1"}}.hash()), 1441502821u);
}

// ---- Printed form ---------------------------------------------------------------------------

TEST(ArgumentsPrintTest, NoPairs) {
    std::ostringstream os;
    os << Arguments();
    EXPECT_EQ(os.str(), "0 arguments:\n");
}

TEST(ArgumentsPrintTest, OnePair) {
    std::ostringstream os;
    os << Arguments{{"a", "1"}};
    EXPECT_EQ(os.str(), "1 arguments:\n  \"a\" = \"1\"\n");
}

TEST(ArgumentsPrintTest, PairsInOrderUnescaped) {
    std::ostringstream os;
    os << Arguments{{"b", "x y"}, {"a", ""}, {"q\"", "%2F"}};
    EXPECT_EQ(os.str(),
              "3 arguments:\n"
              "  \"b\" = \"x y\"\n"
              "  \"a\" = \"\"\n"
              "  \"q\"\" = \"%2F\"\n");
}

// A string buffer that records its contents each time the stream is flushed.
class FlushRecorder : public std::stringbuf {
  public:
    std::vector<std::string> flushes;

  protected:
    int sync() override {
        flushes.push_back(str());
        return 0;
    }
};

TEST(ArgumentsPrintTest, EachLineIsFlushed) {
    FlushRecorder buffer;
    std::ostream os(&buffer);
    os << Arguments{{"a", "1"}, {"b", "2"}};
    EXPECT_EQ(buffer.flushes, (std::vector<std::string>{
                                  "2 arguments:\n",
                                  "2 arguments:\n  \"a\" = \"1\"\n",
                                  "2 arguments:\n  \"a\" = \"1\"\n  \"b\" = \"2\"\n",
                              }));
}

// ---- Converters -----------------------------------------------------------------------------

TEST(StoTest, BoolAcceptsExactlyTrueAndFalse) {
    EXPECT_TRUE(dme::sto<bool>("true"));
    EXPECT_FALSE(dme::sto<bool>("false"));
}

TEST(StoTest, BoolRejectsOtherTextWithFixedMessage) {
    for (const char* text : {"True", "TRUE", "1", "0", "", " true", "true "}) {
        try {
            dme::sto<bool>(text);
            ADD_FAILURE() << "no exception for '" << text << "'";
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ(e.what(), "Argument cannot be converted to boolean") << text;
        }
    }
}

TEST(StoTest, LongLongDecimal) {
    EXPECT_EQ(dme::sto<long long>("-9223372036854775808"), (-9223372036854775807ll - 1));
    EXPECT_EQ(dme::sto<long long>("9223372036854775807"), 9223372036854775807ll);
}

TEST(StoTest, LongLongIgnoresTrailingText) {
    EXPECT_EQ(dme::sto<long long>("12abc"), 12);
}

TEST(StoTest, LongLongAcceptsLeadingBlanksAndSign) {
    EXPECT_EQ(dme::sto<long long>("  +7"), 7);
    EXPECT_EQ(dme::sto<long long>("\t-7"), -7);
}

TEST(StoTest, LongLongIsBaseTen) {
    EXPECT_EQ(dme::sto<long long>("010"), 10);
}

TEST(StoTest, LongLongWithoutDigitsThrowsInvalidArgument) {
    for (const char* text : {"", "abc", "-", " "}) {
        try {
            dme::sto<long long>(text);
            ADD_FAILURE() << "no exception for '" << text << "'";
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ(e.what(), "stoll") << text;
        }
    }
}

TEST(StoTest, LongLongOverflowThrowsOutOfRange) {
    try {
        dme::sto<long long>("9223372036854775808");
        ADD_FAILURE() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "stoll");
    }
}

TEST(StoTest, LongLongUnderflowThrowsOutOfRange) {
    EXPECT_THROW(dme::sto<long long>("-9223372036854775809"), std::out_of_range);
}

TEST(StoTest, UnsignedDecimal) {
    EXPECT_EQ(dme::sto<unsigned long long>("18446744073709551615"), 18446744073709551615ull);
}

TEST(StoTest, UnsignedMinusNegatesModulo2To64) {
    EXPECT_EQ(dme::sto<unsigned long long>("-1"), 18446744073709551615ull);
    EXPECT_EQ(dme::sto<unsigned long long>("-5"), 18446744073709551611ull);
}

TEST(StoTest, UnsignedIgnoresTrailingText) {
    EXPECT_EQ(dme::sto<unsigned long long>("34 rest"), 34u);
}

TEST(StoTest, UnsignedWithoutDigitsThrowsInvalidArgument) {
    try {
        dme::sto<unsigned long long>("x");
        ADD_FAILURE() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "stoull");
    }
}

TEST(StoTest, UnsignedOverflowThrowsOutOfRange) {
    try {
        dme::sto<unsigned long long>("18446744073709551616");
        ADD_FAILURE() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "stoull");
    }
}

TEST(StoTest, StringIsCopied) {
    EXPECT_EQ(dme::sto<std::string>(std::string("a\0b", 3)), std::string("a\0b", 3));
}

TEST(StoTest, SuccessfulConversionRestoresErrno) {
    errno = EDOM;
    EXPECT_EQ(dme::sto<long long>("5"), 5);
    EXPECT_EQ(errno, EDOM);
    errno = EDOM;
    EXPECT_EQ(dme::sto<unsigned long long>("5"), 5u);
    EXPECT_EQ(errno, EDOM);
}

TEST(StoTest, ConversionWithoutDigitsRestoresErrno) {
    errno = EDOM;
    EXPECT_THROW(dme::sto<long long>("x"), std::invalid_argument);
    EXPECT_EQ(errno, EDOM);
}

TEST(StoTest, OverflowLeavesErrnoAtErange) {
    errno = EDOM;
    EXPECT_THROW(dme::sto<unsigned long long>("99999999999999999999"), std::out_of_range);
    EXPECT_EQ(errno, ERANGE);
}

}  // namespace
