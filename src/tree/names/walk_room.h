#pragma once

namespace dme {
namespace internal {

// The path segments that the walk of a request for `requested` segments is given room for up
// front: it goes down to the requested node and, when expanding, usually a few levels below it.
inline unsigned int walkRoom(unsigned int requested) {
    return requested + 4;
}

}  // namespace internal
}  // namespace dme
