// Opening a repository: nothing that was altered, cut or lost passes.
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "tests/support/SmallRepository.h"
#include "tests/support/System.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;
using oocpc::result::kOk;
using oocpctest::CheckRepository;
using oocpctest::ReadAndDelete;

// A committed repository in memory whose streams a test may spoil.
std::shared_ptr<OOCPCMemoryStreams> MakeStreams() {
  auto streams = std::make_shared<OOCPCMemoryStreams>();
  OOCPCRepositoryWriter writer(std::make_unique<OOCPCMemoryStreamStore>(streams));
  std::uint64_t position = 0;
  EXPECT_EQ(writer.Append("A", Bytes{1, 2, 3}, position), kOk);
  EXPECT_EQ(writer.Append("EMPTY", {}, position), kOk);
  EXPECT_EQ(writer.Commit(oocpctest::SmallCatalogue()), kOk);
  return streams;
}

void WriteFolder(const OOCPCMemoryStreams& streams, const fs::path& folder) {
  oocpctest::WriteFile(folder / "main", *streams.main);
  for (const auto& [name, bytes] : streams.named) oocpctest::WriteFile(folder / name, *bytes);
}

OOCPCRepositoryInformation InformationOf(const OOCPCMemoryStreams& streams) {
  OOCPCRepositoryInformation information;
  EXPECT_EQ(oocpctest::LoadInformation(*streams.main, information), kOk);
  return information;
}

TEST(StreamRepository, GivesStreamsCutToTheirCommittedLength) {
  const auto streams = MakeStreams();
  streams->named["A"]->push_back(66);
  OOCPCMemoryRepository repository(streams);
  ASSERT_EQ(CheckRepository(repository), kOk);
  EXPECT_EQ(ReadAndDelete(repository.CreateInputStream("A")), (Bytes{1, 2, 3}));
  const std::unique_ptr<OOCPCIInputStream> empty(repository.CreateInputStream("EMPTY"));
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty->GetLength(), 0u);
}

TEST(StreamRepository, GivesNoStreamThatIsNotListed) {
  const auto streams = MakeStreams();
  streams->named["LEFTOVER"] = std::make_shared<Bytes>(3);
  OOCPCMemoryRepository repository(streams);
  ASSERT_EQ(CheckRepository(repository), kOk);
  EXPECT_EQ(repository.CreateInputStream("LEFTOVER"), nullptr);
  EXPECT_EQ(repository.CreateInputStream("NONE"), nullptr);
  EXPECT_EQ(repository.CreateInputStream(""), nullptr);
  EXPECT_EQ(repository.CreateInputStream("main"), nullptr);
}

TEST(StreamRepository, HasNoInformationBeforeItIsSet) {
  const auto streams = MakeStreams();
  OOCPCMemoryRepository repository(streams);
  EXPECT_FALSE(repository.GetRepositoryInformation().IsLoaded());
  ASSERT_EQ(CheckRepository(repository), kOk);
  EXPECT_EQ(repository.GetRepositoryInformation().localFrameOffset,
            (oocpc::Vector3d{1000, 2000, 0}));
}

TEST(StreamRepository, RefusesAMainStreamWithoutInformation) {
  OOCPCMemoryRepository repository(MakeStreams());
  const OOCPCRepositoryInformation none;
  EXPECT_EQ(repository.SetRepositoryInformation(&none), oocpc::result::kNoRepositoryInformation);
  EXPECT_EQ(repository.SetRepositoryInformation(nullptr), oocpc::result::kNoRepositoryInformation);
}

TEST(StreamRepository, MissesAMainStreamThatIsNotThere) {
  OOCPCMemoryRepository repository(std::make_shared<OOCPCMemoryStreams>());
  const OOCPCRepositoryInformation information = InformationOf(*MakeStreams());
  EXPECT_EQ(repository.CreateInputStream(), nullptr);
  EXPECT_EQ(repository.SetRepositoryInformation(&information), oocpc::result::kStreamMissing);
  EXPECT_EQ(repository.GetFaultyStream(), "");
}

TEST(StreamRepository, NamesAListedStreamThatIsMissing) {
  const auto streams = MakeStreams();
  streams->named.erase("EMPTY");
  OOCPCMemoryRepository repository(streams);
  EXPECT_EQ(CheckRepository(repository), oocpc::result::kStreamMissing);
  EXPECT_EQ(repository.GetFaultyStream(), "EMPTY");
  EXPECT_FALSE(repository.GetRepositoryInformation().IsLoaded());
}

TEST(StreamRepository, NamesAListedStreamThatWasCut) {
  const auto streams = MakeStreams();
  streams->named["A"]->pop_back();
  OOCPCMemoryRepository repository(streams);
  EXPECT_EQ(CheckRepository(repository), oocpc::result::kStreamShort);
  EXPECT_EQ(repository.GetFaultyStream(), "A");
}

TEST(StreamRepositorySeal, RefusesEveryAlteredByteOfTheMainStream) {
  const Bytes whole = *MakeStreams()->main;
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const std::uint8_t change : {0x01, 0x80, 0xFF}) {
      const auto streams = MakeStreams();
      (*streams->main)[at] ^= change;
      OOCPCMemoryRepository repository(streams);
      EXPECT_TRUE(oocpc::Failed(CheckRepository(repository))) << at << ' ' << int{change};
    }
  }
}

TEST(StreamRepositorySeal, RefusesEveryCutOfTheMainStream) {
  const std::size_t length = MakeStreams()->main->size();
  for (std::size_t cut = 0; cut < length; ++cut) {
    const auto streams = MakeStreams();
    streams->main->resize(cut);
    OOCPCMemoryRepository repository(streams);
    EXPECT_TRUE(oocpc::Failed(CheckRepository(repository))) << cut;
  }
}

TEST(StreamRepositorySeal, RefusesBytesBehindTheInformation) {
  const auto streams = MakeStreams();
  streams->main->push_back(0);
  OOCPCMemoryRepository repository(streams);
  EXPECT_EQ(CheckRepository(repository), oocpc::result::kCatalogueMismatch);
}

TEST(StreamRepositorySeal, RefusesAChunkPutBetweenCatalogueAndInformation) {
  const auto streams = MakeStreams();
  const Bytes chunk{1, 0, 0, 0, 0, 0, 0, 0};
  const auto at = static_cast<std::ptrdiff_t>(InformationOf(*streams).catalogueBytes);
  streams->main->insert(streams->main->begin() + at, chunk.begin(), chunk.end());
  OOCPCMemoryRepository repository(streams);
  EXPECT_EQ(CheckRepository(repository), oocpc::result::kCatalogueMismatch);
}

TEST(StreamRepositorySeal, RefusesTheInformationOfAnotherMainStream) {
  const auto streams = MakeStreams();
  OOCPCRepositoryInformation other = InformationOf(*streams);
  other.creationTime += 1;
  OOCPCMemoryRepository repository(streams);
  EXPECT_EQ(repository.SetRepositoryInformation(&other), oocpc::result::kCatalogueMismatch);
  other.generator = std::string(10'000, 'x');  // longer than the whole main stream
  EXPECT_EQ(repository.SetRepositoryInformation(&other), oocpc::result::kCatalogueMismatch);
  other = InformationOf(*streams);
  other.catalogueBytes = ~std::uint64_t{0};
  EXPECT_EQ(repository.SetRepositoryInformation(&other), oocpc::result::kCatalogueMismatch);
}

TEST(FolderRepository, ReadsWhatTheStoreWrote) {
  const oocpctest::TemporaryFolder folder;
  WriteFolder(*MakeStreams(), folder.Path());
  std::unique_ptr<OOCPCFolderRepository> repository;
  ASSERT_EQ(OOCPCFolderRepository::Open(folder.Path(), repository), kOk);
  ASSERT_EQ(CheckRepository(*repository), kOk);
  EXPECT_EQ(ReadAndDelete(repository->CreateInputStream("A")), (Bytes{1, 2, 3}));
}

TEST(FolderRepository, IsNotThereWithoutAFolderOrAMainStream) {
  const oocpctest::TemporaryFolder folder;
  std::unique_ptr<OOCPCFolderRepository> repository;
  EXPECT_EQ(OOCPCFolderRepository::Open(folder.Path(), repository), oocpc::result::kNotARepository);
  EXPECT_EQ(OOCPCFolderRepository::Open(folder / "none", repository),
            oocpc::result::kNotARepository);
  EXPECT_EQ(repository, nullptr);
}

TEST(FolderRepository, ReportsAnIoErrorWhenAFolderStandsForAFile) {
  const oocpctest::TemporaryFolder folder;
  fs::create_directory(folder / "main");
  std::unique_ptr<OOCPCFolderRepository> repository;
  EXPECT_EQ(OOCPCFolderRepository::Open(folder.Path(), repository), oocpc::result::kIoError);
  fs::remove(folder / "main");
  WriteFolder(*MakeStreams(), folder.Path());
  fs::remove(folder / "A");
  fs::create_directory(folder / "A");
  ASSERT_EQ(OOCPCFolderRepository::Open(folder.Path(), repository), kOk);
  EXPECT_EQ(CheckRepository(*repository), oocpc::result::kIoError);
  EXPECT_EQ(repository->GetFaultyStream(), "A");
}

TEST(FolderRepository, IsDeniedFilesWithoutPermission) {
  const oocpctest::TemporaryFolder folder;
  WriteFolder(*MakeStreams(), folder.Path());
  fs::permissions(folder.Path(), fs::perms::all);
  fs::permissions(folder / "main", fs::perms::all);
  fs::permissions(folder / "A", fs::perms::none);
  const oocpctest::WithoutPrivileges bound;
  if (!bound.IsBound()) GTEST_SKIP() << "permissions do not bind this process";
  std::unique_ptr<OOCPCFolderRepository> repository;
  ASSERT_EQ(OOCPCFolderRepository::Open(folder.Path(), repository), kOk);
  EXPECT_EQ(CheckRepository(*repository), oocpc::result::kAccessDenied);
  EXPECT_EQ(repository->GetFaultyStream(), "A");
}

TEST(FolderRepository, MayDieBeforeTheStreamsThatItOpened) {
  const oocpctest::TemporaryFolder folder;
  WriteFolder(*MakeStreams(), folder.Path());
  std::unique_ptr<OOCPCFolderRepository> repository;
  ASSERT_EQ(OOCPCFolderRepository::Open(folder.Path(), repository), kOk);
  OOCPCIInputStream* stream = repository->CreateInputStream("A");
  repository.reset();
  EXPECT_EQ(ReadAndDelete(stream), (Bytes{1, 2, 3}));
}

TEST(StreamRepository, OpensStreamsFromSeveralThreadsWhileAWriterAppends) {
  const auto streams = MakeStreams();
  OOCPCMemoryRepository repository(streams);
  ASSERT_EQ(CheckRepository(repository), kOk);
  const auto read = [&] {
    for (int i = 0; i < 500; ++i) {
      EXPECT_EQ(ReadAndDelete(repository.CreateInputStream("A")), (Bytes{1, 2, 3}));
      OOCPCMemoryRepository another(streams);
      EXPECT_EQ(ReadAndDelete(another.CreateInputStream("A")).at(1), 2);
    }
  };
  std::thread first(read);
  std::thread second(read);
  OOCPCMemoryStreamStore store(streams);
  for (int i = 0; i < 500; ++i) EXPECT_EQ(store.Append("A", Bytes(10, 9)), kOk);
  first.join();
  second.join();
}

TEST(DataRepository, OwnsItsStringRepository) {
  OOCPCMemoryRepository repository(MakeStreams());
  EXPECT_EQ(repository.GetStringRepository(), nullptr);
  auto strings = std::make_unique<OOCPCStringRepositoryContainer>(&repository);
  OOCPCStringRepositoryContainer* adopted = strings.get();
  repository.AdoptStringRepository(std::move(strings));
  EXPECT_EQ(repository.GetStringRepository(), adopted);
  repository.AdoptStringRepository(std::make_unique<OOCPCStringRepositoryContainer>(&repository));
  EXPECT_NE(repository.GetStringRepository(), nullptr);
  repository.AdoptStringRepository(nullptr);
  EXPECT_EQ(repository.GetStringRepository(), nullptr);
}

}  // namespace
