// A cloud that is built piece by piece gets the very octree that it gets as a whole.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <utility>

#include "host/build/TopLevels.h"
#include "tests/support/TemporaryFolder.h"

namespace tarnhost {
namespace {

using Codes = std::vector<std::uint64_t>;
/// Level and index of a node, and the number of one of its levels of detail.
using Place = std::tuple<std::uint32_t, std::uint64_t, std::uint32_t>;
using Samples = std::map<Place, std::set<std::uint64_t>>;

std::vector<CodedPoint> Coded(const Codes& codes) {
  std::vector<CodedPoint> points;
  for (std::size_t i = 0; i < codes.size(); ++i) points.push_back({codes[i], i});
  std::sort(points.begin(), points.end());
  return points;
}

/// `numbers` gives the number of a point of the plan.
template <typename Numbers>
void AddPlan(const OctreePlan& plan, const Numbers& numbers, Samples& samples) {
  for (const PlannedNode& node : plan.nodes) {
    std::uint64_t next = node.firstPoint;
    std::uint32_t part = 0;
    for (const std::uint32_t count : plan.PartsOf(node)) {
      auto& sample = samples[{node.level, node.indexInLevel, part++}];
      for (const std::uint64_t end = next + count; next < end; ++next) {
        sample.insert(numbers(plan.order[next]));
      }
    }
  }
}

Samples BuildWhole(const Codes& codes) {
  Samples samples;
  AddPlan(
      PlanOctree(Coded(codes)), [](std::uint64_t point) { return point; }, samples);
  return samples;
}

Samples BuildInPieces(const Codes& codes, std::uint64_t most, bool inFile,
                      std::size_t& pieceCount) {
  PieceTree tree(most);
  do {
    for (const std::uint64_t code : codes) tree.Count(code);
  } while (tree.EndRound());
  const std::vector<Piece>& pieces = tree.GetPieces();
  pieceCount = pieces.size();
  const SamplingGrid grid = SamplingGrid::Choose(tree.GetCellCounts());
  std::vector<Codes> numbers(pieces.size());
  for (std::uint64_t i = 0; i < codes.size(); ++i) {
    numbers[tree.FindPiece(codes[i])].push_back(i);
  }
  std::vector<std::vector<CodedPoint>> points(pieces.size());
  const oocpctest::TemporaryFolder folder;
  std::unique_ptr<TemporaryFile> file;
  if (inFile) {
    EXPECT_TRUE(TemporaryFile::Create(folder.Path(), file).Ok());
  }
  CandidateStore candidates(pieces.size(), std::move(file));
  for (std::size_t piece = 0; piece < pieces.size(); ++piece) {
    for (std::uint64_t row = 0; row < numbers[piece].size(); ++row) {
      points[piece].push_back({codes[numbers[piece][row]], row});
    }
    std::sort(points[piece].begin(), points[piece].end());
    EXPECT_TRUE(candidates.Put(piece, FindCandidates(pieces[piece], points[piece], grid)).Ok());
  }
  TopLevels top(pieces, candidates, grid);
  Samples samples;
  for (std::size_t piece = 0; piece < pieces.size(); ++piece) {
    SubtreeRoot root{pieces[piece].level, pieces[piece].indexInLevel, {}};
    std::set<std::uint64_t> rows;
    std::vector<TakenPoint> taken;
    EXPECT_TRUE(top.Next(taken, root.above).Ok());
    for (const TakenPoint& point : taken) {
      const std::uint64_t row = points[piece][point.index].point;
      EXPECT_EQ(points[piece][point.index].code, point.code);
      samples[{point.level, pieces[piece].CellOf(point.level), 0}].insert(numbers[piece][row]);
      rows.insert(row);
    }
    std::erase_if(points[piece], [&](const CodedPoint& p) { return rows.contains(p.point); });
    if (points[piece].empty()) continue;
    AddPlan(
        PlanSubtree(points[piece], std::move(root), grid),
        [&](std::uint64_t row) { return numbers[piece][row]; }, samples);
  }
  return samples;
}

void ExpectSame(const Codes& codes, std::uint64_t most) {
  std::size_t pieces = 0;
  const Samples inPieces = BuildInPieces(codes, most, false, pieces);
  EXPECT_GT(pieces, 1u);
  EXPECT_EQ(BuildInPieces(codes, most, true, pieces), inPieces);
  Samples whole = BuildWhole(codes);
  std::erase_if(whole, [](const auto& sample) { return sample.second.empty(); });
  EXPECT_EQ(inPieces.size(), whole.size());
  for (const auto& [place, sample] : whole) {
    const auto found = inPieces.find(place);
    ASSERT_TRUE(found != inPieces.end())
        << "level " << std::get<0>(place) << ", node " << std::get<1>(place);
    EXPECT_TRUE(found->second == sample)
        << "level " << std::get<0>(place) << ", node " << std::get<1>(place);
  }
}

std::uint64_t CodeOf(std::uint64_t x, std::uint64_t y, std::uint64_t z) {
  return SpreadBits(x) | SpreadBits(y) << 1 | SpreadBits(z) << 2;
}

Codes RandomCodes(std::size_t count, unsigned bits = 63) {
  std::mt19937_64 random(5);
  Codes codes(count);
  for (std::uint64_t& code : codes) code = random() >> (64 - bits);
  return codes;
}

Codes TiltedPlane(std::uint64_t columns, std::uint64_t rows) {
  std::mt19937 random(6);
  Codes codes;
  for (std::uint64_t y = 0; y < rows; ++y) {
    for (std::uint64_t x = 0; x < columns; ++x) {
      const std::uint64_t jitter = random() % 400;
      codes.push_back(CodeOf(x * 2500 + jitter, y * 2500 + random() % 400, x * 700 + y * 400));
    }
  }
  return codes;
}

TEST(Pieces, GiveTheSameOctreeOfAFilledCube) { ExpectSame(RandomCodes(250000), 40000); }

TEST(Pieces, GiveTheSameOctreeOfATiltedPlane) {
  ExpectSame(TiltedPlane(600, 500), 40000);
  ExpectSame(TiltedPlane(600, 500), 130000);
}

TEST(Pieces, GiveTheSameOctreeOfADenseSpot) {
  auto codes = TiltedPlane(300, 300);
  const auto spot = RandomCodes(200000, 30);
  codes.insert(codes.end(), spot.begin(), spot.end());
  ExpectSame(codes, 40000);
}

TEST(Pieces, GiveTheSameOctreeOfTwoFarClusters) {
  auto codes = RandomCodes(150000, 24);
  for (std::size_t i = 0; i < codes.size(); i += 2) codes[i] |= std::uint64_t{7} << 60;
  ExpectSame(codes, 40000);
}

TEST(Pieces, GiveTheSameOctreeOfFarClustersThatFillSpace) {
  auto codes = RandomCodes(500000, 30);
  for (std::size_t i = 0; i < codes.size(); i += 2) codes[i] |= std::uint64_t{7} << 60;
  ExpectSame(codes, 40000);
  ExpectSame(codes, 150000);
}

TEST(Pieces, GiveTheSameOctreeOfALine) {
  Codes codes;
  for (std::uint64_t i = 0; i < 120000; ++i) codes.push_back(CodeOf(i * 17, 5, 1000));
  ExpectSame(codes, 40000);
}

TEST(Pieces, GiveTheSameOctreeWherePointsComeTwice) {
  auto codes = TiltedPlane(350, 300);
  codes.insert(codes.end(), codes.begin(), codes.begin() + 50000);
  ExpectSame(codes, 40000);
}

}  // namespace
}  // namespace tarnhost
