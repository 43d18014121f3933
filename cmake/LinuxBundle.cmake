# The program's folder, which can be moved as a whole: the program, the stand-in of the service
# manager's tool beside it, and the resources.
install(TARGETS velmor-pellix DESTINATION bin)
install(PROGRAMS ${PROJECT_SOURCE_DIR}/standin/launchctl DESTINATION bin)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/resources/symbols DESTINATION bin/resources)
if(VELMOR_GUARD)
  install(PROGRAMS ${VELMOR_GUARD} DESTINATION bin/resources RENAME velmor-guard)
endif()
