// docs/errors.md lists every result code, with its number and the texts that the program prints.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

std::string ReadDocument() {
  const std::ifstream file(TESTS_SOURCE_DIR "/../docs/errors.md");
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string NumberOf(HRESULT code) {
  if (code >= 0) return std::to_string(code);
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(code));
  return text;
}

std::string AsSentence(std::string text) {
  if (text.empty()) return "Nothing.";
  text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text + ".";
}

TEST(ErrorsDocument, ListsEveryCodeWithItsNumberCauseAndRemedy) {
  const std::string document = ReadDocument();
  ASSERT_FALSE(document.empty());
  for (const oocpc::ResultCodeInfo& info : oocpc::AllResultCodes()) {
    const std::string row = "| " + NumberOf(info.code) + " | `" + info.name + "` | " +
                            AsSentence(info.meaning) + " | " + AsSentence(info.remedy) + " |\n";
    EXPECT_NE(document.find(row), std::string::npos) << "docs/errors.md needs the row\n" << row;
  }
}

TEST(ErrorsDocument, ListsNothingElse) {
  const std::string document = ReadDocument();
  std::size_t rows = 0;
  for (std::size_t at = document.find("| `k"); at != std::string::npos;
       at = document.find("| `k", at + 1)) {
    ++rows;
  }
  EXPECT_EQ(rows, oocpc::AllResultCodes().size());
}

}  // namespace
