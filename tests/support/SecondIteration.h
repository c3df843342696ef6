// Adds an update iteration to a repository by hand: the same points, the root's stored once more.
#pragma once

#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCLODRecords.h>
#include <OOCPointCloud/OOCPCRepositoryWriter.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/cloud/Cloud.h"

namespace oocpctest {

/// Appends one update iteration to all streams of a repository and commits it. The new root has a
/// new block with the values of the old root's; everything else is shared.
class IterationAppender {
 public:
  using Outcome = tarnhost::Outcome;
  using Node = OOCPCOctreeAcceleratorNode;
  using Bytes = std::vector<std::uint8_t>;

  /// `open` opens the repository that `store` writes, once the store is locked.
  static Outcome Append(std::unique_ptr<OOCPCIStreamStore> store,
                        const std::function<std::unique_ptr<OOCPCStreamRepository>()>& open,
                        bool isReversed = false) {
    IterationAppender appender;
    appender.isReversed_ = isReversed;
    HRESULT code = OOCPCRepositoryWriter::OpenExisting(std::move(store), appender.catalogue_,
                                                       appender.writer_);
    if (oocpc::Failed(code)) return Outcome::FromCode(code);
    Outcome outcome = tarnhost::Cloud::Attach(open(), "repository", appender.cloud_);
    if (outcome.Ok()) outcome = appender.ReadFormer();
    if (outcome.Ok()) outcome = appender.CopyRootBlock();
    if (outcome.Ok()) outcome = appender.AppendLod();
    return outcome.Ok() ? appender.AppendRecords() : outcome;
  }

  /// `isReversed`: with the values of the root's block in the opposite order.
  static Outcome AppendToFolder(const std::filesystem::path& folder, bool isReversed = false) {
    std::unique_ptr<OOCPCFolderStreamStore> store;
    const HRESULT code = OOCPCFolderStreamStore::Open(folder, store);
    if (oocpc::Failed(code)) return Outcome::FromCode(code);
    return Append(
        std::move(store),
        [&] {
          std::unique_ptr<OOCPCFolderRepository> repository;
          if (oocpc::Failed(OOCPCFolderRepository::Open(folder, repository))) repository.reset();
          return repository;
        },
        isReversed);
  }

  static Outcome AppendToMemory(const std::shared_ptr<OOCPCMemoryStreams>& streams) {
    return Append(std::make_unique<OOCPCMemoryStreamStore>(streams),
                  [&] { return std::make_unique<OOCPCMemoryRepository>(streams); });
  }

 private:
  Outcome ReadFormer() {
    number_ = cloud_->GetIterationCount();
    Outcome outcome = cloud_->ReadIteration(number_ - 1, record_);
    if (outcome.Ok()) outcome = cloud_->ReadRoot(number_ - 1, root_);
    oldRootIndex_ = record_.acceleratorPayload.sizeBytes / Node::kBytes - 1;
    oldFirstPoint_ = root_.firstPoint;
    newRootIndex_ = writer_->GetLength(OOCPCAcceleratorContainer::kStreamName) / Node::kBytes;
    return outcome;
  }

  void Reverse(Bytes& values) const {
    const std::size_t width = values.size() / root_.ownPointCount;
    Bytes reversed;
    for (std::size_t at = values.size(); at >= width; at -= width) {
      reversed.insert(reversed.end(), values.begin() + static_cast<std::ptrdiff_t>(at - width),
                      values.begin() + static_cast<std::ptrdiff_t>(at));
    }
    values = std::move(reversed);
  }

  Outcome CopyRootBlock() {
    std::vector<std::string> names;
    for (const tarnhost::CloudColumn& column : cloud_->GetColumns()) names.push_back(column.name);
    tarnhost::BlockReader reader;
    if (Outcome outcome = tarnhost::BlockReader::Open(*cloud_, names, reader); !outcome.Ok()) {
      return outcome;
    }
    std::uint64_t blocks = 0;
    oocpc::BlockEntry last;
    HRESULT code = reader.GetPositions().GetBlockCount(blocks);
    if (!oocpc::Failed(code)) code = reader.GetPositions().ReadBlockEntry(blocks - 1, last);
    for (std::uint32_t column = 0; column <= names.size() && !oocpc::Failed(code); ++column) {
      auto& container = column == 0 ? reader.GetPositions() : reader.GetContainer(column - 1);
      Bytes values;
      code = container.ReadStoredBlock(root_.blockId, values);
      if (oocpc::Failed(code)) break;
      if (isReversed_) Reverse(values);
      code = writer_->AppendBlock(column, oocpc::EncodeBlock(container.GetStoredType(), values),
                                  last.firstValue + last.valueCount);
    }
    root_.blockId = blocks;
    root_.firstPoint = last.firstValue + last.valueCount;
    record_.blockCount = blocks + 1;
    return oocpc::Failed(code) ? Outcome::FromCode(code) : Outcome::Success();
  }

  Outcome AppendLod() {
    Bytes blocks;
    Bytes stored;
    OOCPCLODBlock block;
    if (Outcome outcome = cloud_->ReadStream(OOCPCLODContainer::kStreamName, blocks);
        !outcome.Ok()) {
      return outcome;
    }
    const auto begin = static_cast<std::size_t>(record_.lodPayload.beginBytes);
    HRESULT code = block.Decode(std::span(blocks).subspan(
        begin, static_cast<std::size_t>(record_.lodPayload.endBytes) - begin));
    if (oocpc::Failed(code)) return Outcome::FromCode(code);
    if (Outcome outcome = cloud_->ReadStream(OOCPCLODNodeStreamName(block.nodeStreamId), stored);
        !outcome.Ok()) {
      return outcome;
    }
    block.nodeStreamId = number_;
    Bytes records;
    for (std::size_t i = 0; i < block.entries.size(); ++i) {
      std::uint8_t bytes[OOCPCLODNodeRecord::kBytes];
      std::copy_n(stored.begin() + static_cast<std::ptrdiff_t>(i * sizeof(bytes)), sizeof(bytes),
                  bytes);
      OOCPCLODNodeRecord record;
      code = OOCPCLODNodeRecord::Decode(bytes, record);
      if (oocpc::Failed(code)) return Outcome::FromCode(code);
      if (record.nodeIndex == oldRootIndex_) {
        record.nodeIndex = newRootIndex_;
        record.firstPoint += root_.firstPoint - oldFirstPoint_;
        record.blockId = root_.blockId;
        block.entries[i].nodeIndex = newRootIndex_;
      }
      record.Encode(records);
    }
    Bytes encoded;
    block.Encode(encoded);
    std::uint64_t position = 0;
    code = writer_->Append(OOCPCLODNodeStreamName(number_), records, position);
    if (!oocpc::Failed(code)) {
      code =
          writer_->Append(OOCPCLODContainer::kStreamName, encoded, record_.lodPayload.beginBytes);
    }
    record_.lodPayload.endBytes = record_.lodPayload.beginBytes + encoded.size();
    return oocpc::Failed(code) ? Outcome::FromCode(code) : Outcome::Success();
  }

  Outcome AppendRecords() {
    Bytes node;
    root_.Encode(node);
    HRESULT code = writer_->Append(OOCPCAcceleratorContainer::kStreamName, node,
                                   record_.acceleratorPayload.beginBytes);
    if (oocpc::Failed(code)) return Outcome::FromCode(code);
    record_.acceleratorPayload.sizeBytes = record_.acceleratorPayload.beginBytes + node.size();
    record_.timePoint += 1;
    record_.addedPointCount = 0;
    Bytes iteration;
    record_.Stream(iteration);
    std::uint64_t position = 0;
    code = writer_->Append(OOCPCUpdateIterationContainer::kStreamName, iteration, position);
    if (oocpc::Failed(code)) return Outcome::FromCode(code);
    OOCPCUpdateIterationDescription iterations;
    iterations.iterationCount = number_ + 1;
    catalogue_.SetChunk(oocpc::chunk_type::kUpdateIterations, iterations.EncodeChunk());
    OOCPCLODDescription levels;
    levels.blockCount = number_ + 1;
    catalogue_.SetChunk(oocpc::chunk_type::kLevelOfDetail, levels.EncodeChunk());
    code = writer_->Commit(catalogue_);
    return oocpc::Failed(code) ? Outcome::FromCode(code) : Outcome::Success();
  }

  OOCPCCatalogue catalogue_;
  std::unique_ptr<OOCPCRepositoryWriter> writer_;
  std::unique_ptr<tarnhost::Cloud> cloud_;
  bool isReversed_ = false;
  std::uint64_t number_ = 0;
  std::uint64_t oldRootIndex_ = 0;
  std::uint64_t oldFirstPoint_ = 0;
  std::uint64_t newRootIndex_ = 0;
  OOCPCUpdateIteration record_;
  Node root_;
};

}  // namespace oocpctest
