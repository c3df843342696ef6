// Opens files that no name leads to.
#include "host/common/NamelessFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>

namespace tarnhost {

int OpenNamelessFile(const std::filesystem::path& folder) {
  const int file = ::open(folder.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0600);
  if (file >= 0 || (errno != EOPNOTSUPP && errno != EISDIR)) return file;
  // A file system that makes none without a name.
  static std::atomic<unsigned> made = 0;
  const std::filesystem::path named =
      folder / (".temporary-" + std::to_string(::getpid()) + "-" + std::to_string(made++));
  const int opened = ::open(named.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (opened >= 0) ::unlink(named.c_str());
  return opened;
}

}  // namespace tarnhost
