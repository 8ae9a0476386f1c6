#include "device_model.h"

#include <arpa/inet.h>
#include <cxxtools/serializationerror.h>

#include <stdexcept>
#include <typeindex>
#include <utility>

#include "dme/action.h"
#include "dme/api_composite_value.h"
#include "dme/array.h"
#include "dme/atomic_value.h"
#include "dme/collection.h"
#include "dme/container.h"
#include "dme/dynamic_collection.h"
#include "dme/dynamic_flat_structure.h"
#include "dme/enum_value.h"
#include "dme/expanded_link.h"
#include "dme/file_structure.h"
#include "dme/json.h"
#include "dme/link.h"
#include "dme/path.h"
#include "dme/result.h"
#include "dme/static_collection.h"
#include "dme/structure.h"

namespace example {
namespace {

using cxxtools::SerializationInfo;
using dme::AllowedMethods;

constexpr AllowedMethods R = AllowedMethods::R;
constexpr AllowedMethods RB = AllowedMethods::R | AllowedMethods::B;
constexpr AllowedMethods RU = AllowedMethods::R | AllowedMethods::U;
constexpr AllowedMethods RUB = AllowedMethods::R | AllowedMethods::U | AllowedMethods::B;
constexpr AllowedMethods CRUB = RUB + AllowedMethods::C;
constexpr AllowedMethods RUDB = RUB + AllowedMethods::D;
constexpr AllowedMethods ALL = CRUB + AllowedMethods::D;

// The most accounts that /users holds.
constexpr unsigned int MAX_ACCOUNTS = 4;
// The longest reason that a reboot records.
constexpr unsigned int MAX_REASON_LENGTH = 64;
// Simulated WAN traffic, in bytes per second of uptime.
constexpr unsigned long long RX_RATE = 12500;
constexpr unsigned long long TX_RATE = 2500;

// Refuses a text by throwing a dme::Exception; returns when the text is acceptable.
using TextCheck = std::function<void(const std::string&)>;

// A string value whose updates must pass an application check after the length check.
class CheckedString : public dme::StaticAtomicValue<std::string> {
  public:
    CheckedString(const std::string& value, AllowedMethods allowed, unsigned int minLength,
                  unsigned int maxLength, TextCheck check)
        : dme::StaticAtomicValue<std::string>(value, allowed, minLength, maxLength),
          check_(std::move(check)) {}

    void validateValue(dme::Context& ctx, const std::string& value) override {
        dme::AtomicValue<std::string>::validateValue(ctx, value);
        check_(value);
    }

  private:
    TextCheck check_;
};

// A host name: letters, digits and inner hyphens. Runs after the length check, which refuses the
// empty text.
void checkHostname(const std::string& name) {
    for (char c : name) {
        const bool letterOrDigit =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!letterOrDigit && c != '-') dme::Exception::throwStringInvalidFormat(name);
    }
    if (name.front() == '-' || name.back() == '-') dme::Exception::throwStringInvalidFormat(name);
}

// A dotted IPv4 address.
void checkIpv4(const std::string& address) {
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1) {
        dme::Exception::throwInvalidIpAddress(address);
    }
}

// A dotted IPv4 address, or the empty text for an interface without an address of its own.
void checkOptionalIpv4(const std::string& address) {
    if (!address.empty()) checkIpv4(address);
}

// The ids of the network interfaces, in the order of the collection.
const std::vector<std::string>& interfaceIds() {
    static const std::vector<std::string> ids{"wan", "lan", "wlan"};
    return ids;
}

void checkInterfaceId(const std::string& id) {
    for (const std::string& known : interfaceIds()) {
        if (id == known) return;
    }
    dme::Exception::throwValueNotInList(id);
}

// The built-in users: user ids 1001 to 1003, one role each.
const std::vector<dme::UserInfo>& builtInUsers() {
    static const std::vector<dme::UserInfo> users{
        {"guest", 1001, {GUEST}}, {"operator", 1002, {OPERATOR}}, {"admin", 1003, {ADMIN}}};
    return users;
}

// The status document of the simulated device, fetched afresh at every request. It can be
// subscribed to: its observers are told of what the device reports as a change.
class StatusValue : public dme::ApiCompositeValue {
  public:
    explicit StatusValue(Getter getter) : dme::ApiCompositeValue(std::move(getter), RB, false) {}

    int subscribeToValue(dme::Context&) override { return dme::result::DONE; }
    int unsubscribeToValue(dme::Context&) override { return dme::result::DONE; }
};

// The stored list of strings behind a link array.
class StringList : public dme::ArrayValue<std::string> {
  public:
    explicit StringList(std::vector<std::string> strings)
        : dme::ArrayValue<std::string>(R), strings_(std::move(strings)) {}

    std::vector<std::string> getValue(dme::Context&) override { return strings_; }
    int setValue(dme::Context&, const std::vector<std::string>& strings) override {
        strings_ = strings;
        return dme::result::DONE;
    }

  private:
    std::vector<std::string> strings_;
};

const dme::EnumValue::List& logLevels() {
    static const dme::EnumValue::List levels{
        {"error", 0}, {"warning", 1}, {"info", 2}, {"debug", 3}};
    return levels;
}

const dme::EnumValue::List& accountRoles() {
    static const dme::EnumValue::List roles{
        {"guest", GUEST}, {"operator", OPERATOR}, {"admin", ADMIN}};
    return roles;
}

dme::Entry* text(const char* name, const std::string& value, AllowedMethods allowed,
                 unsigned int minLength, unsigned int maxLength) {
    return new dme::Entry(
        name, new dme::StaticAtomicValue<std::string>(value, allowed, minLength, maxLength));
}

dme::Entry* checkedText(const char* name, const std::string& value, unsigned int minLength,
                        unsigned int maxLength, TextCheck check) {
    return new dme::Entry(name,
                          new CheckedString(value, RU, minLength, maxLength, std::move(check)));
}

dme::Entry* flag(const char* name, bool value) {
    return new dme::Entry(name, new dme::StaticAtomicValue<bool>(value, RU));
}

template <class T>
dme::Entry* number(const char* name, T value, T minValue, T maxValue) {
    return new dme::Entry(name, new dme::StaticAtomicValue<T>(value, RU, minValue, maxValue));
}

dme::Entry* enumeration(const char* name, const dme::EnumValue::List& list, unsigned int value) {
    const unsigned int lowest = list.front().second;
    const unsigned int highest = list.back().second;
    auto* stored = new dme::StaticAtomicValue<unsigned int>(value, RU, lowest, highest);
    return new dme::Entry(name, new dme::EnumValue(list, stored, RU));
}

// One account of /users: its password can be set but is never shown, not even in the error
// that refuses one.
dme::CollectionItem* makeAccount() {
    auto* password = new dme::StaticAtomicValue<std::string>("", AllowedMethods::U, 8, 64);
    password->setSecret(true);
    return new dme::CollectionItem(
        {text("name", "", RU, 1, 32), enumeration("role", accountRoles(), GUEST),
         flag("enabled", true), new dme::UpdateOnlyEntry("password", password)},
        RUDB, false);
}

struct InterfaceSetup {
    const char* device;
    const char* address;
    unsigned int mtu;
    std::vector<std::string> lowerLayers;
};

// One network interface; its lower layers link to other interfaces of the collection.
dme::CollectionItemWithId* makeInterface(const std::string& id, const InterfaceSetup& setup) {
    auto* lowerLayers = new dme::LinkArray(dme::Path::PARENT, new StringList(setup.lowerLayers), R);
    return new dme::CollectionItemWithId(
        id,
        {text("device", setup.device, R, 0, 16), flag("enabled", true),
         checkedText("address", setup.address, 0, 15, checkOptionalIpv4),
         number<unsigned int>("mtu", setup.mtu, 576, 9000),
         new dme::Entry("lowerLayers", lowerLayers)},
        RUB, false);
}

dme::StaticCollectionWithId* makeInterfaces() {
    const std::vector<InterfaceSetup> setups{{"eth1", "203.0.113.10", 1492, {}},
                                             {"br0", "192.168.1.1", 1500, {"wlan"}},
                                             {"wlan0", "", 1500, {}}};
    std::vector<dme::CollectionItemWithId*> items;
    for (std::size_t i = 0; i < setups.size(); ++i) {
        items.push_back(makeInterface(interfaceIds()[i], setups[i]));
    }
    return new dme::StaticCollectionWithId(items, RB, false);
}

dme::Value* makeDnsServers() {
    return new dme::StaticArray({new CheckedString("192.0.2.53", RU, 7, 15, checkIpv4),
                                 new CheckedString("198.51.100.53", RU, 7, 15, checkIpv4)},
                                RUB);
}

}  // namespace

struct GatewayState {
    explicit GatewayState(DeviceModel::Clock deviceClock)
        : clock(std::move(deviceClock)),
          bootTime(clock()),
          defaultRoute("wan", RU, 1, 16, checkInterfaceId) {}

    // Restarts the uptime, counts the boot and tells the observers of the status.
    void reboot(const std::string& reason) {
        bootTime = clock();
        ++bootCount;
        lastReboot = reason;
        statusNode->notifyChange();
    }

    SerializationInfo status() const {
        const auto uptime = static_cast<unsigned long long>((clock() - bootTime).count());
        SerializationInfo document;
        document.addMember("uptime").setValue(uptime);
        document.addMember("bootCount").setValue(bootCount);
        document.addMember("lastReboot").setValue(lastReboot);
        SerializationInfo& traffic = document.addMember("traffic");
        traffic.addMember("rxBytes").setValue(uptime * RX_RATE);
        traffic.addMember("txBytes").setValue(uptime * TX_RATE);
        return document;
    }

    DeviceModel::Clock clock;
    std::chrono::seconds bootTime;
    unsigned int bootCount = 1;
    std::string lastReboot = "power-on";
    std::map<std::string, std::string> labels{{"floor", "1"}, {"room", "hallway"}};
    // The id of the interface that carries the default route, shared by a link and an
    // expanded link.
    CheckedString defaultRoute;
    // The node of /status, set when the tree is built.
    const dme::Value* statusNode = nullptr;
};

namespace {

// Reboots the simulated device. The optional body {"reason": "..."} names the reason (at most
// MAX_REASON_LENGTH bytes); the answer is {"bootCount": n, "lastReboot": reason}.
dme::ApiAction* makeReboot(GatewayState& state) {
    return new dme::ApiAction(
        dme::ApiAction::Function([&state](const SerializationInfo& in, SerializationInfo& out) {
            if (in.category() == SerializationInfo::Value ||
                in.category() == SerializationInfo::Array) {
                dme::Exception::throwInvalidType("reboot", "object");
            }
            std::string reason = "requested";
            if (const SerializationInfo* given = in.findMember("reason")) {
                try {
                    dme::deserializeValue(*given, reason);
                } catch (const cxxtools::SerializationConversionError&) {
                    dme::Exception::throwInvalidType("reason", "string");
                }
                if (reason.size() > MAX_REASON_LENGTH) {
                    dme::Exception::throwStringTooLong(reason, MAX_REASON_LENGTH);
                }
            }
            state.reboot(reason);
            out.addMember("bootCount").setValue(state.bootCount);
            out.addMember("lastReboot").setValue(state.lastReboot);
        }));
}

dme::Structure* makeSystem(GatewayState& state) {
    return new dme::Structure(
        {checkedText("hostname", "gateway", 1, 63, checkHostname), text("location", "", RU, 0, 64),
         text("firmwareVersion", "2.4.1", R, 0, 32), number<int>("timezoneOffset", 60, -720, 840),
         flag("ntpEnabled", true), enumeration("logLevel", logLevels(), 1),
         new dme::Entry("reboot", makeReboot(state))},
        RUB, false);
}

dme::Structure* makeNetwork(GatewayState& state) {
    dme::StaticCollectionWithId* interfaces = makeInterfaces();
    return new dme::Structure(
        {new dme::Entry("interfaces", interfaces),
         new dme::Entry("defaultRoute",
                        new dme::Link(dme::Path("interfaces"), state.defaultRoute, RU)),
         new dme::Entry("gateway", new dme::ExpandedLink(*interfaces, state.defaultRoute, true)),
         new dme::Entry("dnsServers", makeDnsServers())},
        RUB, false);
}

dme::Value* makeStatus(GatewayState& state) {
    auto* status = new StatusValue([&state] { return state.status(); });
    state.statusNode = status;
    return status;
}

dme::Value* makeLabels(GatewayState& state) {
    return new dme::DynamicFlatStructure(
        [&state] { return state.labels; },
        [&state](const dme::DynamicFlatStructure::Map& labels) { state.labels = labels; }, RUB,
        false);
}

dme::Structure* makeRoot(GatewayState& state, const std::string& factoryFile) {
    return new dme::Structure(
        {new dme::Entry("system", makeSystem(state)), new dme::Entry("status", makeStatus(state)),
         new dme::Entry("factory", new dme::FileStructure(factoryFile, {}, RB, false)),
         new dme::Entry("labels", makeLabels(state)), new dme::Entry("network", makeNetwork(state)),
         new dme::Entry("users",
                        new dme::DynamicCollection(makeAccount, CRUB, false, 0, MAX_ACCOUNTS, 0))},
        RB, false);
}

}  // namespace

RolePolicy::RolePolicy(Grants grants) : grants_(std::move(grants)) {}

dme::PermissionPolicy* RolePolicy::copy() const {
    return new RolePolicy(*this);
}

dme::AllowedMethods RolePolicy::getRights(const dme::Context& ctx, bool) const {
    if (ctx.method() == dme::SUBSCRIBE || ctx.method() == dme::UNSUBSCRIBE) {
        return dme::AllowedMethods::B;
    }
    dme::AllowedMethods rights;
    for (unsigned int role : ctx.requestInfo().session().roles()) {
        const auto grant = grants_.find(role);
        if (grant != grants_.end()) rights = rights + grant->second;
    }
    return rights;
}

const dme::PermissionPolicy* RolePolicy::getAppliedPolicy() const {
    return this;
}

const dme::Lexicon& lexicon() {
    static const dme::Lexicon names{"href", "id", "count", "members", "expand", "select"};
    return names;
}

SerializationInfo errorDocument(const dme::Exception& exception) {
    SerializationInfo document;
    SerializationInfo& error = document.addMember("error");
    error.addMember("code").setValue(static_cast<unsigned int>(exception.id));
    error.addMember("message").setValue(exception.message);
    SerializationInfo& details = error.addMember("details");
    details.setCategory(SerializationInfo::Array);
    details.addMember().setValue(exception.detail1);
    if (!exception.detail2.empty()) details.addMember().setValue(exception.detail2);
    return document;
}

dme::ExceptionHandlers exceptionHandlers() {
    auto handler = [](std::exception& e, dme::Context&, const SerializationInfo&,
                      SerializationInfo& out) {
        const auto* rejected = dynamic_cast<const dme::Exception*>(&e);
        if (rejected == nullptr) return dme::ExceptionHandlers::NOT_HANDLED;
        // Swapped in: cxxtools' move assignment leaks the members that `out` held before.
        SerializationInfo document = errorDocument(*rejected);
        out.swap(document);
        return REJECTED;
    };
    return dme::ExceptionHandlers({{std::type_index(typeid(dme::Exception)), handler}});
}

const std::vector<std::string>& builtInUserNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> userNames;
        for (const dme::UserInfo& user : builtInUsers()) userNames.push_back(user.name());
        return userNames;
    }();
    return names;
}

std::optional<dme::SessionInfo> builtInSession(const std::string& name) {
    for (const dme::UserInfo& user : builtInUsers()) {
        if (user.name() == name) return dme::SessionInfo(user, {});
    }
    return std::nullopt;
}

DeviceModel::Clock DeviceModel::systemClock() {
    return [] {
        return std::chrono::duration_cast<std::chrono::seconds>(
            std::chrono::steady_clock::now().time_since_epoch());
    };
}

DeviceModel::DeviceModel(const std::string& factoryFile, Clock clock)
    : state_(std::make_unique<GatewayState>(std::move(clock))),
      dataModel_(std::make_unique<dme::DataModel>(makeRoot(*state_, factoryFile), lexicon(), ALL,
                                                  exceptionHandlers())) {
    configurePolicies();
    // Attaches every node to its parent, so that paths and inherited policies hold before the
    // accounts are created. An engine does it again; that changes nothing.
    dataModel_->init();
    createAccount(R"({"name": "alice", "role": "admin"})");
    createAccount(R"({"name": "bob", "role": "operator"})");
}

DeviceModel::~DeviceModel() = default;

void DeviceModel::notifyStatusChange() {
    state_->statusNode->notifyChange();
}

unsigned int DeviceModel::bootCount() const {
    return state_->bootCount;
}

const std::map<std::string, std::string>& DeviceModel::labels() const {
    return state_->labels;
}

// Replaces the static policy that the data model gave the root: everyone reads and browses;
// only an admin changes anything, except in /network, which an operator may update too.
void DeviceModel::configurePolicies() {
    const dme::PermissionPolicyHolder::DefaultPolicyReplacer replace;
    dme::Value& root = *dataModel_->root();
    root.setPermissionPolicy(RolePolicy({{GUEST, RB}, {OPERATOR, RB}, {ADMIN, ALL}}), replace);
    dme::PathBrowser network(std::string("network"));
    root.configurePermissionPolicy(
        network, RolePolicy({{GUEST, RB}, {OPERATOR, RUB}, {ADMIN, ALL}}), replace);
}

// Creates an account as the admin would, so that it passes the same checks as a client's.
void DeviceModel::createAccount(const std::string& body) {
    const dme::RequestInfo admin(*builtInSession("admin"), {});
    dme::Context ctx(lexicon(), dme::CREATE, "/users", dme::Arguments(), admin, false);
    SerializationInfo answer;
    if (dataModel_->root()->process(ctx, dme::parseJson(body), answer) != dme::result::DONE) {
        throw std::logic_error("The example model could not create the account " + body);
    }
}

}  // namespace example
