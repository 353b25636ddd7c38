# kestrane_join_rooms(<target> ALONE <source>...): compiles each room of <target> as one source, so
# that what templates make is made once for a room. Sources with options of their own stay alone,
# and so do those named, relative to the target's folder: a neighbour has file-local names of theirs,
# or they would share nothing and hold up the rest of the room.
function(kestrane_join_rooms target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "ALONE")
  get_target_property(folder ${target} SOURCE_DIR)
  get_target_property(sources ${target} SOURCES)
  foreach(source IN LISTS sources)
    cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY "${folder}")
    cmake_path(RELATIVE_PATH source BASE_DIRECTORY "${folder}" OUTPUT_VARIABLE name)
    if(NOT name IN_LIST arg_ALONE)
      cmake_path(GET name PARENT_PATH room)
      string(MAKE_C_IDENTIFIER "room_${room}" group)
      set_source_files_properties("${source}" TARGET_DIRECTORY ${target} PROPERTIES
        UNITY_GROUP ${group})
    endif()
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
endfunction()
