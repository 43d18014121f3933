# A component is a folder whose headers are reached as "folder/Header.h", and only by those that link
# it: each one's include path holds nothing but a link to its own folder.
function(component_include_path folder out)
  set(path ${PROJECT_BINARY_DIR}/include/${folder})
  file(MAKE_DIRECTORY ${path})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${path}/${folder} SYMBOLIC)
  set(${out} ${path} PARENT_SCOPE)
endfunction()

# add_component(FOLDER SOURCES... LINKS OTHER_FOLDERS...): the library pellix_FOLDER.
function(add_component folder)
  cmake_parse_arguments(PARSE_ARGV 1 component "" "" "SOURCES;LINKS")
  list(TRANSFORM component_LINKS PREPEND pellix_)
  component_include_path(${folder} path)
  add_library(pellix_${folder} STATIC ${component_SOURCES})
  target_include_directories(pellix_${folder} PUBLIC ${path})
  target_link_libraries(pellix_${folder} PUBLIC platform ${component_LINKS})
endfunction()
