// Keeps COM initialised on the thread that created it, for as long as any
// shared reference to it lives. Holds no data.
#ifndef TOLVAR_CORE_VSS_SERVICE_CONTEXT_HOLDER_H_
#define TOLVAR_CORE_VSS_SERVICE_CONTEXT_HOLDER_H_

namespace tolvarcore {
namespace vss {
namespace service {

class ContextHolder {
 public:
  // CoInitialize with no reserved argument; the result is not examined.
  // Nothing on POSIX.
  ContextHolder();
  // CoUninitialize. Nothing on POSIX.
  ~ContextHolder();

  ContextHolder(const ContextHolder&) = delete;
  ContextHolder& operator=(const ContextHolder&) = delete;
};

}  // namespace service
}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_SERVICE_CONTEXT_HOLDER_H_
