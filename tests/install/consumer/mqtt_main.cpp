#include <dme/dme.h>
#include <dme/mqtt/mqtt.h>

#include <iostream>
#include <stdexcept>
#include <string>

int main() {
    dme::Structure root({}, dme::AllowedMethods(dme::READ), false);
    dme::DataModel model(root, dme::Lexicon(), dme::AllowedMethods(dme::READ));
    dme::JsonDataModelEngine engine(model, "consumer");
    dme::mqtt::DeviceOptions options;
    options.deviceId = "not/one/level";
    try {
        dme::mqtt::Device device(engine, options);
    } catch (const std::invalid_argument& e) {
        std::cout << e.what() << '\n';
        return std::string(e.what()) == "Invalid device id" ? 0 : 1;
    }
    return 1;
}
