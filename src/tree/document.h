#pragma once

#include <cxxtools/serializationinfo.h>

#include <string>

namespace dme {
namespace internal {

// Adds a member called `name` to `out` that holds what `content` held, and returns it: the same
// document as `out.addMember(name) <<= content`, but the content is handed over instead of
// copied, so `content` is left with unspecified (valid) content. Swapping, not move-assigning:
// cxxtools leaks the members of a node that is move-assigned over.
inline cxxtools::SerializationInfo& appendMember(cxxtools::SerializationInfo& out,
                                                 const std::string& name,
                                                 cxxtools::SerializationInfo& content) {
    cxxtools::SerializationInfo& member = out.addMember(name);
    member.swap(content);
    member.setName(name);
    return member;
}

}  // namespace internal
}  // namespace dme
