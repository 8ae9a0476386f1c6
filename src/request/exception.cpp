#include "dme/exception.h"

#include <stdexcept>

namespace dme {

Exception::Exception(Error::Id id, const std::string& message)
    : id(id), message(message), detail1(message) {}

Exception::Exception(Error::Id id, const std::string& message, const std::string& d1)
    : id(id), message(message), detail1(d1) {}

Exception::Exception(Error::Id id, const std::string& message, const std::string& d1,
                     const std::string& d2)
    : id(id), message(message), detail1(d1), detail2(d2) {}

Exception::Exception(Error::Id id, const std::string& message, const std::string& d1,
                     const std::string& d2, const std::string& /*d3*/)
    : Exception(id, message, d1, d2) {}

Exception::~Exception() = default;

const char* Exception::what() const noexcept {
    return "dme::Exception";
}

void Exception::throwInvalidType(const std::string& a, const std::string& b) {
    throw Exception(Error::INVALID_TYPE, "Invalid type", a, b);
}

void Exception::throwValueBelowMin(const std::string& a, const std::string& b) {
    throw Exception(Error::VALUE_BELOW_MIN, "Value below minimum", a, b);
}

void Exception::throwValueAboveMax(const std::string& a, const std::string& b) {
    throw Exception(Error::VALUE_ABOVE_MAX, "Value above maximum", a, b);
}

void Exception::throwStringInvalidFormat(const std::string& a) {
    throw Exception(Error::STRING_INVALID_FORMAT, "String invalid format", a);
}

// std::to_string of an unsigned int is its "%u" form.
void Exception::throwStringTooShort(const std::string& a, unsigned int n) {
    throw Exception(Error::STRING_TOO_SHORT, "String too short", a, std::to_string(n));
}

void Exception::throwStringTooLong(const std::string& a, unsigned int n) {
    throw Exception(Error::STRING_TOO_LONG, "String too long", a, std::to_string(n));
}

void Exception::throwInvalidIpAddress(const std::string& a) {
    throw Exception(Error::INVALID_IP_ADDRESS, "Invalid IP address", a);
}

void Exception::throwMaxSizeReached(const std::string& a) {
    throw Exception(Error::MAX_SIZE_REACHED,
                    "The maximum number of items in the collection is reached", a);
}

void Exception::throwValueOutOfRange(const std::string& a) {
    throw Exception(Error::VALUE_OUT_OF_RANGE, "Value out of range", a);
}

void Exception::throwValueNotInList(const std::string& a) {
    throw Exception(Error::VALUE_NOT_IN_LIST, "Value not in list", a);
}

void Exception::throwIndexOutOfBounds(const std::string& a) {
    throw Exception(Error::INDEX_OUT_OF_BOUNDS, "Index is out of the array bounds", a);
}

void Exception::throwArgumentMalformedQuery(const std::string& a) {
    throw Exception(Error::ARGUMENT_MALFORMED_QUERY, "Malformed query", a);
}

void Exception::throwArgumentInvalidType(const std::string& /*name*/, const std::string& value,
                                         const std::string& type) {
    throw Exception(Error::ARGUMENT_INVALID_TYPE, "Argument invalid type", value, type);
}

void Exception::throwArgumentInvalidFormat(const std::string& /*name*/, const std::string& value,
                                           const std::string& format) {
    throw Exception(Error::ARGUMENT_INVALID_FORMAT, "Argument invalid format", value, format);
}

void Exception::throwArgumentOutOfRange(const std::string& /*name*/, const std::string& value,
                                        const std::string& range) {
    throw Exception(Error::ARGUMENT_OUT_OF_RANGE, "Argument out of range", value, range);
}

void Exception::throwArgumentNotSupportedOnResource(const std::string& a) {
    throw Exception(Error::ARGUMENT_NOT_SUPPORTED_ON_RESOURCE, "Argument not supported on resource",
                    a);
}

void Exception::throwArgumentNotSupported(const std::string& a) {
    throw Exception(Error::ARGUMENT_NOT_SUPPORTED, "Argument not supported", a);
}

ExceptionHandlers::ExceptionHandlers() = default;

ExceptionHandlers::ExceptionHandlers(const std::vector<Entry>& entries) {
    for (const Entry& entry : entries) handlers_.insert(entry);
}

void ExceptionHandlers::registerHandler(Entry&& entry) {
    handlers_.insert(std::move(entry));
}

int ExceptionHandlers::handleException(std::exception& e, Context& ctx,
                                       const cxxtools::SerializationInfo& in,
                                       cxxtools::SerializationInfo& out) const {
    auto exact = handlers_.find(std::type_index(typeid(e)));
    if (exact != handlers_.end()) {
        try {
            return exact->second(e, ctx, in, out);
        } catch (const std::out_of_range&) {
            // The handler gave up on this exception; let the whole table try it.
        }
    }
    return offerToAll(e, ctx, in, out);
}

int ExceptionHandlers::offerToAll(std::exception& e, Context& ctx,
                                  const cxxtools::SerializationInfo& in,
                                  cxxtools::SerializationInfo& out) const {
    for (const auto& entry : handlers_) {
        const int result = entry.second(e, ctx, in, out);
        if (result != NOT_HANDLED) return result;
    }
    return NOT_HANDLED;
}

}  // namespace dme
