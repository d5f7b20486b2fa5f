#include "core/vss/service/context_holder.h"

#include <objbase.h>

namespace tolvarcore {
namespace vss {
namespace service {

ContextHolder::ContextHolder() { (void)CoInitialize(nullptr); }

ContextHolder::~ContextHolder() { CoUninitialize(); }

}  // namespace service
}  // namespace vss
}  // namespace tolvarcore
