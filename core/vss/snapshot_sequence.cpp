#include "core/vss/snapshot_sequence.h"

#include "common/error_queue.h"
#include "core/vss/record_head.h"

using tolvarcommon::kErrorNoEnd;
using tolvarcommon::kErrorNoStart;
using tolvarcommon::kErrorStore;
using tolvarcommon::ReportCodedError;

namespace tolvarcore {
namespace vss {

SnapshotList BuildSnapshotList(const records::Catalog& catalog) {
  SnapshotList list;
  for (const records::SnapshotDefinition& definition : catalog.GetDefinitions()) {
    auto snapshot = std::make_shared<Snapshot>(definition, catalog.FindDeclaration(definition.storeIdentifier));
    if (snapshot->GetGuid().IsZero()) {
      ReportCodedError(kErrorStore, "Empty snapshot internal guid");
      list.clear();
      return list;
    }
    list.push_back(std::move(snapshot));
  }
  return list;
}

bool BuildSnapshotSequence(const SnapshotSequenceRequest& request, service::VssContext& context,
                           const VssVolume& volume, SnapshotList* list) {
  const service::SnapshotProperties start = context.GetSnapshotProperties(request.first);
  const service::SnapshotProperties end = context.GetSnapshotProperties(request.second);
  const std::string startKey = start.setIdentifier.ToString();
  const std::string endKey = end.setIdentifier.ToString();

  bool dropping = true;
  bool startFound = false;
  bool failed = false;
  for (auto it = list->begin(); it != list->end();) {
    std::shared_ptr<VssRecord> record = volume.OpenRecord((*it)->GetHeaderOffset());
    const RecordHead head = RecordHead::Read(record.get());
    if (!dropping && head.setIdentifier.IsZero()) {
      failed = true;
      ReportCodedError(kErrorStore, "Guid of vss record header is empty");
    }
    const std::string key = head.setIdentifier.ToString();
    if (key == startKey) {
      dropping = false;
      startFound = true;
    }
    if (key == endKey) {
      dropping = true;
      ++it;
      continue;
    }
    if (dropping) {
      it = list->erase(it);
    } else {
      ++it;
    }
  }

  if (!failed && dropping && startFound) {
    // A start that is also the end gets both names, the end's last.
    list->front()->SetName(start.deviceObject);
    list->back()->SetName(end.deviceObject);
    return true;
  }
  list->clear();
  if (!failed) {
    if (startFound) {
      ReportCodedError(kErrorNoEnd, "Failed build snapshot sequence. End snapshot not find");
    } else {
      ReportCodedError(kErrorNoStart, "Failed build snapshot sequence. Start snapshot not find");
    }
  }
  return false;
}

}  // namespace vss
}  // namespace tolvarcore
