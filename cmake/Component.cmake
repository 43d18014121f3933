# A component is a folder whose headers are reached as "folder/Header.h", and only by those that link
# it: each one's include path holds nothing but a link to its own folder.
function(component_include_path name out)
  set(path ${PROJECT_BINARY_DIR}/include/${name})
  file(MAKE_DIRECTORY ${path})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${path}/${name} SYMBOLIC)
  set(${out} ${path} PARENT_SCOPE)
endfunction()

# add_component(NAME SOURCES... LINKS OTHER_COMPONENTS...)
function(add_component name)
  cmake_parse_arguments(PARSE_ARGV 1 component "" "" "SOURCES;LINKS")
  add_library(${name} STATIC ${component_SOURCES})
  component_include_path(${name} path)
  target_include_directories(${name} PUBLIC ${path})
  target_link_libraries(${name} PUBLIC platform ${component_LINKS})
endfunction()
