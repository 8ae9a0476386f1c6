#include "dme/json.h"

#include <cxxtools/utf8codec.h>
#include <gtest/gtest.h>

#include <string>

using cxxtools::SerializationInfo;
using dme::formatJson;
using dme::JsonSyntaxError;
using dme::parseJson;

namespace {

std::string roundTrip(const std::string& text) {
    return formatJson(parseJson(text));
}

}  // namespace

TEST(ParseJson, RefusesTextThatIsNotJson) {
    EXPECT_THROW(parseJson("not json"), JsonSyntaxError);
    EXPECT_THROW(parseJson("tru"), JsonSyntaxError);
    EXPECT_THROW(parseJson("nul"), JsonSyntaxError);
    EXPECT_THROW(parseJson(""), JsonSyntaxError);
    EXPECT_THROW(parseJson("   "), JsonSyntaxError);
}

TEST(ParseJson, RefusesTrailingText) {
    EXPECT_THROW(parseJson("{\"a\":1} trailing"), JsonSyntaxError);
    EXPECT_THROW(parseJson("1 2"), JsonSyntaxError);
}

TEST(ParseJson, AcceptsSurroundingWhiteSpace) {
    EXPECT_EQ(roundTrip(" \t\r\n[1] \n"), "[1]");
}

TEST(ParseJson, RefusesTruncatedInput) {
    EXPECT_THROW(parseJson("{"), JsonSyntaxError);
    EXPECT_THROW(parseJson("[1,2"), JsonSyntaxError);
    EXPECT_THROW(parseJson("\"abc"), JsonSyntaxError);
    EXPECT_THROW(parseJson("{\"a\":"), JsonSyntaxError);
}

TEST(ParseJson, RefusesMalformedStructures) {
    EXPECT_THROW(parseJson("[1,]"), JsonSyntaxError);
    EXPECT_THROW(parseJson("{\"a\":1,}"), JsonSyntaxError);
    EXPECT_THROW(parseJson("{a:1}"), JsonSyntaxError);
    EXPECT_THROW(parseJson("{\"a\" 1}"), JsonSyntaxError);
    EXPECT_THROW(parseJson("[1 2]"), JsonSyntaxError);
}

TEST(ParseJson, RefusesMalformedNumbers) {
    EXPECT_THROW(parseJson("01"), JsonSyntaxError);
    EXPECT_THROW(parseJson("-"), JsonSyntaxError);
    EXPECT_THROW(parseJson("1."), JsonSyntaxError);
    EXPECT_THROW(parseJson("1e"), JsonSyntaxError);
    EXPECT_THROW(parseJson("+1"), JsonSyntaxError);
    EXPECT_THROW(parseJson(".5"), JsonSyntaxError);
    EXPECT_THROW(parseJson("NaN"), JsonSyntaxError);
}

TEST(ParseJson, RefusesInvalidUtf8InStrings) {
    EXPECT_THROW(parseJson("\"abc\x80\""), JsonSyntaxError);
    EXPECT_THROW(parseJson("\"\xff\""), JsonSyntaxError);
    EXPECT_THROW(parseJson("\"ab\xc3\""), JsonSyntaxError);
    EXPECT_THROW(parseJson("\"\xc0\xaf\""), JsonSyntaxError);          // overlong '/'
    EXPECT_THROW(parseJson("\"\xed\xa0\x80\""), JsonSyntaxError);      // encoded surrogate
    EXPECT_THROW(parseJson("\"\xf4\x90\x80\x80\""), JsonSyntaxError);  // beyond U+10FFFF
}

TEST(ParseJson, RefusesUnpairedSurrogateEscapes) {
    EXPECT_THROW(parseJson("\"\\ud800\""), JsonSyntaxError);
    EXPECT_THROW(parseJson("\"\\udc00\""), JsonSyntaxError);
    EXPECT_THROW(parseJson("\"\\ud800\\u0041\""), JsonSyntaxError);
}

TEST(ParseJson, RefusesControlCharactersAndBadEscapes) {
    EXPECT_THROW(parseJson("\"a\nb\""), JsonSyntaxError);
    EXPECT_THROW(parseJson("\"\\x41\""), JsonSyntaxError);
    EXPECT_THROW(parseJson("\"\\u12G4\""), JsonSyntaxError);
}

TEST(ParseJson, AcceptsValidUtf8AndEscapes) {
    cxxtools::String text;
    parseJson("\"caf\xc3\xa9 \\u00e9 \\ud83d\\ude00 \\\"\\n\"").getValue(text);
    EXPECT_EQ(cxxtools::Utf8Codec::encode(text), "caf\xc3\xa9 \xc3\xa9 \xf0\x9f\x98\x80 \"\n");
}

TEST(ParseJson, LimitsNestingDepth) {
    const unsigned int depth = dme::MAX_JSON_DEPTH;
    EXPECT_NO_THROW(parseJson(std::string(depth, '[') + std::string(depth, ']')));
    EXPECT_THROW(parseJson(std::string(depth + 1, '[') + std::string(depth + 1, ']')),
                 JsonSyntaxError);
    EXPECT_THROW(parseJson(std::string(100000, '[')), JsonSyntaxError);
}

TEST(ParseJson, ReportsTheOffsetOfTheError) {
    try {
        parseJson("[1, x]");
        FAIL() << "no exception";
    } catch (const JsonSyntaxError& e) {
        EXPECT_EQ(e.offset(), 4u);
        EXPECT_EQ(std::string(e.what()).rfind("invalid JSON at byte 4: ", 0), 0u);
    }
}

TEST(ParseJson, TypesIntegers) {
    const SerializationInfo positive = parseJson("5");
    EXPECT_TRUE(positive.isUInt());
    unsigned long long u = 0;
    positive.getValue(u);
    EXPECT_EQ(u, 5u);

    const SerializationInfo negative = parseJson("-9223372036854775808");
    EXPECT_TRUE(negative.isInt());
    long long i = 0;
    negative.getValue(i);
    EXPECT_EQ(i, -9223372036854775807LL - 1);

    EXPECT_TRUE(parseJson("18446744073709551615").isUInt());
}

TEST(ParseJson, TypesIntegersBeyond64BitsAsFloatingValues) {
    EXPECT_TRUE(parseJson("18446744073709551616").isDouble());
    EXPECT_TRUE(parseJson("-9223372036854775809").isDouble());
}

TEST(ParseJson, TypesOtherScalars) {
    EXPECT_TRUE(parseJson("2.5").isDouble());
    EXPECT_TRUE(parseJson("1e3").isDouble());
    EXPECT_TRUE(parseJson("true").isBool());
    EXPECT_TRUE(parseJson("null").isNull());
    bool flag = true;
    parseJson("false").getValue(flag);
    EXPECT_FALSE(flag);
}

TEST(ParseJson, StoresAsciiTextAs8BitAndOtherTextWide) {
    const SerializationInfo ascii = parseJson("\"5\"");
    EXPECT_TRUE(ascii.isString8());
    EXPECT_EQ(ascii.typeName(), "string");
    const SerializationInfo wide = parseJson("\"cr\u00e8me\"");
    EXPECT_TRUE(wide.isString());
    EXPECT_EQ(wide.typeName(), "string");
    cxxtools::String text;
    wide.getValue(text);
    EXPECT_EQ(text.size(), 5u);
}

TEST(ParseJson, KeepsMemberNamesAndOrder) {
    EXPECT_EQ(roundTrip("{\"b\":1,\"a\":[true,null,\"x\"],\"c\":{}}"),
              "{\"b\":1,\"a\":[true,null,\"x\"],\"c\":{}}");
}

TEST(FormatJson, WritesAnEmptyDocumentAsNull) {
    EXPECT_EQ(formatJson(SerializationInfo()), "null");
}

TEST(FormatJson, LeavesTheNameOfANamedObjectDocumentOut) {
    SerializationInfo document;
    document.setName("top");
    document.addMember("m").setValue(1);
    EXPECT_EQ(formatJson(document), R"({"m":1})");
    EXPECT_EQ(document.name(), "top");
}

TEST(FormatJson, LeavesTheNameOfANamedScalarDocumentOut) {
    SerializationInfo document;
    document.setName("x");
    document.setValue(5);
    EXPECT_EQ(formatJson(document), "5");
}

TEST(FormatJson, BeautifiedTextDiffersOnlyInWhiteSpace) {
    const SerializationInfo document = parseJson("{\"a\":[1,2],\"b\":{\"c\":\"d e\"}}");
    std::string beautified = formatJson(document, true);
    EXPECT_NE(beautified, formatJson(document, false));
    std::string squeezed;
    bool inString = false;
    for (char c : beautified) {
        if (c == '"') inString = !inString;
        if (inString || (c != ' ' && c != '\n' && c != '\t')) squeezed += c;
    }
    EXPECT_EQ(squeezed, formatJson(document, false));
}

TEST(FormatJson, RefusesAnUnnamedObjectInsideAnObject) {
    SerializationInfo document;
    document.setCategory(SerializationInfo::Object);
    document.addMember("x").setValue(1);
    SerializationInfo& nested = document.addMember();
    nested.setCategory(SerializationInfo::Object);
    nested.addMember("y").setValue(2);
    try {
        formatJson(document);
        FAIL() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "can't serialize object without name into another object");
    }
}

TEST(FormatJson, RefusesAReadObjectUnderTheEmptyNameAtAnyDepth) {
    for (const char* text : {R"({"":{}})", R"({"":{"":[]}})", R"([{"a":{"":{}}}])"}) {
        const SerializationInfo document = parseJson(text);
        EXPECT_THROW(formatJson(document), std::logic_error) << text;
    }
    EXPECT_EQ(R"({"":[{}]})", formatJson(parseJson(R"({"":[{}]})")));
}

TEST(FormatJson, WritesAnUnnamedArrayOrValueInsideAnObjectUnderTheEmptyName) {
    SerializationInfo withArray;
    withArray.setCategory(SerializationInfo::Object);
    withArray.addMember().setCategory(SerializationInfo::Array);
    EXPECT_EQ(formatJson(withArray), R"({"":[]})");

    SerializationInfo withValue;
    withValue.setCategory(SerializationInfo::Object);
    withValue.addMember().setValue(1);
    EXPECT_EQ(formatJson(withValue), R"({"":1})");
}

TEST(FormatJson, AnEmptyNameReadFromTextIsWrittenBack) {
    EXPECT_EQ(formatJson(parseJson(R"({"":0,"a":{"":[1]}})")), R"({"":0,"a":{"":[1]}})");
}

TEST(FormatJson, WritesUnnamedElementsOfArrays) {
    SerializationInfo document;
    document.setCategory(SerializationInfo::Array);
    document.addMember().setValue(1);
    SerializationInfo& object = document.addMember();
    object.setCategory(SerializationInfo::Object);
    object.addMember("a").setValue(true);
    EXPECT_EQ(formatJson(document), "[1,{\"a\":true}]");
}
