#include "headers.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>

namespace dme {
namespace http {
namespace {

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string lowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// The parts of `text` between `separator`s, trimmed, empty parts dropped.
std::vector<std::string> splitTrimmed(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find(separator, start);
        if (end == std::string::npos) end = text.size();
        const std::string part = trimmed(text.substr(start, end - start));
        if (!part.empty()) parts.push_back(part);
        start = end + 1;
    }
    return parts;
}

// The items of a comma-separated header list.
std::vector<std::string> listItems(const std::string& header) {
    return splitTrimmed(header, ',');
}

// A media type or range and its parameters, split at ';', lower-cased, without spaces; never
// empty.
std::vector<std::string> mediaParts(const std::string& item) {
    std::vector<std::string> parts = splitTrimmed(item, ';');
    if (parts.empty()) parts.emplace_back();
    for (std::string& part : parts) {
        part = lowerCase(part);
        part.erase(std::remove(part.begin(), part.end(), ' '), part.end());
    }
    return parts;
}

// The quality of a media range's parameters ("q=0.5"): 1 without one.
double qualityOf(const std::vector<std::string>& parts) {
    for (std::size_t i = 1; i < parts.size(); ++i) {
        if (parts[i].rfind("q=", 0) == 0) return std::strtod(parts[i].c_str() + 2, nullptr);
    }
    return 1.0;
}

bool tagsMatch(const std::string& header, const std::string& tag, bool weakComparison) {
    for (std::string item : listItems(header)) {
        if (item == "*") return !tag.empty();
        if (item.rfind("W/", 0) == 0) {
            if (!weakComparison) continue;
            item.erase(0, 2);
        }
        if (!tag.empty() && item == tag) return true;
    }
    return false;
}

}  // namespace

std::string entityTag(const std::string& body) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (const char c : body) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 0x100000001b3ULL;
    }
    char text[20];
    std::snprintf(text, sizeof text, "\"%016llx\"", static_cast<unsigned long long>(hash));
    return text;
}

bool noneMatchHolds(const std::string& header, const std::string& tag) {
    return tagsMatch(header, tag, true);
}

bool matchHolds(const std::string& header, const std::string& tag) {
    return tagsMatch(header, tag, false);
}

bool acceptsJson(const std::string& header) {
    if (trimmed(header).empty()) return true;
    for (const std::string& item : listItems(header)) {
        const std::vector<std::string> parts = mediaParts(item);
        const std::string& range = parts.front();
        const bool fits = range == "application/json" || range == "application/*" || range == "*/*";
        if (fits && qualityOf(parts) > 0) return true;
    }
    return false;
}

bool isJsonContentType(const std::string& header) {
    if (trimmed(header).empty()) return true;
    const std::vector<std::string> parts = mediaParts(header);
    if (parts.front() != "application/json") return false;
    for (std::size_t i = 1; i < parts.size(); ++i) {
        if (parts[i] != "charset=utf-8" && parts[i] != "charset=\"utf-8\"") return false;
    }
    return true;
}

std::string allowHeader(AllowedMethods allowed) {
    std::string methods = "OPTIONS";
    if (allowed & READ) methods += ", GET, HEAD";
    if (allowed & UPDATE) methods += ", PUT, PATCH";
    if (allowed & CREATE) methods += ", POST";
    if (allowed & DELETE) methods += ", DELETE";
    return methods;
}

bool originAllowed(const std::vector<std::string>& allowed, const std::string& origin) {
    if (origin.empty()) return false;
    return std::any_of(allowed.begin(), allowed.end(), [&origin](const std::string& entry) {
        return entry == "*" || entry == origin;
    });
}

std::string withArgument(const std::string& query, const std::string& name,
                         const std::string& value) {
    std::string result;
    std::size_t start = 0;
    while (start < query.size()) {
        std::size_t end = query.find('&', start);
        if (end == std::string::npos) end = query.size();
        const std::string pair = query.substr(start, end - start);
        if (!pair.empty() && pair.substr(0, pair.find('=')) != name) result += pair + "&";
        start = end + 1;
    }
    return result + name + "=" + value;
}

std::string fieldValue(const std::vector<std::pair<std::string, std::string>>& fields,
                       const std::string& name) {
    const std::string wanted = lowerCase(name);
    for (const auto& field : fields) {
        if (lowerCase(field.first) == wanted) return field.second;
    }
    return std::string();
}

std::optional<HeadFault> headFault(
    const std::string& version, const std::vector<std::pair<std::string, std::string>>& headers) {
    std::size_t hosts = 0;
    std::size_t authorizations = 0;
    std::vector<std::string> lengths;
    std::vector<std::string> codings;
    for (const auto& field : headers) {
        const std::string name = lowerCase(field.first);
        if (name == "host") ++hosts;
        if (name == "authorization") ++authorizations;
        if (name == "content-length") lengths.push_back(trimmed(field.second));
        if (name == "transfer-encoding") {
            for (const std::string& coding : listItems(field.second)) {
                codings.push_back(lowerCase(coding));
            }
        }
    }
    if (version == "HTTP/1.1" && hosts == 0) return HeadFault{400, "Missing Host"};
    if (hosts > 1) return HeadFault{400, "Duplicate Host"};
    if (std::adjacent_find(lengths.begin(), lengths.end(), std::not_equal_to<>()) !=
        lengths.end()) {
        return HeadFault{400, "Conflicting Content-Length"};
    }
    if (!lengths.empty() && !codings.empty()) {
        return HeadFault{400, "Content-Length with Transfer-Encoding"};
    }
    if (!codings.empty() && codings != std::vector<std::string>{"chunked"}) {
        return HeadFault{501, "Unsupported Transfer-Encoding"};
    }
    if (authorizations > 1) return HeadFault{400, "Duplicate Authorization"};
    return std::nullopt;
}

}  // namespace http
}  // namespace dme
