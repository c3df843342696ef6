// Points dealt to pieces come back, sorted and with their records, from memory and from a file.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "host/build/PieceStore.h"
#include "host/formats/ScanFile.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/TemporaryFolder.h"

namespace tarnhost {
namespace {

using oocpctest::IsOk;
using Bytes = std::vector<std::uint8_t>;

/// Scans with points at random, and their pieces.
class Dealing {
 public:
  explicit Dealing(const std::vector<std::uint32_t>& counts) {
    std::vector<std::unique_ptr<ScanFile>> scans;
    for (const std::uint32_t count : counts) {
      const std::string name = std::to_string(scans.size()) + ".las";
      std::unique_ptr<ScanFile> scan;
      EXPECT_TRUE(IsOk(OpenScan(scanFolder_.Add(name, oocpctest::ScanOf(count)), scan)));
      scans.push_back(std::move(scan));
    }
    EXPECT_TRUE(IsOk(PointSet::Join(std::move(scans), points_)));
    coder_.transform = points_.GetTransform();
    coder_.cube = {{0, -3000, 0}, 22'000};
    const std::uint64_t count = points_.GetPointCount();
    std::vector<std::int32_t> xyz(3 * count);
    points_.ReadPositions(0, count, xyz.data());
    codes_.resize(count);
    coder_.CodesOf(xyz.data(), codes_);
    do {
      pieces_.Count(codes_);
    } while (pieces_.EndRound());
    records_.resize(count * points_.GetRecordBytes());
    points_.ReadRecords(0, count, records_.data());
  }

  [[nodiscard]] const std::filesystem::path& Folder() const { return folder_.Path(); }
  [[nodiscard]] const PointSet& Points() const { return points_; }
  [[nodiscard]] const PieceTree& Pieces() const { return pieces_; }
  [[nodiscard]] const PointCoder& Coder() const { return coder_; }
  [[nodiscard]] const std::vector<std::uint64_t>& Codes() const { return codes_; }

  [[nodiscard]] Bytes RecordOf(std::uint64_t point) const {
    const std::size_t bytes = points_.GetRecordBytes();
    const auto* from = records_.data() + point * bytes;
    return {from, from + bytes};
  }

  /// Each piece has its points, along the curve, equal ones in the order of the scans.
  void ExpectPieces(PieceStore& store) const {
    std::vector<std::vector<std::pair<std::uint64_t, std::uint64_t>>> expected(
        pieces_.GetPieces().size());
    for (std::uint64_t i = 0; i < codes_.size(); ++i) {
      expected[pieces_.FindPiece(codes_[i])].emplace_back(codes_[i], i);
    }
    // Last first, and twice: nothing depends on the order.
    for (std::uint32_t turn = 0; turn < 2; ++turn) {
      for (auto piece = static_cast<std::uint32_t>(expected.size()); piece-- > 0;) {
        std::ranges::sort(expected[piece]);
        LoadedPiece loaded;
        ASSERT_TRUE(store.Load(piece, loaded).Ok());
        ASSERT_EQ(loaded.points.size(), expected[piece].size());
        for (std::size_t i = 0; i < loaded.points.size(); ++i) {
          ASSERT_EQ(loaded.points[i].code, expected[piece][i].first);
          const std::uint8_t* record = loaded.records.At(loaded.points[i].point);
          ASSERT_EQ(Bytes(record, record + points_.GetRecordBytes()),
                    RecordOf(expected[piece][i].second));
        }
      }
    }
  }

 private:
  oocpctest::ScanFolder scanFolder_;
  oocpctest::TemporaryFolder folder_;
  PointSet points_;
  PointCoder coder_;
  std::vector<std::uint64_t> codes_;
  PieceTree pieces_{200};
  Bytes records_;
};

void ExpectFromMemory(const Dealing& dealing) {
  RecordView records;
  ASSERT_TRUE(dealing.Points().GetMappedRecords(records));
  MemoryPieceStore store(dealing.Codes(), dealing.Pieces(), records);
  dealing.ExpectPieces(store);
}

constexpr std::uint64_t kRowPoints = 1u << 12;

void ExpectFromFile(const Dealing& dealing) {
  std::unique_ptr<TemporaryFile> file;
  ASSERT_TRUE(TemporaryFile::Create(dealing.Folder(), file).Ok());
  FilePieceStore store(std::move(file), dealing.Pieces().GetPieces().size(),
                       dealing.Points().GetRecordBytes(), 1000, dealing.Coder());
  std::uint64_t reported = 0;
  const auto report = [&](std::uint64_t done) {
    reported = done;
    return true;
  };
  ASSERT_TRUE(
      DealIntoFile(dealing.Points(), dealing.Pieces(), dealing.Coder(), kRowPoints, report, store)
          .Ok());
  EXPECT_EQ(reported, dealing.Points().GetPointCount());
  dealing.ExpectPieces(store);
}

TEST(PieceStore, GivesThePointsOfOneScanBack) {
  const Dealing dealing({5000});
  ExpectFromMemory(dealing);
  ExpectFromFile(dealing);
}

TEST(PieceStore, GivesThePointsOfSeveralScansBack) {
  const Dealing dealing({3000, 0, 1, 40'000});
  ExpectFromMemory(dealing);
  ExpectFromFile(dealing);
}

TEST(PieceStore, StopsDealingWhenTold) {
  const Dealing dealing({40'000});
  std::unique_ptr<TemporaryFile> file;
  ASSERT_TRUE(TemporaryFile::Create(dealing.Folder(), file).Ok());
  FilePieceStore store(std::move(file), dealing.Pieces().GetPieces().size(),
                       dealing.Points().GetRecordBytes(), 1000, dealing.Coder());
  const auto stop = [](std::uint64_t) { return false; };
  const Outcome outcome =
      DealIntoFile(dealing.Points(), dealing.Pieces(), dealing.Coder(), kRowPoints, stop, store);
  EXPECT_EQ(outcome.code, oocpc::result::kStopped);
}

TEST(TemporaryFile, GivesBytesBackAndLeavesNoFileBehindWhateverHappens) {
  const oocpctest::TemporaryFolder folder;
  std::unique_ptr<TemporaryFile> file;
  ASSERT_TRUE(TemporaryFile::Create(folder.Path(), file).Ok());
  std::uint64_t first = 7;
  std::uint64_t second = 7;
  ASSERT_TRUE(file->Append(Bytes{1, 2, 3}, first).Ok());
  ASSERT_TRUE(file->Append(Bytes{4, 5}, second).Ok());
  EXPECT_EQ(first, 0u);
  EXPECT_EQ(second, 3u);
  Bytes back(3);
  ASSERT_TRUE(file->Read(2, back).Ok());
  EXPECT_EQ(back, (Bytes{3, 4, 5}));
  EXPECT_FALSE(file->Read(3, back).Ok()) << "beyond its end";
#if defined(_WIN32)
  file.reset();  // where a file has a name as long as it is open
#endif
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path())) << "it has no name any more";
}

TEST(TemporaryFile, TellsWhereItCannotBeMade) {
  std::unique_ptr<TemporaryFile> file;
  const Outcome outcome = TemporaryFile::Create("/nonexistent/folder", file);
  EXPECT_FALSE(outcome.Ok());
  EXPECT_NE(outcome.where.find("/nonexistent/folder"), std::string::npos);
}

}  // namespace
}  // namespace tarnhost
