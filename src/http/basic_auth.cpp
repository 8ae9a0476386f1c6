#include "basic_auth.h"

#include <cxxtools/base64codec.h>
#include <cxxtools/textcodec.h>

#include <algorithm>
#include <cctype>

namespace dme {
namespace http {
namespace {

constexpr char SCHEME[] = "basic";
constexpr std::size_t SCHEME_LENGTH = sizeof(SCHEME) - 1;

bool startsWithScheme(const std::string& header) {
    if (header.size() <= SCHEME_LENGTH || header[SCHEME_LENGTH] != ' ') return false;
    return std::equal(SCHEME, SCHEME + SCHEME_LENGTH, header.begin(), [](char a, char b) {
        return a == std::tolower(static_cast<unsigned char>(b));
    });
}

bool isBase64(const std::string& text) {
    const std::size_t padding = text.find('=');
    const std::string body = text.substr(0, padding);
    const bool bodyValid = std::all_of(body.begin(), body.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '/';
    });
    const bool paddingValid =
        padding == std::string::npos || text.find_first_not_of('=', padding) == std::string::npos;
    return !text.empty() && text.size() % 4 == 0 && bodyValid && paddingValid;
}

}  // namespace

std::optional<Credentials> parseBasicAuthorization(const std::string& header) {
    if (!startsWithScheme(header)) return std::nullopt;
    const std::size_t start = header.find_first_not_of(' ', SCHEME_LENGTH);
    const std::string encoded = start == std::string::npos ? "" : header.substr(start);
    if (!isBase64(encoded)) return std::nullopt;
    const std::string decoded = cxxtools::decode<cxxtools::Base64Codec>(encoded);
    const std::size_t colon = decoded.find(':');
    if (colon == std::string::npos) return std::nullopt;
    return Credentials{decoded.substr(0, colon), decoded.substr(colon + 1)};
}

}  // namespace http
}  // namespace dme
