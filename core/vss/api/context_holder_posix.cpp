#include "core/vss/api/context_holder.h"

namespace tolvarcore {
namespace vss {
namespace api {

// There is no COM on POSIX: the holder only keeps the shape of the Windows one.
ContextHolder::ContextHolder() = default;

ContextHolder::~ContextHolder() = default;

}  // namespace api
}  // namespace vss
}  // namespace tolvarcore
