// An input stream over bytes in memory: a mapped file or a vector.
#include "OOCPointCloud/streams/OOCPCByteSourceStream.h"

#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <cstring>
#include <utility>

OOCPCByteSource::~OOCPCByteSource() = default;

OOCPCByteSourceStream::OOCPCByteSourceStream(std::shared_ptr<const OOCPCByteSource> source,
                                             std::uint64_t length)
    : source_(std::move(source)) {
  if (source_ == nullptr) return;
  bytes_ = source_->GetBytes();
  bytes_ = bytes_.first(std::min<std::uint64_t>(length, bytes_.size()));
}

OOCPCByteSourceStream::~OOCPCByteSourceStream() = default;

std::uint64_t OOCPCByteSourceStream::Read(void* destination, const std::uint64_t& length) {
  const std::uint64_t count = std::min<std::uint64_t>(length, bytes_.size() - position_);
  if (count > 0) std::memcpy(destination, bytes_.data() + position_, count);
  position_ += count;
  return count;
}

HRESULT OOCPCByteSourceStream::SetPosition(const std::uint64_t& position) {
  if (position > bytes_.size()) return oocpc::result::kSeekOutOfRange;
  position_ = position;
  return oocpc::result::kOk;
}

const std::uint8_t* OOCPCByteSourceStream::View(std::uint64_t offset, std::uint64_t length) const {
  if (offset > bytes_.size() || length > bytes_.size() - offset) return nullptr;
  return bytes_.data() + offset;
}
