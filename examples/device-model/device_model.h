#pragma once

#include <cxxtools/serializationinfo.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dme/context.h"
#include "dme/engine.h"
#include "dme/exception.h"
#include "dme/methods.h"
#include "dme/policy.h"
#include "dme/session.h"

// The data model of an example home gateway, built from every node type of the library, with
// role-based permissions and three built-in users. It can be served by any engine: construct a
// DeviceModel, then an engine over `dataModel()`, e.g.
//
//     example::DeviceModel model("/usr/share/gateway/factory.json");
//     dme::JsonDataModelEngine engine(model.dataModel(), "gateway");
//     engine.execute(dme::READ, "/system", dme::Arguments(),
//                    dme::RequestInfo(*example::builtInSession("guest"), {}), "", answer, false);
//
// docs/example.md lists the tree and who may do what.
namespace example {

// The roles that the permission policies of the model know.
enum Role : unsigned int {
    GUEST = 1,     // reads everything
    OPERATOR = 2,  // reads everything and also updates the network
    ADMIN = 3,     // does everything
};

// Grants rights by role: a session's rights are the union of the rights granted to each of its
// roles; a session without a granted role has none.
//
// Subscriptions are the exception. The engine makes them without a session, and a notification
// tells its observer nothing but that a node changed (the data is then read with the reader's
// own rights), so a SUBSCRIBE or UNSUBSCRIBE request is granted browsing, whoever makes it.
//
// Immutable apart from the parent holder; `copy()` keeps the grants and the parent holder.
class RolePolicy : public dme::PermissionPolicy {
  public:
    using Grants = std::map<unsigned int, dme::AllowedMethods>;

    explicit RolePolicy(Grants grants);
    dme::PermissionPolicy* copy() const override;
    // Browsing (B) for a SUBSCRIBE or UNSUBSCRIBE request; otherwise the union of the grants of
    // the roles of `ctx`'s session.
    dme::AllowedMethods getRights(const dme::Context& ctx, bool refresh) const override;
    // Itself: a role policy decides for its node.
    const dme::PermissionPolicy* getAppliedPolicy() const override;

    const Grants& grants() const { return grants_; }

  private:
    Grants grants_;
};

// The lexicon of the model: "href", "id", "count", "members", arguments "expand" and "select".
const dme::Lexicon& lexicon();

// The result code of a rejected input (a dme::Exception): invalid argument.
constexpr int REJECTED = 10;

// The error document of a rejected input:
// {"error": {"code": <id>, "message": <message>, "details": [<detail1>, <detail2>]}}, where
// detail2 is listed only when it is not empty.
cxxtools::SerializationInfo errorDocument(const dme::Exception& exception);

// The model's exception handlers: a dme::Exception replaces the answer by its error document and
// gives REJECTED; every other exception is declined (12).
dme::ExceptionHandlers exceptionHandlers();

// The names of the built-in users, in increasing order of rights: "guest", "operator", "admin".
const std::vector<std::string>& builtInUserNames();

// The session of the built-in user `name`, holding that user's one role (GUEST, OPERATOR or
// ADMIN); nothing for any other name.
std::optional<dme::SessionInfo> builtInSession(const std::string& name);

// The simulated device behind the tree: clock, boots, labels and default route. Defined in
// device_model.cpp; the tree's callbacks and links refer to it.
struct GatewayState;

// Owns the tree of the example gateway, its simulated device state and the DataModel over them.
// Engines borrow `dataModel()` and must be destroyed before the DeviceModel. Requests must run
// one at a time (the tree takes no lock). Not copyable.
class DeviceModel {
  public:
    // A monotonic clock, in whole seconds from any fixed origin; it drives the uptime.
    using Clock = std::function<std::chrono::seconds()>;

    // The steady clock of the system.
    static Clock systemClock();

    // Builds the tree. `factoryFile` is the JSON file shown under /factory; it is read at the
    // first request that needs it (a missing or invalid file makes those requests answer 1).
    // The accounts "alice" (admin) and "bob" (operator) are created as /users/1 and /users/2.
    explicit DeviceModel(const std::string& factoryFile, Clock clock = systemClock());
    ~DeviceModel();
    DeviceModel(const DeviceModel&) = delete;
    DeviceModel& operator=(const DeviceModel&) = delete;

    dme::DataModel& dataModel() { return *dataModel_; }

    // Tells the observers of /status that it has changed. They are told of every reboot; the
    // uptime and the traffic counters change every second, and the application decides how
    // often to say so. Call it the way requests are run: one at a time with them.
    void notifyStatusChange();

    // The simulated device state, as the requests leave it.
    unsigned int bootCount() const;
    const std::map<std::string, std::string>& labels() const;

  private:
    void configurePolicies();
    void createAccount(const std::string& body);

    std::unique_ptr<GatewayState> state_;
    std::unique_ptr<dme::DataModel> dataModel_;
};

}  // namespace example
