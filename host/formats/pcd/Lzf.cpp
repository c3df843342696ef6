// LZF, the compression inside PCD files.
//
// A byte below 32 announces that many literal bytes and one more. Any other byte holds a length in
// its upper three bits (7: the next byte adds to it), plus two, and the upper five bits of a
// distance, whose lower eight follow; that many bytes are repeated from distance + 1 bytes before.
#include "host/formats/pcd/Lzf.h"

#include <algorithm>

namespace tarnhost {

bool DecompressLzf(std::span<const std::uint8_t> packed, std::span<std::uint8_t> out) {
  std::size_t in = 0;
  std::size_t done = 0;
  while (in < packed.size()) {
    const std::size_t control = packed[in++];
    if (control < 32) {
      const std::size_t length = control + 1;
      if (length > packed.size() - in || length > out.size() - done) return false;
      std::copy_n(packed.begin() + static_cast<std::ptrdiff_t>(in), length,
                  out.begin() + static_cast<std::ptrdiff_t>(done));
      in += length;
      done += length;
      continue;
    }
    std::size_t length = control >> 5;
    if (length == 7) {
      if (in == packed.size()) return false;
      length += packed[in++];
    }
    length += 2;
    if (in == packed.size()) return false;
    const std::size_t distance = ((control & 31u) << 8 | packed[in++]) + 1;
    if (distance > done || length > out.size() - done) return false;
    // Byte by byte: what is repeated may reach into what is being written.
    for (std::size_t i = 0; i < length; ++i, ++done) out[done] = out[done - distance];
  }
  return done == out.size();
}

}  // namespace tarnhost
