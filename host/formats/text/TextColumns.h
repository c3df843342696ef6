// What the lines of a text file are: separator, names, and the types of their columns.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/common/Outcome.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// How a text file is laid out before its points.
struct TextLayout {
  char separator = 0;              ///< 0: blanks
  std::vector<std::string> names;  ///< of the columns; empty for one to leave out
  bool areNamesGuessed = false;    ///< neither the file nor the options name the columns
  std::size_t begin = 0;           ///< bytes before the first line of points
  std::uint64_t firstLine = 1;     ///< the number of that line
};

/// Looks at the first lines. kScanContradictory, kScanNotRecognised; `where` names the file.
Outcome FindTextLayout(std::string_view text, const ScanOptions& options, const std::string& where,
                       TextLayout& layout);

/// True for names that mean numbers, such as intensity: a word there is a mistake.
[[nodiscard]] bool MeansNumbers(const std::string& name);

/// What has been seen of a column. Value semantics.
class ColumnContent {
 public:
  /// A word of the line; `isCoordinate` counts its decimals.
  void Add(std::string_view word, std::uint64_t line, bool isCoordinate);
  void Join(const ColumnContent& later);

  [[nodiscard]] bool IsEmpty() const { return count_ == emptyCount_; }
  /// The line of the first word that is no number; 0 for none.
  [[nodiscard]] std::uint64_t GetTextLine() const { return textLine_; }
  /// That word, for a message.
  [[nodiscard]] const std::string& GetTextWord() const { return textWord_; }
  [[nodiscard]] int GetDecimals() const { return decimals_; }
  /// The smallest type for a column of that name: of integers, one that LAS files have for it, or
  /// 32 or 64 bits; of other numbers 64-bit floats; texts where one word is no number.
  [[nodiscard]] oocpc::ValueType ChooseType(const std::string& name) const;

 private:
  [[nodiscard]] bool AreWithin(std::int64_t least, std::uint64_t greatest) const;

  std::uint64_t count_ = 0;
  std::uint64_t emptyCount_ = 0;
  bool areIntegers_ = true;
  std::int64_t least_ = 0;      ///< or zero
  std::uint64_t greatest_ = 0;  ///< or zero
  std::uint64_t textLine_ = 0;
  std::string textWord_;
  int decimals_ = 0;
};

}  // namespace tarnhost
