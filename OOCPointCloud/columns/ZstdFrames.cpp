// One zstd frame with its content size stated.
#include "OOCPointCloud/columns/ZstdFrames.h"

#include <zstd.h>

#include <memory>

namespace oocpc {
namespace {

// Higher levels gain a few per cent on scan data and cost several times the time.
constexpr int kLevel = 3;

struct ContextDeleter {
  void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
  void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
};

// Making a context costs more than compressing a small block, hence one a thread.
ZSTD_CCtx* CompressionContext() {
  thread_local const std::unique_ptr<ZSTD_CCtx, ContextDeleter> context(ZSTD_createCCtx());
  return context.get();
}

ZSTD_DCtx* DecompressionContext() {
  thread_local const std::unique_ptr<ZSTD_DCtx, ContextDeleter> context(ZSTD_createDCtx());
  return context.get();
}

}  // namespace

bool CompressFrame(std::span<const std::uint8_t> content, std::vector<std::uint8_t>& out) {
  ZSTD_CCtx* const context = CompressionContext();
  if (context == nullptr) return false;
  out.resize(ZSTD_compressBound(content.size()));
  const std::size_t bytes =
      ZSTD_compressCCtx(context, out.data(), out.size(), content.data(), content.size(), kLevel);
  if (ZSTD_isError(bytes) != 0) return false;
  out.resize(bytes);
  return true;
}

bool IsFrameOf(std::span<const std::uint8_t> stored, std::uint64_t contentBytes) {
  return ZSTD_getFrameContentSize(stored.data(), stored.size()) == contentBytes &&
         ZSTD_findFrameCompressedSize(stored.data(), stored.size()) == stored.size();
}

bool DecompressFrame(std::span<const std::uint8_t> stored, std::span<std::uint8_t> content) {
  ZSTD_DCtx* const context = DecompressionContext();
  if (context == nullptr) return false;
  return ZSTD_decompressDCtx(context, content.data(), content.size(), stored.data(),
                             stored.size()) == content.size();
}

}  // namespace oocpc
