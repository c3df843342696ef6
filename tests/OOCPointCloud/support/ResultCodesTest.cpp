// Every constant of the header has an entry that a person can use.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <vector>

namespace {

struct Constant {
  std::string name;
  HRESULT code;
};

// The constants as the header's own text declares them.
std::vector<Constant> ConstantsOfTheHeader() {
  std::ifstream header(TESTS_SOURCE_DIR "/../OOCPointCloud/include/OOCPointCloud/ResultCodes.h");
  const std::string declaration = "inline constexpr HRESULT ";
  std::vector<Constant> constants;
  for (std::string line; std::getline(header, line);) {
    if (line.rfind(declaration, 0) != 0) continue;
    const std::size_t equals = line.find(" = ");
    const std::string value = line.substr(line.find_first_of("0123456789", equals));
    constants.push_back(
        {line.substr(declaration.size(), equals - declaration.size()),
         oocpc::result::Code(static_cast<std::uint32_t>(std::stoul(value, nullptr, 0)))});
  }
  return constants;
}

TEST(ResultCodes, ListEveryConstantOfTheHeaderInItsOrder) {
  const std::vector<Constant> constants = ConstantsOfTheHeader();
  const auto infos = oocpc::AllResultCodes();
  ASSERT_GE(constants.size(), 50u);
  ASSERT_EQ(infos.size(), constants.size());
  for (std::size_t i = 0; i < infos.size(); ++i) {
    EXPECT_EQ(infos[i].name, constants[i].name);
    EXPECT_EQ(infos[i].code, constants[i].code) << infos[i].name;
  }
}

TEST(ResultCodes, AreAllDifferent) {
  std::set<HRESULT> codes;
  std::set<std::string> names;
  for (const oocpc::ResultCodeInfo& info : oocpc::AllResultCodes()) {
    EXPECT_TRUE(codes.insert(info.code).second) << info.name;
    EXPECT_TRUE(names.insert(info.name).second) << info.name;
  }
}

TEST(ResultCodes, SayWhatHappenedAndForFailuresWhatToDo) {
  for (const oocpc::ResultCodeInfo& info : oocpc::AllResultCodes()) {
    EXPECT_GT(std::strlen(info.meaning), 3u) << info.name;
    EXPECT_NE(info.meaning[std::strlen(info.meaning) - 1], '.') << info.name;
    EXPECT_EQ(*info.remedy == '\0', !oocpc::Failed(info.code)) << info.name;
    if (*info.remedy == '\0') continue;
    EXPECT_NE(info.remedy[std::strlen(info.remedy) - 1], '.') << info.name;
  }
}

TEST(ResultCodes, AreFoundByTheirNumber) {
  for (const oocpc::ResultCodeInfo& info : oocpc::AllResultCodes()) {
    EXPECT_EQ(oocpc::FindResultCode(info.code), &info) << info.name;
  }
  EXPECT_STREQ(oocpc::FindResultCode(oocpc::result::Code(0xA1030086u))->name, "kBadHeader");
}

TEST(ResultCodes, OfOthersAreNotFound) {
  EXPECT_EQ(oocpc::FindResultCode(oocpc::result::Code(0x80070005u)), nullptr);
  EXPECT_EQ(oocpc::FindResultCode(2), nullptr);
}

}  // namespace
