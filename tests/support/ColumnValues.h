// Values for column tests: typed vectors as bytes, random values, and columns put into a
// repository.
#pragma once

#include <OOCPointCloud/ColumnBlocks.h>

#include <cstring>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "tests/support/TestRepositories.h"

namespace oocpctest {

template <typename T>
Bytes ValuesAsBytes(const std::vector<T>& values) {
  Bytes bytes(values.size() * sizeof(T));
  if (!values.empty()) std::memcpy(bytes.data(), values.data(), bytes.size());
  return bytes;
}

template <typename T>
Bytes ValuesAsBytes(std::initializer_list<T> values) {
  return ValuesAsBytes(std::vector<T>(values));
}

template <typename T>
std::vector<T> ValuesFromBytes(const Bytes& bytes) {
  std::vector<T> values(bytes.size() / sizeof(T));
  if (!values.empty()) std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
  return values;
}

/// Any bytes at all: for floating point this includes NaNs and infinities.
inline Bytes RandomBytes(std::mt19937_64& random, std::size_t count) {
  Bytes bytes(count);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

/// The two streams of one column.
class ColumnBuilder {
 public:
  ColumnBuilder& Block(oocpc::ColumnType type, const Bytes& values) {
    return Block(oocpc::EncodeBlock(type, values));
  }
  ColumnBuilder& Block(oocpc::EncodedBlock block) {
    block.entry.offsetBytes = data_.size();
    block.entry.firstValue = values_;
    values_ += block.entry.valueCount;
    data_.insert(data_.end(), block.bytes.begin(), block.bytes.end());
    block.entry.Encode(table_);
    return *this;
  }
  void AddTo(FakeRepository& repository, std::uint32_t columnId) const {
    repository.Add(oocpc::ColumnDataStreamName(columnId), data_);
    repository.Add(oocpc::ColumnTableStreamName(columnId), table_);
  }
  [[nodiscard]] const Bytes& GetData() const { return data_; }
  [[nodiscard]] const Bytes& GetTable() const { return table_; }

 private:
  Bytes data_;
  Bytes table_;
  std::uint64_t values_ = 0;
};

}  // namespace oocpctest
