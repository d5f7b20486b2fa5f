// One entry of an attribute list (type 0x20) value, and the parse of such a
// value: it tells which MFT record holds each extent of each attribute.
#ifndef TOLVAR_NTFSPARSERCORE_ATTRIBUTE_LIST_ENTRY_H_
#define TOLVAR_NTFSPARSERCORE_ATTRIBUTE_LIST_ENTRY_H_

#include <cstdint>
#include <string>
#include <vector>

#include "ntfsparsercore/attribute.h"

namespace ntfsparsercore {

struct AttributeListEntry {
  uint32_t type = 0;          // attribute type code
  uint16_t recordLength = 0;  // length of this entry
  uint16_t attributeId = 0;   // id of the attribute record in its MFT record
  uint64_t startingVcn = 0;   // first VCN of the extent
  uint64_t recordNumber = 0;  // MFT record holding the extent (low 48 bits of the reference)
  std::string name;           // always empty: names are read but not kept
};

// Reads the entries of an attribute list value through the attribute's
// reader and sorts them stably by type, then by starting VCN (the names,
// being empty, never decide).
std::vector<AttributeListEntry> ParseAttributeList(const Attribute& attributeList);

}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_ATTRIBUTE_LIST_ENTRY_H_
