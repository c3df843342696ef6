// Strict UTF-8 to UTF-16 and back, with malformed bytes kept as lone low surrogates.
#include <QelSysTS/QelUnicodeString.h>

#include <cstdint>

namespace {

constexpr char16_t kEscape = 0xDC00;  // 0xDC80 to 0xDCFF stand for the bytes 0x80 to 0xFF

struct Sequence {
  char32_t codePoint = 0;
  std::size_t length = 0;  // 0: not well-formed
};

// What the lead byte promises: the sequence's length, its share of the code point, and the range of
// the second byte, which alone excludes overlong forms, surrogates and values above U+10FFFF
// (Unicode, table "Well-Formed UTF-8 Byte Sequences").
struct Lead {
  std::size_t length = 0;
  char32_t bits = 0;
  std::uint8_t secondLow = 0x80;
  std::uint8_t secondHigh = 0xBF;
};

Lead Classify(std::uint8_t byte) {
  if (byte < 0x80) return {1, byte};
  if (byte < 0xC2) return {};
  if (byte < 0xE0) return {2, byte & 0x1Fu};
  if (byte == 0xE0) return {3, 0, 0xA0, 0xBF};
  if (byte == 0xED) return {3, 0x0D, 0x80, 0x9F};
  if (byte < 0xF0) return {3, byte & 0x0Fu};
  if (byte == 0xF0) return {4, 0, 0x90, 0xBF};
  if (byte < 0xF4) return {4, byte & 0x07u};
  if (byte == 0xF4) return {4, 4, 0x80, 0x8F};
  return {};
}

std::uint8_t ByteAt(std::string_view text, std::size_t at) {
  return static_cast<std::uint8_t>(text[at]);
}

// The well-formed sequence that begins at `at`, which must be inside.
Sequence DecodeOne(std::string_view text, std::size_t at) {
  const Lead lead = Classify(ByteAt(text, at));
  if (lead.length == 0 || text.size() - at < lead.length) return {};
  char32_t codePoint = lead.bits;
  for (std::size_t i = 1; i < lead.length; ++i) {
    const std::uint8_t byte = ByteAt(text, at + i);
    const std::uint8_t low = i == 1 ? lead.secondLow : 0x80;
    const std::uint8_t high = i == 1 ? lead.secondHigh : 0xBF;
    if (byte < low || byte > high) return {};
    codePoint = (codePoint << 6) | (byte & 0x3Fu);
  }
  return {codePoint, lead.length};
}

void AppendUtf16(std::u16string& units, char32_t codePoint) {
  if (codePoint < 0x10000) {
    units.push_back(static_cast<char16_t>(codePoint));
    return;
  }
  const char32_t offset = codePoint - 0x10000;
  units.push_back(static_cast<char16_t>(0xD800 + (offset >> 10)));
  units.push_back(static_cast<char16_t>(0xDC00 + (offset & 0x3FF)));
}

void AppendUtf8(std::string& bytes, char32_t codePoint) {
  const auto append = [&bytes](char32_t byte) { bytes.push_back(static_cast<char>(byte)); };
  const auto continuation = [&](int shift) { append(0x80 | ((codePoint >> shift) & 0x3F)); };
  if (codePoint < 0x80) {
    append(codePoint);
  } else if (codePoint < 0x800) {
    append(0xC0 | (codePoint >> 6));
    continuation(0);
  } else if (codePoint < 0x10000) {
    append(0xE0 | (codePoint >> 12));
    continuation(6);
    continuation(0);
  } else {
    append(0xF0 | (codePoint >> 18));
    continuation(12);
    continuation(6);
    continuation(0);
  }
}

std::u16string Decode(std::string_view text) {
  std::u16string units;
  units.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const Sequence sequence = DecodeOne(text, at);
    if (sequence.length == 0) {
      units.push_back(static_cast<char16_t>(kEscape + ByteAt(text, at)));
      ++at;
    } else {
      AppendUtf16(units, sequence.codePoint);
      at += sequence.length;
    }
  }
  return units;
}

// Decode() writes high surrogates only as the first half of a pair, so a low surrogate that follows
// none is an escaped byte.
std::string Encode(const std::u16string& units) {
  std::string bytes;
  bytes.reserve(units.size());
  for (std::size_t i = 0; i < units.size(); ++i) {
    const char32_t unit = units[i];
    if (unit >= 0xD800 && unit < 0xDC00) {
      ++i;
      AppendUtf8(bytes, 0x10000 + ((unit - 0xD800) << 10) + (units[i] - 0xDC00u));
    } else if (unit >= 0xDC00 && unit < 0xE000) {
      bytes.push_back(static_cast<char>(unit - kEscape));
    } else {
      AppendUtf8(bytes, unit);
    }
  }
  return bytes;
}

}  // namespace

QelUnicodeString::QelUnicodeString(const char* text)
    : codeUnits_(text == nullptr ? std::u16string() : Decode(text)) {}

QelUnicodeString::QelUnicodeString(std::string_view text) : codeUnits_(Decode(text)) {}

QelUnicodeString::QelUnicodeString(const QelUnicodeString&) = default;
QelUnicodeString::QelUnicodeString(QelUnicodeString&&) noexcept = default;
QelUnicodeString& QelUnicodeString::operator=(const QelUnicodeString&) = default;
QelUnicodeString& QelUnicodeString::operator=(QelUnicodeString&&) noexcept = default;
QelUnicodeString::~QelUnicodeString() = default;

std::string QelUnicodeString::ConvertToChar() const { return Encode(codeUnits_); }
