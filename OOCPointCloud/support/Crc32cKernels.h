// The two ways in which CRC-32C is computed; tests compare them. Everyone else calls Crc32c.
#pragma once

#include <OOCPointCloud/Export.h>

#include <cstdint>
#include <span>

namespace oocpc::detail {

/// Eight bytes a step through tables; runs everywhere.
[[nodiscard]] OOCPOINTCLOUD_API std::uint32_t Crc32cByTable(std::span<const std::uint8_t> bytes,
                                                            std::uint32_t before);

/// True when this processor has an instruction for CRC-32C that this build can use.
[[nodiscard]] OOCPOINTCLOUD_API bool HasCrc32cInstruction();

/// Through the processor's instruction; only where HasCrc32cInstruction().
[[nodiscard]] OOCPOINTCLOUD_API std::uint32_t Crc32cByInstruction(
    std::span<const std::uint8_t> bytes, std::uint32_t before);

}  // namespace oocpc::detail
