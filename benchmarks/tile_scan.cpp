// Makes a large scan out of a small one: copies of it side by side, each point moved a little.
// Usage: tile_scan SCAN.las COLUMNS ROWS OUT.las
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "host/common/OutputFile.h"
#include "host/formats/LasScan.h"

namespace {

using tarnhost::Outcome;

constexpr std::int32_t kJitter = 5;  // stored integers, either way

int Fail(const std::string& what) {
  std::fprintf(stderr, "tile_scan: %s\n", what.c_str());
  return 1;
}

template <typename T>
void Put(std::vector<std::uint8_t>& bytes, std::size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof(T));
}

/// One tile's records: moved by whole tiles and jittered.
void MoveRecords(std::vector<std::uint8_t>& records, std::size_t stride, std::int32_t dx,
                 std::int32_t dy, std::mt19937& random) {
  std::uniform_int_distribution<std::int32_t> jitter(-kJitter, kJitter);
  for (std::size_t at = 0; at < records.size(); at += stride) {
    std::int32_t xyz[3];
    std::memcpy(xyz, records.data() + at, sizeof(xyz));
    xyz[0] += dx + jitter(random);
    xyz[1] += dy + jitter(random);
    xyz[2] += jitter(random);
    std::memcpy(records.data() + at, xyz, sizeof(xyz));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return Fail("usage: tile_scan SCAN.las COLUMNS ROWS OUT.las");
  const auto columns = static_cast<std::uint32_t>(std::atoi(argv[2]));
  const auto rows = static_cast<std::uint32_t>(std::atoi(argv[3]));
  std::unique_ptr<tarnhost::LasScan> scan;
  if (const Outcome outcome = tarnhost::LasScan::Open(argv[1], scan); !outcome.Ok()) {
    return Fail(outcome.what);
  }
  const auto leading = scan->GetLeadingBytes();
  const std::uint64_t count = scan->GetPointCount();
  const std::size_t stride =
      (static_cast<std::size_t>(scan->GetTrailingBytes().data() - leading.data()) -
       leading.size()) /
      count;
  std::vector<std::int32_t> xyz(3 * count);
  scan->ReadPositions(0, count, xyz.data());
  std::int32_t least[3];
  std::int32_t greatest[3];
  for (std::size_t axis = 0; axis < 3; ++axis) {
    least[axis] = greatest[axis] = xyz[axis];
    for (std::size_t i = axis; i < xyz.size(); i += 3) {
      least[axis] = std::min(least[axis], xyz[i]);
      greatest[axis] = std::max(greatest[axis], xyz[i]);
    }
  }
  const std::int32_t width = greatest[0] - least[0] + 2 * kJitter + 1;
  const std::int32_t height = greatest[1] - least[1] + 2 * kJitter + 1;

  std::vector<std::uint8_t> header(leading.begin(), leading.end());
  const std::uint64_t total = count * columns * rows;
  if (header[25] < 4) {
    Put(header, 107, static_cast<std::uint32_t>(total));
    std::memset(header.data() + 111, 0, 20);
    Put(header, 111, static_cast<std::uint32_t>(total));
  } else {
    return Fail("the scan must be of LAS 1.0 to 1.3");
  }
  const auto& transform = scan->GetTransform();
  const std::int32_t far[3] = {
      greatest[0] + width * static_cast<std::int32_t>(columns - 1) + kJitter,
      greatest[1] + height * static_cast<std::int32_t>(rows - 1) + kJitter, greatest[2] + kJitter};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double scale = transform.scale[axis];
    Put(header, 179 + 16 * axis, far[axis] * scale + transform.offset[axis]);
    Put(header, 187 + 16 * axis, (least[axis] - kJitter) * scale + transform.offset[axis]);
  }
  std::unique_ptr<tarnhost::OutputFile> file;
  Outcome outcome = tarnhost::OutputFile::Create(argv[4], file);
  if (outcome.Ok()) outcome = file->Write(header);
  std::mt19937 random(1);
  for (std::uint32_t row = 0; outcome.Ok() && row < rows; ++row) {
    for (std::uint32_t column = 0; outcome.Ok() && column < columns; ++column) {
      const std::uint8_t* from = leading.data() + leading.size();
      std::vector<std::uint8_t> records(from, from + count * stride);
      MoveRecords(records, stride, width * static_cast<std::int32_t>(column),
                  height * static_cast<std::int32_t>(row), random);
      outcome = file->Write(records);
    }
  }
  if (outcome.Ok()) outcome = file->Commit();
  return outcome.Ok() ? 0 : Fail(outcome.what);
}
