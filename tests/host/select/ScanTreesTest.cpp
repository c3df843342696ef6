// Random trees over real scans, imported one by one and all together.
#include "host/build/Import.h"
#include "tests/host/select/TreeComparison.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestData.h"

namespace {

using oocpctest::HandMadeColumn;
using oocpctest::HandMadeRecipe;
using oocpctest::Succeeded;
using tarnhost::Outcome;

/// Puts the blocks of a cloud one behind the other, as its points are numbered.
class RecipeReader {
 public:
  RecipeReader(tarnhost::Cloud& cloud, HandMadeRecipe& recipe) : cloud_(cloud), recipe_(recipe) {}

  Outcome Read() {
    std::vector<std::string> names;
    for (const tarnhost::CloudColumn& column : cloud_.GetColumns()) {
      names.push_back(column.name);
      recipe_.columns.push_back({column.name, column.type, {}});
    }
    recipe_.scale = cloud_.GetTransform().scale;
    recipe_.offset = cloud_.GetTransform().offset;
    recipe_.frameOffset = cloud_.GetFrameOffset();
    if (Outcome outcome = ReadStrings(); !outcome.Ok()) return outcome;
    if (Outcome outcome = tarnhost::BlockReader::Open(cloud_, names, reader_); !outcome.Ok()) {
      return outcome;
    }
    Outcome failure;
    Outcome walk = cloud_.WalkNodes(0, [&](const OOCPCOctreeAcceleratorNode& node) {
      if (node.ownPointCount > 0) failure = ReadNode(node);
      return failure.Ok() ? tarnhost::Descend::kIntoChildren : tarnhost::Descend::kStop;
    });
    return failure.Ok() ? walk : failure;
  }

 private:
  Outcome ReadStrings() {
    const auto* dictionary = cloud_.GetPointCloud().GetDataRepository()->GetStringRepository();
    for (std::uint64_t i = 0; dictionary != nullptr && i < dictionary->GetCount(); ++i) {
      const HRESULT code = dictionary->GetString(i, recipe_.strings.emplace_back());
      if (oocpc::Failed(code)) return Outcome::FromCode(code);
    }
    return Outcome::Success();
  }

  Outcome ReadNode(const OOCPCOctreeAcceleratorNode& node) {
    if (Outcome outcome = reader_.ReadPositions(node, xyz_); !outcome.Ok()) return outcome;
    Place(xyz_, 3 * node.firstPoint, recipe_.xyz);
    for (std::size_t i = 0; i < recipe_.columns.size(); ++i) {
      HandMadeColumn& column = recipe_.columns[i];
      // Strings are delivered as the evaluator is to see them; their indices are wanted here.
      if (column.type.value == oocpc::ValueType::kString) continue;
      if (Outcome outcome = reader_.ReadColumn(i, node, values_); !outcome.Ok()) return outcome;
      Place(values_, node.firstPoint * oocpc::ValueBytes(column.type), column.values);
    }
    return ReadIndices(node);
  }

  Outcome ReadIndices(const OOCPCOctreeAcceleratorNode& node) {
    for (std::size_t i = 0; i < recipe_.columns.size(); ++i) {
      HandMadeColumn& column = recipe_.columns[i];
      if (column.type.value != oocpc::ValueType::kString) continue;
      oocpc::ColumnReader reader(cloud_.GetPointCloud().GetDataRepository(),
                                 cloud_.GetColumns()[i].columnId, column.type);
      const HRESULT code = reader.ReadBlock(node.blockId, values_);
      if (oocpc::Failed(code)) return Outcome::FromCode(code, column.name);
      Place(values_, 4 * node.firstPoint, column.values);
    }
    return Outcome::Success();
  }

  template <typename T>
  static void Place(const std::vector<T>& values, std::size_t at, std::vector<T>& all) {
    if (all.size() < at + values.size()) all.resize(at + values.size());
    std::ranges::copy(values, all.begin() + static_cast<std::ptrdiff_t>(at));
  }

  tarnhost::Cloud& cloud_;
  HandMadeRecipe& recipe_;
  tarnhost::BlockReader reader_;
  std::vector<std::int32_t> xyz_;
  std::vector<std::uint8_t> values_;
};

void CompareTreesOf(const std::vector<std::filesystem::path>& scans, std::uint64_t seed,
                    std::uint64_t trees) {
  SCOPED_TRACE("seed " + std::to_string(seed));
  const oocpctest::TemporaryFolder folder;
  tarnhost::ImportOptions options;
  options.inputs = scans;
  options.output = folder / "scan.tarn";
  tarnhost::ImportReport report;
  ASSERT_TRUE(Succeeded(tarnhost::ImportScans(options, report)));
  std::unique_ptr<tarnhost::Cloud> cloud;
  ASSERT_TRUE(Succeeded(tarnhost::Cloud::Open(options.output, cloud)));
  HandMadeRecipe recipe;
  ASSERT_TRUE(Succeeded(RecipeReader(*cloud, recipe).Read()));
  ASSERT_EQ(recipe.GetCount(), report.pointCount);
  oocpctest::Random random(seed);
  oocpctest::CompareTrees(*cloud, recipe, random, trees);
}

class RandomTreesOverScans : public ::testing::Test {
 protected:
  void SetUp() override {
    if (oocpctest::TestScans().empty()) {
      GTEST_SKIP() << "no real scans are here; TARN_TEST_DATA names their folder";
    }
  }
};

TEST_F(RandomTreesOverScans, AreAnsweredAlikeByEngineEvaluatorAndPlainReading) {
  std::uint64_t test = 200;
  for (const std::filesystem::path& scan : oocpctest::TestScans()) {
    SCOPED_TRACE(scan.string());
    const bool isLarge = file_size(scan) > (std::uintmax_t{2} << 20);
    CompareTreesOf({scan}, oocpctest::SeedOf(test++), isLarge ? 10 : 25);
  }
}

TEST_F(RandomTreesOverScans, AreAnsweredAlikeForSeveralScansAndTheirNames) {
  const std::filesystem::path first = oocpctest::TestScans().front();
  const oocpctest::TemporaryFolder folder;
  std::filesystem::copy_file(first, folder / "second.las");
  CompareTreesOf({first, folder / "second.las"}, oocpctest::SeedOf(300), 50);
}

}  // namespace
