// One writer at a time, in all processes together.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/StreamStore.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "tests/support/System.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using namespace std::chrono_literals;
using oocpc::result::kBeingWritten;
using oocpc::result::kOk;
using oocpctest::TemporaryFolder;
using oocpctest::WriteFile;
using Store = std::unique_ptr<OOCPCFolderStreamStore>;

constexpr const char* kFolderVariable = "OOCPC_TEST_LOCKED_FOLDER";

TEST(WriterLock, RefusesASecondWriterUntilTheFirstIsDone) {
  const TemporaryFolder folder;
  Store first;
  ASSERT_EQ(OOCPCFolderStreamStore::Create(folder / "scan.tarn", first), kOk);
  Store second;
  EXPECT_EQ(OOCPCFolderStreamStore::Open(folder / "scan.tarn", second), kBeingWritten);
  EXPECT_EQ(second, nullptr);
  first.reset();
  ASSERT_EQ(OOCPCFolderStreamStore::Open(folder / "scan.tarn", second), kOk);
  EXPECT_EQ(OOCPCFolderStreamStore::Open(folder / "scan.tarn", first), kBeingWritten);
}

TEST(WriterLock, IsNotHeldByAFileThatIsLeftOver) {
  const TemporaryFolder folder;
  WriteFile(folder / OOCPCFolderStreamStore::kLockFileName, std::vector<std::uint8_t>{1, 2, 3});
  Store store;
  EXPECT_EQ(OOCPCFolderStreamStore::Open(folder.Path(), store), kOk);
}

/// Not a test: what another process does for the test below, until it is killed.
TEST(WriterLock, DISABLED_IsHeldByAnotherProcess) {
  const char* named = std::getenv(kFolderVariable);
  ASSERT_NE(named, nullptr);
  const std::filesystem::path folder = named;
  Store held;
  ASSERT_EQ(OOCPCFolderStreamStore::Open(folder, held), kOk);
  WriteFile(folder / "held", {});
  std::this_thread::sleep_for(120s);
}

TEST(WriterLock, IsReleasedWhenItsProcessIsKilled) {
  const TemporaryFolder folder;
  oocpctest::SetVariable(kFolderVariable, folder.Path().string().c_str());
  oocpctest::OtherProcess other("WriterLock.DISABLED_IsHeldByAnotherProcess");
  ASSERT_TRUE(other.IsStarted());
  for (int i = 0; i < 6000 && !std::filesystem::exists(folder / "held"); ++i) {
    std::this_thread::sleep_for(10ms);
  }
  ASSERT_TRUE(std::filesystem::exists(folder / "held"));
  Store store;
  EXPECT_EQ(OOCPCFolderStreamStore::Open(folder.Path(), store), kBeingWritten);
  other.Kill();
  EXPECT_EQ(OOCPCFolderStreamStore::Open(folder.Path(), store), kOk);
}

}  // namespace
