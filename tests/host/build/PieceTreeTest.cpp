// Cutting clouds into pieces, compared with a plain count.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "host/build/PieceTree.h"

namespace tarnhost {
namespace {

std::vector<std::uint64_t> RandomCodes(std::size_t count, unsigned bits = 63) {
  std::mt19937_64 random(17);
  std::vector<std::uint64_t> codes(count);
  for (std::uint64_t& code : codes) code = random() >> (64 - bits);
  return codes;
}

std::unique_ptr<PieceTree> Cut(const std::vector<std::uint64_t>& codes, std::uint64_t most,
                               int* rounds = nullptr) {
  auto tree = std::make_unique<PieceTree>(most);
  int counted = 0;
  do {
    for (const std::uint64_t code : codes) tree->Count(code);
    ++counted;
  } while (tree->EndRound());
  if (rounds != nullptr) *rounds = counted;
  return tree;
}

/// Pieces are disjoint, ascending, hold every point once, and are as large as they may be.
void Check(const PieceTree& tree, const std::vector<std::uint64_t>& codes, std::uint64_t most) {
  EXPECT_EQ(tree.GetPointCount(), codes.size());
  const std::vector<Piece>& pieces = tree.GetPieces();
  std::vector<std::uint64_t> counts(pieces.size());
  for (const std::uint64_t code : codes) {
    const std::uint32_t piece = tree.FindPiece(code);
    ASSERT_LT(piece, pieces.size());
    EXPECT_EQ(code >> (3 * (kMortonBits - pieces[piece].level)), pieces[piece].indexInLevel);
    ++counts[piece];
  }
  std::uint64_t end = 0;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    EXPECT_EQ(pieces[i].pointCount, counts[i]);
    EXPECT_GT(counts[i], 0u);
    EXPECT_TRUE(counts[i] <= most || pieces[i].level == kMortonBits);
    const std::uint64_t begin = pieces[i].indexInLevel << (3 * (kMortonBits - pieces[i].level));
    EXPECT_GE(begin, end) << "along the Morton curve, one beside the other";
    end = (pieces[i].indexInLevel + 1) << (3 * (kMortonBits - pieces[i].level));
    if (pieces[i].level == 0) continue;
    const std::uint64_t above = pieces[i].indexInLevel >> 3;
    const auto inParent = std::ranges::count_if(codes, [&](std::uint64_t code) {
      return code >> (3 * (kMortonBits - pieces[i].level + 1)) == above;
    });
    EXPECT_GT(static_cast<std::uint64_t>(inParent), most) << "the cell above would not fit";
  }
}

TEST(PieceTree, HasNoPiecesWithoutPoints) {
  const auto tree = Cut({}, 10);
  EXPECT_TRUE(tree->GetPieces().empty());
  EXPECT_EQ(tree->GetCellCounts()[0], 0u);
}

TEST(PieceTree, KeepsASmallCloudWhole) {
  const auto codes = RandomCodes(500);
  const auto tree = Cut(codes, 500);
  ASSERT_EQ(tree->GetPieces().size(), 1u);
  EXPECT_EQ(tree->GetPieces()[0].level, 0u);
  Check(*tree, codes, 500);
}

TEST(PieceTree, CutsWhatDoesNotFit) {
  const auto codes = RandomCodes(3000);
  const auto tree = Cut(codes, 100);
  EXPECT_GT(tree->GetPieces().size(), 30u);
  Check(*tree, codes, 100);
}

TEST(PieceTree, CountsAgainWhereOneCellHoldsTooMany) {
  auto codes = RandomCodes(2000);
  for (std::size_t i = 0; i < codes.size(); i += 2) codes[i] >>= 40;  // one dense corner
  int rounds = 0;
  const auto tree = Cut(codes, 50, &rounds);
  EXPECT_GT(rounds, 1);
  Check(*tree, codes, 50);
}

TEST(PieceTree, StopsWhereNoBitTellsPointsApart) {
  const std::vector<std::uint64_t> codes(300, 0x123456789ABCDEFu);
  const auto tree = Cut(codes, 20);
  ASSERT_EQ(tree->GetPieces().size(), 1u);
  EXPECT_EQ(tree->GetPieces()[0].level, kMortonBits);
  Check(*tree, codes, 20);
}

TEST(PieceTree, CountsTheOccupiedCellsOfTheCoarseLevels) {
  const auto codes = RandomCodes(4000);
  const auto tree = Cut(codes, 100);
  ASSERT_EQ(tree->GetCellCounts().size(), PieceTree::kFirstLevels + 1u);
  for (unsigned level = 0; level <= PieceTree::kFirstLevels; ++level) {
    std::set<std::uint64_t> cells;
    for (const std::uint64_t code : codes) cells.insert(code >> (3 * (kMortonBits - level)));
    EXPECT_EQ(tree->GetCellCounts()[level], cells.size()) << level;
  }
}

TEST(PieceTree, CountsFromSeveralThreadsAtOnce) {
  const auto codes = RandomCodes(20000);
  PieceTree tree(1000);
  do {
    std::vector<std::jthread> threads;
    for (std::size_t part = 0; part < 4; ++part) {
      threads.emplace_back([&, part] {
        for (std::size_t i = part; i < codes.size(); i += 4) tree.Count(codes[i]);
      });
    }
    threads.clear();
  } while (tree.EndRound());
  Check(tree, codes, 1000);
}

}  // namespace
}  // namespace tarnhost
