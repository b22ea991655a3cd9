# Runs in cpack between installation and packaging: adds what Debian requires in a package, and compresses pages.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(root ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr)
  set(documents ${root}/share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright ${documents}/copyright COPYONLY)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog ${documents}/changelog COPYONLY)
  if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/${component}/lintian-overrides)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/${component}/lintian-overrides
                   ${root}/share/lintian/overrides/${CPACK_DEBIAN_${upper}_PACKAGE_NAME} COPYONLY)
  endif()
  file(GLOB compressed ${documents}/changelog ${root}/share/man/man*/*)
  execute_process(COMMAND gzip -9nf ${compressed} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
