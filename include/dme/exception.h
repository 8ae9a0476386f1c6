#pragma once

#include <cxxtools/serializationinfo.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace dme {

class Context;

namespace Error {

// The kind of a rejected input. 0 to 10 are errors of a value, 32 to 37 errors of a request
// argument; 11 to 31 are unused. The numbers are part of the library's interface.
enum Id : std::uint32_t {
    INVALID_TYPE = 0,
    VALUE_BELOW_MIN = 1,
    VALUE_ABOVE_MAX = 2,
    STRING_INVALID_FORMAT = 3,
    STRING_TOO_SHORT = 4,
    STRING_TOO_LONG = 5,
    INVALID_IP_ADDRESS = 6,
    MAX_SIZE_REACHED = 7,
    VALUE_OUT_OF_RANGE = 8,
    VALUE_NOT_IN_LIST = 9,
    INDEX_OUT_OF_BOUNDS = 10,
    ARGUMENT_MALFORMED_QUERY = 32,
    ARGUMENT_INVALID_TYPE = 33,
    ARGUMENT_INVALID_FORMAT = 34,
    ARGUMENT_OUT_OF_RANGE = 35,
    ARGUMENT_NOT_SUPPORTED_ON_RESOURCE = 36,
    ARGUMENT_NOT_SUPPORTED = 37,
};

}  // namespace Error

// The one exception type for rejected input: an error kind, its fixed message text and up to
// two detail strings. Nodes raise it only through the static throw... helpers, which fix the
// kind, the message and which details are kept.
// The fields are public data members so that exception handlers read them directly; what()
// does not include them. Copyable; an instance is not shared between threads.
class Exception : public std::exception {
  public:
    Error::Id id;
    std::string message;
    std::string detail1;
    std::string detail2;  // Empty when the error carries one detail.

    // Stores `message` both as the message and as detail1.
    Exception(Error::Id id, const std::string& message);
    Exception(Error::Id id, const std::string& message, const std::string& d1);
    Exception(Error::Id id, const std::string& message, const std::string& d1,
              const std::string& d2);
    // `d3` is accepted for callers that have a third detail and is not stored.
    Exception(Error::Id id, const std::string& message, const std::string& d1,
              const std::string& d2, const std::string& d3);

    ~Exception() override;
    // Always "dme::Exception".
    const char* what() const noexcept override;

    // Errors of a value. Each throws with the message named in its comment.
    // "Invalid type"; details a, b.
    [[noreturn]] static void throwInvalidType(const std::string& a, const std::string& b);
    // "Value below minimum"; details a, b.
    [[noreturn]] static void throwValueBelowMin(const std::string& a, const std::string& b);
    // "Value above maximum"; details a, b.
    [[noreturn]] static void throwValueAboveMax(const std::string& a, const std::string& b);
    // "String invalid format"; detail a.
    [[noreturn]] static void throwStringInvalidFormat(const std::string& a);
    // "String too short"; details a and the length limit n in decimal.
    [[noreturn]] static void throwStringTooShort(const std::string& a, unsigned int n);
    // "String too long"; details a and the length limit n in decimal.
    [[noreturn]] static void throwStringTooLong(const std::string& a, unsigned int n);
    // "Invalid IP address"; detail a.
    [[noreturn]] static void throwInvalidIpAddress(const std::string& a);
    // "The maximum number of items in the collection is reached"; detail a.
    [[noreturn]] static void throwMaxSizeReached(const std::string& a);
    // "Value out of range"; detail a.
    [[noreturn]] static void throwValueOutOfRange(const std::string& a);
    // "Value not in list"; detail a.
    [[noreturn]] static void throwValueNotInList(const std::string& a);
    // "Index is out of the array bounds"; detail a.
    [[noreturn]] static void throwIndexOutOfBounds(const std::string& a);

    // Errors of a request argument. The helpers that take the argument's name drop it: the
    // exception carries only the value and the third string, and handlers rely on that.
    // "Malformed query"; detail a.
    [[noreturn]] static void throwArgumentMalformedQuery(const std::string& a);
    // "Argument invalid type"; details value, type.
    [[noreturn]] static void throwArgumentInvalidType(const std::string& name,
                                                      const std::string& value,
                                                      const std::string& type);
    // "Argument invalid format"; details value, format.
    [[noreturn]] static void throwArgumentInvalidFormat(const std::string& name,
                                                        const std::string& value,
                                                        const std::string& format);
    // "Argument out of range"; details value, range.
    [[noreturn]] static void throwArgumentOutOfRange(const std::string& name,
                                                     const std::string& value,
                                                     const std::string& range);
    // "Argument not supported on resource"; detail a.
    [[noreturn]] static void throwArgumentNotSupportedOnResource(const std::string& a);
    // "Argument not supported"; detail a.
    [[noreturn]] static void throwArgumentNotSupported(const std::string& a);
};

// The application's table that turns an exception escaping a request into a result code.
// Handlers are keyed by the exact dynamic type of the exception; a handler writes its error
// document into `out` and returns the request's result, or NOT_HANDLED (12) for an exception
// it does not recognise, leaving `out` untouched. The context is only passed on to handlers.
// Copyable. handleException may run concurrently when the handlers allow it; registering a
// handler must not overlap any other use.
class ExceptionHandlers {
  public:
    using Handler = std::function<int(std::exception&, Context&, const cxxtools::SerializationInfo&,
                                      cxxtools::SerializationInfo&)>;
    using Entry = std::pair<std::type_index, Handler>;

    // The result of a handler, and of handleException, for an exception nobody claims.
    static constexpr int NOT_HANDLED = 12;

    // An empty table.
    ExceptionHandlers();
    // Registers the entries in order; a type given twice keeps its first handler. Implicit so
    // that a table can be written as a braced list.
    ExceptionHandlers(const std::vector<Entry>& entries);  // NOLINT: implicit by design

    // Stores the handler unless its type already has one; a later registration is discarded.
    void registerHandler(Entry&& entry);

    // Calls the handler registered for exactly typeid(e) and returns its result, whatever it is.
    // When there is none, or when that handler throws std::out_of_range, offers `e` to every
    // handler in the table's order and returns the first result other than NOT_HANDLED.
    // Returns NOT_HANDLED when no handler claims `e`. Any other exception from a handler
    // propagates; an empty handler throws std::bad_function_call.
    int handleException(std::exception& e, Context& ctx, const cxxtools::SerializationInfo& in,
                        cxxtools::SerializationInfo& out) const;

  private:
    int offerToAll(std::exception& e, Context& ctx, const cxxtools::SerializationInfo& in,
                   cxxtools::SerializationInfo& out) const;

    std::unordered_map<std::type_index, Handler> handlers_;
};

}  // namespace dme
