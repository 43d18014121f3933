# The application bundle. Installing completes it, as what is added to a bundle breaks its signature.
set(app "Velmor Pellix.app")
set(icon ${PROJECT_SOURCE_DIR}/resources/macos/AppIcon.icns)
configure_file(${PROJECT_SOURCE_DIR}/resources/macos/Info.plist.in ${PROJECT_BINARY_DIR}/Info.plist
               @ONLY)

target_sources(velmor-pellix PRIVATE ${icon})
set_source_files_properties(${icon} PROPERTIES MACOSX_PACKAGE_LOCATION Resources)
set_target_properties(velmor-pellix PROPERTIES
  MACOSX_BUNDLE TRUE
  MACOSX_BUNDLE_INFO_PLIST ${PROJECT_BINARY_DIR}/Info.plist
  OUTPUT_NAME "Velmor Pellix")

# Installing strips no bundle, so linking does. In between, the notes that lead to the objects' lines
# are followed into the dSYM with which atos reads a crash report; after the linker's own -x there are
# none to follow.
set(dsym ${CMAKE_CURRENT_BINARY_DIR}/${app}.dSYM)
if(CMAKE_BUILD_TYPE STREQUAL MinSizeRel)
  find_program(DSYMUTIL dsymutil REQUIRED)
  target_link_options(velmor-pellix PRIVATE -Wl,-dead_strip)
  add_custom_command(TARGET velmor-pellix POST_BUILD
    COMMAND ${DSYMUTIL} -o ${dsym} $<TARGET_FILE:velmor-pellix>
    COMMAND ${CMAKE_STRIP} -S -x $<TARGET_FILE:velmor-pellix>
    VERBATIM)
endif()

set(installed "\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${app}")
# So that nothing of an earlier build stays.
install(CODE "file(REMOVE_RECURSE \"${installed}\" \"${installed}.dSYM\")")
install(TARGETS velmor-pellix BUNDLE DESTINATION .)
install(DIRECTORY ${dsym} DESTINATION . CONFIGURATIONS MinSizeRel)
if(VELMOR_GUARD)
  # Unlike install(PROGRAMS), keeps the permissions.
  install(CODE "file(COPY_FILE \"${VELMOR_GUARD}\" \"${installed}/Contents/Resources/velmor-guard\")")
endif()
install(CODE "execute_process(COMMAND \"${PROJECT_SOURCE_DIR}/resources/macos/sign\" \"${installed}\"
                              COMMAND_ERROR_IS_FATAL ANY)")
