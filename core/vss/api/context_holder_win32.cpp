#include "core/vss/api/context_holder.h"

#include <objbase.h>

namespace tolvarcore {
namespace vss {
namespace api {

ContextHolder::ContextHolder() { (void)CoInitialize(nullptr); }

ContextHolder::~ContextHolder() { CoUninitialize(); }

}  // namespace api
}  // namespace vss
}  // namespace tolvarcore
