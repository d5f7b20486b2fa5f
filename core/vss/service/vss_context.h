// The link to the shadow-copy service: the properties of every
// shadow copy, collected once, cached and looked up by identifier text.
//
// On Windows the service is asked through COM and the VSS API
// (vss_context_win32.cpp). On POSIX there is no service: the properties
// come from the storage's own store (vss_context_posix.cpp). Either way
// the collection puts nothing on the error queue.
#ifndef TOLVAR_CORE_VSS_SERVICE_VSS_CONTEXT_H_
#define TOLVAR_CORE_VSS_SERVICE_VSS_CONTEXT_H_

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/vss/service/context_holder.h"
#include "core/vss/guid.h"

namespace tolvarcore {
namespace vss {

class VssVolume;

namespace service {

struct SnapshotProperties {
  Guid snapshotIdentifier;   // the service's snapshot identifier
  Guid setIdentifier;        // the service's snapshot set identifier
  std::string deviceObject;  // the snapshot's device object name, converted to a byte string
};

using SnapshotPropertiesList = std::vector<SnapshotProperties>;

class VssContext {
 public:
  // Fills the (empty, already cached) list; stops quietly on failure with
  // the elements gathered so far.
  using Collector = std::function<void(SnapshotPropertiesList* list)>;

  // The platform's context: on Windows the service is asked and storage is
  // not used; on POSIX the properties are read from storage's store.
  // Creates the ContextHolder (COM on Windows); the list stays absent.
  explicit VssContext(std::shared_ptr<VssVolume> storage = nullptr);

  // A context that collects with the given function (the seam for tests).
  explicit VssContext(Collector collector);

  VssContext(const VssContext&) = delete;
  VssContext& operator=(const VssContext&) = delete;

  // The cached list, collected on the first call whatever the outcome;
  // later calls never collect again.
  virtual const SnapshotPropertiesList& GetSnapshots();

  // A copy of the first element whose snapshot identifier, in text form,
  // equals identifier byte for byte; otherwise zero identifiers and an
  // empty name. Upper case or braces therefore find nothing.
  virtual SnapshotProperties GetSnapshotProperties(const std::string& identifier);

  // Frees the list, then releases the holder.
  virtual ~VssContext();

 private:
  std::shared_ptr<ContextHolder> holder_;
  std::unique_ptr<SnapshotPropertiesList> snapshots_;  // absent until first asked for
  Collector collect_;
};

// How the platform collects: the VSS service on Windows, the storage's
// store on POSIX. Defined in vss_context_win32.cpp and vss_context_posix.cpp.
VssContext::Collector PlatformCollector(std::shared_ptr<VssVolume> storage);

}  // namespace service
}  // namespace vss
}  // namespace tolvarcore

#endif  // TOLVAR_CORE_VSS_SERVICE_VSS_CONTEXT_H_
