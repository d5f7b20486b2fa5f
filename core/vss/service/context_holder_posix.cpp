#include "core/vss/service/context_holder.h"

namespace tolvarcore {
namespace vss {
namespace service {

// There is no COM on POSIX: the holder only keeps the shape of the Windows one.
ContextHolder::ContextHolder() = default;

ContextHolder::~ContextHolder() = default;

}  // namespace service
}  // namespace vss
}  // namespace tolvarcore
