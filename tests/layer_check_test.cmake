# Runs the layer check (cmake/check_layers.cmake) on small trees of its own:
#   cmake -DCHECK=<check_layers.cmake> -DWORK=<scratch folder> -P tests/layer_check_test.cmake
# A tree whose includes follow the layers passes; one with wrong includes fails and names each.
cmake_minimum_required(VERSION 3.25)

function(run_check root out_rc out_text)
  execute_process(COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${root} -P ${CHECK}
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  set(${out_rc} ${rc} PARENT_SCOPE)
  # The message wraps long lines; compare with the line breaks and indents folded.
  string(REGEX REPLACE "[ \t\n]+" " " text "${out}${err}")
  set(${out_text} "${text}" PARENT_SCOPE)
endfunction()

# Every arrow in the allowed direction, and engine/ using engine/tools below it.
set(clean ${WORK}/clean)
file(REMOVE_RECURSE ${clean})
file(WRITE ${clean}/platform/fs.h "#include <string>\n")
file(WRITE ${clean}/settings/keys.cpp "#include \"platform/fs.h\"\n#include \"settings/keys.h\"\n")
file(WRITE ${clean}/engine/tools/runner.cpp "#include \"settings/keys.h\"\n")
file(WRITE ${clean}/imaging/ie_io.cpp "#include \"platform/fs.h\"\n#include \"imaging/ie_io.h\"\n")
file(WRITE ${clean}/engine/job.cpp "#include \"engine/tools/runner.h\"\n#include \"pipeline/p.h\"\n")
file(WRITE ${clean}/cli/main.cpp "#include \"engine/job.h\"\n#include <vector>\n#include \"local.h\"\n")
run_check(${clean} rc text)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the clean tree failed the layer check: ${text}")
endif()

# The same tree with three wrong includes: a lower layer reaching up, engine/tools reaching into
# the engine that holds its folder, and imaging using engine/tools.
set(bad ${WORK}/bad)
file(REMOVE_RECURSE ${bad})
file(COPY ${clean}/ DESTINATION ${bad})
file(APPEND ${bad}/platform/fs.h "#include \"settings/keys.h\"\n")
file(APPEND ${bad}/engine/tools/runner.cpp "  #  include \"engine/job.h\"\n")
file(WRITE ${bad}/imaging/resample.cpp "#include \"engine/tools/runner.h\"\n")
run_check(${bad} rc text)
if(rc EQUAL 0)
  message(FATAL_ERROR "the tree with wrong includes passed the layer check")
endif()
foreach(expected
    "platform/fs.h: platform may not include settings (settings/keys.h)"
    "engine/tools/runner.cpp: engine/tools may not include engine (engine/job.h)"
    "imaging/resample.cpp: imaging may not include engine/tools (engine/tools/runner.h)")
  string(FIND "${text}" "${expected}" at)
  if(at LESS 0)
    message(FATAL_ERROR "the layer check did not report \"${expected}\": ${text}")
  endif()
endforeach()
foreach(unexpected "settings/keys.cpp" "imaging/ie_io.cpp" "cli/main.cpp")
  string(FIND "${text}" "${unexpected}:" at)
  if(NOT at LESS 0)
    message(FATAL_ERROR "the layer check blamed ${unexpected}, which is right: ${text}")
  endif()
endforeach()
message(STATUS "layer check: clean tree passes, wrong includes reported")
