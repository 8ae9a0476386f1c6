#pragma once

#include <optional>
#include <string>

namespace dme {
namespace http {

// The user name and password of HTTP Basic authentication.
struct Credentials {
    std::string user;
    std::string password;
};

// Reads an Authorization header value "Basic <base64 of user:password>" (the scheme name in any
// case). Returns nothing for another scheme, a value that is not base64, or decoded text
// without ':'. The password is everything after the first ':'.
std::optional<Credentials> parseBasicAuthorization(const std::string& header);

}  // namespace http
}  // namespace dme
