// Encoding and decoding of blocks whose values look like a scan's, in component values per second:
// a position counts as three.
#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/ResultCodes.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace {

using oocpc::BlockEncodings;
using oocpc::ColumnType;
using oocpc::EncodedBlock;
using oocpc::ValueType;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kValues = 16384;

struct Block {
  ColumnType type;
  Bytes values;
  BlockEncodings allowed;

  [[nodiscard]] EncodedBlock Encode() const { return oocpc::EncodeBlock(type, values, allowed); }
};

template <typename T>
Block MakeBlock(ColumnType type, const std::vector<T>& numbers,
                BlockEncodings allowed = BlockEncodings::kAll) {
  Block block{type, Bytes(numbers.size() * sizeof(T)), allowed};
  std::memcpy(block.values.data(), numbers.data(), block.values.size());
  return block;
}

/// Millimetres along scan lines over gentle ground: steps across the line, back to its other end,
/// and a little noise.
Block MakePositions() {
  constexpr int kLinePoints = 700;
  std::mt19937 random(1);
  std::normal_distribution<double> noise(0, 6);
  std::vector<std::int32_t> numbers;
  for (std::size_t i = 0; i < kValues; ++i) {
    const auto line = static_cast<double>(i / kLinePoints);
    const auto place = static_cast<double>(i % kLinePoints);
    const double x = 512'000'000 + line * 480 + place * 13 + noise(random);
    const double y = 403'000'000 + place * 410 + noise(random);
    const double z = 310'000 + 2500 * std::sin(x / 9e4) + 1800 * std::cos(y / 7e4) + noise(random);
    for (const double number : {x, y, z}) numbers.push_back(static_cast<std::int32_t>(number));
  }
  return MakeBlock({ValueType::kInt32, 3}, numbers);
}

/// Seconds of a pulse every 2 microseconds or a multiple of it; all echoes of a pulse share its
/// time. In full precision, so only differences of their bit patterns repeat.
Block MakeTimes() {
  std::mt19937 random(2);
  std::vector<double> numbers;
  double time = 235'411'307.118244;
  while (numbers.size() < kValues) {
    time += 2.0 / (1 << 20) * (random() % 20 == 0 ? 2 + random() % 6 : 1);
    const std::size_t echoes = std::min<std::size_t>(1 + (random() % 5 == 0 ? 1 + random() % 3 : 0),
                                                     kValues - numbers.size());
    numbers.insert(numbers.end(), echoes, time);
  }
  return MakeBlock({ValueType::kDouble, 1}, numbers);
}

/// Red, green and blue of surfaces that last for a while, 8 bits spread over 16.
Block MakeColors() {
  std::mt19937 random(3);
  std::normal_distribution<double> noise(0, 5);
  std::vector<std::uint16_t> numbers;
  double base[3] = {120, 130, 100};
  for (std::size_t i = 0; i < kValues; ++i) {
    if (random() % 60 == 0) {
      for (double& channel : base) channel = 40.0 + random() % 170;
    }
    const double light = noise(random);
    for (const double channel : base) {
      const double level = std::clamp(channel + light + 0.3 * noise(random), 0.0, 255.0);
      numbers.push_back(static_cast<std::uint16_t>(static_cast<int>(level) * 257));
    }
  }
  return MakeBlock({ValueType::kUInt16, 3}, numbers);
}

/// Ground, plants, buildings and the like, in runs.
Block MakeClassification() {
  constexpr std::uint8_t kClasses[] = {1, 2, 2, 2, 3, 4, 5, 5, 6, 9};
  std::mt19937 random(4);
  std::vector<std::uint8_t> numbers;
  while (numbers.size() < kValues) {
    const std::size_t run = std::min<std::size_t>(1 + random() % 80, kValues - numbers.size());
    numbers.insert(numbers.end(), run, kClasses[random() % std::size(kClasses)]);
  }
  return MakeBlock({ValueType::kUInt8, 1}, numbers, BlockEncodings::kLight);
}

/// Echo strengths: a wide hump, neighbours alike.
Block MakeIntensity() {
  std::mt19937 random(5);
  std::normal_distribution<double> noise(0, 1);
  std::vector<std::uint16_t> numbers;
  double level = 900;
  for (std::size_t i = 0; i < kValues; ++i) {
    level += 0.02 * (900 - level) + 30 * noise(random);
    numbers.push_back(
        static_cast<std::uint16_t>(std::clamp(level + 90 * noise(random), 0., 65535.)));
  }
  return MakeBlock({ValueType::kUInt16, 1}, numbers, BlockEncodings::kLight);
}

void Report(benchmark::State& state, const Block& block, const EncodedBlock& encoded) {
  const auto numbers = static_cast<std::int64_t>(kValues * block.type.components);
  state.SetItemsProcessed(state.iterations() * numbers);
  state.counters["encoding"] = static_cast<double>(encoded.entry.encoding);
  state.counters["bits_a_number"] =
      8.0 * static_cast<double>(encoded.bytes.size()) / static_cast<double>(numbers);
}

void Encode(benchmark::State& state, Block (*make)()) {
  const Block block = make();
  EncodedBlock encoded;
  for (auto _ : state) {
    encoded = block.Encode();
    benchmark::DoNotOptimize(encoded.bytes.data());
  }
  Report(state, block, encoded);
}

void Decode(benchmark::State& state, Block (*make)()) {
  const Block block = make();
  const EncodedBlock encoded = block.Encode();
  Bytes values;
  for (auto _ : state) {
    if (oocpc::DecodeBlock(encoded.entry, encoded.bytes, values) != oocpc::result::kOk) {
      state.SkipWithError("a block that was just encoded is refused");
      break;
    }
    benchmark::DoNotOptimize(values.data());
  }
  if (values != block.values) state.SkipWithError("values changed on the way");
  Report(state, block, encoded);
}

BENCHMARK_CAPTURE(Encode, positions, MakePositions);
BENCHMARK_CAPTURE(Encode, times, MakeTimes);
BENCHMARK_CAPTURE(Encode, colors, MakeColors);
BENCHMARK_CAPTURE(Encode, classification, MakeClassification);
BENCHMARK_CAPTURE(Encode, intensity, MakeIntensity);
BENCHMARK_CAPTURE(Decode, positions, MakePositions);
BENCHMARK_CAPTURE(Decode, times, MakeTimes);
BENCHMARK_CAPTURE(Decode, colors, MakeColors);
BENCHMARK_CAPTURE(Decode, classification, MakeClassification);
BENCHMARK_CAPTURE(Decode, intensity, MakeIntensity);

}  // namespace

BENCHMARK_MAIN();
