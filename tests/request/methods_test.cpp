#include "dme/methods.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

namespace dme {
namespace {

template <class T>
std::string printed(T value) {
    std::ostringstream os;
    os << value;
    return os.str();
}

TEST(MethodTest, ValuesAreTheDocumentedBitPatterns) {
    EXPECT_EQ(static_cast<std::uint32_t>(CREATE), 0x0001u);
    EXPECT_EQ(static_cast<std::uint32_t>(READ), 0x0002u);
    EXPECT_EQ(static_cast<std::uint32_t>(UPDATE), 0x0004u);
    EXPECT_EQ(static_cast<std::uint32_t>(DELETE), 0x0008u);
    EXPECT_EQ(static_cast<std::uint32_t>(SCHEMA), 0x8000u);
    EXPECT_EQ(static_cast<std::uint32_t>(SUBSCRIBE), 0x8100u);
    EXPECT_EQ(static_cast<std::uint32_t>(UNSUBSCRIBE), 0x8200u);
}

TEST(MethodTest, IsStoredInThirtyTwoBits) {
    EXPECT_EQ(sizeof(Method), 4u);
}

TEST(MethodTest, MaskIsTheUnionOfAllMethods) {
    EXPECT_EQ(METHOD_MASK, 0x830Fu);
}

TEST(MethodTest, EveryMethodLiesWithinTheMask) {
    for (Method method : {CREATE, READ, UPDATE, DELETE, SCHEMA, SUBSCRIBE, UNSUBSCRIBE}) {
        EXPECT_EQ(static_cast<std::uint32_t>(method) & ~METHOD_MASK, 0u) << method;
    }
}

TEST(MethodTest, PrintsTheNameOfEachKnownMethod) {
    EXPECT_EQ(printed(CREATE), "CREATE");
    EXPECT_EQ(printed(READ), "READ");
    EXPECT_EQ(printed(UPDATE), "UPDATE");
    EXPECT_EQ(printed(DELETE), "DELETE");
    EXPECT_EQ(printed(SCHEMA), "SCHEMA");
    EXPECT_EQ(printed(SUBSCRIBE), "SUBSCRIBE");
    EXPECT_EQ(printed(UNSUBSCRIBE), "UNSUBSCRIBE");
}

TEST(MethodTest, CombinedValuePrintsAsUndefinedThoughItSharesMaskBits) {
    const Method combined =
        static_cast<Method>(static_cast<std::uint32_t>(CREATE) | static_cast<std::uint32_t>(READ));
    EXPECT_NE(static_cast<std::uint32_t>(combined) & METHOD_MASK, 0u);
    EXPECT_EQ(printed(combined), "UNDEFINED (3)");
}

TEST(MethodTest, ZeroPrintsAsUndefined) {
    EXPECT_EQ(printed(static_cast<Method>(0u)), "UNDEFINED (0)");
}

TEST(MethodTest, UnknownValuePrintsInDecimal) {
    EXPECT_EQ(printed(static_cast<Method>(0x8300u)), "UNDEFINED (33536)");
}

TEST(MethodTest, PrintingWritesNothingElse) {
    std::ostringstream os;
    os << READ << '|' << static_cast<Method>(16u) << '|';
    EXPECT_EQ(os.str(), "READ|UNDEFINED (16)|");
}

TEST(AllowedMethodsTest, DataMethodBitsCoincideWithMethods) {
    EXPECT_EQ(AllowedMethods::C, 0x01u);
    EXPECT_EQ(AllowedMethods::R, 0x02u);
    EXPECT_EQ(AllowedMethods::U, 0x04u);
    EXPECT_EQ(AllowedMethods::D, 0x08u);
    EXPECT_EQ(AllowedMethods::B, 0x10u);
    EXPECT_EQ(AllowedMethods(CREATE).bits(), AllowedMethods::C);
    EXPECT_EQ(AllowedMethods(READ).bits(), AllowedMethods::R);
    EXPECT_EQ(AllowedMethods(UPDATE).bits(), AllowedMethods::U);
    EXPECT_EQ(AllowedMethods(DELETE).bits(), AllowedMethods::D);
}

TEST(AllowedMethodsTest, DefaultIsEmpty) {
    const AllowedMethods none;
    EXPECT_EQ(none.bits(), 0u);
    EXPECT_TRUE(none.empty());
    EXPECT_FALSE(static_cast<bool>(none));
}

TEST(AllowedMethodsTest, PlusIsUnion) {
    EXPECT_EQ((AllowedMethods(0x03) + AllowedMethods(0x06)).bits(), 0x07u);
    EXPECT_EQ((AllowedMethods(0x10) + AllowedMethods(0x10)).bits(), 0x10u);
}

TEST(AllowedMethodsTest, MinusRemovesPresentBits) {
    EXPECT_EQ((AllowedMethods(0x1F) - AllowedMethods(0x05)).bits(), 0x1Au);
}

TEST(AllowedMethodsTest, MinusOfAbsentBitLeavesSetUnchanged) {
    EXPECT_EQ((AllowedMethods(0x12) - AllowedMethods(0x08)).bits(), 0x12u);
    EXPECT_EQ((AllowedMethods() - AllowedMethods(0x1F)).bits(), 0u);
}

TEST(AllowedMethodsTest, AndIsIntersection) {
    EXPECT_EQ((AllowedMethods(0x1E) & AllowedMethods(0x07)).bits(), 0x06u);
}

TEST(AllowedMethodsTest, IntersectionIsTrueOnlyWhenNonEmpty) {
    EXPECT_TRUE(static_cast<bool>(AllowedMethods(0x06) & AllowedMethods(0x02)));
    EXPECT_FALSE(static_cast<bool>(AllowedMethods(0x06) & AllowedMethods(0x09)));
}

TEST(AllowedMethodsTest, AndAssignIntersectsInPlaceAndReturnsTheOperand) {
    AllowedMethods set(0x1F);
    AllowedMethods& result = (set &= AllowedMethods(0x0A));
    EXPECT_EQ(&result, &set);
    EXPECT_EQ(set.bits(), 0x0Au);
}

TEST(AllowedMethodsTest, MethodIsTestedAgainstSetByBitwiseAnd) {
    const AllowedMethods readUpdate(0x06);
    EXPECT_TRUE(static_cast<bool>(READ & readUpdate));
    EXPECT_TRUE(static_cast<bool>(readUpdate & UPDATE));
    EXPECT_FALSE(static_cast<bool>(DELETE & readUpdate));
    EXPECT_FALSE(static_cast<bool>(SCHEMA & AllowedMethods(0x1F)));
}

TEST(AllowedMethodsTest, MixedOperatorsCombineMethods) {
    EXPECT_EQ((READ + UPDATE).bits(), 0x06u);
    EXPECT_EQ(AllowedMethods(READ | DELETE).bits(), 0x0Au);
    EXPECT_EQ((AllowedMethods(0x1F) - CREATE).bits(), 0x1Eu);
}

TEST(AllowedMethodsTest, EqualityComparesBits) {
    EXPECT_TRUE(AllowedMethods(0x06) == READ + UPDATE);
    EXPECT_TRUE(AllowedMethods(0x06) != AllowedMethods(0x07));
}

TEST(AllowedMethodsTest, PrintsReadUpdate) {
    EXPECT_EQ(printed(AllowedMethods(0x06)), "_RU__");
}

TEST(AllowedMethodsTest, PrintsFullSet) {
    EXPECT_EQ(printed(AllowedMethods(0x1F)), "CRUDB");
}

TEST(AllowedMethodsTest, PrintsEmptySet) {
    EXPECT_EQ(printed(AllowedMethods()), "_____");
}

TEST(AllowedMethodsTest, PrintsEachBitInItsPlace) {
    EXPECT_EQ(printed(AllowedMethods(0x01)), "C____");
    EXPECT_EQ(printed(AllowedMethods(0x02)), "_R___");
    EXPECT_EQ(printed(AllowedMethods(0x04)), "__U__");
    EXPECT_EQ(printed(AllowedMethods(0x08)), "___D_");
    EXPECT_EQ(printed(AllowedMethods(0x10)), "____B");
    EXPECT_EQ(printed(AllowedMethods(0x19)), "C__DB");
}

TEST(AllowedMethodsTest, PrintingIgnoresBitsAboveBrowse) {
    EXPECT_EQ(printed(AllowedMethods(0xFFFFFFE2u)), "_R___");
    EXPECT_EQ(printed(AllowedMethods(0x8020u)), "_____");
}

TEST(AllowedMethodsTest, PrintingWritesNothingElse) {
    std::ostringstream os;
    os << AllowedMethods(0x0C) << '|' << AllowedMethods(0xFFFFFFFFu) << '|';
    EXPECT_EQ(os.str(), "__UD_|CRUDB|");
}

}  // namespace
}  // namespace dme
