// CRC-32C: by the processor's instruction where there is one, else eight bytes a step by tables.
#include <array>

#include "OOCPointCloud/support/Bytes.h"
#include "OOCPointCloud/support/Crc32cKernels.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define OOCPC_CRC32C_INSTRUCTION 1
#include <nmmintrin.h>
#endif

namespace oocpc {
namespace {

constexpr std::uint32_t kPolynomial = 0x82F63B78u;  // Castagnoli, reflected
constexpr std::size_t kStep = 8;

using Tables = std::array<std::array<std::uint32_t, 256>, kStep>;

// tables[k][b] is the CRC register after byte b and k zero bytes, so that eight look-ups, one per
// byte, advance the register by eight bytes at once.
constexpr Tables MakeTables() {
  Tables tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1u) != 0 ? kPolynomial : 0u);
    tables[0][byte] = crc;
  }
  for (std::size_t k = 1; k < kStep; ++k) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t crc = tables[k - 1][byte];
      tables[k][byte] = (crc >> 8) ^ tables[0][crc & 0xFFu];
    }
  }
  return tables;
}

constexpr Tables kTables = MakeTables();

}  // namespace

namespace detail {

std::uint32_t Crc32cByTable(std::span<const std::uint8_t> bytes, std::uint32_t before) {
  std::uint32_t crc = ~before;
  while (bytes.size() >= kStep) {
    const std::uint64_t word = LoadLittleEndian<std::uint64_t>(bytes.data()) ^ crc;
    crc = 0;
    for (std::size_t k = 0; k < kStep; ++k) {
      crc ^= kTables[kStep - 1 - k][(word >> (8 * k)) & 0xFFu];
    }
    bytes = bytes.subspan(kStep);
  }
  for (const std::uint8_t byte : bytes) crc = (crc >> 8) ^ kTables[0][(crc ^ byte) & 0xFFu];
  return ~crc;
}

#if defined(OOCPC_CRC32C_INSTRUCTION)

bool HasCrc32cInstruction() { return __builtin_cpu_supports("sse4.2") != 0; }

__attribute__((target("sse4.2"))) std::uint32_t Crc32cByInstruction(
    std::span<const std::uint8_t> bytes, std::uint32_t before) {
  std::uint64_t crc = static_cast<std::uint32_t>(~before);
  const std::uint8_t* at = bytes.data();
  std::size_t left = bytes.size();
  for (; left >= kStep; left -= kStep, at += kStep) {
    crc = _mm_crc32_u64(crc, LoadLittleEndian<std::uint64_t>(at));
  }
  auto rest = static_cast<std::uint32_t>(crc);
  for (; left > 0; --left, ++at) rest = _mm_crc32_u8(rest, *at);
  return ~rest;
}

#else

bool HasCrc32cInstruction() { return false; }

std::uint32_t Crc32cByInstruction(std::span<const std::uint8_t> bytes, std::uint32_t before) {
  return Crc32cByTable(bytes, before);
}

#endif

}  // namespace detail

std::uint32_t Crc32c(std::span<const std::uint8_t> bytes, std::uint32_t before) {
  static const bool hasInstruction = detail::HasCrc32cInstruction();
  return hasInstruction ? detail::Crc32cByInstruction(bytes, before)
                        : detail::Crc32cByTable(bytes, before);
}

}  // namespace oocpc
