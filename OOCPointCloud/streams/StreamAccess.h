// Opening named streams and reading exact ranges of them, with every range checked.
#pragma once

#include <OOCPointCloud/Types.h>

#include <memory>
#include <span>
#include <string_view>
#include <vector>

class OOCPCIDataRepository;
class OOCPCIInputStream;

namespace oocpc {

/// Opens a named stream unless `stream` is open already. kNoRepository without a repository,
/// kStreamMissing, kIoError when it can't be read from; these leave `stream` null.
[[nodiscard]] HRESULT OpenNamedStream(OOCPCIDataRepository* repository, std::string_view name,
                                      std::unique_ptr<OOCPCIInputStream>& stream);

/// Fills `destination` from `offset` on. kStreamShort when the stream does not have these bytes.
[[nodiscard]] HRESULT ReadExactly(OOCPCIInputStream& stream, std::uint64_t offset,
                                  std::span<std::uint8_t> destination);

/// The bytes [offset, offset + length): the stream's own where it lends them, else read into
/// `scratch`. Valid until `scratch` changes or the stream goes. kStreamShort allocates nothing.
[[nodiscard]] HRESULT ViewOrRead(OOCPCIInputStream& stream, std::uint64_t offset,
                                 std::uint64_t length, std::vector<std::uint8_t>& scratch,
                                 std::span<const std::uint8_t>& bytes);

}  // namespace oocpc
