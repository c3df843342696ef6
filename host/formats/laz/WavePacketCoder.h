// Codes wave packets: 29 bytes that say where a point's waveform is and how it lies on it.
#pragma once

#include "OOCPointCloud/support/Bytes.h"
#include "host/formats/laz/IntegerCoder.h"

namespace tarnhost::laz {

class WavePacketCoder {
 public:
  static constexpr std::size_t kBytes = 29;

  template <bool kDecodes>
  void Start() {
    index_.template Start<kDecodes>(256);
    for (auto& model : kinds_) model.template Start<kDecodes>(4);
    offset_.template Start<kDecodes>();
    size_.template Start<kDecodes>();
    location_.template Start<kDecodes>();
    direction_.template Start<kDecodes>();
    lastKind_ = 0;
    lastDifference_ = 0;
  }

  /// `last` and `packet` are the bytes of the record; `packet` is read from or written to.
  template <typename Coder>
  TARNHOST_LAZ_INLINE void Code(Coder& coder, const std::uint8_t* last, std::uint8_t* packet) {
    packet[0] = static_cast<std::uint8_t>(coder.Symbol(index_, packet[0]));
    CodeOffset(coder, last, packet);
    CodeNumber(coder, size_, 0, last + 9, packet + 9);
    CodeNumber(coder, location_, 0, last + 13, packet + 13);
    for (unsigned i = 0; i < 3; ++i) {
      CodeNumber(coder, direction_, i, last + 17 + 4 * i, packet + 17 + 4 * i);
    }
  }

 private:
  template <typename Coder>
  TARNHOST_LAZ_INLINE void CodeOffset(Coder& coder, const std::uint8_t* last,
                                      std::uint8_t* packet) {
    const auto lastOffset = oocpc::LoadLittleEndian<std::uint64_t>(last + 1);
    const auto following = lastOffset + oocpc::LoadLittleEndian<std::uint32_t>(last + 9);
    auto offset = oocpc::LoadLittleEndian<std::uint64_t>(packet + 1);
    std::uint32_t kind = 0;
    if constexpr (!Coder::kDecodes) {
      const auto difference = static_cast<std::int64_t>(offset - lastOffset);
      kind = offset == lastOffset                                  ? 0
             : offset == following                                 ? 1
             : difference == static_cast<std::int32_t>(difference) ? 2
                                                                   : 3;
    }
    lastKind_ = kind = coder.Symbol(kinds_[lastKind_], kind);
    if (kind == 2) {
      lastDifference_ =
          offset_.Code(coder, lastDifference_, static_cast<std::int32_t>(offset - lastOffset));
      offset = lastOffset + static_cast<std::uint64_t>(std::int64_t{lastDifference_});
    } else if (kind == 3) {
      const std::uint64_t low = coder.Raw(32, static_cast<std::uint32_t>(offset));
      const std::uint64_t high = coder.Raw(32, static_cast<std::uint32_t>(offset >> 32));
      offset = high << 32 | low;
    } else {
      offset = kind == 0 ? lastOffset : following;
    }
    std::memcpy(packet + 1, &offset, sizeof(offset));
  }

  template <typename Coder, unsigned kContexts>
  TARNHOST_LAZ_INLINE static void CodeNumber(Coder& coder, IntegerCoder<32, kContexts>& integers,
                                             unsigned context, const std::uint8_t* last,
                                             std::uint8_t* number) {
    const std::int32_t value =
        integers.Code(coder, oocpc::LoadLittleEndian<std::int32_t>(last),
                      oocpc::LoadLittleEndian<std::int32_t>(number), context);
    std::memcpy(number, &value, sizeof(value));
  }

  SymbolModel<256> index_;
  std::array<SymbolModel<4>, 4> kinds_;
  IntegerCoder<32, 1> offset_;
  IntegerCoder<32, 1> size_;
  IntegerCoder<32, 1> location_;
  IntegerCoder<32, 3> direction_;
  std::uint32_t lastKind_ = 0;
  std::int32_t lastDifference_ = 0;
};

}  // namespace tarnhost::laz
