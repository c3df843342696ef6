# Reads the symbol table of the shared library and compares it with what the library promises.
# Usage: cmake -DNM=nm -DLIBRARY=libOOCPointCloudTarn.so [-DSANITIZERS=address] -P check_exports.cmake
#        cmake -DOBJDUMP=objdump -DCXXFILT=c++filt -DLIBRARY=OOCPointCloudTarn.dll -P …

cmake_minimum_required(VERSION 3.22)

if(SANITIZERS)
  message("SKIPPED: sanitizers (${SANITIZERS}) add symbols of their own")
  return()
endif()

set(pointCloudMembers
  AddContainer AttachDataRepository CloneContainer CloneLODContainer DestroyDataRepository
  GetContainer GetDataRepository GetIteration GetLODNodeCache GetLODPayload GetMetaDataContainer
  GetMetaDataNames GetMetaDataSize GetOOCNode GetOOCRootNode GetOrigin GetPayload GetSeedPlacement
  GetSettings GetTimePoint GetTimePoints GetUpdateIterationCount IsRegistered LoadChunkSelection
  ParseHeader SetMortonSeed SetSeedPlacement UnsetMortonSeed)
set(expressionMembers ComputeBooleanAST GetErrorIterator SetInputString SetPointCloud)
set(evaluatorMembers
  CompleteBufferMetaDatas CompleteMetaDatas EvaluateExpression GetMetaDatas InitializeQueries)

if(OBJDUMP)
  execute_process(COMMAND ${OBJDUMP} -p ${LIBRARY} COMMAND ${CXXFILT}
                  OUTPUT_VARIABLE table RESULT_VARIABLE failed)
  # Of the names there are, those under the heading of the export table.
  string(REGEX REPLACE "^.*\\[Ordinal/Name Pointer\\] Table\n" "" table "${table}")
  string(REGEX REPLACE "\n\n.*$" "\n" table "${table}")
  string(REGEX REPLACE "\t\\[ *[0-9]+\\] " "0 T " table "${table}")
  set(withTypeNames FALSE)  # this compiler exports no names of types
else()
  execute_process(COMMAND ${NM} -D --defined-only -C ${LIBRARY}
                  OUTPUT_VARIABLE table RESULT_VARIABLE failed)
  set(withTypeNames TRUE)
endif()
if(failed OR NOT table)
  message(FATAL_ERROR "cannot read the symbol table of ${LIBRARY}")
endif()
string(REGEX MATCHALL "[^\n]+" lines "${table}")

set(exported "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^[0-9a-fA-F ]* [A-Za-z] " "" symbol "${line}")
  string(REGEX REPLACE "\\(.*$" "" symbol "${symbol}")
  string(REGEX REPLACE "\\[abi:[a-z0-9]+\\]$" "" symbol "${symbol}")
  list(APPEND exported "${symbol}")
endforeach()
list(REMOVE_DUPLICATES exported)

set(required VELMORA_WORKS_QXB2_INTERNAL_OOCPointCloudTarn)
function(require_class class)
  set(names "vtable for ${class}" "typeinfo for ${class}" "${class}::${class}"
            "${class}::~${class}" "${class}::operator=")
  if(withTypeNames)
    list(APPEND names "typeinfo name for ${class}")
  endif()
  foreach(member IN LISTS ARGN)
    list(APPEND names "${class}::${member}")
  endforeach()
  set(required ${required} ${names} PARENT_SCOPE)
endfunction()
require_class(TarnOOCPointCloud ${pointCloudMembers})
require_class(TarnOOCStringQueryExpression ${expressionMembers})
require_class(TarnOOCBooleanExpressionEvaluator ${evaluatorMembers})

set(complaints "")
foreach(symbol IN LISTS exported)
  if(NOT symbol IN_LIST required)
    string(APPEND complaints "\n  exported but not promised: ${symbol}")
  endif()
endforeach()
foreach(symbol IN LISTS required)
  if(NOT symbol IN_LIST exported)
    string(APPEND complaints "\n  promised but not exported: ${symbol}")
  endif()
endforeach()
if(complaints)
  message(FATAL_ERROR "${LIBRARY}:${complaints}")
endif()
message("exactly the promised symbols are exported")
