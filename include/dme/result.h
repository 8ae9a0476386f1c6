#pragma once

namespace dme {

// Result codes of node operations and of the engine. Plain ints: application callbacks and
// exception handlers may return other values, which pass through unchanged.
namespace result {
constexpr int PATH_ENDS_HERE = -1;  // browse: the requested path ends at this node
constexpr int DONE = 0;
constexpr int FAILED = 1;             // the operation failed as a whole
constexpr int NOT_ALLOWED = 2;        // the node does not allow the method
constexpr int NOT_FOUND = 3;          // no such member, element, item or subscription
constexpr int NO_CHILDREN = 4;        // the path goes on below a node without children
constexpr int FORBIDDEN = 6;          // the session lacks the permission
constexpr int UNKNOWN_METHOD = 7;     // the method is none of the known ones
constexpr int NOT_SUPPORTED = 8;      // the node type does not implement the operation
constexpr int INVALID_ARGUMENT = 10;  // a std::invalid_argument reached the engine
constexpr int UNHANDLED = 12;         // no exception handler claimed the exception
}  // namespace result

}  // namespace dme
