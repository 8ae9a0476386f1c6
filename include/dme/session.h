#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "quill/common/type_indexed_container.h"

namespace dme {

// A flag known by its name, granted to a session or a request by the application. Ordered and
// compared by name (byte-wise). A plain value type: copyable; not thread-safe for mutation.
class NamedFlag {
  public:
    NamedFlag(const char* name);  // NOLINT: implicit so that flag lists can be written as text
    NamedFlag(std::string name);  // NOLINT: implicit so that flag lists can be written as text

    const std::string& name() const { return name_; }

    friend bool operator<(const NamedFlag& a, const NamedFlag& b) { return a.name_ < b.name_; }
    friend bool operator==(const NamedFlag& a, const NamedFlag& b) { return a.name_ == b.name_; }
    friend bool operator!=(const NamedFlag& a, const NamedFlag& b) { return !(a == b); }

  private:
    std::string name_;
};

// Writes the flag's name.
std::ostream& operator<<(std::ostream& os, const NamedFlag& flag);
// Writes "none" for no flags, else the names in parentheses separated by ", ", e.g. "(a, b)".
std::ostream& operator<<(std::ostream& os, const std::vector<NamedFlag>& flags);

// A user: a name, a numeric identity and a set of roles kept sorted ascending (duplicates are
// kept). A plain value type: copyable; not thread-safe for mutation.
class UserInfo {
  public:
    // The anonymous user: name "#unknown", id 0xFFFFFFFF, no roles.
    UserInfo();
    // Stores name and id and sorts the roles.
    UserInfo(const std::string& name, unsigned int id, std::vector<unsigned int> roles);

    const std::string& name() const { return name_; }
    std::uint32_t id() const { return id_; }
    // The roles, ascending.
    const std::vector<unsigned int>& roles() const { return roles_; }
    // Whether `role` is among the roles (binary search).
    bool hasRole(unsigned int role) const;

  private:
    std::string name_;
    std::uint32_t id_;
    std::vector<unsigned int> roles_;
};

// A session: its user (the session is a UserInfo, so it serves wherever its user does), the flags
// that the application grants it, sorted by name, and application-defined extension objects
// (customs), at most one per dynamic type. A value type: copyable (copies share the customs);
// not thread-safe for mutation.
class SessionInfo : public UserInfo {
  public:
    // The base of the application's session extensions, found again by their exact type.
    class ICustom {
      public:
        virtual ~ICustom() = default;
    };
    using Customs = quill::common::TypeIndexedContainer<ICustom>;

    // Every constructor copies the user and the flags. Those that build the customs from
    // objects throw std::runtime_error for a null object and std::invalid_argument for two
    // objects of one type.

    // The anonymous user, no flags, no customs.
    SessionInfo();
    // Sorts the flags; no customs.
    SessionInfo(const UserInfo& user, const std::vector<NamedFlag>& flags);
    // Sorts the flags and takes the customs over.
    SessionInfo(const UserInfo& user, const std::vector<NamedFlag>& flags, Customs&& customs);
    // Keeps the flags in the order given (unlike every other constructor): hasFlag is reliable
    // only when they are passed already sorted by name.
    SessionInfo(const UserInfo& user, const std::vector<NamedFlag>& flags,
                const std::vector<std::shared_ptr<ICustom>>& customs);
    // Sorts the flags; the one custom object given.
    SessionInfo(const UserInfo& user, const std::vector<NamedFlag>& flags,
                std::shared_ptr<ICustom>&& custom);
    // Sorts the flags; the custom objects given.
    SessionInfo(const UserInfo& user, const std::vector<NamedFlag>& flags,
                std::initializer_list<std::shared_ptr<ICustom>> customs);

    const UserInfo& user() const { return *this; }
    // The flags, sorted by name except as noted for the constructor that keeps their order.
    const std::vector<NamedFlag>& flags() const { return flags_; }
    const Customs& customs() const { return customs_; }
    Customs& customs() { return customs_; }

    // Whether the session holds a flag of that name (binary search in the session's flags).
    bool hasFlag(const NamedFlag& flag) const;

  private:
    std::vector<NamedFlag> flags_;
    Customs customs_;
};

// The caller of one request: its session and the flags that hold for this request only, sorted
// by name. A value type: copyable; not thread-safe for mutation.
class RequestInfo {
  public:
    // An anonymous session without flags, no request flags.
    RequestInfo();
    // Takes both; sorts the request flags.
    RequestInfo(SessionInfo session, std::vector<NamedFlag> flags);

    const SessionInfo& session() const { return session_; }
    // The request's own flags, sorted by name.
    const std::vector<NamedFlag>& flags() const { return flags_; }

    // Whether the request itself holds a flag of that name; the session's flags are not
    // consulted.
    bool hasFlag(const NamedFlag& flag) const;

  private:
    SessionInfo session_;
    std::vector<NamedFlag> flags_;
};

}  // namespace dme
