#include "dme/http/server.h"
#include "dme/result.h"

namespace dme {
namespace http {

StatusTable StatusTable::defaults() {
    StatusTable table;
    table.statuses = {{result::DONE, 200},
                      {result::FAILED, 500},
                      {result::NOT_ALLOWED, 405},
                      {result::NOT_FOUND, 404},
                      {result::NO_CHILDREN, 404},
                      {result::FORBIDDEN, 403},
                      {result::UNKNOWN_METHOD, 400},
                      {result::NOT_SUPPORTED, 501},
                      {result::INVALID_ARGUMENT, 400},
                      {result::UNHANDLED, 500}};
    return table;
}

unsigned int StatusTable::statusOf(int resultCode, Method method) const {
    if (resultCode == result::DONE && method == CREATE) return created;
    const auto found = statuses.find(resultCode);
    return found == statuses.end() ? otherwise : found->second;
}

}  // namespace http
}  // namespace dme
