// Fuzzes the saved-configuration loader: the input is the content of the configuration file of
// the example gateway, restored into a fresh model. restore() must never throw for the file's
// content; the tree must read as JSON afterwards; and a file that is not JSON must be reported,
// moved aside and leave the tree as it was.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "device_model.h"
#include "dme/engine.h"
#include "dme/json.h"
#include "dme/saved_configuration.h"
#include "fuzz_input.h"

namespace {

const std::vector<std::string> SUBTREES = {"/system", "/labels", "/network/interfaces/lan",
                                           "/network/defaultRoute", "/network/dnsServers"};

std::string readTree(dme::JsonDataModelEngine& engine, const dme::RequestInfo& admin) {
    std::string out;
    engine.execute(dme::READ, "/", dme::Arguments("expand=10"), admin, "", out, false);
    return out;
}

bool isJson(const std::string& text) {
    try {
        dme::parseJson(text);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool exists(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string file = "/tmp/dme-fuzz-saved-config-" + std::to_string(::getpid());
    const std::string content(reinterpret_cast<const char*>(data), size);
    std::remove((file + ".corrupt").c_str());
    std::ofstream(file, std::ios::binary | std::ios::trunc) << content;

    example::DeviceModel model(DME_FUZZ_FACTORY, fuzz::stoppedClock);
    dme::JsonDataModelEngine engine(model.dataModel(), "fuzz");
    const dme::RequestInfo admin(*example::builtInSession("admin"), {});
    std::mutex engineMutex;
    const std::string before = readTree(engine, admin);
    std::vector<std::string> problems;
    {
        dme::SavedConfiguration saved(engine, engineMutex,
                                      {file, SUBTREES, std::chrono::milliseconds(1000), &admin});
        problems = saved.restore();
    }
    const std::string after = readTree(engine, admin);
    fuzz::check(isJson(after));
    if (!isJson(content)) {
        fuzz::check(!problems.empty());
        fuzz::check(exists(file + ".corrupt"));
        fuzz::check(after == before);
    }
    return 0;
}
