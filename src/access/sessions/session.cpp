#include "dme/session.h"

#include <algorithm>
#include <utility>

namespace dme {
namespace {

std::vector<NamedFlag> sorted(std::vector<NamedFlag> flags) {
    std::sort(flags.begin(), flags.end());
    return flags;
}

bool contains(const std::vector<NamedFlag>& sortedFlags, const NamedFlag& flag) {
    return std::binary_search(sortedFlags.begin(), sortedFlags.end(), flag);
}

}  // namespace

NamedFlag::NamedFlag(const char* name) : name_(name) {}

NamedFlag::NamedFlag(std::string name) : name_(std::move(name)) {}

std::ostream& operator<<(std::ostream& os, const NamedFlag& flag) {
    return os << flag.name();
}

std::ostream& operator<<(std::ostream& os, const std::vector<NamedFlag>& flags) {
    if (flags.empty()) return os << "none";
    os << '(';
    const char* separator = "";
    for (const NamedFlag& flag : flags) {
        os << separator << flag;
        separator = ", ";
    }
    return os << ')';
}

UserInfo::UserInfo() : name_("#unknown"), id_(0xFFFFFFFFu) {}

UserInfo::UserInfo(const std::string& name, unsigned int id, std::vector<unsigned int> roles)
    : name_(name), id_(id), roles_(std::move(roles)) {
    std::sort(roles_.begin(), roles_.end());
}

bool UserInfo::hasRole(unsigned int role) const {
    return std::binary_search(roles_.begin(), roles_.end(), role);
}

SessionInfo::SessionInfo() = default;

SessionInfo::SessionInfo(const UserInfo& user, const std::vector<NamedFlag>& flags)
    : UserInfo(user), flags_(sorted(flags)) {}

SessionInfo::SessionInfo(const UserInfo& user, const std::vector<NamedFlag>& flags,
                         Customs&& customs)
    : UserInfo(user), flags_(sorted(flags)), customs_(std::move(customs)) {}

SessionInfo::SessionInfo(const UserInfo& user, const std::vector<NamedFlag>& flags,
                         const std::vector<std::shared_ptr<ICustom>>& customs)
    : UserInfo(user), flags_(flags), customs_(customs) {}

SessionInfo::SessionInfo(const UserInfo& user, const std::vector<NamedFlag>& flags,
                         std::shared_ptr<ICustom>&& custom)
    : UserInfo(user), flags_(sorted(flags)), customs_({std::move(custom)}) {}

SessionInfo::SessionInfo(const UserInfo& user, const std::vector<NamedFlag>& flags,
                         std::initializer_list<std::shared_ptr<ICustom>> customs)
    : UserInfo(user), flags_(sorted(flags)), customs_(customs) {}

bool SessionInfo::hasFlag(const NamedFlag& flag) const {
    return contains(flags_, flag);
}

RequestInfo::RequestInfo() = default;

RequestInfo::RequestInfo(SessionInfo session, std::vector<NamedFlag> flags)
    : session_(std::move(session)), flags_(sorted(std::move(flags))) {}

bool RequestInfo::hasFlag(const NamedFlag& flag) const {
    return contains(flags_, flag);
}

}  // namespace dme
