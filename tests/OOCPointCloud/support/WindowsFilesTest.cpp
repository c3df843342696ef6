// Long paths, and which result code an error number of Windows becomes.
#if defined(_WIN32)

#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include "OOCPointCloud/support/WindowsApi.h"
#include "OOCPointCloud/support/WindowsFiles.h"

namespace {

namespace fs = std::filesystem;
namespace result = oocpc::result;
using oocpc::windows::FullSystemPath;
using oocpc::windows::ResultFromWindowsError;
using oocpc::windows::SystemPath;

const std::wstring kLongName(150, L'x');

TEST(SystemPath, LeavesShortPathsAsTheyAre) {
  EXPECT_EQ(SystemPath("folder/file"), L"folder/file");
  EXPECT_EQ(SystemPath(L"C:\\folder\\file"), L"C:\\folder\\file");
}

TEST(SystemPath, LiftsTheLimitOfLongPaths) {
  const fs::path path = fs::path(L"C:\\") / kLongName / kLongName;
  EXPECT_EQ(SystemPath(path), L"\\\\?\\" + path.native());
  EXPECT_EQ(SystemPath(L"\\\\?\\" + path.native()), L"\\\\?\\" + path.native());
}

TEST(SystemPath, TakesOutOfLongPathsWhatTheSystemWouldNotUnderstandThere) {
  const fs::path path = fs::path(L"C:/") / kLongName / "." / "other" / ".." / kLongName;
  EXPECT_EQ(SystemPath(path), L"\\\\?\\C:\\" + kLongName + L"\\" + kLongName);
}

TEST(SystemPath, MakesLongRelativePathsAbsolute) {
  const fs::path path = fs::path(kLongName) / kLongName;
  const std::wstring full = SystemPath(path);
  EXPECT_TRUE(full.starts_with(L"\\\\?\\")) << fs::path(full);
  EXPECT_TRUE(full.ends_with(L"\\" + kLongName + L"\\" + kLongName)) << fs::path(full);
  EXPECT_EQ(full.find(L'/'), std::wstring::npos);
}

TEST(SystemPath, KnowsSharedFolders) {
  const std::wstring share = L"server\\share\\" + kLongName + L"\\" + kLongName;
  EXPECT_EQ(SystemPath(L"\\\\" + share), L"\\\\?\\UNC\\" + share);
}

TEST(FullSystemPath, IsAbsolute) { EXPECT_TRUE(fs::path(FullSystemPath("file")).is_absolute()); }

TEST(WindowsErrors, FullDisksAndQuotasAreNoSpace) {
  EXPECT_EQ(ResultFromWindowsError(ERROR_DISK_FULL), result::kNoSpace);
  EXPECT_EQ(ResultFromWindowsError(ERROR_HANDLE_DISK_FULL), result::kNoSpace);
  EXPECT_EQ(ResultFromWindowsError(1295), result::kNoSpace) << "a quota is used up";
}

TEST(WindowsErrors, MissingPermissionAndFilesInUseAreAccessDenied) {
  for (const std::uint32_t error : {ERROR_ACCESS_DENIED, ERROR_WRITE_PROTECT,
                                    ERROR_SHARING_VIOLATION, ERROR_USER_MAPPED_FILE}) {
    EXPECT_EQ(ResultFromWindowsError(error), result::kAccessDenied) << error;
  }
}

TEST(WindowsErrors, WantOfMemoryIsToldAsSuch) {
  EXPECT_EQ(ResultFromWindowsError(ERROR_NOT_ENOUGH_MEMORY), result::kOutOfMemory);
  EXPECT_EQ(ResultFromWindowsError(ERROR_COMMITMENT_LIMIT), result::kOutOfMemory);
}

TEST(WindowsErrors, EverythingElseIsAnIoError) {
  for (const std::uint32_t error : {ERROR_FILE_NOT_FOUND, ERROR_CRC, ERROR_INVALID_PARAMETER}) {
    EXPECT_EQ(ResultFromWindowsError(error), result::kIoError) << error;
  }
}

}  // namespace

#endif
