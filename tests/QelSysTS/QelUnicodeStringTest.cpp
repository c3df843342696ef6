// The string must give back exactly the bytes that it was made from, whatever they are.
#include <QelSysTS/QelUnicodeString.h>
#include <gtest/gtest.h>

#include <random>
#include <set>

namespace {

std::u16string Units(std::string_view bytes) { return QelUnicodeString(bytes).GetCodeUnits(); }

std::string RoundTrip(std::string_view bytes) { return QelUnicodeString(bytes).ConvertToChar(); }

// Every byte as an escape, the form that wholly malformed input takes.
std::u16string AllEscaped(std::string_view bytes) {
  std::u16string units;
  for (const char byte : bytes) {
    units.push_back(static_cast<char16_t>(0xDC00 + static_cast<unsigned char>(byte)));
  }
  return units;
}

TEST(UnicodeStringDecoding, TurnsWellFormedTextIntoUtf16) {
  EXPECT_EQ(Units("a"), u"a");
  EXPECT_EQ(Units("\xC2\x80"), u"\u0080");
  EXPECT_EQ(Units("\xDF\xBF"), u"\u07FF");
  EXPECT_EQ(Units("\xE0\xA0\x80"), u"\u0800");
  EXPECT_EQ(Units("\xE2\x82\xAC"), u"\u20AC");
  EXPECT_EQ(Units("\xED\x9F\xBF"), std::u16string(1, 0xD7FF));
  EXPECT_EQ(Units("\xEE\x80\x80"), std::u16string(1, 0xE000));
  EXPECT_EQ(Units("\xEF\xBF\xBF"), std::u16string(1, 0xFFFF));
}

TEST(UnicodeStringDecoding, TurnsTextAboveTheBasicPlaneIntoSurrogatePairs) {
  EXPECT_EQ(Units("\xF0\x90\x80\x80"), (std::u16string{0xD800, 0xDC00}));
  EXPECT_EQ(Units("\xF0\x9F\x8C\xB2"), (std::u16string{0xD83C, 0xDF32}));
  EXPECT_EQ(Units("\xF4\x8F\xBF\xBF"), (std::u16string{0xDBFF, 0xDFFF}));
}

TEST(UnicodeStringDecoding, EscapesEachByteOfMalformedSequences) {
  const std::string_view malformed[] = {
      "\x80",              // continuation without a lead
      "\xBF",              //
      "\xC0\x80",          // overlong, two bytes
      "\xC1\xBF",          //
      "\xE0\x80\x80",      // overlong, three bytes
      "\xE0\x9F\xBF",      //
      "\xF0\x80\x80\x80",  // overlong, four bytes
      "\xF0\x8F\xBF\xBF",  //
      "\xED\xA0\x80",      // surrogates
      "\xED\xBF\xBF",      //
      "\xF4\x90\x80\x80",  // above U+10FFFF
      "\xF5\x80\x80\x80",  // leads that no text has
      "\xF8\x88\x80\x80",  //
      "\xFE",              //
      "\xFF",              //
      "\xC3",              // cut off
      "\xE2\x82",          //
      "\xF0\x9F\x8C",      //
  };
  for (const std::string_view bytes : malformed) {
    EXPECT_EQ(Units(bytes), AllEscaped(bytes)) << testing::PrintToString(bytes);
    EXPECT_EQ(RoundTrip(bytes), bytes) << testing::PrintToString(bytes);
  }
}

TEST(UnicodeStringDecoding, GoesOnWithWellFormedTextRightAfterAMalformedByte) {
  EXPECT_EQ(Units("\xE2\x82"
                  "A"),
            (std::u16string{0xDCE2, 0xDC82, u'A'}));
  EXPECT_EQ(Units("\xC3\xC3\xA4"), (std::u16string{0xDCC3, u'\u00E4'}));
  EXPECT_EQ(Units("\xF0\x9F\x8C\xB2\xB2"), (std::u16string{0xD83C, 0xDF32, 0xDCB2}));
}

TEST(UnicodeStringRoundTrip, KeepsEveryCodePoint) {
  for (char32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    std::string bytes;
    const auto put = [&bytes](char32_t byte) { bytes.push_back(static_cast<char>(byte)); };
    if (c < 0x80) {
      put(c);
    } else if (c < 0x800) {
      put(0xC0 + c / 64), put(0x80 + c % 64);
    } else if (c < 0x10000) {
      put(0xE0 + c / 4096), put(0x80 + c / 64 % 64), put(0x80 + c % 64);
    } else {
      put(0xF0 + c / 262144), put(0x80 + c / 4096 % 64), put(0x80 + c / 64 % 64),
          put(0x80 + c % 64);
    }
    const QelUnicodeString text{std::string_view(bytes)};
    ASSERT_EQ(text.GetCodeUnits().size(), c < 0x10000 ? 1u : 2u) << std::hex << std::uint32_t{c};
    ASSERT_EQ(text.ConvertToChar(), bytes) << std::hex << std::uint32_t{c};
  }
}

TEST(UnicodeStringRoundTrip, KeepsEveryTwoByteSequence) {
  std::set<std::u16string> seen;
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const std::string bytes{static_cast<char>(first), static_cast<char>(second)};
      ASSERT_EQ(RoundTrip(bytes), bytes) << first << ' ' << second;
      ASSERT_TRUE(seen.insert(Units(bytes)).second) << first << ' ' << second;
    }
  }
}

TEST(UnicodeStringRoundTrip, KeepsRandomBytes) {
  // Mostly bytes on which the decoder's decisions turn.
  constexpr unsigned char kEdges[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0,
                                      0xC2, 0xDF, 0xE0, 0xE1, 0xED, 0xEF, 0xF0, 0xF4, 0xF5};
  std::mt19937 random(20240229);
  for (int round = 0; round < 200'000; ++round) {
    std::string bytes(random() % 12, '\0');
    for (char& byte : bytes) {
      byte = static_cast<char>(random() % 4 == 0 ? random() : kEdges[random() % std::size(kEdges)]);
    }
    ASSERT_EQ(RoundTrip(bytes), bytes) << testing::PrintToString(bytes);
  }
}

TEST(UnicodeStringEquality, HoldsExactlyForEqualBytes) {
  EXPECT_EQ(QelUnicodeString("DEF_COLOR"), QelUnicodeString(std::string_view("DEF_COLOR")));
  EXPECT_NE(QelUnicodeString("DEF_COLOR"), QelUnicodeString("DEF_COLOUR"));
  // The same letter, precomposed and composed: different bytes, different names.
  EXPECT_NE(QelUnicodeString("\xC3\xA4"), QelUnicodeString("a\xCC\x88"));
  // An escaped byte and the text that spells its surrogate in UTF-8 stay apart.
  EXPECT_NE(QelUnicodeString("\x80"), QelUnicodeString("\xED\xB2\x80"));
}

TEST(UnicodeStringConstruction, TakesNullAndEmptyTextAsEmpty) {
  const char* null = nullptr;
  EXPECT_TRUE(QelUnicodeString(null).IsEmpty());
  EXPECT_TRUE(QelUnicodeString("").IsEmpty());
  EXPECT_TRUE(QelUnicodeString().IsEmpty());
  EXPECT_EQ(QelUnicodeString(null).ConvertToChar(), "");
}

TEST(UnicodeStringConstruction, KeepsNulsOfAnExplicitLength) {
  const std::string_view bytes("a\0b", 3);
  EXPECT_EQ(Units(bytes).size(), 3u);
  EXPECT_EQ(RoundTrip(bytes), bytes);
}

TEST(UnicodeStringCopying, LeavesTheSourceAloneAndMovingTakesTheText) {
  QelUnicodeString source("gps_time");
  QelUnicodeString copy(source);
  EXPECT_EQ(copy, source);
  QelUnicodeString assigned;
  assigned = source;
  EXPECT_EQ(assigned.ConvertToChar(), "gps_time");
  const QelUnicodeString moved(std::move(copy));
  EXPECT_EQ(moved, source);
  assigned = QelUnicodeString("other");
  EXPECT_EQ(assigned.ConvertToChar(), "other");
  EXPECT_EQ(source.ConvertToChar(), "gps_time");
}

}  // namespace
