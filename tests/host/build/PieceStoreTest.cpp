// Records of pieces come back as they were appended, from memory and from a file.
#include <gtest/gtest.h>

#include <random>

#include "host/build/PieceStore.h"
#include "tests/support/TemporaryFolder.h"

namespace tarnhost {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes LoadAll(const PieceStore& store, std::uint32_t piece) {
  Bytes scratch;
  std::span<const std::uint8_t> records;
  EXPECT_TRUE(store.Load(piece, scratch, records).Ok());
  return {records.begin(), records.end()};
}

void ExpectBack(PieceStore& store, std::size_t pieces) {
  std::mt19937 random(2);
  std::vector<Bytes> expected(pieces);
  for (int i = 0; i < 500; ++i) {
    const auto piece = static_cast<std::uint32_t>(random() % pieces);
    Bytes records(random() % 300);
    for (std::uint8_t& byte : records) byte = static_cast<std::uint8_t>(random());
    ASSERT_TRUE(store.Append(piece, records).Ok());
    expected[piece].insert(expected[piece].end(), records.begin(), records.end());
  }
  ASSERT_TRUE(store.Finish().Ok());
  for (std::uint32_t piece = 0; piece < pieces; ++piece) {
    EXPECT_EQ(LoadAll(store, piece), expected[piece]);
  }
  store.Drop(0);
  for (std::uint32_t piece = 1; piece < pieces; ++piece) {
    EXPECT_EQ(LoadAll(store, piece), expected[piece]);
  }
}

TEST(PieceStore, GivesRecordsBackFromMemory) {
  const auto store = MakeMemoryPieceStore(std::vector<std::size_t>(7, 100));
  ExpectBack(*store, 7);
}

TEST(PieceStore, GivesRecordsBackFromAFile) {
  const oocpctest::TemporaryFolder folder;
  std::unique_ptr<PieceStore> store;
  ASSERT_TRUE(MakeFilePieceStore(folder.Path(), 7, 1000, store).Ok());
  ExpectBack(*store, 7);
}

TEST(PieceStore, LeavesNoFileBehindWhateverHappens) {
  const oocpctest::TemporaryFolder folder;
  std::unique_ptr<PieceStore> store;
  ASSERT_TRUE(MakeFilePieceStore(folder.Path(), 2, 10, store).Ok());
  ASSERT_TRUE(store->Append(1, Bytes(100, 3)).Ok());
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path())) << "its file has no name any more";
}

TEST(PieceStore, TellsWhereNoFileCanBeMade) {
  std::unique_ptr<PieceStore> store;
  const Outcome outcome = MakeFilePieceStore("/nonexistent/folder", 2, 10, store);
  EXPECT_FALSE(outcome.Ok());
  EXPECT_NE(outcome.where.find("/nonexistent/folder"), std::string::npos);
}

}  // namespace
}  // namespace tarnhost
