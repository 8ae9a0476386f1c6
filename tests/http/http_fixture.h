#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "dme/atomic_value.h"
#include "dme/container.h"
#include "dme/engine.h"
#include "dme/http/error_document.h"
#include "dme/http/server.h"
#include "dme/policy.h"
#include "dme/structure.h"
#include "http_client.h"
#include "test_nodes.h"

namespace dme {
namespace test {

// The role that the secret member asks for.
constexpr unsigned int ADMIN_ROLE = 1;

// Lets sessions with ADMIN_ROLE read and update, and nobody else do anything.
class AdminOnlyPolicy : public PermissionPolicy {
  public:
    PermissionPolicy* copy() const override { return new AdminOnlyPolicy(*this); }
    AllowedMethods getRights(const Context& ctx, bool) const override {
        if (!ctx.requestInfo().session().hasRole(ADMIN_ROLE)) return AllowedMethods();
        return AllowedMethods(READ) + AllowedMethods(UPDATE);
    }
    const PermissionPolicy* getAppliedPolicy() const override { return this; }
};

// The tests' users: "admin" (password "secret", ADMIN_ROLE) and "guest" (password "guest", no
// role).
inline std::optional<SessionInfo> checkPassword(const std::string& user,
                                                const std::string& password) {
    if (user == "admin" && password == "secret") {
        return SessionInfo(UserInfo("admin", 1, {ADMIN_ROLE}), {});
    }
    if (user == "guest" && password == "guest") return SessionInfo(UserInfo("guest", 2, {}), {});
    return std::nullopt;
}

// A server on 127.0.0.1 (port picked by the system) over this tree:
//   name     string "vara"   read, update
//   port     int 8080        read, update
//   enabled  bool true       read, update
//   serial   string "A1"     read only
//   leaf     TextLeaf "t"    every method, records its calls
//   bare     BareValue       read and pass-through allowed, nothing implemented
//   secret   string "hidden" read, update; AdminOnlyPolicy
// The data model allows every method and registers the binding's exception handler.
class HttpServerTest : public ::testing::Test {
  protected:
    static constexpr AllowedMethods READ_UPDATE = AllowedMethods(READ) + AllowedMethods(UPDATE);
    static constexpr AllowedMethods ALL = AllowedMethods(0x1F);

    HttpServerTest() {
        initCurl();
        secret_->setPermissionPolicy(AdminOnlyPolicy(),
                                     PermissionPolicyHolder::DefaultPolicyReplacer());
    }
    ~HttpServerTest() override {
        if (server_) server_->stop();
    }

    // What the tests start from: anonymous callers allowed, the tests' users, a short
    // heartbeat.
    static http::ServerOptions baseOptions() {
        http::ServerOptions options;
        options.port = 0;
        options.allowAnonymous = true;
        options.authenticator = &checkPassword;
        options.heartbeatInterval = std::chrono::milliseconds(100);
        return options;
    }

    void start(const http::ServerOptions& options = baseOptions()) {
        server_ = std::make_unique<http::Server>(engine_, options);
        server_->start();
    }

    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(server_->port()) + path;
    }

    HttpReply get(const std::string& path, const std::vector<std::string>& headers = {}) {
        return httpRequest("GET", url(path), "", headers);
    }

    // The calls that the leaf recorded, read under the server's engine lock.
    std::vector<std::string> leafCalls() {
        std::lock_guard<std::mutex> lock(server_->engineMutex());
        return leaf_.calls();
    }

    // The number of subscriptions, read under the notifier manager's lock.
    std::size_t subscriptions() const { return engine_.notifierManager()->notifiers().size(); }

    // Waits until no subscription is left, at most HTTP_PATIENCE; true when none is.
    bool waitForNoSubscription() const {
        const auto deadline = std::chrono::steady_clock::now() + HTTP_PATIENCE;
        while (subscriptions() != 0 && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return subscriptions() == 0;
    }

    const Lexicon lexicon_{"href", "id", "count", "items", "expand", "select"};
    TextLeaf leaf_{ALL, "t"};
    Value* secret_ = new StaticAtomicValue<std::string>("hidden", READ_UPDATE);
    DataModel model_{tree(), lexicon_, ALL, http::defaultExceptionHandlers()};
    JsonDataModelEngine engine_{model_, "http-test"};
    std::unique_ptr<http::Server> server_;

  private:
    Value* tree() {
        return new Structure(
            {new Entry("name", new StaticAtomicValue<std::string>("vara", READ_UPDATE)),
             new Entry("port", new StaticAtomicValue<int>(8080, READ_UPDATE)),
             new Entry("enabled", new StaticAtomicValue<bool>(true, READ_UPDATE)),
             new Entry("serial", new StaticAtomicValue<std::string>("A1", READ)),
             new Entry("leaf", leaf_),
             new Entry("bare", new BareValue(AllowedMethods(READ) + AllowedMethods::B)),
             new Entry("secret", secret_)},
            ALL, false);
    }
};

}  // namespace test
}  // namespace dme
