// LZF, the compression inside PCD files.
//
// A byte below 32 announces that many literal bytes and one more. Any other byte holds a length in
// its upper three bits (7: the next byte adds to it), plus two, and the upper five bits of a
// distance, whose lower eight follow; that many bytes are repeated from distance + 1 bytes before.
#include "host/formats/pcd/Lzf.h"

#include <algorithm>
#include <cstring>

namespace tarnhost {

bool LzfReader::Start() {
  if (in_ == packed_.size()) return false;
  const std::size_t control = packed_[in_++];
  if (control < 32) {
    literals_ = control + 1;
    return literals_ <= packed_.size() - in_;
  }
  repeats_ = control >> 5;
  if (repeats_ == 7) {
    if (in_ == packed_.size()) return false;
    repeats_ += packed_[in_++];
  }
  repeats_ += 2;
  if (in_ == packed_.size()) return false;
  distance_ = ((control & 31u) << 8 | packed_[in_++]) + 1;
  return true;
}

bool LzfReader::Read(std::span<std::uint8_t> out, std::size_t before) {
  for (std::size_t done = 0; done < out.size();) {
    std::uint8_t* const to = out.data() + done;
    if (literals_ > 0) {
      const std::size_t count = std::min(literals_, out.size() - done);
      std::memcpy(to, packed_.data() + in_, count);
      in_ += count;
      literals_ -= count;
      done += count;
    } else if (repeats_ > 0) {
      if (distance_ > before + done) return false;
      const std::size_t count = std::min(repeats_, out.size() - done);
      if (distance_ >= count) {
        std::memcpy(to, to - distance_, count);
      } else {
        // Byte by byte: what is repeated reaches into what is being written.
        for (std::size_t i = 0; i < count; ++i) to[i] = *(to + i - distance_);
      }
      repeats_ -= count;
      done += count;
    } else if (!Start()) {
      return false;
    }
  }
  return true;
}

bool DecompressLzf(std::span<const std::uint8_t> packed, std::span<std::uint8_t> out) {
  LzfReader reader(packed);
  return reader.Read(out, 0) && reader.IsAtEnd();
}

}  // namespace tarnhost
