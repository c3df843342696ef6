// Selections from a whole cloud, warm, and the record path beside a loop written by hand. Prints a
// line a measurement; with a yardstick (seconds) also how many of it each takes.
#include "host/select/Select.h"

#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <numeric>
#include <random>
#include <string>

#include "host/select/MaskKernels.h"
#include "host/select/Sinks.h"

namespace {

using tarnhost::Outcome;

constexpr int kRounds = 15;
double yardstick = 0;

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "bench_select: %s\n", what.c_str());
  std::exit(1);
}

/// The median of some rounds, after one that warms up.
double Median(const std::function<void()>& run) {
  run();
  std::vector<double> seconds(kRounds);
  for (double& taken : seconds) {
    const auto begin = std::chrono::steady_clock::now();
    run();
    taken = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  }
  std::ranges::sort(seconds);
  return seconds[kRounds / 2];
}

void Print(const char* what, double seconds, const std::string& more) {
  std::printf("%-44s %9.3f ms", what, 1e3 * seconds);
  if (yardstick > 0) std::printf("  %8.5f yardsticks", seconds / yardstick);
  std::printf("  %s\n", more.c_str());
}

std::string Millions(double perSecond) {
  char text[40];
  std::snprintf(text, sizeof text, "%.0f million/s", perSecond * 1e-6);
  return text;
}

tarnhost::SelectReport Count(tarnhost::Cloud& cloud, const std::string& text,
                             bool explain = false) {
  tarnhost::SelectOptions options;
  options.text = text;
  options.local = true;
  options.explain = explain;
  tarnhost::SelectReport report;
  const Outcome outcome = tarnhost::Select(cloud, options, nullptr, report);
  if (!outcome.Ok()) Fail(outcome.what + "\n" + outcome.where);
  return report;
}

/// The text of a size at which so large a part of the points is selected.
std::string Sized(tarnhost::Cloud& cloud, double share,
                  const std::function<std::string(double)>& text) {
  double low = 0;
  double high = 1e6;
  for (int i = 0; i < 40; ++i) {
    const double middle = (low + high) / 2;
    const tarnhost::SelectReport report = Count(cloud, text(middle));
    (static_cast<double>(report.selected) < share * static_cast<double>(report.pointCount) ? low
                                                                                           : high) =
        middle;
  }
  return text(high);
}

/// Notes the nodes that have points of a selection.
class NodeSink final : public tarnhost::SelectionSink {
 public:
  Outcome Begin(tarnhost::Cloud&) override { return Outcome::Success(); }
  Outcome Consume(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t>,
                  tarnhost::SinkPart*) override {
    blocks.push_back(node.blockId);
    return Outcome::Success();
  }
  Outcome End(const tarnhost::SelectReport&) override { return Outcome::Success(); }

  std::vector<std::uint64_t> blocks;
};

/// Decodes blocks of the positions, or of all columns, and does nothing else.
class BlockDecoder {
 public:
  BlockDecoder(tarnhost::Cloud& cloud, bool allColumns) {
    auto* const repository = cloud.GetPointCloud().GetDataRepository();
    readers_.emplace_back(repository, cloud.GetPositionsColumnId(),
                          oocpc::ColumnType{oocpc::ValueType::kInt32, 3});
    for (const tarnhost::CloudColumn& column : cloud.GetColumns()) {
      if (allColumns) readers_.emplace_back(repository, column.columnId, column.type);
    }
  }

  void Decode(std::uint64_t block) {
    for (oocpc::ColumnReader& reader : readers_) {
      oocpc::BlockEntry entry;
      if (oocpc::Failed(reader.ReadEntry(block, entry)) ||
          oocpc::Failed(reader.ReadBlock(block, values_))) {
        Fail("a block cannot be read");
      }
      storedBytes += entry.storedBytes;
      decodedBytes += static_cast<double>(values_.size());
    }
  }

  double storedBytes = 0;
  double decodedBytes = 0;

 private:
  std::deque<oocpc::ColumnReader> readers_;  // they cannot be moved
  std::vector<std::uint8_t> values_;
};

/// What decoding the blocks takes that points of a selection are in, on all threads.
struct Decoding {
  double seconds = 0;
  double storedBytes = 0;
  double decodedBytes = 0;
};

Decoding DecodeAlone(tarnhost::Cloud& cloud, const std::string& text, bool allColumns) {
  tarnhost::SelectOptions options;
  options.text = text;
  options.local = true;
  NodeSink nodes;
  tarnhost::SelectReport report;
  const Outcome outcome = tarnhost::Select(cloud, options, &nodes, report);
  if (!outcome.Ok()) Fail(outcome.what);
  Decoding decoding;
  decoding.seconds = Median([&] {
    tbb::enumerable_thread_specific<std::unique_ptr<BlockDecoder>> decoders(
        [&] { return std::make_unique<BlockDecoder>(cloud, allColumns); });
    tbb::parallel_for(std::size_t{0}, nodes.blocks.size(),
                      [&](std::size_t i) { decoders.local()->Decode(nodes.blocks[i]); });
    decoding.storedBytes = decoding.decodedBytes = 0;
    for (const std::unique_ptr<BlockDecoder>& decoder : decoders) {
      decoding.storedBytes += decoder->storedBytes;
      decoding.decodedBytes += decoder->decodedBytes;
    }
  });
  return decoding;
}

/// What writing so many bytes takes when nothing else is done, as the answers' files are written:
/// not waiting for the disk.
double WriteAlone(const std::filesystem::path& file, double bytes) {
  const std::vector<char> piece(std::size_t{1} << 20, 'x');
  return Median([&] {
    std::ofstream out(file, std::ios::binary);
    for (double left = bytes; left > 0; left -= static_cast<double>(piece.size())) {
      const double size = std::min(left, static_cast<double>(piece.size()));
      out.write(piece.data(), static_cast<std::streamsize>(size));
    }
  });
}

std::string Megabytes(double bytes) {
  char text[40];
  std::snprintf(text, sizeof text, "%.2f MB", bytes * 1e-6);
  return text;
}

void CountWholeCloud(tarnhost::Cloud& cloud) {
  const std::string text =
      "#and(#num{type=uint8_t}(\"classification\", ==, 2), #num{type=int}(\"intensity\", >, 100))";
  std::uint64_t points = 0;
  const double seconds = Median([&] { points = Count(cloud, text).pointCount; });
  Print("count class and intensity, whole cloud", seconds,
        Millions(static_cast<double>(points) / seconds));
}

void CountSphere(tarnhost::Cloud& cloud, const oocpc::Vector3d& centre) {
  const std::string text = Sized(cloud, 0.001, [&](double radius) {
    return "#distance(" + std::to_string(centre[0]) + "," + std::to_string(centre[1]) + "," +
           std::to_string(centre[2]) + "," + std::to_string(radius) + ")";
  });
  std::uint64_t selected = 0;
  const double seconds = Median([&] { selected = Count(cloud, text).selected; });
  Print("count a sphere of 0.1 %", seconds, std::to_string(selected) + " points  " + text);
  const tarnhost::SelectReport report = Count(cloud, text, true);
  const tarnhost::ColumnReport& read = report.plan->columns.front();
  const Decoding decoding = DecodeAlone(cloud, text, false);
  const double bound =
      static_cast<double>(read.bytesDecoded) * decoding.seconds / decoding.decodedBytes;
  Print("  decoding as many positions alone", bound,
        std::to_string(read.blocksDecoded) + " blocks, " +
            Megabytes(static_cast<double>(read.bytesRead)) + " read, " +
            Megabytes(static_cast<double>(read.bytesDecoded)) + " decoded");
}

void ExportBox(tarnhost::Cloud& cloud, const oocpc::Vector3d& centre,
               const std::filesystem::path& folder) {
  const std::string text = Sized(cloud, 0.01, [&](double half) {
    return "#within{type=2dbox}(" + std::to_string(centre[0] - half) + "," +
           std::to_string(centre[1] - half) + "," + std::to_string(centre[0] + half) + "," +
           std::to_string(centre[1] + half) + ")";
  });
  const Decoding decoding = DecodeAlone(cloud, text, true);
  Print(
      "decoding the blocks of a box of 1 % alone", decoding.seconds,
      Megabytes(decoding.storedBytes) + " read, " + Megabytes(decoding.decodedBytes) + " decoded");
  tarnhost::SelectOptions options;
  options.text = text;
  options.local = true;
  tarnhost::SelectReport report;
  for (const char* name : {"box.las", "box.ply", "box.csv"}) {
    const std::filesystem::path file = folder / (std::string("bench_select.") + name);
    const double seconds = Median([&] {
      std::unique_ptr<tarnhost::SelectionSink> sink;
      Outcome outcome = tarnhost::MakeFileSink(file, sink);
      if (outcome.Ok()) outcome = tarnhost::Select(cloud, options, sink.get(), report);
      if (!outcome.Ok()) Fail(outcome.what);
    });
    const auto bytes = static_cast<double>(std::filesystem::file_size(file));
    const double writing = WriteAlone(file, bytes);
    std::filesystem::remove(file);
    Print((std::string("export a box of 1 % to ") + name).c_str(), seconds,
          std::to_string(report.selected) + " points, " +
              std::to_string(static_cast<int>(bytes / seconds * 1e-6)) + " MB/s");
    Print("  writing as many bytes alone", writing, Megabytes(bytes));
  }
}

void PlanManyClauses(tarnhost::Cloud& cloud) {
  std::string text = "#or(";
  for (int i = 0; i < 100; ++i) {
    text += i == 0 ? "" : ", ";
    text += i % 3 == 0 ? "#distance(" + std::to_string(i) + ".5, 200, 30, 5)"
                       : "#num{type=int}(\"intensity\", ==, " + std::to_string(i) + ")";
  }
  tarnhost::SelectOptions options;
  options.text = text + ")";
  options.limit = 0;  // plans, and reads nothing
  const double seconds = Median([&] {
    tarnhost::SelectReport report;
    const Outcome outcome = tarnhost::Select(cloud, options, nullptr, report);
    if (!outcome.Ok()) Fail(outcome.what + "\n" + outcome.where);
  });
  Print("read and plan 100 clauses", seconds, std::to_string(text.size()) + " bytes");
}

constexpr unsigned kStride = 24;
constexpr unsigned kRecords = 100000;
constexpr int kPasses = 20;

/// Records of: intensity (int), classification (uint8_t), height (double).
std::vector<char> MakeRecords() {
  std::vector<char> records(std::size_t{kStride} * kRecords);
  std::mt19937 random(1);
  for (unsigned i = 0; i < kRecords; ++i) {
    const auto intensity = static_cast<std::int32_t>(random() % 256);
    const auto classification = static_cast<std::uint8_t>(1 + random() % 6);
    const double height = static_cast<double>(random() % 100000) * 0.001;
    std::memcpy(records.data() + i * kStride, &intensity, 4);
    std::memcpy(records.data() + i * kStride + 8, &classification, 1);
    std::memcpy(records.data() + i * kStride + 16, &height, 8);
  }
  return records;
}

template <typename T>
T Load(const char* from) {
  T value;
  std::memcpy(&value, from, sizeof(value));
  return value;
}

/// Records a second of a test, called for each record.
template <typename Test>
double RecordsPerSecond(const std::vector<char>& records, std::uint64_t& selected,
                        const Test& test) {
  const double seconds = Median([&] {
    selected = 0;
    for (int pass = 0; pass < kPasses; ++pass) {
      for (unsigned i = 0; i < kRecords; ++i) selected += test(records.data(), i) ? 1 : 0;
    }
  });
  return static_cast<double>(kRecords) * kPasses / seconds;
}

double EvaluatorPerSecond(tarnhost::Cloud& cloud, const std::vector<char>& records,
                          const std::string& text, std::uint64_t& selected) {
  TarnOOCStringQueryExpression expression;
  expression.SetPointCloud(&cloud.GetPointCloud());
  expression.SetInputString(text);
  if (oocpc::Failed(expression.ComputeBooleanAST())) Fail("the query does not parse: " + text);
  TarnOOCBooleanExpressionEvaluator evaluator(&cloud.GetPointCloud(), expression.GetBooleanAST());
  evaluator.CompleteMetaDatas(expression.GetBooleanAST());
  evaluator.CompleteBufferMetaDatas({"intensity", "classification", "height"}, {4, 1, 8},
                                    {0, 8, 16});
  evaluator.InitializeQueries();
  return RecordsPerSecond(records, selected, [&](const char* from, unsigned i) {
    return evaluator.EvaluateExpression(from, i, kStride);
  });
}

void CompareRecordPath(tarnhost::Cloud& cloud) {
  const std::vector<char> records = MakeRecords();
  std::uint64_t byEvaluator = 0;
  std::uint64_t byLoop = 0;
  const double one =
      EvaluatorPerSecond(cloud, records, "#num{type=int}(\"intensity\", >, 100)", byEvaluator);
  const double oneLoop = RecordsPerSecond(records, byLoop, [](const char* from, unsigned i) {
    return Load<std::int32_t>(from + std::size_t{i} * kStride) > 100;
  });
  if (byEvaluator != byLoop) Fail("the evaluator and the loop differ");
  std::printf("%-44s %s; by hand %s\n", "one comparison a record, one thread",
              Millions(one).c_str(), Millions(oneLoop).c_str());
  const double three = EvaluatorPerSecond(
      cloud, records,
      "#and(#num{type=uint8_t}(\"classification\", ==, 2), #num{type=int}(\"intensity\", >, 100), "
      "#num{type=double}(\"height\", <, 50))",
      byEvaluator);
  const double threeLoop = RecordsPerSecond(records, byLoop, [](const char* from, unsigned i) {
    const char* record = from + std::size_t{i} * kStride;
    return Load<std::uint8_t>(record + 8) == 2 && Load<std::int32_t>(record) > 100 &&
           Load<double>(record + 16) < 50;
  });
  if (byEvaluator != byLoop) Fail("the evaluator and the loop differ");
  std::printf("%-44s %s; by hand %s, %.1f times as fast\n",
              "three comparisons a record, one thread", Millions(three).c_str(),
              Millions(threeLoop).c_str(), threeLoop / three);
}

/// What the processors read of memory in a second, in bytes: the bound of every selection.
void MeasureBandwidth() {
  std::vector<std::uint64_t> words(std::size_t{64} << 20, 1);
  std::uint64_t sink = 0;
  constexpr std::size_t kPieces = 64;
  const std::size_t piece = words.size() / kPieces;
  const double seconds = Median([&] {
    std::vector<std::uint64_t> sums(kPieces);
    tbb::parallel_for(std::size_t{0}, kPieces, [&](std::size_t i) {
      sums[i] = tarnhost::CountBits(std::span(words).subspan(i * piece, piece));
    });
    sink += std::accumulate(sums.begin(), sums.end(), std::uint64_t{0});
  });
  if (sink == 0) Fail("nothing was read");
  std::printf("%-44s %.1f GB/s\n", "reading memory, all threads",
              static_cast<double>(words.size() * 8) / seconds * 1e-9);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) Fail("usage: bench_select REPOSITORY [YARDSTICK_SECONDS]");
  if (argc == 3) yardstick = std::atof(argv[2]);
  std::unique_ptr<tarnhost::Cloud> cloud;
  if (const Outcome outcome = tarnhost::Cloud::Open(argv[1], cloud); !outcome.Ok()) {
    Fail(outcome.what + "\n" + outcome.where);
  }
  OOCPCOctreeAcceleratorNode root;
  if (const Outcome outcome = cloud->ReadRoot(0, root); !outcome.Ok()) Fail(outcome.what);
  oocpc::Vector3d centre;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    centre[axis] = (root.corner1[axis] + root.corner2[axis]) / 2;
  }
  std::printf("%llu points, instructions %s, median of %d rounds\n",
              static_cast<unsigned long long>(root.subtreePointCount),
              tarnhost::KernelInstructions(), kRounds);
  MeasureBandwidth();
  CountWholeCloud(*cloud);
  CountSphere(*cloud, centre);
  ExportBox(*cloud, centre, std::filesystem::temp_directory_path());
  PlanManyClauses(*cloud);
  CompareRecordPath(*cloud);
  return 0;
}
