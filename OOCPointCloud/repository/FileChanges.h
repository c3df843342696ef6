// What the implementations of FileSystem.h share.
#pragma once

#include "OOCPointCloud/repository/FileSystem.h"

namespace oocpc::detail {

/// True when the watcher, if there is one, lets the change be made; `answer` is what to answer
/// otherwise.
bool IsAllowed(const FileChange& change, HRESULT& answer, std::size_t* written = nullptr);

/// Lets two folders change their names by way of a third name.
[[nodiscard]] HRESULT ExchangeInSteps(const std::filesystem::path& a,
                                      const std::filesystem::path& b);

}  // namespace oocpc::detail
