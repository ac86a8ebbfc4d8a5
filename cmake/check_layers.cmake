# Fails when a source includes a header of a layer it may not use (cmake/layers.cmake):
#   cmake -DSOURCE_DIR=<tree> [-DLAYER=<layer>] [-DSTAMP=<file>] -P cmake/check_layers.cmake
# Checks every .cpp, .h and .in file of LAYER's folders (of every layer when none is named) and
# touches STAMP when all is well. The build runs it for each layer before compiling the layer.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/layers.cmake)

# Crossings tolerated while they are being removed, each "<file> -> <included header>". Empty:
# keep it so, never add to it.
set(PICTAVO_LAYER_ALLOWANCES)

if(NOT SOURCE_DIR)
  message(FATAL_ERROR "check_layers: SOURCE_DIR is not set")
endif()

# The layer and folder a path (relative to the tree) belongs to: the longest folder that holds
# it, so engine/tools/x.h is the tools layer's and engine/x.h the engine's.
function(layer_of path out_layer out_dir)
  set(best_layer "")
  set(best_dir "")
  foreach(layer IN LISTS PICTAVO_LAYERS)
    foreach(dir IN LISTS PICTAVO_LAYER_${layer}_DIRS)
      string(LENGTH "${dir}" n)
      string(LENGTH "${best_dir}" best_n)
      string(FIND "${path}" "${dir}/" at)
      if(at EQUAL 0 AND n GREATER best_n)
        set(best_layer ${layer})
        set(best_dir ${dir})
      endif()
    endforeach()
  endforeach()
  set(${out_layer} "${best_layer}" PARENT_SCOPE)
  set(${out_dir} "${best_dir}" PARENT_SCOPE)
endfunction()

if(LAYER)
  if(NOT LAYER IN_LIST PICTAVO_LAYERS)
    message(FATAL_ERROR "check_layers: unknown layer '${LAYER}' (${PICTAVO_LAYERS})")
  endif()
  set(layers ${LAYER})
else()
  set(layers ${PICTAVO_LAYERS})
endif()

set(problems "")
foreach(layer IN LISTS layers)
  pictavo_layer_closure(${layer} allowed)
  foreach(dir IN LISTS PICTAVO_LAYER_${layer}_DIRS)
    file(GLOB_RECURSE files RELATIVE ${SOURCE_DIR} ${SOURCE_DIR}/${dir}/*.cpp
         ${SOURCE_DIR}/${dir}/*.h ${SOURCE_DIR}/${dir}/*.in)
    list(SORT files)
    foreach(file IN LISTS files)
      layer_of("${file}" file_layer file_dir)
      if(NOT file_layer STREQUAL layer)
        continue()  # engine/tools/ under engine/: checked as its own layer
      endif()
      file(STRINGS ${SOURCE_DIR}/${file} lines REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
      foreach(line IN LISTS lines)
        if(NOT line MATCHES "include[ \t]*\"([^\"]+)\"")
          continue()
        endif()
        set(header "${CMAKE_MATCH_1}")
        layer_of("${header}" header_layer header_dir)
        if(header_layer STREQUAL "" OR header_layer STREQUAL layer OR header_layer IN_LIST allowed)
          continue()
        endif()
        if("${file} -> ${header}" IN_LIST PICTAVO_LAYER_ALLOWANCES)
          continue()
        endif()
        string(APPEND problems
               "\n  ${file}: ${file_dir} may not include ${header_dir} (${header})")
      endforeach()
    endforeach()
  endforeach()
endforeach()

if(problems)
  message(FATAL_ERROR "Layer check failed:${problems}\n"
          "Each layer uses only the layers below it (cmake/layers.cmake).")
endif()
if(STAMP)
  file(TOUCH ${STAMP})
endif()
