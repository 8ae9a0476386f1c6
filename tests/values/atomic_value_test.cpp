#include "dme/atomic_value.h"

#include <cxxtools/jsondeserializer.h>
#include <cxxtools/serializationerror.h>
#include <cxxtools/string.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <limits>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "dme/exception.h"
#include "dme/json.h"
#include "dme/policy.h"
#include "dme/result.h"
#include "request.h"

namespace dme {
namespace {

using cxxtools::SerializationInfo;

const AllowedMethods READ_UPDATE = AllowedMethods::R | AllowedMethods::U;
const AllowedMethods READ_ONLY = AllowedMethods::R;

// Leaves are the root of the test requests; a static policy gives the caller every right, so
// that the outcomes below come from the leaf alone.
void grantAll(Value& leaf) {
    leaf.setPermissionPolicy(StaticPolicy(0x1F), PermissionPolicyHolder::DefaultPolicyReplacer());
}

// A request that has reached `leaf` under the name "v" (uri "/v"), as a structure would hand it
// on.
class LeafRequest {
  public:
    explicit LeafRequest(Method method) : request_(method, "/v") { request_.context().next("v"); }
    int run(Value& leaf, const SerializationInfo& in = SerializationInfo()) {
        grantAll(leaf);
        return request_.run(leaf, in);
    }
    Context& context() { return request_.context(); }
    SerializationInfo& out() { return request_.out(); }

  private:
    test::Request request_;
};

int update(Value& leaf, const SerializationInfo& in) {
    return LeafRequest(UPDATE).run(leaf, in);
}

// The dme::Exception that an UPDATE of `leaf` with `in` throws.
Exception updateError(Value& leaf, const SerializationInfo& in) {
    try {
        update(leaf, in);
    } catch (const Exception& e) {
        return e;
    }
    ADD_FAILURE() << "the update threw no dme::Exception";
    return Exception(Error::ARGUMENT_NOT_SUPPORTED, "nothing thrown");
}

void expectError(const Exception& e, Error::Id id, const std::string& message,
                 const std::string& detail1, const std::string& detail2) {
    EXPECT_EQ(e.id, id);
    EXPECT_EQ(e.message, message);
    EXPECT_EQ(e.detail1, detail1);
    EXPECT_EQ(e.detail2, detail2);
}

void expectInvalidType(Value& leaf, const SerializationInfo& in, const std::string& word) {
    expectError(updateError(leaf, in), Error::INVALID_TYPE, "Invalid type", "v", word);
}

void expectOutOfRange(Value& leaf, const SerializationInfo& in) {
    expectError(updateError(leaf, in), Error::VALUE_OUT_OF_RANGE, "Value out of range", "v", "");
}

// The JSON text of a READ of `leaf`.
std::string readJson(Value& leaf) {
    LeafRequest request(READ);
    EXPECT_EQ(request.run(leaf), result::DONE);
    return formatJson(request.out());
}

// The JSON text of the schema of `leaf`.
std::string schemaJson(Value& leaf) {
    test::Request request(SCHEMA, "/");
    EXPECT_EQ(request.run(leaf), result::DONE);
    return formatJson(request.out());
}

template <class T>
T stored(AtomicValue<T>& leaf) {
    test::Request request(READ, "/");
    return leaf.getValue(request.context());
}

// A document as the JSON parser builds it from `json`.
SerializationInfo parsed(const std::string& json) {
    std::istringstream text(json);
    cxxtools::JsonDeserializer deserializer(text);
    SerializationInfo si;
    deserializer.deserialize(si);
    return si;
}

// A document holding `value` through the document's own setter for its type.
template <class T>
SerializationInfo native(const T& value) {
    SerializationInfo si;
    si.setValue(value);
    return si;
}

// The integer `text` as a native signed or unsigned 64-bit document, when it fits one.
std::optional<SerializationInfo> nativeInteger(const std::string& text) {
    try {
        if (text[0] == '-') return native(std::stoll(text));
        return native(std::stoull(text));
    } catch (const std::out_of_range&) {
        return std::nullopt;
    }
}

SerializationInfo objectDocument() {
    SerializationInfo si;
    si.addMember("x").setValue(1);
    return si;
}

SerializationInfo arrayDocument() {
    SerializationInfo si;
    si.setCategory(SerializationInfo::Array);
    si.addMember().setValue(1);
    return si;
}

class CountingObserver : public ISubscribable::IObserver {
  public:
    void onChange(const std::chrono::steady_clock::time_point&) override { ++changes; }
    int changes = 0;
};

// An atomic value that keeps AtomicValue's own defaults and lets a test decide what a store
// does.
template <class T>
class HeldValue : public AtomicValue<T> {
  public:
    explicit HeldValue(AllowedMethods allowed = READ_UPDATE) : AtomicValue<T>(allowed) {}
    T getValue(Context&) override { return held; }
    int setValue(Context&, const T& value) override {
        if (failure) failure();
        held = value;
        ++stores;
        return storeResult;
    }

    T held{};
    std::function<void()> failure;
    int stores = 0;
    int storeResult = result::DONE;
};

// ---- Construction and type words ----------------------------------------------------------

TEST(AtomicValueTest, ConstructorRemovesTheBrowseBit) {
    StaticAtomicValue<bool> leaf(false, AllowedMethods(0x1F));
    EXPECT_EQ(leaf.allowedMethods(), AllowedMethods(0x0F));
}

TEST(AtomicValueTest, IsAlwaysExpanded) {
    StaticAtomicValue<std::string> leaf("", READ_UPDATE);
    EXPECT_TRUE(leaf.alwaysExpanded());
    EXPECT_FALSE(leaf.isResourcePathNeeded());
}

TEST(AtomicValueTest, BooleanReportsBoolean) {
    EXPECT_STREQ(StaticAtomicValue<bool>(true, READ_UPDATE).getType(), "boolean");
}

TEST(AtomicValueTest, StringReportsString) {
    EXPECT_STREQ(StaticAtomicValue<std::string>("", READ_UPDATE).getType(), "string");
}

TEST(AtomicValueTest, EveryIntegerTypeReportsInteger) {
    EXPECT_STREQ(StaticAtomicValue<char>(0, READ_UPDATE).getType(), "integer");
    EXPECT_STREQ(StaticAtomicValue<unsigned char>(0, READ_UPDATE).getType(), "integer");
    EXPECT_STREQ(StaticAtomicValue<short>(0, READ_UPDATE).getType(), "integer");
    EXPECT_STREQ(StaticAtomicValue<unsigned short>(0, READ_UPDATE).getType(), "integer");
    EXPECT_STREQ(StaticAtomicValue<int>(0, READ_UPDATE).getType(), "integer");
    EXPECT_STREQ(StaticAtomicValue<unsigned int>(0, READ_UPDATE).getType(), "integer");
    EXPECT_STREQ(StaticAtomicValue<long>(0, READ_UPDATE).getType(), "integer");
    EXPECT_STREQ(StaticAtomicValue<unsigned long>(0, READ_UPDATE).getType(), "integer");
    EXPECT_STREQ(StaticAtomicValue<long long>(0, READ_UPDATE).getType(), "integer");
    EXPECT_STREQ(StaticAtomicValue<unsigned long long>(0, READ_UPDATE).getType(), "integer");
}

TEST(AtomicValueTest, BothFloatingTypesReportFloat) {
    EXPECT_STREQ(StaticAtomicValue<float>(0, READ_UPDATE).getType(), "float");
    EXPECT_STREQ(StaticAtomicValue<double>(0, READ_UPDATE).getType(), "float");
}

TEST(AtomicValueTest, SerializeChildSchemaAddsNothing) {
    StaticAtomicValue<int> leaf(1, READ_UPDATE);
    test::Request request(SCHEMA, "/");
    SerializationInfo out;
    EXPECT_EQ(leaf.serializeChildSchema(request.context(), SerializationInfo(), out), 0);
    EXPECT_EQ(formatJson(out), "null");
}

// ---- Walking below a leaf -----------------------------------------------------------------

TEST(AtomicValueWalkTest, BrowseAtTheRequestedNodeReturnsMinusOne) {
    StaticAtomicValue<bool> leaf(true, READ_UPDATE);
    test::Request request(READ, "/");
    SerializationInfo out;
    EXPECT_EQ(leaf.browse(request.context(), SerializationInfo(), out),
              dme::result::PATH_ENDS_HERE);
}

TEST(AtomicValueWalkTest, BrowseWithASegmentLeftReturnsFour) {
    StaticAtomicValue<bool> leaf(true, READ_UPDATE);
    test::Request request(READ, "/x");
    SerializationInfo out;
    EXPECT_EQ(leaf.browse(request.context(), SerializationInfo(), out), dme::result::NO_CHILDREN);
}

TEST(AtomicValueWalkTest, ReadWithASegmentLeftReturnsFourAndWritesNothing) {
    StaticAtomicValue<std::string> leaf("abc", READ_UPDATE);
    test::Request request(READ, "/x");
    SerializationInfo out;
    EXPECT_EQ(leaf.read(request.context(), SerializationInfo(), out), dme::result::NO_CHILDREN);
    EXPECT_EQ(formatJson(out), "null");
}

TEST(AtomicValueWalkTest, UpdateWithASegmentLeftReturnsFourAndChangesNothing) {
    StaticAtomicValue<int> leaf(7, READ_UPDATE);
    test::Request request(UPDATE, "/x");
    SerializationInfo out;
    EXPECT_EQ(leaf.update(request.context(), parsed("9"), out), dme::result::NO_CHILDREN);
    EXPECT_EQ(stored(leaf), 7);
}

TEST(AtomicValueWalkTest, ReadRequestBelowALeafIsRefusedWithTwo) {
    StaticAtomicValue<bool> leaf(true, AllowedMethods(0x1F));
    grantAll(leaf);
    test::Request request(READ, "/x");
    EXPECT_EQ(request.run(leaf), dme::result::NOT_ALLOWED);
    EXPECT_EQ(formatJson(request.out()), "null");
}

TEST(AtomicValueWalkTest, UpdateRequestBelowALeafIsRefusedWithTwo) {
    StaticAtomicValue<bool> leaf(false, AllowedMethods(0x1F));
    grantAll(leaf);
    test::Request request(UPDATE, "/x");
    EXPECT_EQ(request.run(leaf, parsed("true")), dme::result::NOT_ALLOWED);
    EXPECT_FALSE(stored(leaf));
}

TEST(AtomicValueWalkTest, ReadThroughProcessWritesTheScalarIntoTheOutputItself) {
    StaticAtomicValue<int> leaf(-12, READ_ONLY);
    grantAll(leaf);
    test::Request request(READ, "/");
    EXPECT_EQ(request.run(leaf), dme::result::DONE);
    EXPECT_EQ(formatJson(request.out()), "-12");
}

// ---- Booleans -----------------------------------------------------------------------------

TEST(BooleanValueTest, ReadWritesABoolean) {
    StaticAtomicValue<bool> leaf(true, READ_UPDATE);
    EXPECT_EQ(readJson(leaf), "true");
}

TEST(BooleanValueTest, UpdateStoresAJsonBoolean) {
    StaticAtomicValue<bool> leaf(true, READ_UPDATE);
    EXPECT_EQ(update(leaf, parsed("false")), dme::result::DONE);
    EXPECT_FALSE(stored(leaf));
}

TEST(BooleanValueTest, UpdateStoresANativeBoolean) {
    StaticAtomicValue<bool> leaf(false, READ_UPDATE);
    EXPECT_EQ(update(leaf, native(true)), dme::result::DONE);
    EXPECT_TRUE(stored(leaf));
}

TEST(BooleanValueTest, TextThatIsNotABooleanIsInvalidType) {
    StaticAtomicValue<bool> leaf(false, READ_UPDATE);
    expectInvalidType(leaf, parsed("\"abc\""), "boolean");
    EXPECT_FALSE(stored(leaf));
}

TEST(BooleanValueTest, TheTextTrueIsInvalidType) {
    StaticAtomicValue<bool> leaf(false, READ_UPDATE);
    expectInvalidType(leaf, parsed("\"true\""), "boolean");
    EXPECT_FALSE(stored(leaf));
}

TEST(BooleanValueTest, NumberIsInvalidType) {
    StaticAtomicValue<bool> leaf(false, READ_UPDATE);
    expectInvalidType(leaf, parsed("1"), "boolean");
    expectInvalidType(leaf, native(1), "boolean");
    EXPECT_FALSE(stored(leaf));
}

TEST(BooleanValueTest, ObjectArrayNullAndEmptyInputAreInvalidType) {
    StaticAtomicValue<bool> leaf(true, READ_UPDATE);
    expectInvalidType(leaf, objectDocument(), "boolean");
    expectInvalidType(leaf, arrayDocument(), "boolean");
    expectInvalidType(leaf, parsed("null"), "boolean");
    expectInvalidType(leaf, SerializationInfo(), "boolean");
    EXPECT_TRUE(stored(leaf));
}

TEST(BooleanValueTest, SchemaOfAModifiableBoolean) {
    StaticAtomicValue<bool> leaf(true, READ_UPDATE);
    EXPECT_EQ(schemaJson(leaf), R"({"type":"boolean","default":false})");
}

TEST(BooleanValueTest, SchemaOfAReadOnlyBoolean) {
    StaticAtomicValue<bool> leaf(true, READ_ONLY);
    EXPECT_EQ(schemaJson(leaf), R"({"type":"boolean","readonly":true})");
}

TEST(BooleanValueTest, AtomicValueDefaults) {
    HeldValue<bool> leaf;
    test::Request request(READ, "/");
    EXPECT_FALSE(leaf.getDefaultValue(request.context()));
    EXPECT_FALSE(leaf.getMinAllowedValue(request.context()));
    EXPECT_TRUE(leaf.getMaxAllowedValue(request.context()));
    EXPECT_EQ(leaf.getMinAllowedLength(request.context()), 0u);
    EXPECT_EQ(leaf.getMaxAllowedLength(request.context()), 0u);
}

TEST(BooleanValueTest, StaticValueLimits) {
    StaticAtomicValue<bool> leaf(true, READ_UPDATE);
    test::Request request(READ, "/");
    EXPECT_FALSE(leaf.getMinAllowedValue(request.context()));
    EXPECT_TRUE(leaf.getMaxAllowedValue(request.context()));
    EXPECT_EQ(leaf.getMinAllowedLength(request.context()), 0xFFFFFFFFu);
    EXPECT_EQ(leaf.getMaxAllowedLength(request.context()), 0xFFFFFFFFu);
    EXPECT_EQ(leaf.annotation(), "");
}

TEST(BooleanValueTest, ValidateValueAcceptsBothValues) {
    StaticAtomicValue<bool> leaf(true, READ_UPDATE);
    test::Request request(UPDATE, "/");
    EXPECT_NO_THROW(leaf.validateValue(request.context(), false));
    EXPECT_NO_THROW(leaf.validateValue(request.context(), true));
}

// ---- Strings ------------------------------------------------------------------------------

TEST(StringValueTest, TwoArgumentConstructorLimits) {
    StaticAtomicValue<std::string> leaf("abc", READ_UPDATE);
    test::Request request(READ, "/");
    EXPECT_EQ(leaf.getMinAllowedValue(request.context()), "");
    EXPECT_EQ(leaf.getMaxAllowedValue(request.context()), "");
    EXPECT_EQ(leaf.getMinAllowedLength(request.context()), 0u);
    EXPECT_EQ(leaf.getMaxAllowedLength(request.context()), 65535u);
    EXPECT_EQ(leaf.annotation(), "");
}

TEST(StringValueTest, FiveArgumentConstructorKeepsLimitsAndAnnotation) {
    StaticAtomicValue<std::string> leaf("abc", READ_UPDATE, 2, 10, "serial number");
    test::Request request(READ, "/");
    EXPECT_EQ(leaf.getMinAllowedLength(request.context()), 2u);
    EXPECT_EQ(leaf.getMaxAllowedLength(request.context()), 10u);
    EXPECT_EQ(leaf.getDefaultValue(request.context()), "");
    EXPECT_EQ(leaf.annotation(), "serial number");
}

TEST(StringValueTest, AtomicValueDefaults) {
    HeldValue<std::string> leaf;
    test::Request request(READ, "/");
    EXPECT_EQ(leaf.getDefaultValue(request.context()), "");
    EXPECT_EQ(leaf.getMinAllowedValue(request.context()), "");
    EXPECT_EQ(leaf.getMaxAllowedValue(request.context()), "");
    EXPECT_EQ(leaf.getMinAllowedLength(request.context()), 0u);
    EXPECT_EQ(leaf.getMaxAllowedLength(request.context()), 65535u);
}

TEST(StringValueTest, SchemaOfAModifiableString) {
    StaticAtomicValue<std::string> leaf("abc", READ_UPDATE);
    EXPECT_EQ(schemaJson(leaf), R"({"type":"string","default":"","minSize":0,"maxSize":65535})");
}

TEST(StringValueTest, SchemaCarriesTheLengthLimits) {
    StaticAtomicValue<std::string> leaf("abc", READ_UPDATE, 2, 10, "");
    EXPECT_EQ(schemaJson(leaf), R"({"type":"string","default":"","minSize":2,"maxSize":10})");
}

TEST(StringValueTest, SchemaOfAStringWithoutUpdate) {
    StaticAtomicValue<std::string> leaf("abc", READ_ONLY);
    EXPECT_EQ(schemaJson(leaf), R"({"type":"string","readonly":true})");
}

TEST(StringValueTest, ReadWritesTheText) {
    StaticAtomicValue<std::string> leaf("abc", READ_UPDATE);
    EXPECT_EQ(readJson(leaf), R"("abc")");
}

TEST(StringValueTest, ReadDecodesUtf8) {
    StaticAtomicValue<std::string> leaf("a\xc3\xa4\xf0\x9f\x98\x80", READ_UPDATE);
    EXPECT_EQ(readJson(leaf), R"("a\u00e4\ud83d\ude00")");
}

TEST(StringValueTest, ReadOfAStrayContinuationByteYieldsTheEmptyText) {
    StaticAtomicValue<std::string> leaf("abc\x80", READ_UPDATE);
    EXPECT_EQ(readJson(leaf), R"("")");
}

TEST(StringValueTest, ReadOfAnInvalidLeadByteYieldsTheEmptyText) {
    StaticAtomicValue<std::string> leaf("\xff", READ_UPDATE);
    EXPECT_EQ(readJson(leaf), R"("")");
}

TEST(StringValueTest, ReadOfATruncatedSequenceYieldsTheEmptyText) {
    StaticAtomicValue<std::string> leaf("ab\xc3", READ_UPDATE);
    EXPECT_EQ(readJson(leaf), R"("")");
}

TEST(StringValueTest, ReadOfAnOverlongFormYieldsTheEmptyText) {
    StaticAtomicValue<std::string> leaf("a\xc0\x80", READ_UPDATE);
    EXPECT_EQ(readJson(leaf), R"("")");
}

TEST(StringValueTest, ReadOfAnEncodedSurrogateYieldsTheEmptyText) {
    StaticAtomicValue<std::string> leaf("\xed\xa0\x80", READ_UPDATE);
    EXPECT_EQ(readJson(leaf), R"("")");
}

TEST(StringValueTest, ReadOfACodePointAboveTheUnicodeRangeYieldsTheEmptyText) {
    StaticAtomicValue<std::string> leaf("\xf4\x90\x80\x80", READ_UPDATE);
    EXPECT_EQ(readJson(leaf), R"("")");
}

TEST(StringValueTest, UpdateEncodesAJsonTextAsUtf8) {
    StaticAtomicValue<std::string> leaf("", READ_UPDATE);
    EXPECT_EQ(update(leaf, parsed(R"("x\u00e4")")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), "x\xc3\xa4");
}

TEST(StringValueTest, UpdateTakesAn8BitTextByteForByte) {
    StaticAtomicValue<std::string> leaf("", READ_UPDATE);
    EXPECT_EQ(update(leaf, native(std::string("x\xc3\xa4"))), dme::result::DONE);
    EXPECT_EQ(stored(leaf), "x\xc3\xa4");
}

TEST(StringValueTest, TextOfExactlyTheMaximumLengthIsAccepted) {
    StaticAtomicValue<std::string> leaf("", READ_UPDATE, 0, 10, "");
    EXPECT_EQ(update(leaf, parsed(R"("0123456789")")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), "0123456789");
}

TEST(StringValueTest, OneByteMoreThanTheMaximumIsTooLong) {
    StaticAtomicValue<std::string> leaf("old", READ_UPDATE, 0, 10, "");
    expectError(updateError(leaf, parsed(R"("0123456789A")")), Error::STRING_TOO_LONG,
                "String too long", "0123456789A", "10");
    EXPECT_EQ(stored(leaf), "old");
}

TEST(StringValueTest, LengthIsCountedInBytes) {
    StaticAtomicValue<std::string> leaf("old", READ_UPDATE, 0, 1, "");
    expectError(updateError(leaf, parsed(R"("\u00e4")")), Error::STRING_TOO_LONG, "String too long",
                "\xc3\xa4", "1");
    EXPECT_EQ(stored(leaf), "old");
}

TEST(StringValueTest, TwoArgumentConstructorAccepts65535Bytes) {
    StaticAtomicValue<std::string> leaf("", READ_UPDATE);
    const std::string text(65535, 'x');
    EXPECT_EQ(update(leaf, native(text)), dme::result::DONE);
    EXPECT_EQ(stored(leaf), text);
}

TEST(StringValueTest, TwoArgumentConstructorRefuses65536Bytes) {
    StaticAtomicValue<std::string> leaf("old", READ_UPDATE);
    const std::string text(65536, 'x');
    expectError(updateError(leaf, native(text)), Error::STRING_TOO_LONG, "String too long", text,
                "65535");
    EXPECT_EQ(stored(leaf), "old");
}

TEST(StringValueTest, EmptyTextIsAcceptedWithMinimumLengthZero) {
    StaticAtomicValue<std::string> leaf("old", READ_UPDATE, 0, 10, "");
    EXPECT_EQ(update(leaf, parsed(R"("")")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), "");
}

TEST(StringValueTest, EmptyTextIsTooShortWithMinimumLengthOne) {
    StaticAtomicValue<std::string> leaf("old", READ_UPDATE, 1, 10, "");
    expectError(updateError(leaf, parsed(R"("")")), Error::STRING_TOO_SHORT, "String too short", "",
                "1");
    EXPECT_EQ(stored(leaf), "old");
}

TEST(StringValueTest, TextShorterThanTheMinimumNamesTheText) {
    StaticAtomicValue<std::string> leaf("old", READ_UPDATE, 2, 10, "");
    expectError(updateError(leaf, parsed(R"("a")")), Error::STRING_TOO_SHORT, "String too short",
                "a", "2");
    EXPECT_EQ(stored(leaf), "old");
}

TEST(StringValueTest, ASecretValueDoesNotNameATextTooShort) {
    StaticAtomicValue<std::string> leaf("old", READ_UPDATE, 8, 10, "");
    leaf.setSecret(true);
    expectError(updateError(leaf, parsed(R"("hunter2")")), Error::STRING_TOO_SHORT,
                "String too short", "(secret)", "8");
    EXPECT_EQ(stored(leaf), "old");
}

TEST(StringValueTest, ASecretValueDoesNotNameATextTooLong) {
    StaticAtomicValue<std::string> leaf("old", READ_UPDATE, 0, 4, "");
    leaf.setSecret(true);
    expectError(updateError(leaf, parsed(R"("hunter2")")), Error::STRING_TOO_LONG,
                "String too long", "(secret)", "4");
}

TEST(StringValueTest, ValuesAreNotSecretByDefault) {
    EXPECT_FALSE(StaticAtomicValue<std::string>("old", READ_UPDATE).isSecret());
}

TEST(StringValueTest, TextOfExactlyTheMinimumLengthIsAccepted) {
    StaticAtomicValue<std::string> leaf("old", READ_UPDATE, 2, 10, "");
    EXPECT_EQ(update(leaf, parsed(R"("ab")")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), "ab");
}

TEST(StringValueTest, NumbersAndBooleansAreInvalidType) {
    StaticAtomicValue<std::string> leaf("old", READ_UPDATE);
    expectInvalidType(leaf, parsed("12"), "string");
    expectInvalidType(leaf, parsed("1.5"), "string");
    expectInvalidType(leaf, parsed("true"), "string");
    expectInvalidType(leaf, native(12), "string");
    expectInvalidType(leaf, native(false), "string");
    EXPECT_EQ(stored(leaf), "old");
}

TEST(StringValueTest, ObjectArrayNullAndEmptyInputAreInvalidType) {
    StaticAtomicValue<std::string> leaf("old", READ_UPDATE);
    expectInvalidType(leaf, objectDocument(), "string");
    expectInvalidType(leaf, parsed(R"({"a":"b"})"), "string");
    expectInvalidType(leaf, arrayDocument(), "string");
    expectInvalidType(leaf, parsed("null"), "string");
    expectInvalidType(leaf, SerializationInfo(), "string");
    EXPECT_EQ(stored(leaf), "old");
}

// ---- Integers -----------------------------------------------------------------------------

// The limits of each integer type as decimal text, and the numbers one beyond them. char and
// long differ between platforms (char is unsigned on ARM, long has 32 bits there).
template <class T>
struct Limits;

template <>
struct Limits<char> {
    static constexpr bool isSigned = std::is_signed_v<char>;
    static constexpr const char* lowest = isSigned ? "-128" : "0";
    static constexpr const char* highest = isSigned ? "127" : "255";
    static constexpr const char* below = isSigned ? "-129" : "-1";
    static constexpr const char* above = isSigned ? "128" : "256";
};

template <>
struct Limits<unsigned char> {
    static constexpr const char* lowest = "0";
    static constexpr const char* highest = "255";
    static constexpr const char* below = "-1";
    static constexpr const char* above = "256";
};

template <>
struct Limits<short> {
    static constexpr const char* lowest = "-32768";
    static constexpr const char* highest = "32767";
    static constexpr const char* below = "-32769";
    static constexpr const char* above = "32768";
};

template <>
struct Limits<unsigned short> {
    static constexpr const char* lowest = "0";
    static constexpr const char* highest = "65535";
    static constexpr const char* below = "-1";
    static constexpr const char* above = "65536";
};

template <>
struct Limits<int> {
    static constexpr const char* lowest = "-2147483648";
    static constexpr const char* highest = "2147483647";
    static constexpr const char* below = "-2147483649";
    static constexpr const char* above = "2147483648";
};

template <>
struct Limits<unsigned int> {
    static constexpr const char* lowest = "0";
    static constexpr const char* highest = "4294967295";
    static constexpr const char* below = "-1";
    static constexpr const char* above = "4294967296";
};

template <>
struct Limits<long long> {
    static constexpr const char* lowest = "-9223372036854775808";
    static constexpr const char* highest = "9223372036854775807";
    static constexpr const char* below = "-9223372036854775809";
    static constexpr const char* above = "9223372036854775808";
};

template <>
struct Limits<unsigned long long> {
    static constexpr const char* lowest = "0";
    static constexpr const char* highest = "18446744073709551615";
    static constexpr const char* below = "-1";
    static constexpr const char* above = "18446744073709551616";
};

template <>
struct Limits<long> : std::conditional_t<sizeof(long) == 8, Limits<long long>, Limits<int>> {};

template <>
struct Limits<unsigned long>
    : std::conditional_t<sizeof(long) == 8, Limits<unsigned long long>, Limits<unsigned int>> {};

template <class T>
class IntegerValueTest : public ::testing::Test {};

using IntegerTypes = ::testing::Types<char, unsigned char, short, unsigned short, int, unsigned int,
                                      long, unsigned long, long long, unsigned long long>;
TYPED_TEST_SUITE(IntegerValueTest, IntegerTypes);

TYPED_TEST(IntegerValueTest, ReadWritesTheHighestValue) {
    StaticAtomicValue<TypeParam> leaf(std::numeric_limits<TypeParam>::max(), READ_UPDATE);
    EXPECT_EQ(readJson(leaf), Limits<TypeParam>::highest);
}

TYPED_TEST(IntegerValueTest, ReadWritesTheLowestValue) {
    StaticAtomicValue<TypeParam> leaf(std::numeric_limits<TypeParam>::lowest(), READ_UPDATE);
    EXPECT_EQ(readJson(leaf), Limits<TypeParam>::lowest);
}

TYPED_TEST(IntegerValueTest, UpdateAcceptsTheLowestJsonNumber) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    EXPECT_EQ(update(leaf, parsed(Limits<TypeParam>::lowest)), dme::result::DONE);
    EXPECT_EQ(stored(leaf), std::numeric_limits<TypeParam>::lowest());
}

TYPED_TEST(IntegerValueTest, UpdateAcceptsTheHighestJsonNumber) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    EXPECT_EQ(update(leaf, parsed(Limits<TypeParam>::highest)), dme::result::DONE);
    EXPECT_EQ(stored(leaf), std::numeric_limits<TypeParam>::max());
}

TYPED_TEST(IntegerValueTest, UpdateAcceptsTheLowestNativeNumber) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    EXPECT_EQ(update(leaf, *nativeInteger(Limits<TypeParam>::lowest)), dme::result::DONE);
    EXPECT_EQ(stored(leaf), std::numeric_limits<TypeParam>::lowest());
}

TYPED_TEST(IntegerValueTest, UpdateAcceptsTheHighestNativeNumber) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    EXPECT_EQ(update(leaf, *nativeInteger(Limits<TypeParam>::highest)), dme::result::DONE);
    EXPECT_EQ(stored(leaf), std::numeric_limits<TypeParam>::max());
}

TYPED_TEST(IntegerValueTest, JsonNumberBelowTheTypeIsOutOfRange) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectOutOfRange(leaf, parsed(Limits<TypeParam>::below));
    EXPECT_EQ(stored(leaf), TypeParam(7));
}

TYPED_TEST(IntegerValueTest, JsonNumberAboveTheTypeIsOutOfRange) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectOutOfRange(leaf, parsed(Limits<TypeParam>::above));
    EXPECT_EQ(stored(leaf), TypeParam(7));
}

TYPED_TEST(IntegerValueTest, WiderNativeNumberBelowTheTypeIsOutOfRange) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    const std::optional<SerializationInfo> below = nativeInteger(Limits<TypeParam>::below);
    if (!below) GTEST_SKIP() << "no wider native integer below " << Limits<TypeParam>::lowest;
    expectOutOfRange(leaf, *below);
    EXPECT_EQ(stored(leaf), TypeParam(7));
}

TYPED_TEST(IntegerValueTest, WiderNativeNumberAboveTheTypeIsOutOfRange) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    const std::optional<SerializationInfo> above = nativeInteger(Limits<TypeParam>::above);
    if (!above) GTEST_SKIP() << "no wider native integer above " << Limits<TypeParam>::highest;
    expectOutOfRange(leaf, *above);
    EXPECT_EQ(stored(leaf), TypeParam(7));
}

TYPED_TEST(IntegerValueTest, NumberBeyondSixtyFourBitsIsOutOfRange) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectOutOfRange(leaf, parsed("123456789012345678901234567890"));
    expectOutOfRange(leaf, parsed("-123456789012345678901234567890"));
    EXPECT_EQ(stored(leaf), TypeParam(7));
}

TYPED_TEST(IntegerValueTest, FractionIsInvalidType) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectInvalidType(leaf, parsed("1.5"), "integer");
    expectInvalidType(leaf, native(1.5), "integer");
    EXPECT_EQ(stored(leaf), TypeParam(7));
}

TYPED_TEST(IntegerValueTest, IntegralFloatingNumberIsInvalidType) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectInvalidType(leaf, parsed("2.0"), "integer");
    expectInvalidType(leaf, parsed("1e1"), "integer");
    expectInvalidType(leaf, native(2.0), "integer");
    EXPECT_EQ(stored(leaf), TypeParam(7));
}

TYPED_TEST(IntegerValueTest, TextIsInvalidType) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectInvalidType(leaf, parsed(R"("12")"), "integer");
    expectInvalidType(leaf, native(std::string("12")), "integer");
    EXPECT_EQ(stored(leaf), TypeParam(7));
}

TYPED_TEST(IntegerValueTest, BooleanIsInvalidType) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectInvalidType(leaf, parsed("true"), "integer");
    expectInvalidType(leaf, native(true), "integer");
    EXPECT_EQ(stored(leaf), TypeParam(7));
}

TYPED_TEST(IntegerValueTest, ObjectArrayNullAndEmptyInputAreInvalidType) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectInvalidType(leaf, objectDocument(), "integer");
    expectInvalidType(leaf, arrayDocument(), "integer");
    expectInvalidType(leaf, parsed("null"), "integer");
    expectInvalidType(leaf, SerializationInfo(), "integer");
    EXPECT_EQ(stored(leaf), TypeParam(7));
}

TYPED_TEST(IntegerValueTest, MinusZeroIsZero) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    EXPECT_EQ(update(leaf, parsed("-0")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), TypeParam(0));
}

TYPED_TEST(IntegerValueTest, SchemaCarriesDefaultAndTheTypeLimits) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    EXPECT_EQ(schemaJson(leaf), std::string(R"({"type":"integer","default":0,"minimum":)") +
                                    Limits<TypeParam>::lowest + R"(,"maximum":)" +
                                    Limits<TypeParam>::highest + "}");
}

TYPED_TEST(IntegerValueTest, SchemaOfAReadOnlyInteger) {
    StaticAtomicValue<TypeParam> leaf(7, READ_ONLY);
    EXPECT_EQ(schemaJson(leaf), R"({"type":"integer","readonly":true})");
}

TYPED_TEST(IntegerValueTest, AtomicValueDefaultsAreTheTypeLimits) {
    HeldValue<TypeParam> leaf;
    EXPECT_EQ(schemaJson(leaf), std::string(R"({"type":"integer","default":0,"minimum":)") +
                                    Limits<TypeParam>::lowest + R"(,"maximum":)" +
                                    Limits<TypeParam>::highest + "}");
    test::Request request(READ, "/");
    EXPECT_EQ(leaf.getMinAllowedLength(request.context()), 0u);
    EXPECT_EQ(leaf.getMaxAllowedLength(request.context()), 0u);
}

TYPED_TEST(IntegerValueTest, BoundsOfTheNodeAreInclusive) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE, 2, 100);
    EXPECT_EQ(update(leaf, parsed("2")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), TypeParam(2));
    EXPECT_EQ(update(leaf, parsed("100")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), TypeParam(100));
}

TYPED_TEST(IntegerValueTest, ValueBelowTheNodeMinimumIsRefused) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE, 2, 100);
    expectError(updateError(leaf, parsed("1")), Error::VALUE_BELOW_MIN, "Value below minimum", "v",
                "2");
    EXPECT_EQ(stored(leaf), TypeParam(7));
}

TYPED_TEST(IntegerValueTest, ValueAboveTheNodeMaximumIsRefused) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE, 2, 100);
    expectError(updateError(leaf, parsed("101")), Error::VALUE_ABOVE_MAX, "Value above maximum",
                "v", "100");
    EXPECT_EQ(stored(leaf), TypeParam(7));
}

TYPED_TEST(IntegerValueTest, SchemaCarriesTheNodeLimits) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE, 2, 100, "percent");
    EXPECT_EQ(schemaJson(leaf), R"({"type":"integer","default":0,"minimum":2,"maximum":100})");
    EXPECT_EQ(leaf.annotation(), "percent");
}

TEST(IntegerNodeTest, NegativeMinimumIsReportedWithItsSign) {
    StaticAtomicValue<int> leaf(0, READ_UPDATE, -5, 5);
    expectError(updateError(leaf, parsed("-6")), Error::VALUE_BELOW_MIN, "Value below minimum", "v",
                "-5");
    EXPECT_EQ(stored(leaf), 0);
}

TEST(IntegerNodeTest, CharIsReadAsANumber) {
    StaticAtomicValue<char> leaf('A', READ_UPDATE);
    EXPECT_EQ(readJson(leaf), "65");
}

TEST(IntegerNodeTest, CharRefusesACharacter) {
    StaticAtomicValue<char> leaf('A', READ_UPDATE);
    expectInvalidType(leaf, native('B'), "integer");
    EXPECT_EQ(stored(leaf), 'A');
}

TEST(IntegerNodeTest, UnsignedAcceptsANonNegativeSignedNativeNumber) {
    StaticAtomicValue<unsigned int> leaf(7, READ_UPDATE);
    EXPECT_EQ(update(leaf, native(5)), dme::result::DONE);
    EXPECT_EQ(stored(leaf), 5u);
}

TEST(IntegerNodeTest, NarrowNativeNumberIsWidened) {
    StaticAtomicValue<long long> leaf(7, READ_UPDATE);
    EXPECT_EQ(update(leaf, native(static_cast<short>(-300))), dme::result::DONE);
    EXPECT_EQ(stored(leaf), -300);
}

// ---- Floating point -----------------------------------------------------------------------

template <class T>
class FloatingValueTest : public ::testing::Test {};

using FloatingTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(FloatingValueTest, FloatingTypes);

TYPED_TEST(FloatingValueTest, UpdateAcceptsAJsonInteger) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    EXPECT_EQ(update(leaf, parsed("-3")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), -3);
}

TYPED_TEST(FloatingValueTest, UpdateAcceptsANativeInteger) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    EXPECT_EQ(update(leaf, native(12u)), dme::result::DONE);
    EXPECT_EQ(stored(leaf), 12);
}

TYPED_TEST(FloatingValueTest, UpdateAcceptsAFraction) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    EXPECT_EQ(update(leaf, parsed("0.25")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), 0.25);
}

TYPED_TEST(FloatingValueTest, UpdateAcceptsAnExponent) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    EXPECT_EQ(update(leaf, parsed("1.5e3")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), 1500);
}

TYPED_TEST(FloatingValueTest, ReadWritesTheNumber) {
    StaticAtomicValue<TypeParam> leaf(-2.5, READ_UPDATE);
    EXPECT_EQ(readJson(leaf), "-2.5");
}

TYPED_TEST(FloatingValueTest, NumberBeyondDoubleIsOutOfRange) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectOutOfRange(leaf, parsed("1e400"));
    expectOutOfRange(leaf, parsed("-1e400"));
    EXPECT_EQ(stored(leaf), 7);
}

TYPED_TEST(FloatingValueTest, NativeInfinityAndNotANumberAreOutOfRange) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectOutOfRange(leaf, native(std::numeric_limits<double>::infinity()));
    expectOutOfRange(leaf, native(-std::numeric_limits<double>::infinity()));
    expectOutOfRange(leaf, native(std::numeric_limits<double>::quiet_NaN()));
    EXPECT_EQ(stored(leaf), 7);
}

TYPED_TEST(FloatingValueTest, TextIsInvalidType) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectInvalidType(leaf, parsed(R"("1.5")"), "float");
    expectInvalidType(leaf, native(std::string("1.5")), "float");
    EXPECT_EQ(stored(leaf), 7);
}

TYPED_TEST(FloatingValueTest, BooleanIsInvalidType) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectInvalidType(leaf, parsed("false"), "float");
    expectInvalidType(leaf, native(false), "float");
    EXPECT_EQ(stored(leaf), 7);
}

TYPED_TEST(FloatingValueTest, ObjectArrayNullAndEmptyInputAreInvalidType) {
    StaticAtomicValue<TypeParam> leaf(7, READ_UPDATE);
    expectInvalidType(leaf, objectDocument(), "float");
    expectInvalidType(leaf, arrayDocument(), "float");
    expectInvalidType(leaf, parsed("null"), "float");
    expectInvalidType(leaf, SerializationInfo(), "float");
    EXPECT_EQ(stored(leaf), 7);
}

TYPED_TEST(FloatingValueTest, ValueBelowTheNodeMinimumIsRefused) {
    StaticAtomicValue<TypeParam> leaf(0.5, READ_UPDATE, -1.5, 2.25);
    expectError(updateError(leaf, parsed("-1.75")), Error::VALUE_BELOW_MIN, "Value below minimum",
                "v", "-1.5");
    EXPECT_EQ(stored(leaf), 0.5);
}

TYPED_TEST(FloatingValueTest, ValueAboveTheNodeMaximumIsRefused) {
    StaticAtomicValue<TypeParam> leaf(0.5, READ_UPDATE, -1.5, 2.25);
    expectError(updateError(leaf, parsed("3")), Error::VALUE_ABOVE_MAX, "Value above maximum", "v",
                "2.25");
    EXPECT_EQ(stored(leaf), 0.5);
}

TYPED_TEST(FloatingValueTest, BoundsOfTheNodeAreInclusive) {
    StaticAtomicValue<TypeParam> leaf(0.5, READ_UPDATE, -1.5, 2.25);
    EXPECT_EQ(update(leaf, parsed("-1.5")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), -1.5);
    EXPECT_EQ(update(leaf, parsed("2.25")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), 2.25);
}

TYPED_TEST(FloatingValueTest, SchemaCarriesTheNodeLimits) {
    StaticAtomicValue<TypeParam> leaf(0.5, READ_UPDATE, -1.5, 2.25);
    EXPECT_EQ(schemaJson(leaf), R"({"type":"float","default":0,"minimum":-1.5,"maximum":2.25})");
}

TYPED_TEST(FloatingValueTest, SchemaOfAReadOnlyNumber) {
    StaticAtomicValue<TypeParam> leaf(0.5, READ_ONLY);
    EXPECT_EQ(schemaJson(leaf), R"({"type":"float","readonly":true})");
}

TEST(FloatValueTest, ReadShowsEveryDigitNeededToReadTheFloatBack) {
    StaticAtomicValue<float> leaf(1234567.0f, READ_UPDATE);
    EXPECT_EQ(readJson(leaf), "1234567");
}

TEST(FloatValueTest, ReadShowsTheShortestDecimalForm) {
    StaticAtomicValue<float> leaf(0.1f, READ_UPDATE);
    EXPECT_EQ(readJson(leaf), "0.1");
}

TEST(FloatValueTest, SchemaCarriesTheFloatLimits) {
    StaticAtomicValue<float> leaf(0, READ_UPDATE);
    EXPECT_EQ(schemaJson(leaf),
              R"({"type":"float","default":0,"minimum":-3.4028235e+38,"maximum":3.4028235e+38})");
}

TEST(FloatValueTest, LargestFloatAsWrittenByReadIsAccepted) {
    StaticAtomicValue<float> leaf(0, READ_UPDATE);
    EXPECT_EQ(update(leaf, parsed("340282350000000000000000000000000000000")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), 3.40282346638528859811704183484516925440e+38f);
    EXPECT_EQ(update(leaf, parsed("-3.4028235e38")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), -3.40282346638528859811704183484516925440e+38f);
}

TEST(FloatValueTest, NumberBeyondFloatIsOutOfRange) {
    StaticAtomicValue<float> leaf(7, READ_UPDATE);
    expectOutOfRange(leaf, parsed("3.5e38"));
    expectOutOfRange(leaf, parsed("-1e39"));
    expectOutOfRange(leaf, native(1e300));
    EXPECT_EQ(stored(leaf), 7.0f);
}

TEST(FloatValueTest, HugeIntegerIsOutOfRange) {
    StaticAtomicValue<float> leaf(7, READ_UPDATE);
    expectOutOfRange(leaf, parsed(std::string(40, '9')));
    EXPECT_EQ(stored(leaf), 7.0f);
}

TEST(FloatValueTest, MaximumIsReportedInPlainDecimal) {
    StaticAtomicValue<float> leaf(0, READ_UPDATE, 0, 1e10f);
    expectError(updateError(leaf, parsed("2e10")), Error::VALUE_ABOVE_MAX, "Value above maximum",
                "v", "10000000000");
    EXPECT_EQ(stored(leaf), 0.0f);
}

TEST(DoubleValueTest, SchemaCarriesTheDoubleLimits) {
    StaticAtomicValue<double> leaf(0, READ_UPDATE);
    EXPECT_EQ(schemaJson(leaf), R"({"type":"float","default":0,"minimum":-1.7976931348623157e+308,)"
                                R"("maximum":1.7976931348623157e+308})");
}

TEST(DoubleValueTest, LargestDoubleIsAccepted) {
    StaticAtomicValue<double> leaf(0, READ_UPDATE);
    EXPECT_EQ(update(leaf, parsed("1.7976931348623157e308")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), 1.7976931348623157e308);
}

TEST(DoubleValueTest, NumberBeyondFloatIsAccepted) {
    StaticAtomicValue<double> leaf(0, READ_UPDATE);
    EXPECT_EQ(update(leaf, parsed("1e39")), dme::result::DONE);
    EXPECT_EQ(stored(leaf), 1e39);
}

TEST(DoubleValueTest, NativeLongDoubleBeyondDoubleIsOutOfRange) {
    if (sizeof(long double) == sizeof(double)) GTEST_SKIP() << "long double is double here";
    StaticAtomicValue<double> leaf(7, READ_UPDATE);
    expectOutOfRange(leaf, native(std::numeric_limits<long double>::max()));
    EXPECT_EQ(stored(leaf), 7.0);
}

TEST(DoubleValueTest, MinimumIsReportedInPlainDecimal) {
    StaticAtomicValue<double> leaf(1, READ_UPDATE, 0.001, 2);
    expectError(updateError(leaf, parsed("0.0005")), Error::VALUE_BELOW_MIN, "Value below minimum",
                "v", "0.001");
    EXPECT_EQ(stored(leaf), 1.0);
}

// ---- The update algorithm with derived values --------------------------------------------

TEST(AtomicValueUpdateTest, RangeErrorFromSetValueIsValueOutOfRange) {
    HeldValue<int> leaf;
    leaf.held = 3;
    leaf.failure = [] { throw std::range_error("register full"); };
    expectOutOfRange(leaf, parsed("4"));
    EXPECT_EQ(leaf.held, 3);
}

TEST(AtomicValueUpdateTest, OtherExceptionsFromSetValuePassUnchanged) {
    HeldValue<std::string> leaf;
    leaf.failure = [] { throw std::logic_error("storage gone"); };
    EXPECT_THROW(update(leaf, parsed(R"("x")")), std::logic_error);
    EXPECT_EQ(leaf.held, "");
}

TEST(AtomicValueUpdateTest, TheResultOfTheStoreIsNotLookedAt) {
    HeldValue<bool> leaf;
    leaf.storeResult = 8;
    EXPECT_EQ(update(leaf, parsed("true")), dme::result::DONE);
    EXPECT_TRUE(leaf.held);
}

TEST(AtomicValueUpdateTest, OutputIsNotWritten) {
    StaticAtomicValue<int> leaf(1, READ_UPDATE);
    LeafRequest request(UPDATE);
    EXPECT_EQ(request.run(leaf, parsed("2")), dme::result::DONE);
    EXPECT_EQ(formatJson(request.out()), "null");
}

// A value whose updateValue stores without validating.
class UncheckedValue : public StaticAtomicValue<std::string> {
  public:
    UncheckedValue() : StaticAtomicValue<std::string>("", READ_UPDATE, 5, 10, "") {}
    int updateValue(Context& ctx, const std::string& value) override {
        ++updates;
        return setValue(ctx, value);
    }
    int updates = 0;
};

TEST(AtomicValueUpdateTest, UpdateGoesThroughAnOverriddenUpdateValue) {
    UncheckedValue leaf;
    EXPECT_EQ(update(leaf, parsed(R"("ab")")), dme::result::DONE);
    EXPECT_EQ(leaf.updates, 1);
    EXPECT_EQ(stored(leaf), "ab");
}

TEST(AtomicValueUpdateTest, UpdateValueValidatesBeforeStoring) {
    HeldValue<std::string> leaf;
    test::Request request(UPDATE, "/");
    EXPECT_THROW(leaf.updateValue(request.context(), std::string(65536, 'x')), Exception);
    EXPECT_EQ(leaf.stores, 0);
    EXPECT_EQ(leaf.updateValue(request.context(), "ok"), 0);
    EXPECT_EQ(leaf.stores, 1);
}

// ---- Notifications ------------------------------------------------------------------------

TEST(StaticAtomicValueTest, SubscribeAndUnsubscribeAreAccepted) {
    StaticAtomicValue<int> leaf(1, READ_UPDATE);
    CountingObserver observer;
    test::Request request(READ, "/");
    EXPECT_EQ(leaf.subscribe(request.context(), observer), 0);
    EXPECT_EQ(leaf.unsubscribe(request.context(), observer), 0);
}

TEST(StaticAtomicValueTest, SetValueNotifiesTheObserver) {
    StaticAtomicValue<int> leaf(1, READ_UPDATE);
    CountingObserver observer;
    test::Request request(READ, "/");
    leaf.subscribe(request.context(), observer);
    EXPECT_EQ(leaf.setValue(request.context(), 2), 0);
    EXPECT_EQ(observer.changes, 1);
    EXPECT_EQ(stored(leaf), 2);
}

TEST(StaticAtomicValueTest, SettingTheCurrentValueStillNotifies) {
    StaticAtomicValue<std::string> leaf("same", READ_UPDATE);
    CountingObserver observer;
    test::Request request(READ, "/");
    leaf.subscribe(request.context(), observer);
    leaf.setValue(request.context(), "same");
    leaf.setValue(request.context(), "same");
    EXPECT_EQ(observer.changes, 2);
}

TEST(StaticAtomicValueTest, UpdateRequestNotifiesTheObserver) {
    StaticAtomicValue<bool> leaf(false, READ_UPDATE);
    CountingObserver observer;
    test::Request request(READ, "/");
    leaf.subscribe(request.context(), observer);
    EXPECT_EQ(update(leaf, parsed("true")), dme::result::DONE);
    EXPECT_EQ(observer.changes, 1);
}

TEST(StaticAtomicValueTest, RefusedUpdateDoesNotNotify) {
    StaticAtomicValue<unsigned char> leaf(1, READ_UPDATE, 0, 10);
    CountingObserver observer;
    test::Request request(READ, "/");
    leaf.subscribe(request.context(), observer);
    EXPECT_THROW(update(leaf, parsed("11")), Exception);
    EXPECT_THROW(update(leaf, parsed("256")), Exception);
    EXPECT_THROW(update(leaf, parsed(R"("5")")), Exception);
    EXPECT_EQ(observer.changes, 0);
    EXPECT_EQ(stored(leaf), 1);
}

TEST(StaticAtomicValueTest, NoNotificationAfterUnsubscribe) {
    StaticAtomicValue<double> leaf(1, READ_UPDATE);
    CountingObserver observer;
    test::Request request(READ, "/");
    leaf.subscribe(request.context(), observer);
    leaf.unsubscribe(request.context(), observer);
    leaf.setValue(request.context(), 2);
    EXPECT_EQ(observer.changes, 0);
}

TEST(StaticAtomicValueTest, InitialValueIsNotCheckedAgainstTheLimits) {
    StaticAtomicValue<int> leaf(50, READ_UPDATE, 0, 10);
    EXPECT_EQ(stored(leaf), 50);
    EXPECT_EQ(readJson(leaf), "50");
}

// ---- Free conversions ---------------------------------------------------------------------

TEST(SerializeValueTest, InvalidUtf8IsWrittenAsTheEmpty8BitText) {
    SerializationInfo si;
    serializeValue<std::string>("abc\x80", si);
    EXPECT_TRUE(si.isString8());
    std::string text = "unchanged";
    si.getValue(text);
    EXPECT_EQ(text, "");
}

TEST(SerializeValueTest, ValidUtf8IsWrittenAsAWideText) {
    SerializationInfo si;
    serializeValue<std::string>("\xc3\xa4", si);
    EXPECT_TRUE(si.isString());
    EXPECT_EQ(formatJson(si), R"("\u00e4")");
}

TEST(SerializeValueTest, AsciiTextIsWrittenAsAn8BitText) {
    SerializationInfo si;
    serializeValue<std::string>("plain text", si);
    EXPECT_TRUE(si.isString8());
    std::string text;
    si.getValue(text);
    EXPECT_EQ(text, "plain text");
}

TEST(SerializeValueTest, AsciiTextReadsBackAsTheSameWideText) {
    SerializationInfo si;
    serializeValue<std::string>("Abc 1~", si);
    cxxtools::String wide;
    si.getValue(wide);
    EXPECT_EQ(wide, cxxtools::String(L"Abc 1~"));
}

TEST(SerializeValueTest, AsciiTextKeepsTheJsonEscapes) {
    SerializationInfo si;
    serializeValue<std::string>("q\"b\\s/c\x01\x1f\b\f\n\r\t\x7f~", si);
    EXPECT_EQ(formatJson(si), "\"q\\\"b\\\\s/c\\u0001\\u001f\\b\\f\\n\\r\\t\x7f~\"");
}

TEST(SerializeValueTest, AsciiTextKeepsAnEmbeddedNulByte) {
    SerializationInfo si;
    serializeValue<std::string>(std::string("a\0b", 3), si);
    EXPECT_EQ(formatJson(si), R"("a\u0000b")");
}

TEST(SerializeValueTest, EmptyTextIsWrittenAsTheEmptyText) {
    SerializationInfo si;
    serializeValue<std::string>("", si);
    EXPECT_EQ(formatJson(si), R"("")");
}

TEST(SerializeValueTest, SignedIntegerUsesTheSignedSetter) {
    SerializationInfo si;
    serializeValue<short>(-4, si);
    EXPECT_TRUE(si.isInt());
}

TEST(SerializeValueTest, UnsignedIntegerUsesTheUnsignedSetter) {
    SerializationInfo si;
    serializeValue<unsigned short>(4, si);
    EXPECT_TRUE(si.isUInt());
}

TEST(SerializeValueTest, FloatingNumbersUseTheDoubleSetter) {
    SerializationInfo single;
    serializeValue<float>(0.5f, single);
    EXPECT_TRUE(single.isDouble());
    SerializationInfo dual;
    serializeValue<double>(0.5, dual);
    EXPECT_TRUE(dual.isDouble());
}

TEST(SerializeValueTest, BooleanUsesTheBooleanSetter) {
    SerializationInfo si;
    serializeValue<bool>(true, si);
    EXPECT_TRUE(si.isBool());
}

TEST(DeserializeValueTest, RefusedKindIsAConversionError) {
    std::string text = "unchanged";
    EXPECT_THROW(deserializeValue<std::string>(objectDocument(), text),
                 cxxtools::SerializationConversionError);
    EXPECT_EQ(text, "unchanged");
}

TEST(DeserializeValueTest, NumberThatDoesNotFitIsARangeError) {
    unsigned char number = 9;
    EXPECT_THROW(deserializeValue<unsigned char>(parsed("300"), number), std::range_error);
    EXPECT_EQ(number, 9);
}

TEST(DeserializeValueTest, ReadsAJsonNumber) {
    long long number = 0;
    deserializeValue<long long>(parsed("-9223372036854775808"), number);
    EXPECT_EQ(number, std::numeric_limits<long long>::lowest());
}

TEST(ValidateSerializationTypeTest, AcceptsTheKindsOfTheType) {
    EXPECT_NO_THROW(validateSerializationType<bool>(parsed("true")));
    EXPECT_NO_THROW(validateSerializationType<int>(parsed("1")));
    EXPECT_NO_THROW(validateSerializationType<double>(parsed("1")));
    EXPECT_NO_THROW(validateSerializationType<double>(parsed("1.5")));
    EXPECT_NO_THROW(validateSerializationType<std::string>(parsed(R"("a")")));
}

TEST(ValidateSerializationTypeTest, RefusesOtherKinds) {
    EXPECT_THROW(validateSerializationType<bool>(parsed(R"("abc")")),
                 cxxtools::SerializationConversionError);
    EXPECT_THROW(validateSerializationType<int>(parsed("1.5")),
                 cxxtools::SerializationConversionError);
    EXPECT_THROW(validateSerializationType<float>(parsed("true")),
                 cxxtools::SerializationConversionError);
    EXPECT_THROW(validateSerializationType<std::string>(parsed("1")),
                 cxxtools::SerializationConversionError);
}

}  // namespace
}  // namespace dme
