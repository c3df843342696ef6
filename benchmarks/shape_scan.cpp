// Writes a LAS file whose points lie as scanners seldom lay them, in random order.
// Usage: shape_scan SHAPE POINTS OUT.las     SHAPE: line, plane, clusters, equal, dense, volume
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using Position = std::array<std::int32_t, 3>;  // millimetres
using Random = std::mt19937_64;

constexpr std::size_t kHeaderBytes = 227;
constexpr std::size_t kRecordBytes = 28;  // point format 1
constexpr std::size_t kPointsAtOnce = 1 << 16;

std::int32_t Within(std::int32_t edge, Random& random) {
  return std::uniform_int_distribution<std::int32_t>(0, edge)(random);
}

/// A cube of 100 m; one of two, a thousand kilometres apart.
Position InCluster(Random& random) {
  const std::int32_t shift = random() % 2 == 0 ? 0 : 1'000'000'000;
  return {shift + Within(100'000, random), Within(100'000, random), Within(100'000, random)};
}

/// Every other point within a decimetre, the others in a cube of 10 km.
Position AroundASpot(Random& random) {
  const std::int32_t edge = random() % 2 == 0 ? 100 : 10'000'000;
  return {Within(edge, random), Within(edge, random), Within(edge, random)};
}

const std::map<std::string, std::function<Position(Random&)>> kShapes{
    {"line",
     [](Random& random) {
       return Position{Within(1'000'000'000, random), 0, 0};
     }},
    {"plane",
     [](Random& random) {
       return Position{Within(10'000'000, random), Within(10'000'000, random), 0};
     }},
    {"clusters", InCluster},
    {"equal",
     [](Random&) {
       return Position{12'345, 67'890, 1'000};
     }},
    {"dense", AroundASpot},
    {"volume",
     [](Random& random) {
       return Position{Within(1'000'000, random), Within(1'000'000, random),
                       Within(1'000'000, random)};
     }},
};

template <typename T>
void Put(std::vector<char>& bytes, std::size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof(T));
}

/// LAS 1.2; bounds that hold all shapes.
std::vector<char> MakeHeader(std::uint32_t points) {
  std::vector<char> header(kHeaderBytes);
  std::memcpy(header.data(), "LASF", 4);
  Put(header, 24, std::uint16_t{0x0201});
  Put(header, 94, static_cast<std::uint16_t>(kHeaderBytes));
  Put(header, 96, static_cast<std::uint32_t>(kHeaderBytes));
  Put(header, 104, std::uint8_t{1});
  Put(header, 105, static_cast<std::uint16_t>(kRecordBytes));
  Put(header, 107, points);
  Put(header, 111, points);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    Put(header, 131 + 8 * axis, 0.001);
    Put(header, 179 + 16 * axis, 1.1e6);
  }
  return header;
}

}  // namespace

int main(int argc, char** argv) {
  const auto shape = argc == 4 ? kShapes.find(argv[1]) : kShapes.end();
  if (shape == kShapes.end()) {
    std::fprintf(stderr, "usage: shape_scan line|plane|clusters|equal|dense|volume POINTS OUT\n");
    return 2;
  }
  const auto count = static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 10));
  std::ofstream out(argv[3], std::ios::binary);
  const std::vector<char> header = MakeHeader(count);
  out.write(header.data(), static_cast<std::streamsize>(header.size()));
  Random random(1);
  std::vector<char> records;
  for (std::uint32_t done = 0; done < count;) {
    const std::size_t here = std::min<std::size_t>(kPointsAtOnce, count - done);
    records.assign(here * kRecordBytes, 0);
    for (std::size_t i = 0; i < here; ++i) {
      const std::size_t at = i * kRecordBytes;
      const Position position = shape->second(random);
      std::memcpy(records.data() + at, position.data(), sizeof(position));
      Put(records, at + 12, static_cast<std::uint16_t>(random() % 1000));
      Put(records, at + 14, std::uint8_t{0x09});  // the first of one return
      Put(records, at + 15, static_cast<std::uint8_t>(random() % 10));
      Put(records, at + 20, 1e5 + 1e-5 * static_cast<double>(done + i));
    }
    out.write(records.data(), static_cast<std::streamsize>(records.size()));
    done += static_cast<std::uint32_t>(here);
  }
  out.close();
  if (!out) std::perror(argv[3]);
  return out ? 0 : 1;
}
