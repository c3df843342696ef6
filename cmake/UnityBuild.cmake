# With CMAKE_UNITY_BUILD, several files of a target are compiled as one, which takes a fraction of the
# time of a build from nothing. Ordinary builds compile each file alone, and so check that each
# names what it includes.

option(OOCPC_UNITY_TESTS "Compile several files of the tests as one, also where the rest is not" OFF)

# Files of this folder that stay alone: they give names, macros among them, another meaning than
# their neighbours.
function(oocpc_compile_alone)
  set_source_files_properties(${ARGN} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()
