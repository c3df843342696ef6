// Points as records of their columns' values, one beside the other, whatever they came from.
#pragma once

#include <memory>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// How such a record is laid out: the position's three integers, then each dimension's value.
class PackedLayout {
 public:
  explicit PackedLayout(const std::vector<Dimension>& dimensions);

  [[nodiscard]] std::size_t GetRecordBytes() const { return recordBytes_; }
  /// Puts values, one after the other, into the records' places for them; and takes them out again.
  void PutPositions(const std::int32_t* xyz, std::size_t count, std::uint8_t* records) const;
  void Put(std::size_t dimension, const std::uint8_t* values, std::size_t count,
           std::uint8_t* records) const;
  void Extract(std::size_t dimension, const std::uint8_t* records, std::size_t count,
               std::uint8_t* values) const;

 private:
  struct Field {
    std::size_t offset;
    std::size_t bytes;
  };
  std::vector<Field> fields_;
  std::size_t recordBytes_;
};

/// Something whose reading can fail although its operations cannot say so.
class FallibleSource {
 public:
  FallibleSource() = default;
  FallibleSource(const FallibleSource&) = delete;
  FallibleSource& operator=(const FallibleSource&) = delete;
  virtual ~FallibleSource() = default;
  /// The first failure; what was read since is worthless.
  [[nodiscard]] virtual Outcome GetFailure() const = 0;
};

/// The own points of some nodes of a cloud, as a scan; the cloud has to outlive it. `failures` is
/// the scan itself.
[[nodiscard]] std::unique_ptr<ScanFile> PackNodes(Cloud& cloud,
                                                  std::vector<OOCPCOctreeAcceleratorNode> nodes,
                                                  const FallibleSource*& failures);

/// Reads points of nodes as packed records. Safe from several threads at once.
class NodeRecords {
 public:
  explicit NodeRecords(Cloud& cloud);
  ~NodeRecords();
  NodeRecords(const NodeRecords&) = delete;
  NodeRecords& operator=(const NodeRecords&) = delete;

  [[nodiscard]] const PackedLayout& GetLayout() const { return layout_; }
  [[nodiscard]] const std::vector<Dimension>& GetDimensions() const { return dimensions_; }
  Outcome ReadPositions(const OOCPCOctreeAcceleratorNode& node, std::vector<std::int32_t>& xyz);
  /// Appends the records of a node's own points.
  Outcome Append(const OOCPCOctreeAcceleratorNode& node, std::vector<std::uint8_t>& records);

 private:
  struct Readers;

  /// A reader that no other thread has, and which is given back.
  Outcome Borrow(std::unique_ptr<BlockReader>& reader);
  void Return(std::unique_ptr<BlockReader> reader);

  Cloud& cloud_;
  std::vector<Dimension> dimensions_;
  PackedLayout layout_;
  std::unique_ptr<Readers> readers_;
};

}  // namespace tarnhost
