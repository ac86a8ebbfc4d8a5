# The layers, lowest first: each names its folders and the layers it builds on directly. What
# those build on comes with them, so a layer may use every layer below it on its path and
# nothing above or beside it. The root CMakeLists.txt makes one library per layer from this table,
# linked along these arrows; cmake/check_layers.cmake holds every #include to them.
set(PICTAVO_LAYERS platform settings tools imaging verify stages pipeline engine cli utl)

set(PICTAVO_LAYER_platform_DIRS platform)
set(PICTAVO_LAYER_platform_USES)
set(PICTAVO_LAYER_settings_DIRS settings)
set(PICTAVO_LAYER_settings_USES platform)
set(PICTAVO_LAYER_tools_DIRS engine/tools)
set(PICTAVO_LAYER_tools_USES settings platform)
set(PICTAVO_LAYER_imaging_DIRS imaging)
set(PICTAVO_LAYER_imaging_USES platform)
set(PICTAVO_LAYER_verify_DIRS verify)
set(PICTAVO_LAYER_verify_USES tools imaging)
set(PICTAVO_LAYER_stages_DIRS read edit write direct)
set(PICTAVO_LAYER_stages_USES verify tools imaging settings)
set(PICTAVO_LAYER_pipeline_DIRS pipeline)
set(PICTAVO_LAYER_pipeline_USES stages)
# engine/ without engine/tools: a file belongs to the layer with the longest matching folder.
set(PICTAVO_LAYER_engine_DIRS engine)
set(PICTAVO_LAYER_engine_USES pipeline)
# The two layers built as programs rather than libraries: the front end, and the tool folder's
# manifest and adapters (the adapters only take a name from engine/tools).
set(PICTAVO_LAYER_cli_DIRS cli)
set(PICTAVO_LAYER_cli_USES engine)
set(PICTAVO_LAYER_utl_DIRS utl)
set(PICTAVO_LAYER_utl_USES tools)
set(PICTAVO_PROGRAM_LAYERS cli utl)

# pictavo_layer_closure(<layer> <out>): every layer <layer> may use, directly or through another.
function(pictavo_layer_closure layer out)
  set(result)
  set(todo ${PICTAVO_LAYER_${layer}_USES})
  while(todo)
    list(POP_FRONT todo next)
    if(NOT next IN_LIST result)
      list(APPEND result ${next})
      list(APPEND todo ${PICTAVO_LAYER_${next}_USES})
    endif()
  endwhile()
  set(${out} ${result} PARENT_SCOPE)
endfunction()
