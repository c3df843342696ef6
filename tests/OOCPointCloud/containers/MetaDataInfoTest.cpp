// The metadata catalogue.
#include <OOCPointCloud/OOCPCMetaDataInfo.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

namespace {

TEST(MetaDataCatalogue, KnowsWhereEachNameLies) {
  OOCPCMetaDataInfo info;
  EXPECT_EQ(info.RegisterMetaData("DEF_POSITION", 0, 24), oocpc::result::kOk);
  EXPECT_EQ(info.RegisterMetaData("intensity", 24, 2), oocpc::result::kOk);
  EXPECT_TRUE(info.IsRegistered("intensity"));
  EXPECT_EQ(info.GetMetaDataSize("intensity"), 2u);
  EXPECT_EQ(info.GetMetaDataOffset("intensity"), 24u);
  EXPECT_EQ(info.GetTotalMetaDataSize(), 26u);
}

TEST(MetaDataCatalogue, AnswersZeroForUnknownNames) {
  const OOCPCMetaDataInfo info;
  EXPECT_FALSE(info.IsRegistered("intensity"));
  EXPECT_EQ(info.GetMetaDataSize("intensity"), 0u);
  EXPECT_EQ(info.GetMetaDataOffset("intensity"), 0u);
  EXPECT_EQ(info.GetTotalMetaDataSize(), 0u);
}

TEST(MetaDataCatalogue, IgnoresASecondEntryUnderTheSameName) {
  OOCPCMetaDataInfo info;
  EXPECT_EQ(info.RegisterMetaData("a", 0, 4), oocpc::result::kOk);
  EXPECT_EQ(info.RegisterMetaData("a", 4, 8), oocpc::result::kNameRegistered);
  EXPECT_EQ(info.GetMetaDataSize("a"), 4u);
  EXPECT_EQ(info.GetTotalMetaDataSize(), 4u);
}

TEST(MetaDataCatalogue, ComparesNamesByteByByteEvenWhenTheyAreNotUtf8) {
  OOCPCMetaDataInfo info;
  EXPECT_EQ(info.RegisterMetaData("h\xC3\xB6he", 0, 4), oocpc::result::kOk);
  EXPECT_EQ(info.RegisterMetaData("h\xF6he", 4, 8), oocpc::result::kOk);
  EXPECT_EQ(info.GetMetaDataSize("h\xF6he"), 8u);
  EXPECT_FALSE(info.IsRegistered("H\xF6he"));
  EXPECT_FALSE(info.IsRegistered("h"));
}

TEST(MetaDataCatalogue, ForgetsEverythingWhenCleared) {
  OOCPCMetaDataInfo info;
  EXPECT_EQ(info.RegisterMetaData("a", 0, 4), oocpc::result::kOk);
  const OOCPCMetaDataInfo copy = info;
  info.Clear();
  EXPECT_FALSE(info.IsRegistered("a"));
  EXPECT_EQ(info.GetTotalMetaDataSize(), 0u);
  EXPECT_TRUE(copy.IsRegistered("a")) << "copies are of their own";
}

}  // namespace
