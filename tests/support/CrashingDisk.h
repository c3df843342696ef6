// A disk that fails, or a process that ends, at one chosen file operation; and what then is lost.
#pragma once

#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "OOCPointCloud/repository/FileSystem.h"
#include "tests/support/TemporaryFolder.h"

namespace oocpctest {

/// How the chosen operation goes wrong.
enum class Crash {
  kNone,       ///< nothing goes wrong; operations are counted
  kError,      ///< it alone fails
  kFull,       ///< it fails, and from then on the disk is full: appends write half, then fail
  kKilled,     ///< it and everything after does not happen
  kTorn,       ///< the same, but an append writes half
  kPowerLost,  ///< killed, and whatever was not synced is lost: bytes, new names, renames
  kBytesLost,  ///< killed, and the bytes that were not synced are lost, while all names are kept
};
inline constexpr Crash kAllCrashes[] = {Crash::kError, Crash::kFull,      Crash::kKilled,
                                        Crash::kTorn,  Crash::kPowerLost, Crash::kBytesLost};

inline const char* NameOf(Crash crash) {
  static constexpr const char* kNames[] = {"no crash", "error",      "full",      "killed",
                                           "torn",     "power lost", "bytes lost"};
  return kNames[static_cast<std::size_t>(crash)];
}

/// Watches the file operations of this process as long as it lives.
class CrashingDisk final : public oocpc::detail::FileWatcher {
 public:
  using Change = oocpc::detail::FileChange;
  using Kind = Change::Kind;
  using Path = std::filesystem::path;

  CrashingDisk(Crash crash, std::size_t operation) : crash_(crash), chosen_(operation) {
    oocpc::detail::WatchFiles(this);
  }
  ~CrashingDisk() override { oocpc::detail::WatchFiles(nullptr); }

  /// Operations asked for so far.
  [[nodiscard]] std::size_t GetCount() const { return count_; }
  /// The operation at which it happened.
  [[nodiscard]] const std::string& GetPlace() const { return place_; }

  [[nodiscard]] HRESULT Ask(const Change& change, std::size_t& written) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::size_t number = count_++;
    if (number == chosen_) place_ = Describe(change);
    if (crash_ != Crash::kNone && number >= chosen_) {
      const HRESULT code = GoWrong(change, number, written);
      if (oocpc::Failed(code)) return code;
    }
    Note(change);
    const bool syncs = change.kind == Kind::kSync || change.kind == Kind::kSyncFolder;
    // Nothing here survives a real crash, so that nothing needs to be synced.
    return syncs ? oocpc::result::kNothingDone : oocpc::result::kOk;
  }

  /// After the operation is over: takes away what the crash lost.
  void Lose() {
    oocpc::detail::WatchFiles(nullptr);
    if (crash_ == Crash::kPowerLost) {
      std::for_each(undo_.rbegin(), undo_.rend(), [](const Undo& undo) { undo.run(); });
    }
    if (crash_ != Crash::kPowerLost && crash_ != Crash::kBytesLost) return;
    for (const auto& [path, bytes] : syncedBytes_) {
      std::error_code ignored;
      if (std::filesystem::file_size(path, ignored) > bytes && !ignored) {
        std::filesystem::resize_file(path, bytes, ignored);
      }
    }
  }

 private:
  /// How a change of names is taken back, until the folders are synced in which it was made.
  struct Undo {
    std::vector<Path> folders;
    std::function<void()> run;
  };

  static Path Plain(const Path& path) {
    const Path plain = std::filesystem::weakly_canonical(path);
    return plain.has_filename() ? plain : plain.parent_path();
  }

  static std::string Describe(const Change& change) {
    static constexpr const char* kNames[] = {"open",    "append",      "truncate",
                                             "sync",    "sync folder", "make folder",
                                             "replace", "exchange",    "remove"};
    return std::string(kNames[static_cast<std::size_t>(change.kind)]) + " " + change.path.string();
  }

  HRESULT GoWrong(const Change& change, std::size_t number, std::size_t& written) const {
    const bool appends = change.kind == Kind::kAppend;
    switch (crash_) {
      case Crash::kError:
        return number == chosen_ ? oocpc::result::kIoError : oocpc::result::kOk;
      case Crash::kFull:
        if (appends) written = number == chosen_ ? change.bytes.size() / 2 : 0;
        return number == chosen_ || appends ? oocpc::result::kNoSpace : oocpc::result::kOk;
      case Crash::kTorn:
        if (appends && number == chosen_) written = change.bytes.size() / 2;
        return oocpc::result::kIoError;
      default:
        return oocpc::result::kIoError;
    }
  }

  /// Keeps in mind what a loss of power would take back of a change that is made now.
  void Note(const Change& change) {
    const Path path = Plain(change.path);
    switch (change.kind) {
      case Kind::kOpen:
        if (!std::filesystem::exists(path)) {
          syncedBytes_[path] = 0;
          undo_.push_back({{path.parent_path()}, [path] { std::filesystem::remove(path); }});
        } else if (!syncedBytes_.contains(path)) {
          syncedBytes_[path] = std::filesystem::file_size(path);
        }
        break;
      case Kind::kTruncate:
        syncedBytes_[path] = std::min(syncedBytes_[path], change.length);
        break;
      case Kind::kSync:
        syncedBytes_[path] = std::filesystem::file_size(path);
        break;
      case Kind::kSyncFolder:
        for (Undo& undo : undo_) std::erase(undo.folders, path);
        std::erase_if(undo_, [](const Undo& undo) { return undo.folders.empty(); });
        break;
      case Kind::kMakeFolder:
        undo_.push_back({{path.parent_path()}, [path] { std::filesystem::remove_all(path); }});
        break;
      case Kind::kReplace:
        NoteReplacement(path, Plain(change.target));
        break;
      case Kind::kExchange:
        NoteExchange(path, Plain(change.target));
        break;
      case Kind::kRemove:
        syncedBytes_.erase(path);
        break;
      case Kind::kAppend:
        break;
    }
  }

  void NoteReplacement(const Path& from, const Path& to) {
    const bool isThere = std::filesystem::is_regular_file(to);
    const std::vector<std::uint8_t> former = isThere ? ReadFile(to) : std::vector<std::uint8_t>();
    const std::uint64_t formerSynced = syncedBytes_.contains(to) ? syncedBytes_[to] : former.size();
    Rename(from, to);
    undo_.push_back({{to.parent_path()}, [this, from, to, isThere, former, formerSynced] {
                       std::filesystem::rename(to, from);
                       Rename(to, from);
                       if (!isThere) return;
                       WriteFile(to, former);
                       syncedBytes_[to] = formerSynced;
                     }});
  }

  void NoteExchange(const Path& a, const Path& b) {
    const Path aside = a.string() + ".exchange";
    const auto exchange = [this, a, b, aside] {
      Rename(a, aside);
      Rename(b, a);
      Rename(aside, b);
    };
    exchange();
    undo_.push_back({{a.parent_path()}, [=] {
                       std::filesystem::rename(a, aside);
                       std::filesystem::rename(b, a);
                       std::filesystem::rename(aside, b);
                       exchange();
                     }});
  }

  /// What is known of a file, or of the files of a folder, goes on under the new name.
  void Rename(const Path& from, const Path& to) {
    std::map<Path, std::uint64_t> renamed;
    for (const auto& [path, bytes] : syncedBytes_) {
      const Path relative = path.lexically_relative(from);
      const bool moves = !relative.empty() && *relative.begin() != "..";
      renamed[!moves ? path : relative == "." ? to : to / relative] = bytes;
    }
    syncedBytes_ = std::move(renamed);
  }

  std::mutex mutex_;
  Crash crash_;
  std::size_t chosen_;
  std::size_t count_ = 0;
  std::string place_;
  std::map<Path, std::uint64_t> syncedBytes_;
  std::vector<Undo> undo_;
};

}  // namespace oocpctest
