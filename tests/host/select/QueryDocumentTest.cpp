// Every example in docs/query-language.md does what the document says.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>
#include <gtest/gtest.h>

#include <fstream>

#include "host/select/QueryText.h"

namespace {

struct Example {
  std::size_t line = 0;
  bool rejected = false;
  std::string text;
};

std::ifstream OpenDocument() {
  return std::ifstream(std::string(TESTS_SOURCE_DIR) + "/../docs/query-language.md");
}

std::vector<Example> ReadExamples() {
  std::ifstream document = OpenDocument();
  std::vector<Example> examples;
  bool inside = false;
  std::size_t number = 0;
  for (std::string line; std::getline(document, line);) {
    ++number;
    if (!inside && (line == "```query" || line == "```query-rejected")) {
      examples.push_back({number, line == "```query-rejected", ""});
      inside = true;
    } else if (inside && line == "```") {
      inside = false;
    } else if (inside) {
      examples.back().text += line + "\n";
    }
  }
  EXPECT_FALSE(inside) << "a block has no end";
  return examples;
}

TEST(QueryDocument, HasNothingButExamplesThatBehaveAsItSays) {
  const std::vector<Example> examples = ReadExamples();
  ASSERT_GT(examples.size(), 40u);
  for (const Example& example : examples) {
    SCOPED_TRACE("line " + std::to_string(example.line) + ": " + example.text);
    TarnOOCStringQueryExpression expression;
    expression.SetInputString(example.text);
    EXPECT_EQ(expression.ComputeBooleanAST(),
              example.rejected ? oocpc::result::kFail : oocpc::result::kOk);
    std::vector<tarnhost::QueryClause> clauses;
    tarnhost::QueryDiagnosis diagnosis;
    EXPECT_EQ(tarnhost::ReadQueryText(example.text, clauses, diagnosis), !example.rejected);
  }
}

TEST(QueryDocument, ShowsEveryWordOfTheLanguageInAnAcceptedExample) {
  std::string accepted;
  for (const Example& example : ReadExamples()) {
    if (!example.rejected) accepted += example.text;
  }
  for (const std::string word : {"#and(",
                                 "#or(",
                                 "#xor(",
                                 "#not(",
                                 "#true(",
                                 "#false(",
                                 "#distance(",
                                 "{type=sphere}",
                                 "{type=box}",
                                 "{type=oobb}",
                                 "{type=2dbox}",
                                 "{type=frustum}",
                                 "{type=closedMesh}",
                                 "{type=orientedMeshPartitioning}",
                                 "{type=extrudedAbove}",
                                 " keepUndeterminedBlocks",
                                 "doNotKeepUndeterminedBlocks",
                                 "{type=int}",
                                 "{type=int64}",
                                 "{type=uint8_t}",
                                 "{type=float}",
                                 "{type=double}",
                                 "{type=string}",
                                 " ==,",
                                 " !=,",
                                 " >,",
                                 " >=,",
                                 " <,",
                                 " <=,",
                                 " <>,",
                                 " <=>,"}) {
    EXPECT_NE(accepted.find(word), std::string::npos) << word;
  }
}

/// An example of a refusal is shown indented: the text, the caret, the message.
TEST(QueryDocument, ShowsARefusalAsTheProgramShowsIt) {
  std::ifstream document = OpenDocument();
  std::vector<std::string> lines;
  for (std::string line; std::getline(document, line);) lines.push_back(line);
  std::size_t shown = 0;
  for (std::size_t i = 1; i + 1 < lines.size(); ++i) {
    if (lines[i].find_first_not_of(' ') == std::string::npos || lines[i].back() != '^') continue;
    ++shown;
    const std::string text = lines[i - 1].substr(4);
    std::vector<tarnhost::QueryClause> clauses;
    tarnhost::QueryDiagnosis diagnosis;
    EXPECT_FALSE(tarnhost::ReadQueryText(text, clauses, diagnosis)) << text;
    EXPECT_EQ(tarnhost::ShowPosition(text, diagnosis.position), text + "\n" + lines[i].substr(4));
    EXPECT_EQ(diagnosis.message, lines[i + 1].substr(4));
  }
  EXPECT_EQ(shown, 1u);
}

}  // namespace
