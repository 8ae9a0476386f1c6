#pragma once

#include "dme/context.h"
#include "dme/methods.h"

namespace dme {
namespace internal {

// Turns a SCHEMA walk into a question (DataModelEngine::allowedMethods): the node that the walk
// reaches records here the methods it has and the session may use, and answers nothing else.
struct MethodsQuery : Context::ICustom {
    AllowedMethods allowed;
};

}  // namespace internal
}  // namespace dme
