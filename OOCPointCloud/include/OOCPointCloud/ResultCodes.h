// The one home of every result code: a named constant, and its name and meaning as text.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>

#include <span>

namespace oocpc {

namespace result {
// NOLINTBEGIN(bugprone-narrowing-conversions): codes are written as the unsigned patterns that
// users see.
constexpr HRESULT Code(std::uint32_t pattern) { return static_cast<HRESULT>(pattern); }

inline constexpr HRESULT kOk = 0;
inline constexpr HRESULT kNothingDone = 1;
inline constexpr HRESULT kFail = Code(0x80004005u);

// Repository, header and registry.
inline constexpr HRESULT kChunkPayloadShort = Code(0xA103001Eu);
inline constexpr HRESULT kNoRepository = Code(0xA1030080u);
inline constexpr HRESULT kBadHeader = Code(0xA1030086u);
inline constexpr HRESULT kNullContainer = Code(0xA1030089u);
inline constexpr HRESULT kContainerSlotTaken = Code(0xA103008Au);
inline constexpr HRESULT kNoAccelerator = Code(0xA103008Bu);
inline constexpr HRESULT kNoPositions = Code(0xA103008Du);
inline constexpr HRESULT kDuplicateContainer = Code(0xA103008Fu);
inline constexpr HRESULT kSecondAccelerator = Code(0xA1030090u);
inline constexpr HRESULT kSecondUpdateIterations = Code(0xA1030091u);
inline constexpr HRESULT kSecondPositions = Code(0xA1030092u);
inline constexpr HRESULT kSecondLod = Code(0xA1030093u);
inline constexpr HRESULT kUnknownMetaDataChunk = Code(0xA1030099u);
inline constexpr HRESULT kSecondRepositoryInformation = Code(0xA10300A0u);
inline constexpr HRESULT kContainerNotAllocated = Code(0xA10D000Eu);
inline constexpr HRESULT kContainerNotCloned = Code(0xA10D0084u);
inline constexpr HRESULT kNameRegistered = Code(0xA10D0088u);
inline constexpr HRESULT kAcceleratorNotCloned = Code(0xA10D0089u);

// Level-of-detail node caches.
inline constexpr HRESULT kNoLodStream = Code(0xA1070002u);
inline constexpr HRESULT kWorkerNotCreated = Code(0xA107000Eu);
inline constexpr HRESULT kLodShortRead = Code(0xA107001Eu);
inline constexpr HRESULT kLodStreamUnusable = Code(0xA107006Eu);
inline constexpr HRESULT kLodNoRepository = Code(0xA1070080u);
inline constexpr HRESULT kLodNodeNotFound = Code(0xA1070085u);
inline constexpr HRESULT kLodLengthMismatch = Code(0xA1070089u);
inline constexpr HRESULT kLodBadVersion = Code(0xA107008Au);
inline constexpr HRESULT kLodPayloadTooLong = Code(0xA107008Du);
inline constexpr HRESULT kLodNoOwner = Code(0xA1070090u);
inline constexpr HRESULT kLodContainerMissing = Code(0xA1070091u);
inline constexpr HRESULT kLodNoContainerForName = Code(0xA1070095u);
inline constexpr HRESULT kLodNoLevelContainer = Code(0xA1070096u);

// Update iterations and accelerator.
inline constexpr HRESULT kNoUpdateIterations = Code(0xA1100083u);
inline constexpr HRESULT kNoAcceleratorContainer = Code(0xA1100084u);

// Storage: streams, records, columns. These belong to the companion library alone.
inline constexpr HRESULT kStreamMissing = Code(0xA1200002u);     // a named stream is not there
inline constexpr HRESULT kStreamShort = Code(0xA120001Eu);       // fewer bytes than promised
inline constexpr HRESULT kIoError = Code(0xA120001Du);           // the system refused; see errno
inline constexpr HRESULT kNoSpace = Code(0xA1200070u);           // the disk is full
inline constexpr HRESULT kAccessDenied = Code(0xA1200005u);      // no permission
inline constexpr HRESULT kNotARepository = Code(0xA1200003u);    // no main stream at that place
inline constexpr HRESULT kAlreadyExists = Code(0xA1200050u);     // the place is taken
inline constexpr HRESULT kSeekOutOfRange = Code(0xA1200019u);    // position behind the end
inline constexpr HRESULT kBadStreamName = Code(0xA120007Bu);     // not a name of a stream
inline constexpr HRESULT kBadRecord = Code(0xA120000Du);         // a record contradicts itself
inline constexpr HRESULT kChecksumMismatch = Code(0xA1200017u);  // stored bytes were altered
inline constexpr HRESULT kUnknownVersion = Code(0xA1200081u);    // written by a newer program
inline constexpr HRESULT kIndexOutOfRange = Code(0xA1200057u);   // no such node, block, iteration
inline constexpr HRESULT kUnknownEncoding = Code(0xA1200082u);   // block encoding not known
inline constexpr HRESULT kNoRepositoryInformation = Code(0xA1200083u);  // main stream lacks it
inline constexpr HRESULT kCatalogueMismatch = Code(0xA1200084u);        // main stream was altered
inline constexpr HRESULT kBeingWritten = Code(0xA1200021u);             // another writer is at work
inline constexpr HRESULT kStringNotFound = Code(0xA1200085u);           // no such dictionary entry

// What the program around the library adds: scans, queries as texts, running jobs.
inline constexpr HRESULT kScanNotRecognised = Code(0xA1300001u);  // not a scan file we know
inline constexpr HRESULT kScanTruncated = Code(0xA1300002u);      // ends before its points do
inline constexpr HRESULT kScanContradictory = Code(0xA1300003u);  // its header states nonsense
inline constexpr HRESULT kScanUnsupported = Code(0xA1300004u);    // a kind not handled yet
inline constexpr HRESULT kScansDiffer = Code(0xA1300005u);        // files that make no one cloud
inline constexpr HRESULT kQueryRejected = Code(0xA1300006u);      // a text that cannot be asked
inline constexpr HRESULT kStopped = Code(0xA1300007u);            // the user asked to stop
inline constexpr HRESULT kPictureRefused = Code(0xA1300008u);     // no picture can be made so
inline constexpr HRESULT kOutOfMemory = Code(0xA130000Eu);        // memory ran out
// NOLINTEND(bugprone-narrowing-conversions)
}  // namespace result

/// What a person needs to know of a result code.
struct ResultCodeInfo {
  HRESULT code;
  const char* name;     ///< the constant's name, for instance "kBadHeader"
  const char* meaning;  ///< one sentence, no final stop
  const char* remedy;   ///< what to do about it, one sentence, no final stop; "" for successes
};

/// Every code there is, in the order of this header.
[[nodiscard]] OOCPOINTCLOUD_API std::span<const ResultCodeInfo> AllResultCodes();

/// The entry of a code, or null when the code is none of this system's.
[[nodiscard]] OOCPOINTCLOUD_API const ResultCodeInfo* FindResultCode(HRESULT code);

[[nodiscard]] constexpr bool Failed(HRESULT code) { return code < 0; }

}  // namespace oocpc
