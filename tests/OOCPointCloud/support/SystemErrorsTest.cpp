// Which result code an error number of the system becomes.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "OOCPointCloud/support/SystemErrors.h"

namespace {

using oocpc::ResultFromErrno;

TEST(SystemErrors, FullDisksQuotasAndFileLimitsAreNoSpace) {
  EXPECT_EQ(ResultFromErrno(ENOSPC), oocpc::result::kNoSpace);
#if defined(EDQUOT)
  EXPECT_EQ(ResultFromErrno(EDQUOT), oocpc::result::kNoSpace);
#endif
  EXPECT_EQ(ResultFromErrno(EFBIG), oocpc::result::kNoSpace);
}

TEST(SystemErrors, MissingPermissionAndReadOnlyDisksAreAccessDenied) {
  EXPECT_EQ(ResultFromErrno(EACCES), oocpc::result::kAccessDenied);
  EXPECT_EQ(ResultFromErrno(EPERM), oocpc::result::kAccessDenied);
  EXPECT_EQ(ResultFromErrno(EROFS), oocpc::result::kAccessDenied);
}

TEST(SystemErrors, EverythingElseIsAnIoError) {
  for (const int error : {EIO, EISDIR, ENOENT, EMFILE, ENODEV, EINVAL}) {
    EXPECT_EQ(ResultFromErrno(error), oocpc::result::kIoError) << error;
  }
}

}  // namespace
