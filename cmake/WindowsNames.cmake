# DLLs go by their plain names, as hosts on Windows expect, whichever compiler made them.
if(WIN32)
  set(CMAKE_SHARED_LIBRARY_PREFIX "")
endif()
