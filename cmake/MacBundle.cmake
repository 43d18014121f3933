# The application bundle. Installing completes it, as stripping would break an earlier signature.
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

set(installed "\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${app}")
install(CODE "file(REMOVE_RECURSE \"${installed}\")")  # so that nothing of an earlier build stays
install(TARGETS velmor-pellix BUNDLE DESTINATION .)
if(VELMOR_GUARD)
  # Unlike install(PROGRAMS), keeps the permissions.
  install(CODE "file(COPY_FILE \"${VELMOR_GUARD}\" \"${installed}/Contents/Resources/velmor-guard\")")
endif()
install(CODE "execute_process(COMMAND \"${PROJECT_SOURCE_DIR}/resources/macos/sign\" \"${installed}\"
                              COMMAND_ERROR_IS_FATAL ANY)")
