#include "dme/methods.h"

namespace dme {

std::ostream& operator<<(std::ostream& os, AllowedMethods methods) {
    static constexpr char letters[] = "CRUDB";
    char text[6] = {};
    for (int bit = 0; bit < 5; ++bit) {
        text[bit] = (methods.bits() & (1u << bit)) ? letters[bit] : '_';
    }
    return os << text;
}

std::ostream& operator<<(std::ostream& os, Method method) {
    switch (method) {
        case CREATE:
            return os << "CREATE";
        case READ:
            return os << "READ";
        case UPDATE:
            return os << "UPDATE";
        case DELETE:
            return os << "DELETE";
        case SCHEMA:
            return os << "SCHEMA";
        case SUBSCRIBE:
            return os << "SUBSCRIBE";
        case UNSUBSCRIBE:
            return os << "UNSUBSCRIBE";
    }
    return os << "UNDEFINED (" << static_cast<std::uint32_t>(method) << ")";
}

}  // namespace dme
