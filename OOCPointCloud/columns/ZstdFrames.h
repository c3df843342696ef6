// One zstd frame with its content size stated (RFC 8878), made and undone with contexts that each
// thread keeps for itself.
#pragma once

#include <OOCPointCloud/Types.h>

#include <span>
#include <vector>

namespace oocpc {

/// Compresses into `out`, replacing what it held. False when there is no memory for it.
[[nodiscard]] bool CompressFrame(std::span<const std::uint8_t> content,
                                 std::vector<std::uint8_t>& out);

/// True when `stored` is a single frame, nothing before or behind it, that states `contentBytes`.
/// Reads headers only.
[[nodiscard]] bool IsFrameOf(std::span<const std::uint8_t> stored, std::uint64_t contentBytes);

/// Decompresses a frame that passed IsFrameOf(stored, content.size()). False when it is damaged.
[[nodiscard]] bool DecompressFrame(std::span<const std::uint8_t> stored,
                                   std::span<std::uint8_t> content);

}  // namespace oocpc
