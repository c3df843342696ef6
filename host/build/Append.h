// Appends scans to a repository, as its next update iteration.
#pragma once

#include <functional>
#include <memory>

#include "host/build/Import.h"
#include "host/cloud/Cloud.h"

namespace tarnhost {

/// Appends the scans of `options.inputs` to the repository `options.output`; `overwrite` is not
/// looked at. The new iteration refers to every node and block of the former ones in which nothing
/// changes; these stay readable as they are. The octree grows where points lie outside its cube.
///
/// `report` tells what is new: points, written nodes and blocks, bytes. Scans without points make
/// no iteration. Whatever goes wrong, the repository holds what it held before.
///
/// Errors: those of the scans; kScansDiffer when they do not go with the cloud, or lie too far from
/// it; kIndexOutOfRange when the time point is not later than that of the newest iteration;
/// kBeingWritten when another writer is at work; those of opening and reading the repository;
/// kNoSpace, kAccessDenied, kIoError; kStopped; kOutOfMemory.
Outcome AppendScans(const ImportOptions& options, ImportReport& report);

/// The same to any store, for hosts with a storage of their own. `open` opens the cloud as it was
/// committed; it is called when the store is ready to be written to.
Outcome AppendIntoStore(const ImportOptions& options, std::unique_ptr<OOCPCIStreamStore> store,
                        const std::function<Outcome(std::unique_ptr<Cloud>&)>& open,
                        const std::filesystem::path& temporaryFolder, ImportReport& report);

}  // namespace tarnhost
