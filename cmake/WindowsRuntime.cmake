# Unloading a DLL leaves nothing of the compiler's runtime behind; see WindowsRuntime.cpp. Libraries
# of others are built with it, too: scripts/windows-libraries.sh.
set(OOCPC_RUNTIME_CALLS TlsAlloc TlsFree CreateEventA CreateSemaphoreA DuplicateHandle CloseHandle)

function(oocpc_let_go_when_unloaded library)
  if(NOT MINGW)
    return()
  endif()
  target_sources(${library} PRIVATE ${PROJECT_SOURCE_DIR}/cmake/WindowsRuntime.cpp)
  foreach(call IN LISTS OOCPC_RUNTIME_CALLS)
    target_link_options(${library} PRIVATE LINKER:--wrap=__imp_${call})
  endforeach()
endfunction()
