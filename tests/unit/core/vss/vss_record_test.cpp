#include "core/vss/vss_record.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/fixtures/error_queue_test.h"
#include "tests/fixtures/vss_store_builder.h"

using tolvarcommon::ErrorRecord;

namespace {

using tolvarcore::vss::VssRecord;
using tolvartest::DrainErrors;
using tolvartest::Record;
using tolvartest::SparseSource;
using namespace tolvartest::vss;

// Bytes whose value tells their position in the payload.
std::vector<uint8_t> Payload(uint64_t size) {
  std::vector<uint8_t> bytes(size);
  for (uint64_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>((i * 13 + i / 16256) & 0xFF);
  return bytes;
}

class VssRecordTest : public tolvartest::QueueTest {
 protected:
  std::unique_ptr<VssRecord> Open(uint64_t offset) { return std::make_unique<VssRecord>(writer_.Source(), offset); }

  StoreWriter writer_{64 * kMiB};
};

TEST_F(VssRecordTest, OnePageWithNextZeroHoldsExactlyOnePage) {
  std::vector<uint64_t> pages = writer_.AllocatePages(1);
  writer_.WriteRecord(pages, kTypeStoreHeader, Payload(100));
  auto record = Open(pages[0]);
  EXPECT_EQ(record->Pages(), pages);
  EXPECT_EQ(record->GetRecordType(), kTypeStoreHeader);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(VssRecordTest, WalkReadsOnly52BytesPerPage) {
  std::vector<uint64_t> pages = writer_.AllocatePages(3);
  writer_.WriteRecord(pages, kTypeCatalog, Payload(3 * kPayloadPerPage));
  auto record = Open(pages[0]);
  EXPECT_EQ(writer_.Source()->Calls(),
            (std::vector<SparseSource::ReadCall>{{pages[0], 52}, {pages[1], 52}, {pages[2], 52}}));
}

TEST_F(VssRecordTest, PagesNeedNotBeAdjacentOrAscending) {
  std::vector<uint64_t> pages = writer_.AllocatePages(4);
  std::vector<uint64_t> chain = {pages[3], pages[0], pages[2]};
  std::vector<uint8_t> payload = Payload(3 * kPayloadPerPage);
  writer_.WriteRecord(chain, kTypeBlockList, payload);
  auto record = Open(chain[0]);
  EXPECT_EQ(record->Pages(), chain);
  std::vector<uint8_t> all(payload.size());
  EXPECT_EQ(record->Read(all.data(), all.size(), 0), all.size());
  EXPECT_EQ(all, payload);
}

TEST_F(VssRecordTest, LastPagePointingBackToTheFirstIsKeptWholeWithLoopMessage) {
  std::vector<uint64_t> pages = writer_.AllocatePages(3);
  writer_.WriteRecord(pages, kTypeCatalog, Payload(3 * kPayloadPerPage), /*lastNext=*/pages[0]);
  auto record = Open(pages[0]);
  EXPECT_EQ(record->Pages(), pages);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Find page based loop.")}));
  uint8_t byte = 0;
  EXPECT_EQ(record->Read(&byte, 1, 3 * kPayloadPerPage - 1), 1u);
}

TEST_F(VssRecordTest, ChainLoopingIntoItsMiddleKeepsEveryPageOnce) {
  std::vector<uint64_t> pages = writer_.AllocatePages(4);
  writer_.WriteRecord(pages, kTypeBlockList, Payload(4 * kPayloadPerPage), /*lastNext=*/pages[1]);
  auto record = Open(pages[0]);
  EXPECT_EQ(record->Pages(), pages);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Find page based loop.")}));
}

TEST_F(VssRecordTest, PagePointingAtItselfIsALoopOfOnePage) {
  std::vector<uint64_t> pages = writer_.AllocatePages(1);
  writer_.WriteRecord(pages, kTypeBitmap, Payload(10), /*lastNext=*/pages[0]);
  auto record = Open(pages[0]);
  EXPECT_EQ(record->Pages(), pages);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(12, "Find page based loop.")}));
}

TEST_F(VssRecordTest, SecondPageWithWrongOwnOffsetEmptiesTheRecord) {
  std::vector<uint64_t> pages = writer_.AllocatePages(2);
  writer_.WriteRecord(pages, kTypeCatalog, Payload(2 * kPayloadPerPage));
  PageSpec second;
  second.offset = pages[1];
  second.ownOffset = 0x500000;
  writer_.WritePage(second);
  auto record = Open(pages[0]);
  EXPECT_EQ(record->PageCount(), 0u);
  // The offset read at first, the header's field second.
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{
                Record(12, "Unexpected vss record native offset. Actual(1064960), was expected(5242880)"),
                Record(12, "Can't find last page.")}));
  uint8_t byte = 0;
  EXPECT_EQ(record->Read(&byte, 1, 0), 0u);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(VssRecordTest, RightOwnOffsetButWrongIdentifierIsAGuidMessage) {
  PageSpec page;
  page.offset = writer_.AllocatePages(1)[0];
  page.identifier = Id(3);
  writer_.WritePage(page);
  auto record = Open(page.offset);
  EXPECT_EQ(record->PageCount(), 0u);
  EXPECT_EQ(DrainErrors(),
            (std::vector<ErrorRecord>{Record(12, "Unexpected vss record guid."), Record(12, "Can't find last page.")}));
}

TEST_F(VssRecordTest, OwnOffsetIsCheckedBeforeTheIdentifier) {
  PageSpec page;
  page.offset = writer_.AllocatePages(1)[0];
  page.identifier = Id(3);
  page.ownOffset = 0x4000;
  writer_.WritePage(page);
  Open(page.offset);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{
                               Record(12, "Unexpected vss record native offset. Actual(1048576), was expected(16384)"),
                               Record(12, "Can't find last page.")}));
}

TEST_F(VssRecordTest, UnreadablePageHeaderEmptiesTheRecord) {
  std::vector<uint64_t> pages = writer_.AllocatePages(2);
  writer_.WriteRecord(pages, kTypeCatalog, Payload(2 * kPayloadPerPage));
  writer_.Source()->FailReadsAt(pages[1]);
  auto record = Open(pages[0]);
  EXPECT_EQ(record->PageCount(), 0u);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read vss record header"),
                                                     Record(12, "Can't find last page.")}));
}

TEST_F(VssRecordTest, NextOffsetPastTheSourceEmptiesTheRecord) {
  std::vector<uint64_t> pages = writer_.AllocatePages(1);
  writer_.WriteRecord(pages, kTypeCatalog, Payload(10), /*lastNext=*/128 * kMiB);
  auto record = Open(pages[0]);
  EXPECT_EQ(record->PageCount(), 0u);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read vss record header"),
                                                     Record(12, "Can't find last page.")}));
}

TEST_F(VssRecordTest, EmptySourceGivesAnEmptyRecordSilently) {
  VssRecord record(nullptr, 0x100000);
  EXPECT_EQ(record.PageCount(), 0u);
  uint8_t byte = 0;
  EXPECT_EQ(record.Read(&byte, 1, 0), 0u);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(VssRecordTest, ReadAt16255TakesOneByteFromEachOfTwoPages) {
  std::vector<uint64_t> pages = writer_.AllocatePages(2);
  std::vector<uint8_t> payload = Payload(2 * kPayloadPerPage);
  writer_.WriteRecord(pages, kTypeCatalog, payload);
  auto record = Open(pages[0]);
  writer_.Source()->ForgetCalls();
  uint8_t bytes[2] = {};
  EXPECT_EQ(record->Read(bytes, 2, 0x3F7F), 2u);
  EXPECT_EQ(bytes[0], payload[16255]);
  EXPECT_EQ(bytes[1], payload[16256]);
  EXPECT_EQ(writer_.Source()->Calls(),
            (std::vector<SparseSource::ReadCall>{{pages[0] + 128 + 16255, 1}, {pages[1] + 128, 1}}));
}

TEST_F(VssRecordTest, ReadPastTheLastPageReturnsZeroWithoutMessage) {
  std::vector<uint64_t> pages = writer_.AllocatePages(2);
  writer_.WriteRecord(pages, kTypeCatalog, Payload(2 * kPayloadPerPage));
  auto record = Open(pages[0]);
  writer_.Source()->ForgetCalls();
  uint8_t bytes[8] = {};
  EXPECT_EQ(record->Read(bytes, 8, 2 * kPayloadPerPage), 0u);
  EXPECT_EQ(writer_.Source()->ReadCount(), 0u);
  // Running off the end part-way keeps the bytes copied but returns 0.
  EXPECT_EQ(record->Read(bytes, 8, 2 * kPayloadPerPage - 4), 0u);
  EXPECT_TRUE(DrainErrors().empty());
}

TEST_F(VssRecordTest, ReadOfWholePayloadAcrossManyPages) {
  std::vector<uint64_t> pages = writer_.AllocatePages(5);
  std::vector<uint8_t> payload = Payload(5 * kPayloadPerPage);
  writer_.WriteRecord(pages, kTypeBitmap, payload);
  auto record = Open(pages[0]);
  std::vector<uint8_t> all(payload.size());
  writer_.Source()->ForgetCalls();
  EXPECT_EQ(record->Read(all.data(), all.size(), 0), all.size());
  EXPECT_EQ(all, payload);
  EXPECT_EQ(writer_.Source()->ReadCount(), 5u);  // one source read per page
}

TEST_F(VssRecordTest, ReadFindsItsPageWithoutWalkingTheChain) {
  // 600 pages: reading at the last one costs one source read.
  std::vector<uint64_t> pages = writer_.AllocatePages(600);
  std::vector<uint8_t> payload = Payload(600 * kPayloadPerPage);
  writer_.WriteRecord(pages, kTypeBlockList, payload);
  auto record = Open(pages[0]);
  ASSERT_EQ(record->PageCount(), 600u);
  writer_.Source()->ForgetCalls();
  uint8_t bytes[4] = {};
  uint64_t offset = 599 * kPayloadPerPage + 100;
  EXPECT_EQ(record->Read(bytes, 4, offset), 4u);
  EXPECT_EQ(bytes[0], payload[offset]);
  EXPECT_EQ(writer_.Source()->Calls(), (std::vector<SparseSource::ReadCall>{{pages[599] + 128 + 100, 4}}));
}

TEST_F(VssRecordTest, SourceDeliveringNothingIsAPageDataFailure) {
  std::vector<uint64_t> pages = writer_.AllocatePages(2);
  writer_.WriteRecord(pages, kTypeCatalog, Payload(2 * kPayloadPerPage));
  auto record = Open(pages[0]);
  writer_.Source()->FailReadsAt(pages[1] + 128);
  std::vector<uint8_t> bytes(20);
  EXPECT_EQ(record->Read(bytes.data(), 20, kPayloadPerPage - 10), 0u);
  EXPECT_EQ(DrainErrors(), (std::vector<ErrorRecord>{Record(1, "Failed to read page data.")}));
}

TEST_F(VssRecordTest, ShortSourceReadGoesOnAtTheNextPageWithoutRetrying) {
  // A source whose end falls inside the first page's payload: the read of
  // that page comes back short, and reading goes on at the second page.
  StoreWriter writer(kMiB + 2 * kPageSize);
  std::vector<uint64_t> pages = {kMiB + kPageSize, kMiB};
  std::vector<uint8_t> payload = Payload(2 * kPayloadPerPage);
  writer.WriteRecord(pages, kTypeCatalog, payload);
  VssRecord record(writer.Source(), pages[0]);
  ASSERT_EQ(record.PageCount(), 2u);
  writer.Source()->SetSize(pages[0] + 128 + 100);
  writer.Source()->ForgetCalls();
  std::vector<uint8_t> bytes(150, 0xEE);
  EXPECT_EQ(record.Read(bytes.data(), 150, 50), 150u);
  EXPECT_EQ(writer.Source()->Calls(),
            (std::vector<SparseSource::ReadCall>{{pages[0] + 128 + 50, 150}, {pages[1] + 128, 100}}));
  // 50 bytes of the first page, then the second page's first 100 bytes.
  EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 50),
            std::vector<uint8_t>(payload.begin() + 50, payload.begin() + 100));
  EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 50, bytes.end()),
            std::vector<uint8_t>(payload.begin() + kPayloadPerPage, payload.begin() + kPayloadPerPage + 100));
  EXPECT_TRUE(DrainErrors().empty());
}

}  // namespace
