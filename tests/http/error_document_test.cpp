#include "dme/http/error_document.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <typeindex>

#include "dme/context.h"
#include "dme/json.h"

namespace dme {
namespace http {
namespace {

using cxxtools::SerializationInfo;

TEST(ErrorDocumentTest, HoldsCodeMessageAndDetails) {
    EXPECT_EQ(R"({"error":{"code":404,"message":"Not Found","details":["a","b"]}})",
              formatJson(errorDocument(404, "Not Found", {"a", "b"})));
}

TEST(ErrorDocumentTest, WithoutDetailsHoldsAnEmptyArray) {
    EXPECT_EQ(R"({"error":{"code":413,"message":"Content Too Large","details":[]}})",
              formatJson(errorDocument(413, "Content Too Large", {})));
}

TEST(ErrorDocumentTest, OfAnExceptionHoldsItsIdMessageAndBothDetails) {
    const Exception rejected(Error::VALUE_BELOW_MIN, "Value below minimum", "5", "10");
    EXPECT_EQ(R"({"error":{"code":1,"message":"Value below minimum","details":["5","10"]}})",
              formatJson(errorDocument(rejected)));
}

TEST(ErrorDocumentTest, OfAnExceptionWithOneDetailLeavesTheSecondOut) {
    const Exception rejected(Error::ARGUMENT_MALFORMED_QUERY, "Malformed query", "a=%zz");
    EXPECT_EQ(R"({"error":{"code":32,"message":"Malformed query","details":["a=%zz"]}})",
              formatJson(errorDocument(rejected)));
}

// The one detail of the document of a "String too long" rejection of `text`.
std::string echoedDetail(const std::string& text) {
    const Exception rejected(Error::STRING_TOO_LONG, "String too long", text, "8");
    std::string detail;
    errorDocument(rejected).getMember("error").getMember("details").getMember(0).getValue(detail);
    return detail;
}

TEST(ErrorDocumentTest, ADetailOfTheLongestLengthIsEchoedWhole) {
    const std::string text(MAX_DETAIL_BYTES, 'a');
    EXPECT_EQ(echoedDetail(text), text);
}

TEST(ErrorDocumentTest, ALongerDetailIsCutAndEndsWithAnEllipsis) {
    const std::string detail = echoedDetail(std::string(1000, 'a'));
    EXPECT_EQ(detail, std::string(MAX_DETAIL_BYTES - 3, 'a') + "\xE2\x80\xA6");
    EXPECT_EQ(detail.size(), MAX_DETAIL_BYTES);
}

TEST(ErrorDocumentTest, ADetailIsNeverCutInsideACharacter) {
    std::string text = "ab";  // the cut at byte 125 falls inside a character
    while (text.size() < 2 * MAX_DETAIL_BYTES) text += "\xC3\xA9";
    const std::string detail = echoedDetail(text);
    EXPECT_EQ(detail, text.substr(0, MAX_DETAIL_BYTES - 4) + "\xE2\x80\xA6");
    EXPECT_NO_THROW(parseJson(formatJson(
        errorDocument(Exception(Error::STRING_TOO_LONG, "String too long", text, "8")))));
}

class DefaultExceptionHandlerTest : public ::testing::Test {
  protected:
    const Lexicon lexicon_{"href", "id", "count", "items", nullptr, nullptr};
    Context ctx_{lexicon_, READ, "/", Arguments(), false};
    const SerializationInfo in_;
    SerializationInfo out_;
};

TEST_F(DefaultExceptionHandlerTest, IsRegisteredForDmeException) {
    EXPECT_EQ(std::type_index(typeid(Exception)), defaultExceptionHandler().first);
}

TEST_F(DefaultExceptionHandlerTest, WritesTheDocumentAndReturnsInvalidArgument) {
    Exception rejected(Error::STRING_TOO_LONG, "String too long", "name", "8");
    EXPECT_EQ(10, defaultExceptionHandler().second(rejected, ctx_, in_, out_));
    EXPECT_EQ(R"({"error":{"code":5,"message":"String too long","details":["name","8"]}})",
              formatJson(out_));
}

TEST_F(DefaultExceptionHandlerTest, ReplacesWhatTheAnswerHeldBefore) {
    out_.addMember("partial").setValue(1);
    Exception rejected(Error::INVALID_TYPE, "Invalid type", "port", "integer");
    defaultExceptionHandler().second(rejected, ctx_, in_, out_);
    EXPECT_EQ(R"({"error":{"code":0,"message":"Invalid type","details":["port","integer"]}})",
              formatJson(out_));
}

TEST_F(DefaultExceptionHandlerTest, DeclinesOtherExceptionsAndLeavesTheAnswer) {
    out_.addMember("kept").setValue(1);
    std::runtime_error other("other");
    EXPECT_EQ(ExceptionHandlers::NOT_HANDLED,
              defaultExceptionHandler().second(other, ctx_, in_, out_));
    EXPECT_EQ(R"({"kept":1})", formatJson(out_));
}

TEST_F(DefaultExceptionHandlerTest, TableHandlesDmeExceptions) {
    Exception rejected(Error::VALUE_NOT_IN_LIST, "Value not in list", "x");
    EXPECT_EQ(10, defaultExceptionHandlers().handleException(rejected, ctx_, in_, out_));
    EXPECT_EQ(R"({"error":{"code":9,"message":"Value not in list","details":["x"]}})",
              formatJson(out_));
}

}  // namespace
}  // namespace http
}  // namespace dme
