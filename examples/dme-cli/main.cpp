// dme-cli: runs one request in-process against the example gateway model and prints the result
// code and the JSON answer, "<code> <json>".
//
//     dme-cli [--user NAME] [--factory FILE] [--pretty] METHOD URI [QUERY] [BODY]
//
// Exit status: 0 when the result code is 0, 1 for any other result code, 2 for a usage error.
// See docs/example.md.

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "device_model.h"
#include "dme/arguments.h"
#include "dme/engine.h"
#include "dme/exception.h"
#include "dme/json.h"
#include "dme/methods.h"
#include "dme/session.h"

namespace {

constexpr int EXIT_DONE = 0;
constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

// The environment variable that overrides the built-in location of the factory file.
constexpr const char* FACTORY_VARIABLE = "DME_DEVICE_FACTORY";

constexpr const char* USAGE =
    "usage: dme-cli [--user NAME] [--factory FILE] [--pretty] METHOD URI [QUERY] [BODY]\n"
    "  METHOD          READ, UPDATE, CREATE, DELETE or SCHEMA (any case)\n"
    "  URI             path of the node, e.g. /system/hostname\n"
    "  QUERY           query arguments, e.g. expand=1&select=hostname (\"\" for none)\n"
    "  BODY            JSON text of the request body\n"
    "  --user NAME     guest, operator or admin (default: admin)\n"
    "  --factory FILE  the JSON file shown under /factory (default: $DME_DEVICE_FACTORY, else\n"
    "                  the file shipped in the source tree)\n"
    "  --pretty        indent the answer\n"
    "Prints \"<code> <json>\". Exit status: 0 for code 0, 1 for another code, 2 for a usage\n"
    "error.\n";

struct Request {
    std::string user = "admin";
    std::string factoryFile;
    bool pretty = false;
    dme::Method method = dme::READ;
    std::string uri;
    std::string query;
    std::string body;
};

// Thrown for a command line that cannot be run; the text says why.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

dme::Method parseMethod(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    const std::vector<std::pair<std::string, dme::Method>> methods{{"READ", dme::READ},
                                                                   {"UPDATE", dme::UPDATE},
                                                                   {"CREATE", dme::CREATE},
                                                                   {"DELETE", dme::DELETE},
                                                                   {"SCHEMA", dme::SCHEMA}};
    for (const auto& method : methods) {
        if (method.first == name) return method.second;
    }
    throw UsageError("unknown method " + name);
}

std::string defaultFactoryFile() {
    const char* configured = std::getenv(FACTORY_VARIABLE);
    if (configured != nullptr && *configured != '\0') return configured;
    return DME_DEVICE_FACTORY_DEFAULT;
}

// The value of the option at `args[i]`, which must be followed by one.
const std::string& optionValue(const std::vector<std::string>& args, std::size_t i) {
    if (i + 1 >= args.size()) throw UsageError(args[i] + " needs a value");
    return args[i + 1];
}

Request parseCommandLine(const std::vector<std::string>& args) {
    Request request;
    request.factoryFile = defaultFactoryFile();
    std::size_t i = 0;
    for (; i < args.size() && args[i].rfind("--", 0) == 0; ++i) {
        if (args[i] == "--pretty") {
            request.pretty = true;
        } else if (args[i] == "--user") {
            request.user = optionValue(args, i++);
        } else if (args[i] == "--factory") {
            request.factoryFile = optionValue(args, i++);
        } else {
            throw UsageError("unknown option " + args[i]);
        }
    }
    const std::vector<std::string> positional(args.begin() + i, args.end());
    if (positional.size() < 2 || positional.size() > 4) {
        throw UsageError("expected METHOD URI [QUERY] [BODY]");
    }
    request.method = parseMethod(positional[0]);
    request.uri = positional[1];
    if (positional.size() > 2) request.query = positional[2];
    if (positional.size() > 3) request.body = positional[3];
    return request;
}

// Runs the request and prints "<code> <json>"; returns the result code.
int run(const Request& request) {
    const std::optional<dme::SessionInfo> session = example::builtInSession(request.user);
    if (!session) throw UsageError("unknown user " + request.user);
    example::DeviceModel model(request.factoryFile);
    dme::JsonDataModelEngine engine(model.dataModel(), "dme-cli");
    const dme::RequestInfo caller(*session, {});
    std::string answer;
    int code;
    try {
        code = engine.execute(request.method, request.uri, dme::Arguments(request.query), caller,
                              request.body, answer, request.pretty);
    } catch (const dme::Exception& rejected) {
        // A malformed query or expand argument is refused before the request reaches the tree,
        // so the model's exception handlers do not see it; answer it the way they would.
        code = example::REJECTED;
        answer = dme::formatJson(example::errorDocument(rejected), request.pretty);
    }
    // An indented answer ends with a line break of its own.
    if (answer.empty() || answer.back() != '\n') answer += '\n';
    std::cout << code << ' ' << answer << std::flush;
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
        std::cout << USAGE;
        return EXIT_DONE;
    }
    try {
        return run(parseCommandLine(args)) == 0 ? EXIT_DONE : EXIT_FAILED;
    } catch (const UsageError& error) {
        std::cerr << "dme-cli: " << error.what() << '\n' << USAGE;
        return EXIT_USAGE;
    } catch (const std::exception& error) {
        std::cerr << "dme-cli: " << error.what() << '\n';
        return EXIT_FAILED;
    }
}
