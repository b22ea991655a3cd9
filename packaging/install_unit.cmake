# Runs at install time. Installs the unit of the daemon and its options; an administrator's options are kept.
# The caller has set bindir and libexecdir; CMAKE_INSTALL_PREFIX and $DESTDIR are cmake --install's own.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(sysconfdir /etc)
else()
  set(sysconfdir ${CMAKE_INSTALL_PREFIX}/etc)
endif()

set(unit $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/lib/systemd/system/kv1905d.service)
message(STATUS "Installing: ${unit}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/kv1905d.service.in ${unit} @ONLY)

set(options $ENV{DESTDIR}${sysconfdir}/default/kv1905d)
if(NOT EXISTS ${options})
  message(STATUS "Installing: ${options}")
  configure_file(${CMAKE_CURRENT_LIST_DIR}/kv1905d.default ${options} COPYONLY)
endif()
