#include "cli/change_finder.h"

#include <gtest/gtest.h>

namespace tolvarcli {
namespace {

FileRecordInfo File(uint64_t size, std::vector<ntfsparsercore::Run> runs) {
  FileRecordInfo info;
  info.inUse = true;
  info.names.push_back(FileName{5, 5, FileRecordInfo::kWin32Namespace, u"report.txt"});
  info.names.push_back(FileName{5, 5, FileRecordInfo::kDosNamespace, u"REPORT.TXT"});
  info.hasTimes = true;
  for (int t = 0; t < FileRecordInfo::kTimeCount; ++t) info.times[t] = 1000 + t;
  DataStream data;
  data.size = size;
  data.resident = false;
  data.runs = std::move(runs);
  info.streams.push_back(data);
  return info;
}

FileChange::Kind KindOf(const FileRecordInfo& older, const FileRecordInfo& newer) {
  FileChange::Kind kind = FileChange::kAdded;
  EXPECT_TRUE(ChangeFinder::Classify(older, newer, &kind));
  return kind;
}

TEST(ChangeFinderTest, SameRecordIsNoChange) {
  const FileRecordInfo a = File(100, {{4096, 4096}});
  FileChange::Kind kind;
  EXPECT_FALSE(ChangeFinder::Classify(a, a, &kind));
}

TEST(ChangeFinderTest, OtherSizeOrRunsOrResidentValueIsModified) {
  const FileRecordInfo a = File(100, {{4096, 4096}});
  EXPECT_EQ(KindOf(a, File(200, {{4096, 4096}})), FileChange::kModified);
  EXPECT_EQ(KindOf(a, File(100, {{8192, 4096}})), FileChange::kModified);
  FileRecordInfo resident = File(3, {});
  resident.streams[0].resident = true;
  resident.streams[0].residentValue = {1, 2, 3};
  FileRecordInfo changed = resident;
  changed.streams[0].residentValue = {1, 2, 4};
  EXPECT_EQ(KindOf(resident, changed), FileChange::kModified);
}

TEST(ChangeFinderTest, OtherNameOrParentIsRenamed) {
  const FileRecordInfo a = File(100, {{4096, 4096}});
  FileRecordInfo moved = a;
  moved.names[0].parent = 64;
  EXPECT_EQ(KindOf(a, moved), FileChange::kRenamed);
  FileRecordInfo renamed = a;
  renamed.names[0].name = u"final.txt";
  EXPECT_EQ(KindOf(a, renamed), FileChange::kRenamed);
}

TEST(ChangeFinderTest, ADosNameAloneDoesNotRename) {
  const FileRecordInfo a = File(100, {{4096, 4096}});
  FileRecordInfo b = a;
  b.names[1].name = u"REPORT~1.TXT";
  FileChange::Kind kind;
  EXPECT_FALSE(ChangeFinder::Classify(a, b, &kind));
}

TEST(ChangeFinderTest, TimesOrAttributesAloneAreMetadata) {
  const FileRecordInfo a = File(100, {{4096, 4096}});
  FileRecordInfo touched = a;
  touched.times[FileRecordInfo::kAccessed] += 1;
  EXPECT_EQ(KindOf(a, touched), FileChange::kMetadata);
  FileRecordInfo hidden = a;
  hidden.attributes |= 0x2;
  EXPECT_EQ(KindOf(a, hidden), FileChange::kMetadata);
}

TEST(ChangeFinderTest, DataBeforeNamesBeforeMetadata) {
  const FileRecordInfo a = File(100, {{4096, 4096}});
  FileRecordInfo b = File(300, {{4096, 4096}});
  b.names[0].name = u"other.txt";
  b.times[0] = 1;
  EXPECT_EQ(KindOf(a, b), FileChange::kModified);
  b = a;
  b.names[0].name = u"other.txt";
  b.times[0] = 1;
  EXPECT_EQ(KindOf(a, b), FileChange::kRenamed);
}

TEST(ChangeFinderTest, KindNamesAreTheOutputWords) {
  EXPECT_STREQ(FileChange::KindName(FileChange::kAdded), "added");
  EXPECT_STREQ(FileChange::KindName(FileChange::kDeleted), "deleted");
  EXPECT_STREQ(FileChange::KindName(FileChange::kModified), "modified");
  EXPECT_STREQ(FileChange::KindName(FileChange::kRenamed), "renamed");
  EXPECT_STREQ(FileChange::KindName(FileChange::kMetadata), "metadata");
}

}  // namespace
}  // namespace tolvarcli
