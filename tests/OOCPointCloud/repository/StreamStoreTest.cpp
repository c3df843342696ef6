// What every stream store promises, asked of each of them.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/StreamStore.h>
#include <gtest/gtest.h>

#include "tests/support/SmallRepository.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using oocpctest::ReadAndDelete;

// A store and what reads it.
class Place {
 public:
  virtual ~Place() = default;
  [[nodiscard]] virtual std::unique_ptr<OOCPCIStreamStore> MakeStore() = 0;
  [[nodiscard]] virtual std::unique_ptr<OOCPCIDataRepository> MakeRepository() = 0;
};

class FolderPlace final : public Place {
 public:
  [[nodiscard]] std::unique_ptr<OOCPCIStreamStore> MakeStore() override {
    std::unique_ptr<OOCPCFolderStreamStore> store;
    EXPECT_EQ(OOCPCFolderStreamStore::Open(folder_.Path(), store), oocpc::result::kOk);
    return store;
  }
  [[nodiscard]] std::unique_ptr<OOCPCIDataRepository> MakeRepository() override {
    std::unique_ptr<OOCPCFolderRepository> repository;
    EXPECT_EQ(OOCPCFolderRepository::Open(folder_.Path(), repository), oocpc::result::kOk);
    return repository;
  }

 private:
  oocpctest::TemporaryFolder folder_;
};

class MemoryPlace final : public Place {
 public:
  [[nodiscard]] std::unique_ptr<OOCPCIStreamStore> MakeStore() override {
    return std::make_unique<OOCPCMemoryStreamStore>(streams_);
  }
  [[nodiscard]] std::unique_ptr<OOCPCIDataRepository> MakeRepository() override {
    return std::make_unique<OOCPCMemoryRepository>(streams_);
  }

 private:
  std::shared_ptr<OOCPCMemoryStreams> streams_ = std::make_shared<OOCPCMemoryStreams>();
};

template <typename T>
class StreamStore : public testing::Test {
 protected:
  [[nodiscard]] std::uint64_t Length(const std::string& name) {
    std::uint64_t length = 77;
    EXPECT_EQ(store_->GetLength(name, length), oocpc::result::kOk);
    return length;
  }
  [[nodiscard]] Bytes Read(const std::string& name) {
    EXPECT_EQ(store_->ReplaceMain({}), oocpc::result::kOk);
    return ReadAndDelete(place_.MakeRepository()->CreateInputStream(name));
  }

  T place_;
  std::unique_ptr<OOCPCIStreamStore> store_ = place_.MakeStore();
};

using Places = testing::Types<FolderPlace, MemoryPlace>;
TYPED_TEST_SUITE(StreamStore, Places);

TYPED_TEST(StreamStore, AppendsAtTheEnd) {
  ASSERT_EQ(this->store_->Append("A", Bytes{1, 2}), oocpc::result::kOk);
  ASSERT_EQ(this->store_->Append("B", Bytes{9}), oocpc::result::kOk);
  ASSERT_EQ(this->store_->Append("A", Bytes{3}), oocpc::result::kOk);
  EXPECT_EQ(this->Length("A"), 3u);
  EXPECT_EQ(this->store_->Sync("A"), oocpc::result::kOk);
  EXPECT_EQ(this->Read("A"), (Bytes{1, 2, 3}));
  EXPECT_EQ(this->Read("B"), (Bytes{9}));
}

TYPED_TEST(StreamStore, GoesOnAtTheEndOfWhatAnEarlierStoreWrote) {
  ASSERT_EQ(this->store_->Append("A", Bytes{1, 2}), oocpc::result::kOk);
  this->store_.reset();  // it holds the lock
  this->store_ = this->place_.MakeStore();
  EXPECT_EQ(this->Length("A"), 2u);
  ASSERT_EQ(this->store_->Append("A", Bytes{3}), oocpc::result::kOk);
  EXPECT_EQ(this->Read("A"), (Bytes{1, 2, 3}));
}

TYPED_TEST(StreamStore, MakesAStreamAlsoForNoBytes) {
  EXPECT_EQ(this->Length("A"), 0u);
  ASSERT_EQ(this->store_->Append("A", {}), oocpc::result::kOk);
  ASSERT_EQ(this->store_->ReplaceMain({}), oocpc::result::kOk);
  const auto repository = this->place_.MakeRepository();
  const std::unique_ptr<OOCPCIInputStream> stream(repository->CreateInputStream("A"));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->GetLength(), 0u);
  EXPECT_EQ(repository->CreateInputStream("B"), nullptr);
}

TYPED_TEST(StreamStore, CutsAStreamAndAppendsFromThere) {
  ASSERT_EQ(this->store_->Append("A", Bytes{1, 2, 3, 4}), oocpc::result::kOk);
  ASSERT_EQ(this->store_->Truncate("A", 2), oocpc::result::kOk);
  ASSERT_EQ(this->store_->Append("A", Bytes{9}), oocpc::result::kOk);
  EXPECT_EQ(this->Read("A"), (Bytes{1, 2, 9}));
}

TYPED_TEST(StreamStore, NeverMakesAStreamLongerByCutting) {
  ASSERT_EQ(this->store_->Append("A", Bytes{1}), oocpc::result::kOk);
  EXPECT_EQ(this->store_->Truncate("A", 2), oocpc::result::kSeekOutOfRange);
  EXPECT_EQ(this->store_->Truncate("A", 1), oocpc::result::kOk);
  EXPECT_EQ(this->store_->Truncate("B", 1), oocpc::result::kSeekOutOfRange);
  EXPECT_EQ(this->store_->Truncate("B", 0), oocpc::result::kOk);
  EXPECT_EQ(this->Length("A"), 1u);
}

TYPED_TEST(StreamStore, ReplacesTheMainStreamAsAWhole) {
  ASSERT_EQ(this->store_->ReplaceMain(Bytes{1, 2, 3, 4}), oocpc::result::kOk);
  const auto before = this->place_.MakeRepository();
  ASSERT_EQ(this->store_->ReplaceMain(Bytes{5}), oocpc::result::kOk);
  EXPECT_EQ(ReadAndDelete(this->place_.MakeRepository()->CreateInputStream()), (Bytes{5}));
  EXPECT_NE(before, nullptr);
}

TYPED_TEST(StreamStore, LeavesAloneWhatAReaderHasOpened) {
  ASSERT_EQ(this->store_->Append("A", Bytes{1, 2}), oocpc::result::kOk);
  ASSERT_EQ(this->store_->ReplaceMain(Bytes{7}), oocpc::result::kOk);
  const auto repository = this->place_.MakeRepository();
  const std::unique_ptr<OOCPCIInputStream> main(repository->CreateInputStream());
  const std::unique_ptr<OOCPCIInputStream> stream(repository->CreateInputStream("A"));
  const std::uint8_t* view = stream->View(0, 2);
  ASSERT_NE(view, nullptr);
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(this->store_->Append("A", Bytes(1000, 9)), oocpc::result::kOk);
  }
  ASSERT_EQ(this->store_->ReplaceMain(Bytes{8}), oocpc::result::kOk);
  EXPECT_EQ(view[1], 2);
  EXPECT_EQ(stream->GetLength(), 2u);
  EXPECT_EQ(*main->View(0, 1), 7);
}

TYPED_TEST(StreamStore, RefusesNamesThatNoStreamHas) {
  std::uint64_t length = 0;
  for (const std::string name : {"", "main", "../x", "a/b", "a.b"}) {
    EXPECT_EQ(this->store_->GetLength(name, length), oocpc::result::kBadStreamName) << name;
    EXPECT_EQ(this->store_->Append(name, Bytes{1}), oocpc::result::kBadStreamName) << name;
    EXPECT_EQ(this->store_->Truncate(name, 0), oocpc::result::kBadStreamName) << name;
    EXPECT_EQ(this->store_->Sync(name), oocpc::result::kBadStreamName) << name;
  }
}

TEST(StreamName, HasOneTo64LettersDigitsAndUnderscores) {
  EXPECT_TRUE(OOCPCIsStreamName("DEF_OCTREE_LOD_NODES_18446744073709551615"));
  EXPECT_TRUE(OOCPCIsStreamName("z"));
  EXPECT_TRUE(OOCPCIsStreamName(std::string(64, 'a')));
  EXPECT_FALSE(OOCPCIsStreamName(std::string(65, 'a')));
  EXPECT_FALSE(OOCPCIsStreamName(""));
  for (int c = 0; c < 256; ++c) {
    const bool allowed =
        (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
    EXPECT_EQ(OOCPCIsStreamName(std::string{'a', static_cast<char>(c)}), allowed) << c;
  }
}

TEST(StreamName, IsNotThatOfTheMainStreamInAnyCase) {
  EXPECT_FALSE(OOCPCIsStreamName("main"));
  EXPECT_FALSE(OOCPCIsStreamName("MAIN"));
  EXPECT_FALSE(OOCPCIsStreamName("Main"));
  EXPECT_TRUE(OOCPCIsStreamName("main_"));
}

}  // namespace
