// Fuzzes the JSON engine over the example gateway model. One input is one request, run by the
// admin on a fresh model: a method byte, then the uri, the query and the JSON body, separated by
// NUL bytes (the body is the rest of the input). Every request must answer a known result code
// and well-formed JSON, or throw the dme::Exception of a query argument that the engine leaves to
// its caller. Afterwards every part of the tree that no request may change must read as it does
// on a fresh model: the factory data, the firmware version, the schema, and every value and
// member name of the fully expanded tree outside the writable places; and passwords must still
// read as null.

#include <cxxtools/serializationinfo.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "device_model.h"
#include "dme/arguments.h"
#include "dme/engine.h"
#include "dme/exception.h"
#include "dme/json.h"
#include "dme/methods.h"
#include "fuzz_input.h"

namespace {

// Values that a request may change: their kind must stay, their content may not. A '*' stands
// for any one segment; arrays count their elements as segments.
const char* const WRITABLE[] = {
    "/system/hostname",
    "/system/location",
    "/system/timezoneOffset",
    "/system/ntpEnabled",
    "/system/logLevel",
    "/status/*",
    "/status/traffic/*",
    "/network/interfaces/members/*/enabled",
    "/network/interfaces/members/*/address",
    "/network/interfaces/members/*/mtu",
    "/network/defaultRoute",
    "/network/gateway/*",
    "/network/dnsServers/*",
    "/users/count",
};

// Subtrees whose members may come and go: only their kind is compared.
const char* const VARIABLE[] = {
    "/labels",
    "/users/members",
    "/network/gateway/lowerLayers",
};

// Whether `path` matches `pattern`, where a '*' segment of the pattern matches any one segment.
// Allocates nothing: it runs for every node of every snapshot.
bool matches(const char* pattern, const std::string& path) {
    std::size_t at = 0;
    while (*pattern != '\0') {
        if (*pattern == '*') {
            while (at < path.size() && path[at] != '/') ++at;
            ++pattern;
        } else if (at < path.size() && path[at] == *pattern) {
            ++at;
            ++pattern;
        } else {
            return false;
        }
    }
    return at == path.size();
}

template <std::size_t N>
bool matchesAny(const char* const (&patterns)[N], const std::string& path) {
    for (const char* pattern : patterns) {
        if (matches(pattern, path)) return true;
    }
    return false;
}

char kindOf(const cxxtools::SerializationInfo& node) {
    switch (node.category()) {
        case cxxtools::SerializationInfo::Object:
            return 'o';
        case cxxtools::SerializationInfo::Array:
            return 'a';
        default:
            break;
    }
    if (node.isNull()) return 'n';
    if (node.isBool()) return 'b';
    if (node.isInt() || node.isUInt()) return 'i';
    if (node.isFloat() || node.isDouble() || node.isLongDouble()) return 'f';
    return 's';
}

// One line per node of `node`: its path and kind, and its JSON text when it is a fixed value.
void describe(const cxxtools::SerializationInfo& node, const std::string& path, std::string& out) {
    const char kind = kindOf(node);
    out += path + ' ' + kind;
    if (matchesAny(VARIABLE, path)) {
        out += '\n';
        return;
    }
    if (kind != 'o' && kind != 'a' && !matchesAny(WRITABLE, path)) {
        out += ' ' + dme::formatJson(node);
    }
    out += '\n';
    unsigned index = 0;
    for (const cxxtools::SerializationInfo& member : node) {
        const std::string name = kind == 'a' ? std::to_string(index++) : member.name();
        describe(member, path + '/' + name, out);
    }
}

// Every account of the fully expanded tree lists its password as null.
bool passwordsHidden(const cxxtools::SerializationInfo& tree) {
    const cxxtools::SerializationInfo* users = tree.findMember("users");
    const cxxtools::SerializationInfo* members = users ? users->findMember("members") : nullptr;
    if (members == nullptr) return false;
    for (const cxxtools::SerializationInfo& account : *members) {
        const cxxtools::SerializationInfo* password = account.findMember("password");
        if (password == nullptr || !password->isNull()) return false;
    }
    return true;
}

// One fresh model with its engine, and the admin who runs the requests.
class Gateway {
  public:
    Gateway()
        : model_(DME_FUZZ_FACTORY, fuzz::stoppedClock),
          engine_(model_.dataModel(), "fuzz"),
          admin_(*example::builtInSession("admin"), {}) {}

    int run(dme::Method method, const std::string& uri, const dme::Arguments& arguments,
            const std::string& body, std::string& answer, bool beautify) {
        return engine_.execute(method, uri, arguments, admin_, body, answer, beautify);
    }

    // The result code and the answer of one request, as one text.
    std::string read(dme::Method method, const std::string& uri, const std::string& query) {
        std::string answer;
        const int code = run(method, uri, dme::Arguments(query), "", answer, false);
        return std::to_string(code) + ' ' + answer;
    }

    // What no request may change, as one text.
    std::string snapshot() {
        cxxtools::SerializationInfo tree;
        const int code = engine_.execute(dme::READ, "/", dme::Arguments("expand=10"), admin_,
                                         cxxtools::SerializationInfo(), tree);
        fuzz::check(code == 0 && passwordsHidden(tree));
        std::string text = read(dme::READ, "/factory", "expand=10") + '\n' +
                           read(dme::READ, "/system/firmwareVersion", "") + '\n' +
                           read(dme::SCHEMA, "/", "") + '\n';
        describe(tree, "", text);
        return text;
    }

  private:
    example::DeviceModel model_;
    dme::JsonDataModelEngine engine_;
    const dme::RequestInfo admin_;
};

// The low three bits choose one of the seven methods or, for 7, one of sixteen other patterns
// picked by the next four bits: no method, several at once, bits outside the known ones; the top
// bit asks for an indented answer.
dme::Method methodOf(std::uint8_t byte) {
    static const dme::Method methods[] = {dme::READ,   dme::UPDATE,    dme::CREATE,     dme::DELETE,
                                          dme::SCHEMA, dme::SUBSCRIBE, dme::UNSUBSCRIBE};
    static const std::uint32_t patterns[] = {0x0000, 0x0003, 0x0005,     0x000F, 0x0010, 0x0100,
                                             0x0200, 0x0300, 0x8001,     0x8002, 0x8300, 0x8308,
                                             0x4000, 0xFFFF, 0x80000000, 0x830F};
    const unsigned index = byte & 7u;
    if (index < 7) return methods[index];
    return static_cast<dme::Method>(patterns[(byte >> 3) & 0x0Fu]);
}

// The query as a front end that parses it hands it over or, when it does not parse, cut at '&'
// and the first '=' without decoding, so that odd names still reach the tree.
dme::Arguments argumentsOf(const std::string& query) {
    try {
        return dme::Arguments(query);
    } catch (const dme::Exception&) {
    }
    std::vector<dme::Arguments::Pair> pairs;
    std::size_t begin = 0;
    while (begin <= query.size()) {
        std::size_t end = query.find('&', begin);
        if (end == std::string::npos) end = query.size();
        const std::string item = query.substr(begin, end - begin);
        const std::size_t equals = item.find('=');
        pairs.emplace_back(item.substr(0, equals),
                           equals == std::string::npos ? "" : item.substr(equals + 1));
        begin = end + 1;
    }
    return dme::Arguments(pairs);
}

bool isKnownResult(int code) {
    static const std::set<int> known = {0, 1, 2, 3, 4, 6, 7, 8, 10, 12};
    return known.count(code) == 1;
}

bool isJson(const std::string& text) {
    try {
        dme::parseJson(text);
        return true;
    } catch (const dme::JsonSyntaxError&) {
        return false;
    }
}

const std::string& freshSnapshot() {
    static const std::string snapshot = Gateway().snapshot();
    return snapshot;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    const std::uint8_t methodByte = input.byte();
    const std::string uri = input.field();
    const std::string query = input.field();
    const std::string body = input.rest();

    const std::string& expected = freshSnapshot();
    Gateway gateway;
    std::string answer;
    try {
        const int code = gateway.run(methodOf(methodByte), uri, argumentsOf(query), body, answer,
                                     methodByte & 0x80);
        fuzz::check(isKnownResult(code));
        fuzz::check(isJson(answer));
    } catch (const dme::Exception& e) {
        // A query argument that the request context cannot read (a bad expand level, say)
        // leaves execute to the caller; nothing else may.
        fuzz::check(e.id >= dme::Error::ARGUMENT_MALFORMED_QUERY);
    }
    fuzz::check(gateway.snapshot() == expected);
    return 0;
}
