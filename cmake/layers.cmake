# The layers of docs/architecture.md. A library declares its layer with
# ztx_layer(); ztx_check_layers(), run once every target exists, stops the
# configuration when a layer links or includes one it may not reach, so that
# a lower layer cannot quietly come to depend on a higher one.

# Each layer and the layers it may use directly; what those use is allowed too.
set(ZTX_LAYER_RULES
  "base:"
  "format:base"
  "host:base"
  "exporter:host format"
  "module:exporter"
  "ui:exporter"
  "images:base"
  "hostmodel:host format images"
  "import:hostmodel"
  "reader:format"
  "dump:reader exporter"
  "gltf:dump images"
  "driver:import exporter"
  "batch:driver"
  "tools:batch dump gltf ui"
  "python:batch gltf")

# Folders (from the top of the tree, as includes name them) and their layers;
# the longest matching folder decides.
set(ZTX_LAYER_FOLDERS
  "host/inhouse:base" "format:format" "host:host"
  "options:exporter" "geometry:exporter" "animation:exporter" "scene_objects:exporter"
  "materials:exporter" "prepass:exporter" "plugin:exporter"
  "module:module" "ui:ui" "images:images" "host/memory:hostmodel" "importers:import"
  "reader:reader" "ztexport:reader" "dump:dump" "gltf:gltf" "driver:driver" "batch:batch"
  "tools:tools" "python:python")

function(ztx_layer target layer)
  set_property(TARGET ${target} PROPERTY ZTX_LAYER ${layer})
  set_property(GLOBAL APPEND PROPERTY ZTX_LAYERED_TARGETS ${target})
endfunction()

# Fills ZTX_REACH_<layer>: the layer itself and everything below it.
function(_ztx_layer_reach)
  foreach(rule ${ZTX_LAYER_RULES})
    string(REPLACE ":" ";" parts "${rule}")
    list(GET parts 0 layer)
    set(uses "")
    list(LENGTH parts count)
    if(count GREATER 1)
      list(GET parts 1 uses)
      string(REPLACE " " ";" uses "${uses}")
    endif()
    # Rules are listed bottom up, so the layers used are complete already.
    set(reach ${layer})
    foreach(used ${uses})
      if(NOT DEFINED ZTX_REACH_${used})
        message(FATAL_ERROR "layer rule of ${layer} names ${used} before it is defined")
      endif()
      list(APPEND reach ${ZTX_REACH_${used}})
    endforeach()
    list(REMOVE_DUPLICATES reach)
    set(ZTX_REACH_${layer} ${reach})
    set(ZTX_REACH_${layer} ${reach} PARENT_SCOPE)
  endforeach()
endfunction()

function(_ztx_folder_layer include out)
  set(best "")
  set(best_length 0)
  foreach(entry ${ZTX_LAYER_FOLDERS})
    string(REPLACE ":" ";" parts "${entry}")
    list(GET parts 0 folder)
    list(GET parts 1 layer)
    string(LENGTH "${folder}" length)
    string(FIND "${include}" "${folder}/" at)
    if(at EQUAL 0 AND length GREATER best_length)
      set(best ${layer})
      set(best_length ${length})
    endif()
  endforeach()
  set(${out} "${best}" PARENT_SCOPE)
endfunction()

function(ztx_check_layers)
  _ztx_layer_reach()
  get_property(targets GLOBAL PROPERTY ZTX_LAYERED_TARGETS)
  set(problems "")
  foreach(target ${targets})
    get_target_property(layer ${target} ZTX_LAYER)
    set(reach ${ZTX_REACH_${layer}})
    # What it links.
    get_target_property(links ${target} LINK_LIBRARIES)
    get_target_property(interface_links ${target} INTERFACE_LINK_LIBRARIES)
    foreach(link ${links} ${interface_links})
      if(TARGET ${link})
        get_target_property(link_layer ${link} ZTX_LAYER)
        if(link_layer AND NOT link_layer IN_LIST reach)
          string(APPEND problems "\n  ${target} (${layer}) links ${link} (${link_layer})")
        endif()
      endif()
    endforeach()
    # What its sources and the headers beside them include.
    get_target_property(sources ${target} SOURCES)
    get_target_property(source_dir ${target} SOURCE_DIR)
    set(folders "")
    foreach(source ${sources})
      if(NOT IS_ABSOLUTE ${source})
        set(source ${source_dir}/${source})
      endif()
      string(FIND "${source}" "${PROJECT_SOURCE_DIR}/" inside)
      if(inside EQUAL 0)
        get_filename_component(folder ${source} DIRECTORY)
        list(APPEND folders ${folder})
      endif()
    endforeach()
    list(REMOVE_DUPLICATES folders)
    foreach(folder ${folders})
      file(GLOB files ${folder}/*.cpp ${folder}/*.h)
      foreach(file ${files})
        file(STRINGS ${file} includes REGEX "^#include \"[^\"]+/[^\"]+\"")
        foreach(line ${includes})
          string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" included "${line}")
          _ztx_folder_layer("${included}" included_layer)
          if(included_layer AND NOT included_layer IN_LIST reach)
            file(RELATIVE_PATH shown ${PROJECT_SOURCE_DIR} ${file})
            string(APPEND problems "\n  ${shown} (${layer}) includes ${included} (${included_layer})")
          endif()
        endforeach()
      endforeach()
    endforeach()
  endforeach()
  if(problems)
    message(FATAL_ERROR "A layer reaches one above it (docs/architecture.md):${problems}")
  endif()
endfunction()
