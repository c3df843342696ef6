// Brings a damaged repository back to its newest intact iteration.
#include "host/repair/Repair.h"

#include <OOCPointCloud/OOCPCRepositoryWriter.h>

#include <new>

#include "OOCPointCloud/repository/FileSystem.h"
#include "host/repair/EarlierState.h"
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
    EarlierState states(folder_, catalogue_);
    report_.iterationsBefore = states.CountIterations();
    OOCPCUpdateIteration record;
    if (report_.iterationsBefore > 0 &&
        states.ReadIteration(report_.iterationsBefore - 1, record)) {
      report_.pointsBefore = record.pointCount;
    }
    if (Outcome outcome = FindIntact(states); !outcome.Ok()) return outcome;
    if (states.ReadIteration(report_.iterationsAfter - 1, record)) {
      report_.pointsAfter = record.pointCount;
    }
    report_.changesMain = report_.fromCopy || isAnother_ || CopyIsDamaged();
    if (!report_.changesMain || options_.dryRun) return Outcome::Success();
    if (Outcome outcome = BackUp(); !outcome.Ok()) return outcome;
    const HRESULT code = store->ReplaceMain(main_);
    return Failed(code) ? Outcome::FromCode(code, folder_.string()) : Outcome::Success();
  }

 private:
  /// A trial takes no lock: it must leave nothing behind.
  Outcome Open(std::unique_ptr<OOCPCFolderStreamStore>& store) const {
    const bool isThere = IsNameTaken(folder_ / OOCPCFolderStreamStore::kMainFileName) ||
                         IsNameTaken(folder_ / kMainCopyName);
    if (!isThere) return Outcome::FromCode(result::kNotARepository, folder_.string());
    if (options_.dryRun) return Outcome::Success();
    const HRESULT code = OOCPCFolderStreamStore::Open(folder_, store);
    return Failed(code) ? Outcome::FromCode(code, folder_.string()) : Outcome::Success();
  }

  HRESULT ReadMain(const char* name) {
    const HRESULT code = oocpc::detail::ReadWholeFile(folder_ / name, main_);
    return Failed(code) ? code : OOCPCDecodeMainStream(main_, catalogue_);
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

  Outcome Verify(const Bytes& main, VerifyReport& report) const {
    const auto open = [&](std::unique_ptr<OOCPCStreamRepository>& repository) {
      repository = std::make_unique<RepairView>(folder_, main);
      return result::kOk;
    };
    return VerifyStreams(open, folder_, options_.progress, report);
  }

  /// Puts the main stream with the newest intact iteration as its last into `main_`.
  Outcome FindIntact(EarlierState& states) {
    VerifyReport found;
    if (Outcome outcome = Verify(main_, found); !outcome.Ok()) return outcome;
    const HRESULT first = found.faults.empty() ? result::kBadRecord : found.faults[0].code;
    report_.faultCount += found.faultCount;
    report_.faults.insert(report_.faults.end(), found.faults.begin(), found.faults.end());
    std::uint64_t count = report_.iterationsBefore;
    if (found.faultCount == 0 && count == 0) return Outcome::Success();
    if (count > 0 && TakeIfIntact(found, count - 1)) return Outcome::Success();
    for (; count > 0; --count) {
      const std::uint64_t last = count - 1;
      if (last < found.intactIterations.size() && !found.intactIterations[last]) continue;
      Bytes main;
      VerifyReport report;
      if (!states.EncodeMain(last, main)) continue;
      if (Outcome outcome = Verify(main, report); !outcome.Ok()) return outcome;
      if (!TakeIfIntact(report, last)) continue;
      main_ = std::move(main);
      isAnother_ = true;
      report_.sourcesLost = report_.iterationsAfter == report_.iterationsBefore;
      return Outcome::Success();
    }
    return Outcome::Failure(first, "no iteration is intact", folder_.string(),
                            "take the repository from a backup or import it again");
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
    const fs::path place = folder_ / kMainCopyName;
    if (!IsNameTaken(place)) return false;
    HRESULT code = oocpc::detail::ReadWholeFile(place, copy);
    if (!Failed(code)) code = OOCPCDecodeMainStream(copy, catalogue);
    if (!Failed(code)) return false;
    if (report_.faultCount == 0) {
      report_.faultCount = 1;
      report_.faults.push_back({code, kMainCopyName, 0, 0, Outcome::FromCode(code).what});
    }
    return true;
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
  Bytes main_;
  bool isAnother_ = false;  ///< main_ is not the one that was there
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
