#include "core/vss/store_block_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

#include "ntfsparsercore/io/little_endian.h"

namespace {

namespace format = tolvarcore::vss::format;
using tolvarcore::vss::BlockDescriptor;
using tolvarcore::vss::StoreBlockMap;

constexpr uint64_t kBlock = format::kBlockSize;
constexpr uint32_t kForwarder = format::kDescriptorFlagForwarder;
constexpr uint32_t kOverlay = format::kDescriptorFlagOverlay;
constexpr uint32_t kNotUsed = format::kDescriptorFlagNotUsed;

BlockDescriptor Plain(uint64_t block, uint64_t dataBlock, uint32_t extraFlags = 0) {
  BlockDescriptor descriptor;
  descriptor.originalOffset = block * kBlock;
  descriptor.relativeOffset = dataBlock * kBlock + 0x100000;
  descriptor.storeDataOffset = dataBlock * kBlock;
  descriptor.flags = extraFlags;
  return descriptor;
}

BlockDescriptor Forwarder(uint64_t block, uint64_t targetBlock) {
  BlockDescriptor descriptor;
  descriptor.originalOffset = block * kBlock;
  descriptor.relativeOffset = targetBlock * kBlock;
  descriptor.flags = kForwarder;
  return descriptor;
}

BlockDescriptor Overlay(uint64_t block, uint64_t dataBlock, uint32_t bitmap) {
  BlockDescriptor descriptor = Plain(block, dataBlock, kOverlay);
  descriptor.relativeOffset = 1;
  descriptor.allocationBitmap = bitmap;
  return descriptor;
}

TEST(StoreBlockMap, PlainDescriptorMapsItsWholeBlockOnly) {
  StoreBlockMap map({Plain(3, 40)});
  ASSERT_NE(map.Find(3 * kBlock), nullptr);
  EXPECT_EQ(map.Find(3 * kBlock + kBlock - 1), map.Find(3 * kBlock));
  EXPECT_EQ(map.Find(3 * kBlock)->descriptor.storeDataOffset, 40 * kBlock);
  EXPECT_FALSE(map.Find(3 * kBlock)->hasOverlay);
  EXPECT_EQ(map.Find(3 * kBlock)->OverlayOf(), nullptr);
  EXPECT_EQ(map.Find(3 * kBlock - 1), nullptr);
  EXPECT_EQ(map.Find(4 * kBlock), nullptr);
  EXPECT_EQ(map.Find(0), nullptr);
  EXPECT_TRUE(map.IsUsable());
}

TEST(StoreBlockMap, LaterPlainDescriptorForTheSameBlockWins) {
  StoreBlockMap map({Plain(3, 40), Plain(3, 41)});
  EXPECT_EQ(map.MappingCount(), 1u);
  EXPECT_EQ(map.Find(3 * kBlock)->descriptor.storeDataOffset, 41 * kBlock);
}

TEST(StoreBlockMap, NotUsedDescriptorIsSkippedWhateverElseItSays) {
  StoreBlockMap map({Plain(3, 40, kNotUsed), Plain(4, 41, kNotUsed | kOverlay), Plain(5, 42, 0x88)});
  EXPECT_EQ(map.Find(3 * kBlock), nullptr);
  EXPECT_EQ(map.Find(4 * kBlock), nullptr);
  ASSERT_NE(map.Find(5 * kBlock), nullptr);
  EXPECT_EQ(map.MappingCount(), 1u);
}

TEST(StoreBlockMap, NotUsedDescriptorDoesNotConsumeAWaitingForwarder) {
  StoreBlockMap map({Forwarder(2, 7), Plain(7, 40, kNotUsed)});
  EXPECT_TRUE(map.IsForwardTarget(7 * kBlock));
  EXPECT_TRUE(map.Find(2 * kBlock)->descriptor.IsForwarder());
}

TEST(StoreBlockMap, EmptySlotIsSkippedAndTheListGoesOn) {
  StoreBlockMap map({Plain(1, 40), BlockDescriptor{}, Plain(2, 41)});
  EXPECT_NE(map.Find(1 * kBlock), nullptr);
  EXPECT_NE(map.Find(2 * kBlock), nullptr);
  EXPECT_EQ(map.MappingCount(), 2u);
}

TEST(StoreBlockMap, DescriptorOfBlockZeroWithOtherFieldsSetIsNotEmpty) {
  StoreBlockMap map({Plain(0, 40)});
  ASSERT_NE(map.Find(0), nullptr);
  EXPECT_EQ(map.Find(0)->descriptor.storeDataOffset, 40 * kBlock);
}

TEST(StoreBlockMap, ForwarderIsMappedAndWaitsInTheReverseList) {
  StoreBlockMap map({Forwarder(2, 7)});
  ASSERT_NE(map.Find(2 * kBlock), nullptr);
  EXPECT_TRUE(map.Find(2 * kBlock)->descriptor.IsForwarder());
  EXPECT_EQ(map.Find(7 * kBlock), nullptr);
  EXPECT_TRUE(map.IsForwardTarget(7 * kBlock));
  EXPECT_TRUE(map.IsForwardTarget(7 * kBlock + kBlock - 1));
  EXPECT_FALSE(map.IsForwardTarget(8 * kBlock));
  EXPECT_FALSE(map.IsForwardTarget(2 * kBlock));
}

TEST(StoreBlockMap, ForwarderChainFoldsIntoOneForwarder) {
  StoreBlockMap map({Forwarder(2, 7), Forwarder(7, 9)});
  ASSERT_NE(map.Find(2 * kBlock), nullptr);
  EXPECT_EQ(map.Find(2 * kBlock)->descriptor.relativeOffset, 9 * kBlock);
  EXPECT_EQ(map.Find(7 * kBlock), nullptr);
  EXPECT_FALSE(map.IsForwardTarget(7 * kBlock));
  EXPECT_TRUE(map.IsForwardTarget(9 * kBlock));
  EXPECT_EQ(map.MappingCount(), 1u);
}

TEST(StoreBlockMap, PlainDescriptorForAForwarderTargetDescribesTheForwarderOrigin) {
  StoreBlockMap map({Forwarder(2, 7), Plain(7, 40)});
  ASSERT_NE(map.Find(2 * kBlock), nullptr);
  EXPECT_FALSE(map.Find(2 * kBlock)->descriptor.IsForwarder());
  EXPECT_EQ(map.Find(2 * kBlock)->descriptor.storeDataOffset, 40 * kBlock);
  EXPECT_EQ(map.Find(7 * kBlock), nullptr);
  EXPECT_EQ(map.ForwardTargetCount(), 0u);
}

TEST(StoreBlockMap, ForwarderCycleFoldsIntoASelfForwarderThatIsDropped) {
  StoreBlockMap map({Forwarder(2, 7), Forwarder(7, 2)});
  ASSERT_NE(map.Find(2 * kBlock), nullptr);
  EXPECT_EQ(map.Find(2 * kBlock)->descriptor.relativeOffset, 7 * kBlock);
  EXPECT_EQ(map.Find(7 * kBlock), nullptr);
  EXPECT_EQ(map.ForwardTargetCount(), 0u);
}

TEST(StoreBlockMap, LongerForwarderCycleEndsAfterOnePass) {
  StoreBlockMap map({Forwarder(1, 2), Forwarder(2, 3), Forwarder(3, 1), Forwarder(1, 2)});
  ASSERT_NE(map.Find(1 * kBlock), nullptr);
  EXPECT_EQ(map.Find(1 * kBlock)->descriptor.relativeOffset, 2 * kBlock);
  EXPECT_TRUE(map.IsForwardTarget(2 * kBlock));
  EXPECT_EQ(map.MappingCount(), 1u);
}

TEST(StoreBlockMap, SelfForwarderIsDropped) {
  StoreBlockMap map({Forwarder(5, 5)});
  EXPECT_EQ(map.MappingCount(), 0u);
  EXPECT_EQ(map.ForwardTargetCount(), 0u);
}

TEST(StoreBlockMap, ForwarderStaysInTheReverseListWhenReplacedInTheMap) {
  StoreBlockMap map({Forwarder(2, 7), Plain(2, 40)});
  EXPECT_FALSE(map.Find(2 * kBlock)->descriptor.IsForwarder());
  EXPECT_TRUE(map.IsForwardTarget(7 * kBlock));
  // The waiting forwarder still redirects a later descriptor for its target.
  map.Add(Plain(7, 41));
  EXPECT_EQ(map.Find(2 * kBlock)->descriptor.storeDataOffset, 41 * kBlock);
  EXPECT_EQ(map.Find(7 * kBlock), nullptr);
}

TEST(StoreBlockMap, LaterForwarderToTheSameTargetReplacesTheWaitingOne) {
  StoreBlockMap map({Forwarder(2, 7), Forwarder(3, 7), Plain(7, 40)});
  EXPECT_TRUE(map.Find(2 * kBlock)->descriptor.IsForwarder());
  EXPECT_EQ(map.Find(3 * kBlock)->descriptor.storeDataOffset, 40 * kBlock);
  EXPECT_EQ(map.ForwardTargetCount(), 0u);
}

TEST(StoreBlockMap, ForwarderNamingStoreDataMakesTheStoreUnusable) {
  BlockDescriptor bad = Forwarder(2, 7);
  bad.storeDataOffset = 40 * kBlock;
  StoreBlockMap map({Plain(1, 41), bad, Plain(3, 42)});
  EXPECT_FALSE(map.IsUsable());
  EXPECT_EQ(map.Find(3 * kBlock), nullptr);
}

TEST(StoreBlockMap, NotUsedForwarderNamingStoreDataStillMakesTheStoreUnusable) {
  BlockDescriptor bad = Forwarder(2, 7);
  bad.storeDataOffset = 40 * kBlock;
  bad.flags |= kNotUsed;
  StoreBlockMap map({bad});
  EXPECT_FALSE(map.IsUsable());
}

TEST(StoreBlockMap, OverlayAloneIsItsOwnOverlay) {
  StoreBlockMap map({Overlay(4, 40, 0x0000000F)});
  const StoreBlockMap::Mapping* mapping = map.Find(4 * kBlock);
  ASSERT_NE(mapping, nullptr);
  EXPECT_EQ(mapping->OverlayOf(), &mapping->descriptor);
}

TEST(StoreBlockMap, OverlayAfterPlainIsAttachedToIt) {
  StoreBlockMap map({Plain(4, 40), Overlay(4, 41, 0x0000000F)});
  const StoreBlockMap::Mapping* mapping = map.Find(4 * kBlock);
  ASSERT_NE(mapping, nullptr);
  EXPECT_EQ(mapping->descriptor.storeDataOffset, 40 * kBlock);
  ASSERT_TRUE(mapping->hasOverlay);
  EXPECT_EQ(mapping->OverlayOf(), &mapping->overlay);
  EXPECT_EQ(mapping->overlay.storeDataOffset, 41 * kBlock);
  EXPECT_EQ(mapping->overlay.allocationBitmap, 0x0000000Fu);
}

TEST(StoreBlockMap, OverlayAfterOverlayJoinsBitmapsAndKeepsTheFirstData) {
  StoreBlockMap map({Overlay(4, 40, 0x0000000F), Overlay(4, 41, 0x00F00000)});
  const StoreBlockMap::Mapping* mapping = map.Find(4 * kBlock);
  EXPECT_EQ(mapping->descriptor.allocationBitmap, 0x00F0000Fu);
  EXPECT_EQ(mapping->descriptor.storeDataOffset, 40 * kBlock);
  EXPECT_FALSE(mapping->hasOverlay);
}

TEST(StoreBlockMap, OverlayMeetingAnAttachedOverlayJoinsIt) {
  StoreBlockMap map({Plain(4, 40), Overlay(4, 41, 0x1), Overlay(4, 42, 0x2)});
  const StoreBlockMap::Mapping* mapping = map.Find(4 * kBlock);
  EXPECT_EQ(mapping->overlay.allocationBitmap, 0x3u);
  EXPECT_EQ(mapping->overlay.storeDataOffset, 41 * kBlock);
}

TEST(StoreBlockMap, PlainAfterOverlayTakesTheOverlayAlong) {
  StoreBlockMap map({Overlay(4, 40, 0x0000000F), Plain(4, 41)});
  const StoreBlockMap::Mapping* mapping = map.Find(4 * kBlock);
  EXPECT_FALSE(mapping->descriptor.IsOverlay());
  EXPECT_EQ(mapping->descriptor.storeDataOffset, 41 * kBlock);
  ASSERT_TRUE(mapping->hasOverlay);
  EXPECT_EQ(mapping->overlay.storeDataOffset, 40 * kBlock);
}

TEST(StoreBlockMap, PlainReplacingPlainKeepsTheAttachedOverlay) {
  StoreBlockMap map({Plain(4, 40), Overlay(4, 41, 0x5), Plain(4, 42)});
  const StoreBlockMap::Mapping* mapping = map.Find(4 * kBlock);
  EXPECT_EQ(mapping->descriptor.storeDataOffset, 42 * kBlock);
  ASSERT_TRUE(mapping->hasOverlay);
  EXPECT_EQ(mapping->overlay.allocationBitmap, 0x5u);
}

TEST(StoreBlockMap, OverlayIsNotRedirectedByAWaitingForwarder) {
  StoreBlockMap map({Forwarder(2, 7), Overlay(7, 40, 0x1)});
  EXPECT_TRUE(map.IsForwardTarget(7 * kBlock));
  ASSERT_NE(map.Find(7 * kBlock), nullptr);
  EXPECT_TRUE(map.Find(7 * kBlock)->descriptor.IsOverlay());
  EXPECT_TRUE(map.Find(2 * kBlock)->descriptor.IsForwarder());
}

TEST(StoreBlockMap, AddingOneAtATimeEqualsBuildingFromTheList) {
  const std::vector<BlockDescriptor> list = {Forwarder(2, 7), Plain(7, 40), Overlay(2, 41, 0x3), Plain(9, 42)};
  StoreBlockMap whole(list);
  StoreBlockMap stepwise;
  for (const BlockDescriptor& descriptor : list) stepwise.Add(descriptor);
  EXPECT_EQ(whole.MappingCount(), stepwise.MappingCount());
  EXPECT_EQ(whole.ForwardTargetCount(), stepwise.ForwardTargetCount());
  EXPECT_EQ(stepwise.Find(2 * kBlock)->descriptor.storeDataOffset, 40 * kBlock);
  EXPECT_EQ(stepwise.Find(2 * kBlock)->overlay.allocationBitmap, 0x3u);
}

TEST(StoreBlockMap, KeyNearTheTopOfTheRangeDoesNotOverflowTheLookup) {
  BlockDescriptor high = Plain(0, 40);
  high.originalOffset = UINT64_MAX - 100;
  StoreBlockMap map({high});
  EXPECT_NE(map.Find(UINT64_MAX), nullptr);
  EXPECT_EQ(map.Find(UINT64_MAX - 101), nullptr);
}

std::vector<uint8_t> PayloadOf(const std::vector<BlockDescriptor>& list, std::size_t extraBytes) {
  std::vector<uint8_t> bytes(list.size() * format::kDescriptorSize + extraBytes, 0);
  for (std::size_t i = 0; i < list.size(); ++i) {
    uint8_t* slot = bytes.data() + i * format::kDescriptorSize;
    ntfsparsercore::io::StoreLe64(slot + 0, list[i].originalOffset);
    ntfsparsercore::io::StoreLe64(slot + 8, list[i].relativeOffset);
    ntfsparsercore::io::StoreLe64(slot + 16, list[i].storeDataOffset);
    ntfsparsercore::io::StoreLe32(slot + 24, list[i].flags);
    ntfsparsercore::io::StoreLe32(slot + 28, list[i].allocationBitmap);
  }
  return bytes;
}

TEST(StoreBlockMap, PayloadIsFoldedSlotBySlotIncludingSlotsAfterAnEmptyOne) {
  const std::vector<uint8_t> payload = PayloadOf({Plain(1, 40), BlockDescriptor{}, Forwarder(2, 7), Plain(7, 41)}, 0);
  StoreBlockMap map;
  map.AddPayload(payload.data(), payload.size());
  EXPECT_EQ(map.Find(1 * kBlock)->descriptor.storeDataOffset, 40 * kBlock);
  EXPECT_EQ(map.Find(2 * kBlock)->descriptor.storeDataOffset, 41 * kBlock);
  EXPECT_EQ(map.MappingCount(), 2u);
}

TEST(StoreBlockMap, PayloadTrailingPartSlotIsIgnored) {
  std::vector<uint8_t> payload = PayloadOf({Plain(1, 40)}, 31);
  std::fill(payload.end() - 31, payload.end(), 0x11);
  StoreBlockMap map;
  map.AddPayload(payload.data(), payload.size());
  EXPECT_EQ(map.MappingCount(), 1u);
  map.AddPayload(payload.data(), 0);
  EXPECT_EQ(map.MappingCount(), 1u);
}

TEST(StoreBlockMap, PageSizedPayloadHolds508Slots) {
  std::vector<BlockDescriptor> list;
  for (uint64_t i = 0; i < 508; ++i) list.push_back(Plain(i, 1000 + i));
  const std::vector<uint8_t> payload = PayloadOf(list, 0);
  ASSERT_EQ(payload.size(), 16256u);
  StoreBlockMap map;
  map.AddPayload(payload.data(), payload.size());
  EXPECT_EQ(map.MappingCount(), 508u);
  EXPECT_EQ(map.Find(507 * kBlock)->descriptor.storeDataOffset, 1507 * kBlock);
}

// The fold written the plain way, with ordered maps for the mappings and
// the waiting forwarders, for holding the map against on random lists.
struct ReferenceFold {
  std::map<uint64_t, StoreBlockMap::Mapping> forward;
  std::map<uint64_t, uint64_t> reverse;
  bool usable = true;

  void Add(const BlockDescriptor& descriptor) {
    if (!usable || descriptor.IsEmpty()) return;
    if (descriptor.IsForwarder() && descriptor.storeDataOffset != 0) {
      usable = false;
      return;
    }
    if (descriptor.IsNotUsed()) return;
    BlockDescriptor incoming = descriptor;
    if (!incoming.IsOverlay() && reverse.count(incoming.originalOffset) != 0) {
      const uint64_t origin = reverse[incoming.originalOffset];
      reverse.erase(incoming.originalOffset);
      incoming.originalOffset = origin;
    }
    if (incoming.IsForwarder() && incoming.originalOffset == incoming.relativeOffset) return;
    auto existing = forward.find(incoming.originalOffset);
    if (existing == forward.end()) {
      forward[incoming.originalOffset].descriptor = incoming;
    } else if (incoming.IsOverlay()) {
      StoreBlockMap::Mapping& mapping = existing->second;
      if (mapping.descriptor.IsOverlay()) {
        mapping.descriptor.allocationBitmap |= incoming.allocationBitmap;
      } else if (mapping.hasOverlay) {
        mapping.overlay.allocationBitmap |= incoming.allocationBitmap;
      } else {
        mapping.hasOverlay = true;
        mapping.overlay = incoming;
      }
      return;
    } else {
      const StoreBlockMap::Mapping replaced = existing->second;
      existing->second.descriptor = incoming;
      existing->second.hasOverlay = replaced.OverlayOf() != nullptr;
      if (existing->second.hasOverlay) existing->second.overlay = *replaced.OverlayOf();
    }
    if (incoming.IsForwarder()) reverse[incoming.relativeOffset] = incoming.originalOffset;
  }

  template <typename Map>
  static typename Map::const_iterator Range(const Map& map, uint64_t offset) {
    auto it = map.upper_bound(offset);
    if (it == map.begin()) return map.end();
    --it;
    return offset - it->first < kBlock ? it : map.end();
  }
};

bool SameDescriptor(const BlockDescriptor& a, const BlockDescriptor& b) {
  return a.originalOffset == b.originalOffset && a.relativeOffset == b.relativeOffset &&
         a.storeDataOffset == b.storeDataOffset && a.flags == b.flags && a.allocationBitmap == b.allocationBitmap;
}

// A random list over a few dozen blocks: plain, overlay, forwarder and
// not-used descriptors, some at offsets off the 16 KiB grid, in ascending
// block order for the first `ascending` entries and in random order after.
std::vector<BlockDescriptor> RandomList(std::mt19937_64& random, std::size_t length, std::size_t ascending) {
  std::vector<BlockDescriptor> list;
  for (std::size_t i = 0; i < length; ++i) {
    const uint64_t block = i < ascending ? i * 3 + random() % 3 : random() % 40;
    BlockDescriptor descriptor;
    switch (random() % 8) {
      case 0:
        descriptor = Overlay(block, 100 + random() % 50, static_cast<uint32_t>(random()));
        break;
      case 1:
        descriptor = Forwarder(block, random() % 40);
        break;
      case 2:
        descriptor = Plain(block, 100 + random() % 50, kNotUsed);
        break;
      case 3:
        descriptor = Plain(block, 100 + random() % 50);
        descriptor.originalOffset += 512 * (random() % 32);
        break;
      case 4:
        descriptor = Forwarder(block, random() % 40);
        descriptor.relativeOffset += 4096;
        break;
      case 5:  // now and then a forwarder with a store data offset, which spoils the store
        descriptor = random() % 20 == 0 ? Forwarder(block, 7) : Plain(block, 100 + random() % 50);
        descriptor.storeDataOffset = 100 * kBlock;
        break;
      default:
        descriptor = Plain(block, 100 + random() % 50);
        break;
    }
    list.push_back(descriptor);
  }
  return list;
}

TEST(StoreBlockMap, AgreesWithThePlainFoldOnRandomListsInAnyOrder) {
  std::mt19937_64 random(1122);
  for (int round = 0; round < 400; ++round) {
    const std::size_t length = 1 + random() % 60;
    const std::size_t ascending = round % 3 == 0 ? length : random() % (length + 1);
    const std::vector<BlockDescriptor> list = RandomList(random, length, ascending);
    StoreBlockMap map;
    ReferenceFold reference;
    for (const BlockDescriptor& descriptor : list) {
      map.Add(descriptor);
      reference.Add(descriptor);
    }
    ASSERT_EQ(map.IsUsable(), reference.usable) << round;
    ASSERT_EQ(map.MappingCount(), reference.forward.size()) << round;
    ASSERT_EQ(map.ForwardTargetCount(), reference.reverse.size()) << round;
    for (uint64_t offset = 0; offset < 200 * kBlock; offset += 512) {
      const StoreBlockMap::Mapping* found = map.Find(offset);
      auto expected = ReferenceFold::Range(reference.forward, offset);
      ASSERT_EQ(found == nullptr, expected == reference.forward.end()) << round << " at " << offset;
      if (found != nullptr) {
        ASSERT_TRUE(SameDescriptor(found->descriptor, expected->second.descriptor)) << round << " at " << offset;
        ASSERT_EQ(found->hasOverlay, expected->second.hasOverlay) << round << " at " << offset;
        if (found->hasOverlay) {
          ASSERT_TRUE(SameDescriptor(found->overlay, expected->second.overlay)) << round;
        }
      }
      ASSERT_EQ(map.IsForwardTarget(offset), ReferenceFold::Range(reference.reverse, offset) != reference.reverse.end())
          << round << " at " << offset;
    }
  }
}

TEST(StoreBlockMap, FindBetweenAddsSeesEveryDescriptorSoFar) {
  StoreBlockMap map;
  map.Add(Plain(5, 40));
  ASSERT_NE(map.Find(5 * kBlock), nullptr);
  map.Add(Plain(2, 41));
  ASSERT_NE(map.Find(2 * kBlock), nullptr);
  EXPECT_EQ(map.Find(2 * kBlock)->descriptor.storeDataOffset, 41 * kBlock);
  map.Add(Plain(9, 42));
  map.Add(Plain(5, 43));
  EXPECT_EQ(map.Find(5 * kBlock + 7)->descriptor.storeDataOffset, 43 * kBlock);
  EXPECT_EQ(map.Find(9 * kBlock)->descriptor.storeDataOffset, 42 * kBlock);
  EXPECT_EQ(map.Find(3 * kBlock), nullptr);
  EXPECT_EQ(map.MappingCount(), 3u);
}

}  // namespace
