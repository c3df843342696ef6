// Decodes arbitrary bytes as numbers, residuals and runs, and takes arbitrary numbers and values
// there and back. Input: value type, components, bits of a number, how many numbers or values to
// decode (16 bits), then the bytes.
#include "FuzzSupport.h"
#include "OOCPointCloud/columns/ComponentTypes.h"
#include "OOCPointCloud/columns/NumberCoding.h"
#include "OOCPointCloud/columns/NumberFrequencies.h"
#include "OOCPointCloud/columns/ResidualCoding.h"
#include "OOCPointCloud/columns/RunPacking.h"

using namespace oocpc;
using namespace oocpcfuzz;

namespace {

using Numbers = std::vector<std::uint64_t>;

/// Numbers of 32 bits give the same bytes as when they are widened.
void RequireSameFromNarrowNumbers(const Numbers& numbers, const Bytes& coded) {
  const std::vector<std::uint32_t> narrow(numbers.begin(), numbers.end());
  if (!std::equal(numbers.begin(), numbers.end(), narrow.begin())) return;
  Bytes same;
  Require(EncodeNumbers(std::span<const std::uint32_t>(narrow), same) && same == coded);
}

void RequireRoundTrip(const Numbers& numbers) {
  TokenCounts counts;
  Require(counts.Add(std::span<const std::uint64_t>(numbers)));
  const TokenShares shares = TokenShares::Of(counts);
  std::uint32_t sum = 0;
  for (std::size_t token = 0; token < TokenCounts::kTokens; ++token) {
    Require((shares.shares[token] != 0) == (counts.counts[token] != 0));
    sum += shares.shares[token];
  }
  Require(sum == kShares);
  Bytes coded;
  Require(EncodeNumbers(std::span<const std::uint64_t>(numbers), coded));
  RequireSameFromNarrowNumbers(numbers, coded);
  coded.shrink_to_fit();
  Numbers back(numbers.size());
  std::span<const std::uint8_t> rest(coded);
  Require(DecodeNumbers(rest, back));
  Require(rest.empty() && back == numbers);
}

void RequireRoundTrip(ColumnType type, const Bytes& values) {
  Bytes back(values.size());
  Bytes residuals = EncodeResiduals(type, values);
  residuals.shrink_to_fit();
  Require(residuals.empty() || (DecodeResiduals(type, residuals, back) && back == values));
  if (IsFloatingPoint(type.value)) return;
  Bytes runs = PackRuns(type, values);
  runs.shrink_to_fit();
  Require(runs.size() == CountRunBytes(type, values));
  Require(runs.size() >= LeastRunBytes(type, values.size() / ValueBytes(type)));
  Bytes unpacked(values.size());
  Require(UnpackRuns(type, runs, unpacked) && unpacked == values);
}

void DecodeArbitrary(ColumnType type, std::size_t count, const Bytes& bytes) {
  Numbers numbers(count);
  std::span<const std::uint8_t> rest(bytes);
  if (DecodeNumbers(rest, numbers)) RequireRoundTrip(numbers);
  Bytes values(count * ValueBytes(type));
  if (DecodeResiduals(type, bytes, values)) RequireRoundTrip(type, values);
  if (UnpackRuns(type, bytes, values)) RequireRoundTrip(type, values);
}

/// The bytes as numbers of up to so many bits.
Numbers NumbersOf(const Bytes& bytes, unsigned bits) {
  const std::size_t width = bits / 8 + 1;
  Numbers numbers(bytes.size() / width);
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    std::memcpy(&numbers[i], bytes.data() + i * width, width);
    numbers[i] &= (std::uint64_t{1} << bits) - 1;
  }
  return numbers;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteReader reader({data, size});
  std::uint8_t head[3];
  std::uint16_t count = 0;
  bool complete = true;
  for (std::uint8_t& byte : head) complete = complete && reader.Read(byte);
  complete = complete && reader.Read(count);
  if (!complete) return 0;
  const ColumnType type{static_cast<ValueType>(1 + head[0] % 11),
                        static_cast<std::uint8_t>(1 + head[1] % 3)};
  Bytes bytes(data + (size - reader.GetRemaining()), data + size);
  DecodeArbitrary(type, std::size_t{1} + count % 5000, bytes);
  if (const Numbers numbers = NumbersOf(bytes, head[2] % 61); !numbers.empty()) {
    RequireRoundTrip(numbers);
  }
  bytes.resize(bytes.size() / ValueBytes(type) * ValueBytes(type));
  if (!bytes.empty()) RequireRoundTrip(type, bytes);
  return 0;
}
