# The program's folder, which can be moved as a whole: the program, the stand-in of the service
# manager's tool beside it, and the resources.
install(TARGETS velmor-pellix DESTINATION bin)
install(PROGRAMS ${PROJECT_SOURCE_DIR}/standin/launchctl DESTINATION bin)
file(GLOB drawings CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/resources/symbols/*.svg)
foreach(drawing ${drawings})
  cmake_path(GET drawing STEM LAST_ONLY name)
  set(masks ${CMAKE_CURRENT_BINARY_DIR}/${name}.masks)
  add_custom_command(OUTPUT ${masks} COMMAND draw_symbol ${drawing} ${masks}
    DEPENDS ${drawing} draw_symbol VERBATIM)
  list(APPEND symbols ${drawing} ${masks})
endforeach()
add_custom_target(symbols ALL DEPENDS ${symbols})
install(FILES ${symbols} DESTINATION bin/resources/symbols)
if(VELMOR_GUARD)
  install(PROGRAMS ${VELMOR_GUARD} DESTINATION bin/resources RENAME velmor-guard)
endif()
