// Brings a damaged repository back to its newest intact iteration.
#include "host/repair/Repair.h"

#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCRepositoryWriter.h>

#include <algorithm>
#include <new>
#include <utility>

#include "OOCPointCloud/repository/FileSystem.h"
#include "host/cloud/Damage.h"
#include "host/common/ImportFolders.h"
#include "host/repair/EarlierState.h"
#include "host/repair/RebuildLevels.h"
#include "host/repair/RepairView.h"

namespace tarnhost {

namespace fs = std::filesystem;
namespace result = oocpc::result;

using oocpc::Failed;
using oocpc::detail::IsNameTaken;
using Bytes = std::vector<std::uint8_t>;

namespace {

// A value of its own: the library exports the constant's value only, not its address.
constexpr const char* kMainCopyName = OOCPCFolderStreamStore::kMainCopyFileName;

/// One repair, from the main stream that is there to the one that takes its place.
class Repair {
 public:
  Repair(const RepairOptions& options, RepairReport& report)
      : options_(options), report_(report), folder_(options.repository) {}

  Outcome Run() {
    std::unique_ptr<OOCPCFolderStreamStore> store;
    if (Outcome outcome = Open(store); !outcome.Ok()) return outcome;
    if (Outcome outcome = ReadCatalogue(); !outcome.Ok()) return outcome;
    if (Outcome outcome = FindState(); !outcome.Ok()) return outcome;
    report_.changesMain = report_.fromCopy || isAnother_ || CopyIsDamaged();
    if (!report_.changesMain || options_.dryRun) return Outcome::Success();
    if (Outcome outcome = BackUp(); !outcome.Ok()) return outcome;
    const HRESULT code = Commit(*store);
    return Failed(code) ? Outcome::FromCode(code, folder_.string()) : Outcome::Success();
  }

 private:
  /// No stream is mapped any longer when it is done: not every system lets mapped files be cut.
  Outcome FindState() {
    EarlierState states(folder_, catalogue_);
    report_.iterationsBefore = states.CountIterations();
    OOCPCUpdateIteration record;
    if (report_.iterationsBefore > 0 &&
        states.ReadIteration(report_.iterationsBefore - 1, record)) {
      report_.pointsBefore = record.pointCount;
    }
    if (Outcome outcome = FindIntact(states); !outcome.Ok()) return outcome;
    const std::uint64_t last = std::min(report_.iterationsAfter, report_.iterationsBefore);
    if (last > 0 && states.ReadIteration(last - 1, record)) {
      report_.pointsAfter = record.pointCount;
    }
    return Outcome::Success();
  }

  /// A trial takes no lock: it must leave nothing behind.
  Outcome Open(std::unique_ptr<OOCPCFolderStreamStore>& store) const {
    if (!options_.dryRun) {
      if (Outcome outcome = PutBackSetAside(folder_); !outcome.Ok()) return outcome;
    }
    const bool isThere = IsNameTaken(folder_ / OOCPCFolderStreamStore::kMainFileName) ||
                         IsNameTaken(folder_ / kMainCopyName);
    if (!isThere) return Outcome::FromCode(result::kNotARepository, folder_.string());
    if (options_.dryRun) return Outcome::Success();
    const HRESULT code = OOCPCFolderStreamStore::Open(folder_, store);
    return Failed(code) ? Outcome::FromCode(code, folder_.string()) : Outcome::Success();
  }

  HRESULT ReadMain(const char* name) {
    const HRESULT code = oocpc::detail::ReadWholeFile(folder_ / name, state_.main);
    return Failed(code) ? code : OOCPCDecodeMainStream(state_.main, catalogue_);
  }

  /// From the main stream, or where that is not sound, from its copy.
  Outcome ReadCatalogue() {
    const HRESULT code = ReadMain(OOCPCFolderStreamStore::kMainFileName);
    if (!Failed(code)) return Outcome::Success();
    report_.fromCopy = true;
    report_.faultCount = 1;
    report_.faults.push_back(
        {code, OOCPCFolderStreamStore::kMainFileName, 0, 0, Outcome::FromCode(code).what});
    if (!Failed(ReadMain(kMainCopyName))) return Outcome::Success();
    return Outcome::Failure(code, "neither the main stream nor its copy is sound", folder_.string(),
                            "take the repository from a backup or import it again");
  }

  Outcome Verify(const RepositoryState& state, VerifyReport& report) const {
    const auto open = [&](std::unique_ptr<OOCPCStreamRepository>& repository) {
      repository = std::make_unique<RepairView>(folder_, state);
      return result::kOk;
    };
    return VerifyStreams(open, folder_, options_.progress, report);
  }

  /// Puts the state with the newest intact iteration as its last into `state_`.
  Outcome FindIntact(EarlierState& states) {
    VerifyReport found;
    if (Outcome outcome = Verify(state_, found); !outcome.Ok()) return outcome;
    const HRESULT first = found.faults.empty() ? result::kBadRecord : found.faults[0].code;
    report_.faultCount += found.faultCount;
    report_.faults.insert(report_.faults.end(), found.faults.begin(), found.faults.end());
    // Its bytes are sound, and must not be given up.
    if (found.needsLaterVersion) {
      return Outcome::Failure(result::kUnknownVersion,
                              "a later version of this program wrote a part of it",
                              folder_.string(), "repair it with that version");
    }
    std::uint64_t count = report_.iterationsBefore;
    if (found.faultCount == 0 && count == 0) return Outcome::Success();
    if (count > 0 && TakeIfIntact(found, count - 1)) return Outcome::Success();
    for (; count > 0; --count) {
      const std::uint64_t last = count - 1;
      const bool isNewest = count == report_.iterationsBefore;
      const bool isKnownDamaged =
          last < found.intactIterations.size() && !found.intactIterations[last];
      if (isKnownDamaged && !(isNewest && found.hasLevelFaults)) continue;
      RepositoryState state;
      VerifyReport report;
      if (!states.Find(last, state)) continue;
      if (Outcome outcome = Verify(state, report); !outcome.Ok()) return outcome;
      bool isTaken = TakeIfIntact(report, last);
      if (!isTaken && isNewest && report.hasLevelFaults) {
        Outcome outcome = AddLevels(states, state, isTaken);
        if (!outcome.Ok()) return outcome;
      }
      if (!isTaken) continue;
      state_ = std::move(state);
      isAnother_ = true;
      report_.lostSources = state_.lostSources;
      return Outcome::Success();
    }
    return Outcome::Failure(first, "no iteration is intact", folder_.string(),
                            "take the repository from a backup or import it again; tarn export "
                            "--skip-damaged writes the points that can still be read");
  }

  /// Where nothing else is wrong with the last iteration, a further one has its points, and levels
  /// of detail that are made anew.
  Outcome AddLevels(EarlierState& states, RepositoryState& state, bool& isTaken) {
    std::unique_ptr<Cloud> cloud;
    BuiltLod lod;
    VerifyReport report;
    const std::uint64_t number = report_.iterationsBefore;
    Outcome outcome = Cloud::Attach(std::make_unique<RepairView>(folder_, state), folder_, cloud);
    if (outcome.Ok()) outcome = RebuildLevels(*cloud, catalogue_, number, lod);
    cloud.reset();
    if (!outcome.Ok() && !IsDamage(outcome.code)) return outcome;
    // Else more than levels is damaged.
    if (!outcome.Ok() || !states.AddLevels(lod, state)) return Outcome::Success();
    outcome = Verify(state, report);
    isTaken = outcome.Ok() && TakeIfIntact(report, number);
    report_.hasOtherLevels = isTaken;
    return outcome;
  }

  bool TakeIfIntact(const VerifyReport& found, std::uint64_t last) {
    if (last >= found.intactIterations.size() || !found.intactIterations[last]) return false;
    report_.iterationsAfter = last + 1;
    for (std::uint64_t i = 0; i < last; ++i) {
      if (!found.intactIterations[i]) report_.damagedIterations.push_back(i);
    }
    return true;
  }

  /// A commit renews the copy, too.
  bool CopyIsDamaged() {
    Bytes copy;
    OOCPCCatalogue catalogue;
    HRESULT code = oocpc::detail::ReadWholeFile(folder_ / kMainCopyName, copy);
    if (!Failed(code)) code = OOCPCDecodeMainStream(copy, catalogue);
    if (!Failed(code)) return false;
    ++report_.faultCount;
    report_.faults.push_back({code, kMainCopyName, 0, 0, WhatIsWrongWithCopy(code)});
    return true;
  }

  /// What is added exists for nobody before the main stream names it.
  HRESULT Commit(OOCPCFolderStreamStore& store) const {
    for (const auto& [name, added] : state_.added) {
      HRESULT code = store.Truncate(name, added.position);  // what an interrupted writer left
      if (!Failed(code)) code = store.Append(name, added.bytes);
      if (!Failed(code)) code = store.Sync(name);
      if (Failed(code)) return code;
    }
    return store.ReplaceMain(state_.main);
  }

  Outcome BackUp() {
    Bytes former;
    const HRESULT read =
        oocpc::detail::ReadWholeFile(folder_ / OOCPCFolderStreamStore::kMainFileName, former);
    if (read == result::kStreamMissing) return Outcome::Success();
    if (Failed(read)) return Outcome::FromCode(read, folder_.string());
    fs::path backup = folder_ / "main.before-repair";
    for (int number = 2; IsNameTaken(backup); ++number) {
      backup = folder_ / ("main.before-repair-" + std::to_string(number));
    }
    oocpc::detail::AppendFile file;
    HRESULT code = oocpc::detail::AppendFile::Open(backup, file);
    if (!Failed(code)) code = file.Append(former);
    if (!Failed(code)) code = file.Sync();
    if (Failed(code)) return Outcome::FromCode(code, backup.string());
    report_.backup = backup;
    return Outcome::Success();
  }

  const RepairOptions& options_;
  RepairReport& report_;
  fs::path folder_;
  RepositoryState state_;
  bool isAnother_ = false;  ///< it is not the one that was there
  OOCPCCatalogue catalogue_;
};

}  // namespace

Outcome RepairRepository(const RepairOptions& options, RepairReport& report) {
  report = {};
  try {
    return Repair(options, report).Run();
  } catch (const std::bad_alloc&) {
    return Outcome::FromCode(result::kOutOfMemory);
  }
}

}  // namespace tarnhost
