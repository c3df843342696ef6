// One column of a block on its way through a test.
#include "host/select/BlockColumn.h"

namespace tarnhost {

Outcome BlockColumn::Fail(HRESULT code) const {
  return Outcome::FromCode(code, "column " + name_ + ", block " + std::to_string(block_));
}

Outcome BlockColumn::Enter(const OOCPCOctreeAcceleratorNode& node) {
  block_ = node.blockId;
  isDecoded_ = isChecked_ = false;
  const HRESULT code = reader_.ReadEntry(block_, entry_);
  if (oocpc::Failed(code)) return Fail(code);
  return entry_.valueCount == node.ownPointCount ? Outcome::Success()
                                                 : Fail(oocpc::result::kBadRecord);
}

Outcome BlockColumn::ReadStored(std::span<const std::uint8_t>& stored) {
  if (!isChecked_) {
    HRESULT code = reader_.ReadStored(entry_, stored_);
    if (!oocpc::Failed(code)) code = oocpc::CheckStoredBlock(entry_, stored_);
    if (oocpc::Failed(code)) return Fail(code);
    isChecked_ = true;
    ++counts_.blocksCompared;
    counts_.bytesRead += stored_.size();
  }
  stored = stored_;
  return Outcome::Success();
}

Outcome BlockColumn::ReadValues(std::span<const std::uint8_t>& values) {
  if (!isDecoded_) {
    std::span<const std::uint8_t> bytes;
    HRESULT code = reader_.ReadStored(entry_, bytes);
    if (!oocpc::Failed(code)) code = oocpc::DecodeBlock(entry_, bytes, values_);
    if (oocpc::Failed(code)) return Fail(code);
    isDecoded_ = true;
    ++counts_.blocksDecoded;
    counts_.bytesRead += bytes.size();
    counts_.bytesDecoded += values_.size();
  }
  values = values_;
  return Outcome::Success();
}

}  // namespace tarnhost
