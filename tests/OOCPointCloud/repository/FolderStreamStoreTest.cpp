// The folder store against a real file system: full disks, missing permission, things in the way.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/StreamStore.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/System.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;
using oocpc::result::kOk;
using oocpctest::ReadFile;
using oocpctest::TemporaryFolder;
using oocpctest::WriteFile;

std::unique_ptr<OOCPCFolderStreamStore> OpenStore(const fs::path& folder) {
  std::unique_ptr<OOCPCFolderStreamStore> store;
  EXPECT_EQ(OOCPCFolderStreamStore::Open(folder, store), kOk);
  return store;
}

TEST(FolderStreamStore, MakesItsFolder) {
  const TemporaryFolder folder;
  std::unique_ptr<OOCPCFolderStreamStore> store;
  ASSERT_EQ(OOCPCFolderStreamStore::Create(folder / "scan.tarn", store), kOk);
  ASSERT_EQ(store->Append("A", Bytes{1, 2}), kOk);
  ASSERT_EQ(store->ReplaceMain(Bytes{3}), kOk);
  EXPECT_EQ(ReadFile(folder / "scan.tarn/A"), (Bytes{1, 2}));
  EXPECT_EQ(ReadFile(folder / "scan.tarn/main"), (Bytes{3}));
}

TEST(FolderStreamStore, RefusesToMakeWhatExists) {
  const TemporaryFolder folder;
  WriteFile(folder / "file", {});
  std::unique_ptr<OOCPCFolderStreamStore> store;
  EXPECT_EQ(OOCPCFolderStreamStore::Create(folder.Path(), store), oocpc::result::kAlreadyExists);
  EXPECT_EQ(OOCPCFolderStreamStore::Create(folder / "file", store), oocpc::result::kAlreadyExists);
  EXPECT_EQ(store, nullptr);
}

TEST(FolderStreamStore, MakesNoParents) {
  const TemporaryFolder folder;
  std::unique_ptr<OOCPCFolderStreamStore> store;
  EXPECT_EQ(OOCPCFolderStreamStore::Create(folder / "a/b", store), oocpc::result::kIoError);
  EXPECT_FALSE(fs::exists(folder / "a"));
}

TEST(FolderStreamStore, OpensNothingButFolders) {
  const TemporaryFolder folder;
  WriteFile(folder / "file", {});
  std::unique_ptr<OOCPCFolderStreamStore> store;
  EXPECT_EQ(OOCPCFolderStreamStore::Open(folder / "none", store), oocpc::result::kNotARepository);
  EXPECT_EQ(OOCPCFolderStreamStore::Open(folder / "file", store), oocpc::result::kNotARepository);
  EXPECT_EQ(OOCPCFolderStreamStore::Open(folder / "file/x", store), oocpc::result::kNotARepository);
}

TEST(FolderStreamStore, ReportsAnIoErrorWhereAFolderStandsInTheWayOfAFile) {
  const TemporaryFolder folder;
  fs::create_directories(folder / "A");
  const auto store = OpenStore(folder.Path());
  std::uint64_t length = 0;
  EXPECT_EQ(store->GetLength("A", length), oocpc::result::kIoError);
  EXPECT_EQ(store->Append("A", Bytes{1}), oocpc::result::kIoError);
  EXPECT_EQ(store->Truncate("A", 0), oocpc::result::kIoError);
  EXPECT_EQ(store->Sync("A"), oocpc::result::kIoError);
  fs::create_directories(folder / "main/inside");
  EXPECT_EQ(store->ReplaceMain(Bytes{1}), oocpc::result::kIoError);
  EXPECT_FALSE(fs::exists(folder / "main.new"));
}

TEST(FolderStreamStore, ReportsNoSpaceOnAFullDevice) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "this system has no /dev/full";
  const TemporaryFolder folder;
  fs::create_symlink("/dev/full", folder / "A");
  const auto store = OpenStore(folder.Path());
  EXPECT_EQ(store->Append("A", Bytes{1}), oocpc::result::kNoSpace);
}

TEST(FolderStreamStore, ReportsNoSpaceAtALimitOfFileSizeAndKeepsTheOldMainStream) {
  const TemporaryFolder folder;
  const auto store = OpenStore(folder.Path());
  ASSERT_EQ(store->ReplaceMain(Bytes{1, 2}), kOk);
  {
    const oocpctest::FileSizeLimit limit(1000);
    if (!limit.IsBound()) GTEST_SKIP() << "this system limits the size of no file";
    EXPECT_EQ(store->Append("A", Bytes(1001, 5)), oocpc::result::kNoSpace);
    EXPECT_EQ(store->ReplaceMain(Bytes(1001, 5)), oocpc::result::kNoSpace);
  }
  EXPECT_EQ(ReadFile(folder / "main"), (Bytes{1, 2}));
  EXPECT_FALSE(fs::exists(folder / "main.new"));
}

TEST(FolderStreamStore, IsDeniedAFolderWithoutPermission) {
  const TemporaryFolder folder;
  fs::create_directory(folder / "closed");
  fs::create_directory(folder / "readable");
  WriteFile(folder / "readable/A", Bytes{1});
  fs::permissions(folder.Path(), fs::perms::owner_all | fs::perms::others_exec);
  fs::permissions(folder / "closed", fs::perms::none);
  fs::permissions(folder / "readable", fs::perms::owner_read | fs::perms::owner_exec |
                                           fs::perms::others_read | fs::perms::others_exec);
  const auto store = OpenStore(folder / "readable");
  {
    const oocpctest::WithoutPrivileges bound;
    if (!bound.IsBound()) GTEST_SKIP() << "permissions do not bind this process";
    std::unique_ptr<OOCPCFolderStreamStore> none;
    EXPECT_EQ(OOCPCFolderStreamStore::Create(folder / "readable/new", none),
              oocpc::result::kAccessDenied);
    EXPECT_EQ(OOCPCFolderStreamStore::Open(folder / "closed/x", none),
              oocpc::result::kAccessDenied);
    EXPECT_EQ(store->Append("B", Bytes{1}), oocpc::result::kAccessDenied);
    EXPECT_EQ(store->ReplaceMain(Bytes{1}), oocpc::result::kAccessDenied);
  }
  fs::permissions(folder / "closed", fs::perms::owner_all);
  fs::permissions(folder / "readable", fs::perms::owner_all);
}

TEST(FolderStreamStore, GoesOnAfterAnInterruptedReplacementOfTheMainStream) {
  const TemporaryFolder folder;
  WriteFile(folder / "main.new", Bytes(50, 9));
  const auto store = OpenStore(folder.Path());
  ASSERT_EQ(store->ReplaceMain(Bytes{1}), kOk);
  EXPECT_EQ(ReadFile(folder / "main"), (Bytes{1}));
  EXPECT_FALSE(fs::exists(folder / "main.new"));
}

TEST(FolderStreamStore, KeepsTheNumberOfOpenFilesBounded) {
  const TemporaryFolder folder;
  const auto store = OpenStore(folder.Path());
  constexpr int kStreams = 300;
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < kStreams; ++i) {
      ASSERT_EQ(store->Append("S" + std::to_string(i), Bytes{std::uint8_t(round)}), kOk);
    }
  }
  if (const auto open = oocpctest::CountOpenFiles()) {
    EXPECT_LT(*open, 180);
  }
  for (int i = 0; i < kStreams; ++i) {
    EXPECT_EQ(store->Sync("S" + std::to_string(i)), kOk);
    EXPECT_EQ(ReadFile(folder / ("S" + std::to_string(i))), (Bytes{0, 1}));
  }
}

TEST(FolderStreamStore, ReadsTheMainStreamThatWasCommittedLast) {
  const TemporaryFolder folder;
  const auto store = OpenStore(folder.Path());
  Bytes main;
  EXPECT_EQ(store->ReadMain(main), oocpc::result::kNotARepository);
  ASSERT_EQ(store->ReplaceMain(Bytes{1}), kOk);
  ASSERT_EQ(store->ReplaceMain(Bytes{2, 3}), kOk);
  ASSERT_EQ(store->ReadMain(main), kOk);
  EXPECT_EQ(main, (Bytes{2, 3}));
}

TEST(FolderStreamStore, KeepsACopyOfTheMainStream) {
  const TemporaryFolder folder;
  const auto store = OpenStore(folder.Path());
  ASSERT_EQ(store->ReplaceMain(Bytes{1}), kOk);
  EXPECT_EQ(ReadFile(folder / "main.copy"), (Bytes{1}));
  ASSERT_EQ(store->ReplaceMain(Bytes{2}), kOk);
  EXPECT_EQ(ReadFile(folder / "main.copy"), (Bytes{2}));
}

TEST(FolderStreamStore, CommitsEvenWhereItCanMakeNoCopyOfTheMainStream) {
  const TemporaryFolder folder;
  fs::create_directories(folder / "main.copy/inside");
  const auto store = OpenStore(folder.Path());
  EXPECT_EQ(store->ReplaceMain(Bytes{1}), kOk);
  EXPECT_EQ(ReadFile(folder / "main"), (Bytes{1}));
}

}  // namespace
