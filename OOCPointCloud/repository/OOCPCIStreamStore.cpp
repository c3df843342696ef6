// What all stream stores share: the rule for names.
#include <OOCPointCloud/StreamStore.h>

#include <algorithm>

OOCPCIStreamStore::~OOCPCIStreamStore() = default;

namespace {

bool IsNameCharacter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

// In any case, because some file systems do not tell cases apart.
bool IsMainName(std::string_view name) {
  constexpr std::string_view kMain = OOCPCFolderStreamStore::kMainFileName;
  return std::ranges::equal(name, kMain, [](char a, char b) { return (a | 0x20) == b; });
}

}  // namespace

bool OOCPCIsStreamName(std::string_view name) {
  constexpr std::size_t kMaximumLength = 64;
  return !name.empty() && name.size() <= kMaximumLength &&
         std::ranges::all_of(name, IsNameCharacter) && !IsMainName(name);
}
