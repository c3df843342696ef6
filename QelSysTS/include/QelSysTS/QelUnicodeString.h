// The framework's Unicode string: UTF-8 in, UTF-16 inside, UTF-8 out.
#pragma once

#include <QelSysTS/Export.h>

#include <string>
#include <string_view>

/// An immutable-length Unicode text with value semantics.
///
/// Bytes that are not well-formed UTF-8 survive the round trip unchanged: each such byte 0xNN
/// (0x80 to 0xFF) is held as the lone low surrogate 0xDCNN, which no well-formed UTF-8 text can
/// produce. So two strings are equal exactly when the byte strings that they were made from are
/// equal, and ConvertToChar() gives those bytes back.
///
/// Thread safety: as std::string. Errors: none but std::bad_alloc.
class QELSYSTS_API QelUnicodeString {
 public:
  QelUnicodeString() = default;
  /// From a NUL-terminated byte string; a null pointer gives the empty string.
  QelUnicodeString(const char* text);  // NOLINT: names are passed as literals on purpose.
  /// From bytes that may hold NULs.
  explicit QelUnicodeString(std::string_view text);
  QelUnicodeString(const QelUnicodeString&);
  QelUnicodeString(QelUnicodeString&&) noexcept;
  QelUnicodeString& operator=(const QelUnicodeString&);
  QelUnicodeString& operator=(QelUnicodeString&&) noexcept;
  ~QelUnicodeString();

  /// The text as the bytes that it was made from.
  [[nodiscard]] std::string ConvertToChar() const;
  /// The text as UTF-16 code units; malformed input bytes appear as lone low surrogates.
  [[nodiscard]] const std::u16string& GetCodeUnits() const { return codeUnits_; }
  [[nodiscard]] bool IsEmpty() const { return codeUnits_.empty(); }

  friend bool operator==(const QelUnicodeString& a, const QelUnicodeString& b) {
    return a.codeUnits_ == b.codeUnits_;
  }
  friend bool operator!=(const QelUnicodeString& a, const QelUnicodeString& b) { return !(a == b); }

 private:
  std::u16string codeUnits_;
};
