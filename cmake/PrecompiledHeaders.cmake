# Headers that most files of a target include, compiled once. A build from nothing takes half as
# long; each file still names what it includes, and other builds check that it does.

option(OOCPC_PRECOMPILED_HEADERS "Compile common headers once" OFF)

if(OOCPC_PRECOMPILED_HEADERS)
  add_compile_options(-fpch-preprocess)  # with which ccache can work
endif()

set(OOCPC_COMMON_HEADERS
  <algorithm> <array> <atomic> <chrono> <cmath> <cstdint> <cstring> <filesystem> <functional> <map>
  <memory> <mutex> <numeric> <optional> <random> <set> <span> <string> <string_view> <thread>
  <unordered_map> <utility> <vector>)

function(oocpc_precompile target)
  if(OOCPC_PRECOMPILED_HEADERS)
    target_precompile_headers(${target} PRIVATE ${OOCPC_COMMON_HEADERS} ${ARGN})
  endif()
endfunction()
