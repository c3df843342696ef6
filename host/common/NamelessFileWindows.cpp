// Files that are gone with their handle, and large memory, on Windows.
#if defined(_WIN32)

#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <atomic>
#include <string>

#include "OOCPointCloud/support/WindowsFiles.h"
#include "host/common/NamelessFile.h"
// The macros of the system's header would rename what is declared after it.
#include "OOCPointCloud/support/WindowsApi.h"

namespace tarnhost {

namespace result = oocpc::result;
using oocpc::windows::Handle;
using oocpc::windows::ResultFromLastError;

namespace {

// The length of one read or write is 32 bits.
constexpr std::size_t kLargestTransfer = std::size_t{1} << 30;

HANDLE HandleOf(std::intptr_t value) { return reinterpret_cast<HANDLE>(value); }

DWORD LengthOf(std::size_t bytes) { return static_cast<DWORD>(std::min(bytes, kLargestTransfer)); }

OVERLAPPED PlaceOf(std::uint64_t offset) {
  OVERLAPPED place{};
  place.Offset = static_cast<DWORD>(offset);
  place.OffsetHigh = static_cast<DWORD>(offset >> 32);
  return place;
}

}  // namespace

// It has a name as long as it lives; the system removes it with the last handle.
HRESULT NamelessFile::Create(const std::filesystem::path& folder,
                             std::unique_ptr<NamelessFile>& file) {
  static std::atomic<unsigned> made = 0;
  const std::filesystem::path named =
      folder /
      (".temporary-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(made++));
  Handle opened = oocpc::windows::Open(
      named, GENERIC_READ | GENERIC_WRITE | DELETE, CREATE_ALWAYS,
      FILE_ATTRIBUTE_TEMPORARY | FILE_ATTRIBUTE_HIDDEN | FILE_FLAG_DELETE_ON_CLOSE);
  if (!opened.IsOpen()) return ResultFromLastError();
  file.reset(new NamelessFile(reinterpret_cast<std::intptr_t>(opened.Get())));
  opened.Release();
  return result::kOk;
}

NamelessFile::~NamelessFile() {
  if (!mapped_.empty()) ::UnmapViewOfFile(mapped_.data());
  ::CloseHandle(HandleOf(handle_));
}

// Closing the handle would remove the file, and a process may have millions of them.
void NamelessFile::EndWriting() {}

HRESULT NamelessFile::Map(std::uint64_t bytes) {
  if (bytes == 0) return result::kOk;
  // Makes the file as long, and takes the room for it on the disk.
  const Handle section(::CreateFileMappingW(HandleOf(handle_), nullptr, PAGE_READWRITE,
                                            static_cast<DWORD>(bytes >> 32),
                                            static_cast<DWORD>(bytes), nullptr));
  if (!section.IsOpen()) return ResultFromLastError();
  const auto size = static_cast<std::size_t>(bytes);
  void* begin = ::MapViewOfFile(section.Get(), FILE_MAP_WRITE, 0, 0, size);
  if (begin == nullptr) return ResultFromLastError();
  mapped_ = {static_cast<std::uint8_t*>(begin), size};
  return result::kOk;
}

// Through the mapping, where there is one: the system does not promise that a mapping shows what is
// written otherwise.
HRESULT NamelessFile::Write(std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  if (!mapped_.empty()) {
    if (offset > mapped_.size() || bytes.size() > mapped_.size() - offset) return result::kIoError;
    std::copy(bytes.begin(), bytes.end(), mapped_.begin() + static_cast<std::ptrdiff_t>(offset));
    return result::kOk;
  }
  while (!bytes.empty()) {
    OVERLAPPED place = PlaceOf(offset);
    DWORD written = 0;
    if (::WriteFile(HandleOf(handle_), bytes.data(), LengthOf(bytes.size()), &written, &place) ==
        0) {
      return ResultFromLastError();
    }
    if (written == 0) return result::kIoError;
    bytes = bytes.subspan(written);
    offset += written;
  }
  return result::kOk;
}

HRESULT NamelessFile::Read(std::uint64_t offset, std::span<std::uint8_t> out) const {
  while (!out.empty()) {
    OVERLAPPED place = PlaceOf(offset);
    DWORD read = 0;
    if (::ReadFile(HandleOf(handle_), out.data(), LengthOf(out.size()), &read, &place) == 0) {
      return ResultFromLastError();
    }
    if (read == 0) return result::kIoError;
    out = out.subspan(read);
    offset += read;
  }
  return result::kOk;
}

// There is no such advice for files that are not mapped.
void NamelessFile::ReadAhead(std::uint64_t /*offset*/, std::uint64_t /*bytes*/) const {}

HRESULT ZeroedMemory::Take(std::uint64_t bytes, std::unique_ptr<ZeroedMemory>& memory) {
  void* begin = nullptr;
  if (bytes > 0) {
    begin = ::VirtualAlloc(nullptr, static_cast<std::size_t>(bytes), MEM_RESERVE | MEM_COMMIT,
                           PAGE_READWRITE);
    if (begin == nullptr) return result::kOutOfMemory;
  }
  memory.reset(
      new ZeroedMemory({static_cast<std::uint8_t*>(begin), static_cast<std::size_t>(bytes)}));
  return result::kOk;
}

ZeroedMemory::~ZeroedMemory() {
  if (!bytes_.empty()) ::VirtualFree(bytes_.data(), 0, MEM_RELEASE);
}

}  // namespace tarnhost

#endif
