// What each result code means to a person, and what that person can do about it.
#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>

namespace oocpc {
namespace {

constexpr const char* kAskOtherCopy =
    "check the disk and take the repository from a backup or import it again";
constexpr const char* kAskRepair =
    "tarn verify tells what is damaged, and tarn repair brings back what is intact; the rest has "
    "to "
    "come from a backup, or be imported again";
constexpr const char* kReportDefect =
    "this is a defect of the calling program; please report it with the steps that led to it";
constexpr const char* kFreeMemory = "close other programs or use a machine with more memory";
constexpr const char* kAttachFirst = "attach a data repository and call again";
constexpr const char* kNewerProgram = "open it with a newer version of this program";

constexpr ResultCodeInfo kInfos[] = {
    {result::kOk, "kOk", "done", ""},
    {result::kNothingDone, "kNothingDone",
     "nothing was done: there was no repository or no complete header to read, or another caller "
     "was first",
     ""},
    {result::kFail, "kFail", "the operation failed",
     "check the query text or the arguments of the call"},

    {result::kChunkPayloadShort, "kChunkPayloadShort",
     "the repository's main stream ends in the middle of a chunk", kAskRepair},
    {result::kNoRepository, "kNoRepository", "no data repository is attached", kAttachFirst},
    {result::kBadHeader, "kBadHeader",
     "this is not a point-cloud repository, or it is of a newer format version",
     "check the path, or open it with a newer version of this program; if the main stream was "
     "damaged, tarn repair brings it back from its copy"},
    {result::kNullContainer, "kNullContainer", "a null container was given to the registry",
     kReportDefect},
    {result::kContainerSlotTaken, "kContainerSlotTaken",
     "a core container was already in place when the repository was attached", kReportDefect},
    {result::kNoAccelerator, "kNoAccelerator", "the repository has no usable octree accelerator",
     kAskOtherCopy},
    {result::kNoPositions, "kNoPositions", "the repository has no point positions", kAskOtherCopy},
    {result::kDuplicateContainer, "kDuplicateContainer",
     "the same container, or a metadata container of the same name, is already registered",
     "give each attribute a name of its own"},
    {result::kSecondAccelerator, "kSecondAccelerator",
     "the repository states its octree accelerator twice", kAskOtherCopy},
    {result::kSecondUpdateIterations, "kSecondUpdateIterations",
     "the repository states its update iterations twice", kAskOtherCopy},
    {result::kSecondPositions, "kSecondPositions",
     "the repository states its point positions twice, or their name is already registered",
     kAskOtherCopy},
    {result::kSecondLod, "kSecondLod", "the repository states its level of detail twice",
     kAskOtherCopy},
    {result::kUnknownMetaDataChunk, "kUnknownMetaDataChunk",
     "the repository holds a kind of attribute that this version does not know", kNewerProgram},
    {result::kSecondRepositoryInformation, "kSecondRepositoryInformation",
     "the repository states its repository information twice", kAskOtherCopy},
    {result::kContainerNotAllocated, "kContainerNotAllocated",
     "there was not enough memory for a core container", kFreeMemory},
    {result::kContainerNotCloned, "kContainerNotCloned", "a container could not be copied",
     kFreeMemory},
    {result::kNameRegistered, "kNameRegistered", "a container of that name is already registered",
     "choose another name"},
    {result::kAcceleratorNotCloned, "kAcceleratorNotCloned",
     "the octree accelerator could not be copied", kFreeMemory},

    {result::kNoLodStream, "kNoLodStream",
     "the repository has no level of detail, or its stream could not be opened",
     "import the scan again to get a level of detail"},
    {result::kWorkerNotCreated, "kWorkerNotCreated",
     "the background thread that loads nodes could not be started",
     "close other programs and try again"},
    {result::kLodShortRead, "kLodShortRead",
     "the level of detail ends before a header or node record is complete", kAskRepair},
    {result::kLodStreamUnusable, "kLodStreamUnusable",
     "the stream of the level of detail was opened but cannot be read", kAskRepair},
    {result::kLodNoRepository, "kLodNoRepository",
     "the level-of-detail cache has no repository to read from", kAttachFirst},
    {result::kLodNodeNotFound, "kLodNodeNotFound", "there is no such level-of-detail node",
     "ask for a level and index that the iteration has"},
    {result::kLodLengthMismatch, "kLodLengthMismatch",
     "a level-of-detail block is not as long as its header states", kAskRepair},
    {result::kLodBadVersion, "kLodBadVersion",
     "the level of detail is of a format version that is not known", kNewerProgram},
    {result::kLodPayloadTooLong, "kLodPayloadTooLong",
     "a level-of-detail block states more than 4 GiB of payload", kAskRepair},
    {result::kLodNoOwner, "kLodNoOwner", "the level-of-detail cache belongs to no point cloud",
     kReportDefect},
    {result::kLodContainerMissing, "kLodContainerMissing",
     "the level-of-detail container went missing after its stream was opened", kReportDefect},
    {result::kLodNoContainerForName, "kLodNoContainerForName",
     "there is no attribute of that name that has a level of detail",
     "ask for an attribute that the repository lists"},
    {result::kLodNoLevelContainer, "kLodNoLevelContainer",
     "there is no container for the requested level of detail",
     "ask for a level that the iteration has"},

    {result::kNoUpdateIterations, "kNoUpdateIterations", "the repository has no update iterations",
     "import the scan again; repositories of this system always have at least one iteration"},
    {result::kNoAcceleratorContainer, "kNoAcceleratorContainer",
     "the point cloud has no octree accelerator", kAttachFirst},

    {result::kStreamMissing, "kStreamMissing", "a file of the repository is missing",
     "copy the repository again with all its files; where the file is lost, tarn verify tells what "
     "is "
     "damaged, and tarn repair brings back what is intact"},
    {result::kStreamShort, "kStreamShort", "a file of the repository is shorter than it must be",
     "copy the repository again; where the rest is lost, tarn verify tells what is damaged, and "
     "tarn "
     "repair brings back what is intact"},
    {result::kIoError, "kIoError", "the system could not read or write a file",
     "check that the disk is connected and sound, and that the path leads to what you expect"},
    {result::kNoSpace, "kNoSpace", "the disk is full or the quota is used up",
     "free space or choose a place on another disk; a repository needs about as much as its scans"},
    {result::kAccessDenied, "kAccessDenied", "the system does not permit access to a file",
     "check the owner and permissions of the file and of its folder"},
    {result::kNotARepository, "kNotARepository", "there is no repository at that place",
     "check the path; a repository is a folder whose name usually ends in .tarn"},
    {result::kAlreadyExists, "kAlreadyExists", "there already is something at that place",
     "choose another name, or move what is there out of the way"},
    {result::kSeekOutOfRange, "kSeekOutOfRange",
     "a position behind the end of a stream was asked for", kAskRepair},
    {result::kBadStreamName, "kBadStreamName", "that is not a name that a stream can have",
     "use 1 to 64 of the letters A to Z and a to z, digits and underscores, and not the word main"},
    {result::kBadRecord, "kBadRecord", "a stored record contradicts itself", kAskRepair},
    {result::kChecksumMismatch, "kChecksumMismatch",
     "stored bytes were altered after they were written", kAskRepair},
    {result::kUnknownVersion, "kUnknownVersion", "a stored record was written by a newer program",
     kNewerProgram},
    {result::kIndexOutOfRange, "kIndexOutOfRange", "there is no such node, block or iteration",
     "ask for one that the repository lists"},
    {result::kUnknownEncoding, "kUnknownEncoding",
     "a block of values is stored in an encoding that this version does not know", kNewerProgram},
    {result::kNoRepositoryInformation, "kNoRepositoryInformation",
     "the repository's main stream does not state what belongs to it", kAskRepair},
    {result::kCatalogueMismatch, "kCatalogueMismatch",
     "the repository's main stream was altered after it was written", kAskRepair},
    {result::kBeingWritten, "kBeingWritten", "another program is writing to the repository",
     "wait until it is done, then try again"},
    {result::kStringNotFound, "kStringNotFound",
     "a value refers to a text that the repository's dictionary does not hold", kAskRepair},
    {result::kScanNotRecognised, "kScanNotRecognised", "the file is not a scan of a known format",
     "give a LAS, LAZ, PLY, PCD, E57 or text file"},
    {result::kScanTruncated, "kScanTruncated", "the scan ends before all its points are there",
     "copy or download it again; what is there cannot be told from what is missing"},
    {result::kScanContradictory, "kScanContradictory", "the scan's header contradicts the file",
     "write the scan again with the program that made it"},
    {result::kScanUnsupported, "kScanUnsupported", "this kind of scan is not supported",
     "convert it as the message says"},
    {result::kScansDiffer, "kScansDiffer", "the scans cannot be joined to one cloud without loss",
     "import them into repositories of their own, or convert them to one format, scale and offset"},
    {result::kQueryRejected, "kQueryRejected", "the query cannot be asked of this cloud",
     "mend the text as the message says"},
    {result::kStopped, "kStopped", "the operation was stopped on request",
     "start it again; nothing half-made was left behind"},
    {result::kPictureRefused, "kPictureRefused", "the picture cannot be made as asked",
     "ask for what the message names"},
    {result::kOutOfMemory, "kOutOfMemory", "the memory was used up",
     "close other programs, or import fewer scans at once"},
};

}  // namespace

std::span<const ResultCodeInfo> AllResultCodes() { return kInfos; }

const ResultCodeInfo* FindResultCode(HRESULT code) {
  const auto found = std::ranges::find(kInfos, code, &ResultCodeInfo::code);
  return found == std::ranges::end(kInfos) ? nullptr : &*found;
}

}  // namespace oocpc
