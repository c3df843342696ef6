// More scans at once than a process may have files open.
#if !defined(_WIN32)  // where there is no such limit

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <memory>
#include <string>
#include <vector>

#include "host/formats/ScanFile.h"
#include "tests/support/LazFiles.h"
#include "tests/support/ScanFolder.h"

namespace {

using oocpctest::IsOk;

/// Lets the process have no more than some files open.
class FewOpenFiles {
 public:
  explicit FewOpenFiles(rlim_t most) {
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0);
    rlimit limit = before_;
    limit.rlim_cur = most;
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  }
  ~FewOpenFiles() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  FewOpenFiles(const FewOpenFiles&) = delete;
  FewOpenFiles& operator=(const FewOpenFiles&) = delete;

 private:
  rlimit before_{};
};

/// Decodes the scan into temporary files, again and again, and keeps all that.
void ExpectManyAreKept(const std::filesystem::path& path) {
  constexpr int kScans = 200;
  const oocpctest::TemporaryFolder temporary;
  tarnhost::ScanWorkspace workspace{0, temporary.Path(), {}};
  const FewOpenFiles few(100);
  std::vector<std::unique_ptr<tarnhost::ScanFile>> scans(kScans);
  for (auto& scan : scans) {
    ASSERT_TRUE(IsOk(tarnhost::OpenScan(path, scan)));
    ASSERT_TRUE(IsOk(scan->Prepare(workspace)));
  }
  std::vector<std::int32_t> expected(3 * scans.front()->GetPointCount());
  scans.front()->ReadPositions(0, scans.front()->GetPointCount(), expected.data());
  std::vector<std::int32_t> last(expected.size());
  scans.back()->ReadPositions(0, scans.back()->GetPointCount(), last.data());
  EXPECT_EQ(last, expected);
  EXPECT_NE(expected, std::vector<std::int32_t>(expected.size(), 0));
}

TEST(ManyScans, OfLazAreKeptWhateverFilesAProcessMayHaveOpen) {
  const oocpctest::ScanFolder folder;
  const auto file = oocpctest::CompressLas(oocpctest::ScanOf(50)).bytes;
  ExpectManyAreKept(folder.Add("scan.laz", file));
}

TEST(ManyScans, OfTextAreKeptWhateverFilesAProcessMayHaveOpen) {
  const oocpctest::ScanFolder folder;
  const std::string text = "1 2 3\n4 5 6\n";
  ExpectManyAreKept(folder.Add("scan.xyz", {text.begin(), text.end()}));
}

}  // namespace

#endif
