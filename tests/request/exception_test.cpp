#include "dme/exception.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <type_traits>
#include <typeindex>
#include <vector>

namespace {

using dme::Exception;
using dme::ExceptionHandlers;

std::uint32_t idOf(const Exception& e) {
    return static_cast<std::uint32_t>(e.id);
}

// Runs `thrower`, which must throw dme::Exception, and returns what it threw.
Exception caught(const std::function<void()>& thrower) {
    try {
        thrower();
    } catch (const Exception& e) {
        return e;
    }
    ADD_FAILURE() << "no dme::Exception was thrown";
    return Exception(dme::Error::INVALID_TYPE, "nothing thrown");
}

// ---- Error identifiers -------------------------------------------------------------------

TEST(ErrorIdTest, IsAnUnsigned32BitEnumeration) {
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<dme::Error::Id>, std::uint32_t>));
}

TEST(ErrorIdTest, ValueErrorsAreNumberedZeroToTen) {
    EXPECT_EQ(dme::Error::INVALID_TYPE, 0u);
    EXPECT_EQ(dme::Error::VALUE_BELOW_MIN, 1u);
    EXPECT_EQ(dme::Error::VALUE_ABOVE_MAX, 2u);
    EXPECT_EQ(dme::Error::STRING_INVALID_FORMAT, 3u);
    EXPECT_EQ(dme::Error::STRING_TOO_SHORT, 4u);
    EXPECT_EQ(dme::Error::STRING_TOO_LONG, 5u);
    EXPECT_EQ(dme::Error::INVALID_IP_ADDRESS, 6u);
    EXPECT_EQ(dme::Error::MAX_SIZE_REACHED, 7u);
    EXPECT_EQ(dme::Error::VALUE_OUT_OF_RANGE, 8u);
    EXPECT_EQ(dme::Error::VALUE_NOT_IN_LIST, 9u);
    EXPECT_EQ(dme::Error::INDEX_OUT_OF_BOUNDS, 10u);
}

TEST(ErrorIdTest, ArgumentErrorsAreNumberedThirtyTwoToThirtySeven) {
    EXPECT_EQ(dme::Error::ARGUMENT_MALFORMED_QUERY, 32u);
    EXPECT_EQ(dme::Error::ARGUMENT_INVALID_TYPE, 33u);
    EXPECT_EQ(dme::Error::ARGUMENT_INVALID_FORMAT, 34u);
    EXPECT_EQ(dme::Error::ARGUMENT_OUT_OF_RANGE, 35u);
    EXPECT_EQ(dme::Error::ARGUMENT_NOT_SUPPORTED_ON_RESOURCE, 36u);
    EXPECT_EQ(dme::Error::ARGUMENT_NOT_SUPPORTED, 37u);
}

// ---- Constructors and what() -------------------------------------------------------------

TEST(ExceptionTest, SingleStringIsBothMessageAndFirstDetail) {
    const Exception e(dme::Error::VALUE_OUT_OF_RANGE, "x");
    EXPECT_EQ(idOf(e), 8u);
    EXPECT_EQ(e.message, "x");
    EXPECT_EQ(e.detail1, "x");
    EXPECT_EQ(e.detail2, "");
}

TEST(ExceptionTest, OneDetailLeavesSecondDetailEmpty) {
    const Exception e(dme::Error::VALUE_NOT_IN_LIST, "msg", "d1");
    EXPECT_EQ(idOf(e), 9u);
    EXPECT_EQ(e.message, "msg");
    EXPECT_EQ(e.detail1, "d1");
    EXPECT_EQ(e.detail2, "");
}

TEST(ExceptionTest, TwoDetailsAreBothKept) {
    const Exception e(dme::Error::VALUE_BELOW_MIN, "msg", "d1", "d2");
    EXPECT_EQ(idOf(e), 1u);
    EXPECT_EQ(e.message, "msg");
    EXPECT_EQ(e.detail1, "d1");
    EXPECT_EQ(e.detail2, "d2");
}

TEST(ExceptionTest, ThirdDetailIsAcceptedAndDropped) {
    const Exception e(dme::Error::VALUE_ABOVE_MAX, "msg", "d1", "d2", "d3");
    EXPECT_EQ(idOf(e), 2u);
    EXPECT_EQ(e.message, "msg");
    EXPECT_EQ(e.detail1, "d1");
    EXPECT_EQ(e.detail2, "d2");
}

TEST(ExceptionTest, WhatIsFixedTextWhateverTheFields) {
    const Exception e(dme::Error::INVALID_TYPE, "Invalid type", "a", "b");
    EXPECT_STREQ(e.what(), "dme::Exception");
}

TEST(ExceptionTest, WhatIsFixedTextWhenCaughtAsStdException) {
    try {
        Exception::throwValueOutOfRange("7");
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "dme::Exception");
        return;
    }
    FAIL() << "no exception";
}

// ---- Throw helpers ----------------------------------------------------------------------

// One throw helper: how it is called, and the error it must raise.
struct HelperCase {
    const char* name;
    std::function<void()> thrower;
    dme::Error::Id id;
    const char* message;
    const char* detail1;
    const char* detail2;
};

void PrintTo(const HelperCase& helper, std::ostream* out) {
    *out << helper.name;
}

class ExceptionHelperTest : public ::testing::TestWithParam<HelperCase> {};

TEST_P(ExceptionHelperTest, RaisesItsIdMessageAndDetails) {
    const HelperCase& helper = GetParam();
    const Exception e = caught(helper.thrower);
    EXPECT_EQ(e.id, helper.id);
    EXPECT_EQ(e.message, helper.message);
    EXPECT_EQ(e.detail1, helper.detail1);
    EXPECT_EQ(e.detail2, helper.detail2);
}

// The argument helpers take the argument's name first and keep it nowhere.
INSTANTIATE_TEST_SUITE_P(
    AllHelpers, ExceptionHelperTest,
    ::testing::Values(
        HelperCase{"InvalidType", [] { Exception::throwInvalidType("a", "b"); },
                   dme::Error::INVALID_TYPE, "Invalid type", "a", "b"},
        HelperCase{"ValueBelowMin", [] { Exception::throwValueBelowMin("-3", "0"); },
                   dme::Error::VALUE_BELOW_MIN, "Value below minimum", "-3", "0"},
        HelperCase{"ValueAboveMax", [] { Exception::throwValueAboveMax("11", "10"); },
                   dme::Error::VALUE_ABOVE_MAX, "Value above maximum", "11", "10"},
        HelperCase{"StringInvalidFormat", [] { Exception::throwStringInvalidFormat("x y"); },
                   dme::Error::STRING_INVALID_FORMAT, "String invalid format", "x y", ""},
        HelperCase{"StringTooShortWritesLimitInDecimal",
                   [] { Exception::throwStringTooShort("ab", 3); }, dme::Error::STRING_TOO_SHORT,
                   "String too short", "ab", "3"},
        HelperCase{"StringTooLongWritesLimitInDecimal",
                   [] { Exception::throwStringTooLong("abc", 2); }, dme::Error::STRING_TOO_LONG,
                   "String too long", "abc", "2"},
        HelperCase{"StringLengthLimitIsWrittenUnsigned",
                   [] { Exception::throwStringTooLong("s", 4294967295u); },
                   dme::Error::STRING_TOO_LONG, "String too long", "s", "4294967295"},
        HelperCase{"InvalidIpAddress", [] { Exception::throwInvalidIpAddress("300.1.1.1"); },
                   dme::Error::INVALID_IP_ADDRESS, "Invalid IP address", "300.1.1.1", ""},
        HelperCase{"MaxSizeReached", [] { Exception::throwMaxSizeReached("/items"); },
                   dme::Error::MAX_SIZE_REACHED,
                   "The maximum number of items in the collection is reached", "/items", ""},
        HelperCase{"ValueOutOfRange", [] { Exception::throwValueOutOfRange("99"); },
                   dme::Error::VALUE_OUT_OF_RANGE, "Value out of range", "99", ""},
        HelperCase{"ValueNotInList", [] { Exception::throwValueNotInList("blue"); },
                   dme::Error::VALUE_NOT_IN_LIST, "Value not in list", "blue", ""},
        HelperCase{"IndexOutOfBounds", [] { Exception::throwIndexOutOfBounds("5"); },
                   dme::Error::INDEX_OUT_OF_BOUNDS, "Index is out of the array bounds", "5", ""},
        HelperCase{"ArgumentMalformedQuery", [] { Exception::throwArgumentMalformedQuery("=1"); },
                   dme::Error::ARGUMENT_MALFORMED_QUERY, "Malformed query", "=1", ""},
        HelperCase{"ArgumentInvalidTypeDropsName",
                   [] { Exception::throwArgumentInvalidType("verbose", "yes", "boolean"); },
                   dme::Error::ARGUMENT_INVALID_TYPE, "Argument invalid type", "yes", "boolean"},
        HelperCase{"ArgumentInvalidFormatDropsName",
                   [] { Exception::throwArgumentInvalidFormat("select", "a[", "a[b]"); },
                   dme::Error::ARGUMENT_INVALID_FORMAT, "Argument invalid format", "a[", "a[b]"},
        HelperCase{"ArgumentOutOfRangeDropsName",
                   [] { Exception::throwArgumentOutOfRange("expand", "7", "0-5"); },
                   dme::Error::ARGUMENT_OUT_OF_RANGE, "Argument out of range", "7", "0-5"},
        HelperCase{"ArgumentOutOfRangeWithEmptyRangeKeepsNameNowhere",
                   [] { Exception::throwArgumentOutOfRange("expand", "-1", ""); },
                   dme::Error::ARGUMENT_OUT_OF_RANGE, "Argument out of range", "-1", ""},
        HelperCase{"ArgumentNotSupportedOnResource",
                   [] { Exception::throwArgumentNotSupportedOnResource("expand"); },
                   dme::Error::ARGUMENT_NOT_SUPPORTED_ON_RESOURCE,
                   "Argument not supported on resource", "expand", ""},
        HelperCase{"ArgumentNotSupported", [] { Exception::throwArgumentNotSupported("sort"); },
                   dme::Error::ARGUMENT_NOT_SUPPORTED, "Argument not supported", "sort", ""}),
    [](const ::testing::TestParamInfo<HelperCase>& info) { return info.param.name; });

// ---- Exception handler table -------------------------------------------------------------

// The table only passes the context on to the handlers, so these tests use a placeholder
// object in place of a request context and check that its address arrives unchanged. No
// handler here reads through the reference.
class ExceptionHandlersTest : public ::testing::Test {
  protected:
    dme::Context& ctx() { return *reinterpret_cast<dme::Context*>(&contextPlaceholder_); }

    int handle(const ExceptionHandlers& handlers, std::exception& e) {
        return handlers.handleException(e, ctx(), in_, out_);
    }

    // A handler that answers `result` for exceptions of exact type E and 12 for all others.
    template <typename E>
    static ExceptionHandlers::Entry claiming(int result) {
        return {typeid(E),
                [result](std::exception& e, dme::Context&, const cxxtools::SerializationInfo&,
                         cxxtools::SerializationInfo&) {
                    return typeid(e) == typeid(E) ? result : 12;
                }};
    }

    // A handler registered for E that answers `result` for everything.
    template <typename E>
    static ExceptionHandlers::Entry answering(int result) {
        return {typeid(E),
                [result](std::exception&, dme::Context&, const cxxtools::SerializationInfo&,
                         cxxtools::SerializationInfo&) { return result; }};
    }

    cxxtools::SerializationInfo in_;
    cxxtools::SerializationInfo out_;

  private:
    alignas(std::max_align_t) unsigned char contextPlaceholder_[16] = {};
};

TEST_F(ExceptionHandlersTest, EmptyTableReturns12) {
    const ExceptionHandlers handlers;
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 12);
}

TEST_F(ExceptionHandlersTest, ExactTypeHandlerIsCalled) {
    const ExceptionHandlers handlers({answering<std::runtime_error>(4)});
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 4);
}

TEST_F(ExceptionHandlersTest, HandlerReceivesAllFourArgumentsUnchanged) {
    std::exception* seenException = nullptr;
    dme::Context* seenContext = nullptr;
    const cxxtools::SerializationInfo* seenIn = nullptr;
    cxxtools::SerializationInfo* seenOut = nullptr;
    const ExceptionHandlers handlers(
        {{typeid(std::runtime_error),
          [&](std::exception& e, dme::Context& c, const cxxtools::SerializationInfo& in,
              cxxtools::SerializationInfo& out) {
              seenException = &e;
              seenContext = &c;
              seenIn = &in;
              seenOut = &out;
              return 0;
          }}});
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 0);
    EXPECT_EQ(seenException, &e);
    EXPECT_EQ(seenContext, &ctx());
    EXPECT_EQ(seenIn, &in_);
    EXPECT_EQ(seenOut, &out_);
}

TEST_F(ExceptionHandlersTest, HandlerCanWriteTheOutputDocument) {
    const ExceptionHandlers handlers({{typeid(Exception), [](std::exception& e, dme::Context&,
                                                             const cxxtools::SerializationInfo&,
                                                             cxxtools::SerializationInfo& out) {
                                           out.addMember("message") <<=
                                               static_cast<Exception&>(e).message;
                                           return 10;
                                       }}});
    Exception e(dme::Error::VALUE_NOT_IN_LIST, "Value not in list", "x");
    EXPECT_EQ(handle(handlers, e), 10);
    std::string message;
    out_.getMember("message") >>= message;
    EXPECT_EQ(message, "Value not in list");
}

TEST_F(ExceptionHandlersTest, ExactHandlerResult12IsReturnedWithoutAskingOthers) {
    const ExceptionHandlers handlers(
        {answering<std::runtime_error>(12), answering<std::exception>(5)});
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 12);
}

TEST_F(ExceptionHandlersTest, BaseClassHandlerIsNotUsedInExactLookup) {
    int exactCalls = 0;
    const ExceptionHandlers handlers(
        {{typeid(std::exception),
          [&](std::exception&, dme::Context&, const cxxtools::SerializationInfo&,
              cxxtools::SerializationInfo&) {
              ++exactCalls;
              return 12;
          }}});
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 12);
    // Called only once: in the walk over all handlers, not as an exact match.
    EXPECT_EQ(exactCalls, 1);
}

TEST_F(ExceptionHandlersTest, UnmatchedTypeIsOfferedToEveryHandler) {
    const ExceptionHandlers handlers({claiming<std::logic_error>(3), answering<std::exception>(7)});
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 7);
}

TEST_F(ExceptionHandlersTest, WalkReturnsFirstResultOtherThan12) {
    int offers = 0;
    auto counting = [&offers](std::exception&, dme::Context&, const cxxtools::SerializationInfo&,
                              cxxtools::SerializationInfo&) {
        ++offers;
        return 12;
    };
    const ExceptionHandlers handlers(
        {{typeid(std::logic_error), counting}, {typeid(std::range_error), counting}});
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 12);
    EXPECT_EQ(offers, 2);
}

TEST_F(ExceptionHandlersTest, WalkPassesTheOriginalArguments) {
    std::exception* seenException = nullptr;
    dme::Context* seenContext = nullptr;
    const ExceptionHandlers handlers(
        {{typeid(std::logic_error),
          [&](std::exception& e, dme::Context& c, const cxxtools::SerializationInfo&,
              cxxtools::SerializationInfo&) {
              seenException = &e;
              seenContext = &c;
              return 1;
          }}});
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 1);
    EXPECT_EQ(seenException, &e);
    EXPECT_EQ(seenContext, &ctx());
}

TEST_F(ExceptionHandlersTest, DmeHandlerAndGeneralHandlerLeaveRuntimeErrorUnhandled) {
    const ExceptionHandlers handlers({claiming<Exception>(3), answering<std::exception>(12)});
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 12);
}

TEST_F(ExceptionHandlersTest, DmeHandlerAndGeneralHandlerClaimDmeException) {
    const ExceptionHandlers handlers({claiming<Exception>(3), answering<std::exception>(12)});
    Exception e(dme::Error::VALUE_OUT_OF_RANGE, "Value out of range", "9");
    EXPECT_EQ(handle(handlers, e), 3);
}

// The exact handler gives up once with std::out_of_range; when the walk offers it the exception
// again it declines with 12, so the result comes from the other handler.
TEST_F(ExceptionHandlersTest, OutOfRangeFromExactHandlerFallsBackToTheWalk) {
    int exactCalls = 0;
    std::exception* seen = nullptr;
    const ExceptionHandlers handlers(
        {{typeid(std::runtime_error),
          [&](std::exception&, dme::Context&, const cxxtools::SerializationInfo&,
              cxxtools::SerializationInfo&) -> int {
              if (++exactCalls == 1) throw std::out_of_range("gave up");
              return 12;
          }},
         {typeid(std::logic_error),
          [&](std::exception& e, dme::Context&, const cxxtools::SerializationInfo&,
              cxxtools::SerializationInfo&) {
              seen = &e;
              return 6;
          }}});
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 6);
    EXPECT_EQ(seen, &e);
}

TEST_F(ExceptionHandlersTest, OutOfRangeFallbackReturns12WhenNobodyClaims) {
    int exactCalls = 0;
    const ExceptionHandlers handlers(
        {{typeid(std::runtime_error),
          [&](std::exception&, dme::Context&, const cxxtools::SerializationInfo&,
              cxxtools::SerializationInfo&) -> int {
              if (++exactCalls == 1) throw std::out_of_range("gave up");
              return 12;
          }}});
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 12);
    EXPECT_EQ(exactCalls, 2);
}

TEST_F(ExceptionHandlersTest, OtherExceptionFromHandlerPropagates) {
    const ExceptionHandlers handlers(
        {{typeid(std::runtime_error),
          [](std::exception&, dme::Context&, const cxxtools::SerializationInfo&,
             cxxtools::SerializationInfo&) -> int { throw std::logic_error("handler failed"); }},
         answering<std::exception>(5)});
    std::runtime_error e("boom");
    EXPECT_THROW(handle(handlers, e), std::logic_error);
}

TEST_F(ExceptionHandlersTest, ExceptionFromHandlerInTheWalkPropagates) {
    const ExceptionHandlers handlers(
        {{typeid(std::logic_error),
          [](std::exception&, dme::Context&, const cxxtools::SerializationInfo&,
             cxxtools::SerializationInfo&) -> int { throw std::length_error("handler failed"); }}});
    std::runtime_error e("boom");
    EXPECT_THROW(handle(handlers, e), std::length_error);
}

TEST_F(ExceptionHandlersTest, EmptyExactHandlerThrowsBadFunctionCall) {
    const ExceptionHandlers handlers({{typeid(std::runtime_error), ExceptionHandlers::Handler()}});
    std::runtime_error e("boom");
    EXPECT_THROW(handle(handlers, e), std::bad_function_call);
}

TEST_F(ExceptionHandlersTest, EmptyHandlerInTheWalkThrowsBadFunctionCall) {
    const ExceptionHandlers handlers({{typeid(std::logic_error), ExceptionHandlers::Handler()}});
    std::runtime_error e("boom");
    EXPECT_THROW(handle(handlers, e), std::bad_function_call);
}

TEST_F(ExceptionHandlersTest, SecondRegistrationForSameTypeHasNoEffect) {
    ExceptionHandlers handlers;
    handlers.registerHandler(claiming<Exception>(3));
    handlers.registerHandler(claiming<Exception>(9));
    Exception e(dme::Error::INVALID_TYPE, "Invalid type", "a", "b");
    EXPECT_EQ(handle(handlers, e), 3);
}

TEST_F(ExceptionHandlersTest, RegisterHandlerAddsToEmptyTable) {
    ExceptionHandlers handlers;
    handlers.registerHandler(answering<std::runtime_error>(0));
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 0);
}

TEST_F(ExceptionHandlersTest, ConstructorKeepsFirstHandlerOfRepeatedType) {
    const ExceptionHandlers handlers(
        {answering<std::runtime_error>(4), answering<std::runtime_error>(8)});
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 4);
}

TEST_F(ExceptionHandlersTest, RegisterHandlerCannotReplaceConstructorEntry) {
    ExceptionHandlers handlers({answering<std::runtime_error>(4)});
    handlers.registerHandler(answering<std::runtime_error>(8));
    std::runtime_error e("boom");
    EXPECT_EQ(handle(handlers, e), 4);
}

}  // namespace
