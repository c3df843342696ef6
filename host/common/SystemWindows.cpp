// Small things in the way of Windows.
#if defined(_WIN32)

#include <string>

#include "OOCPointCloud/support/WindowsFiles.h"
#include "host/common/System.h"
// The macros of the system's header would rename what is declared after it.
#include "OOCPointCloud/support/WindowsApi.h"

namespace tarnhost {

std::filesystem::path PathOf(std::string_view text) {
  return std::u8string(text.begin(), text.end());
}

std::uint64_t GetProcessNumber() { return ::GetCurrentProcessId(); }

std::uint64_t GetMachineMemoryBytes() {
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof(status);
  return ::GlobalMemoryStatusEx(&status) != 0 ? status.ullTotalPhys : 0;
}

void KeepLittleFreedMemory() {}

std::FILE* OpenForWriting(const std::filesystem::path& path) {
  return ::_wfopen(oocpc::windows::SystemPath(path).c_str(), L"wb");
}

bool SeekTo(std::FILE* file, std::uint64_t offsetBytes) {
  return ::_fseeki64(file, static_cast<long long>(offsetBytes), SEEK_SET) == 0;
}

}  // namespace tarnhost

#endif
