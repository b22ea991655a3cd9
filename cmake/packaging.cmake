# Debian packages, one per component: cpack --config BUILD/CPackConfig.cmake leaves them in BUILD/packages. What is
# Debian's own about them (copyright, changelog, compressed pages) is added by packaging/debian_files.cmake.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kv1905)
set(CPACK_PACKAGE_VENDOR "kv1905 maintainers")
set(CPACK_PACKAGE_CONTACT "kv1905 maintainers <maintainers@kv1905.example>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # every component has its own
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL plugin)  # for a device, which brings its own daemon and platform library
if(KV_BUILD_HOST)
  list(APPEND CPACK_COMPONENTS_ALL dev host)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
# Builds files for their final location under DESTDIR, as a distribution does.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian_files.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE kv1905)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
if(CMAKE_CROSSCOMPILING AND CMAKE_CXX_LIBRARY_ARCHITECTURE)
  execute_process(COMMAND dpkg-architecture -t ${CMAKE_CXX_LIBRARY_ARCHITECTURE} -q DEB_HOST_ARCH
                  OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
set(same_version "(= ${PROJECT_VERSION})")

# The plug-in accepts the device's libkvplatform.so as well as the stand-in.
set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME libkvmap1905)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_RECOMMENDS kv1905-host)
set(CPACK_COMPONENT_PLUGIN_DESCRIPTION "vendor protocol plug-in for IEEE 1905.1 daemons
libkvMAP1905.so adds a vendor protocol in vendor-specific TLVs to the IEEE
1905.1 / Multi-AP daemon of a gateway or repeater. It needs the device's own
platform library, for which kv1905-host has a stand-in.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libkvmap1905-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libkvmap1905 ${same_version}")
set(CPACK_COMPONENT_DEV_DESCRIPTION "vendor protocol plug-in for IEEE 1905.1 daemons (development files)
Headers, pkg-config data and an example for those who build the plug-in into
their own daemon, or bring their own platform library.")

set(CPACK_DEBIAN_HOST_PACKAGE_NAME kv1905-host)
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION net)
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS "libkvmap1905 ${same_version}")
set(CPACK_DEBIAN_HOST_PACKAGE_SUGGESTS wireshark)
foreach(file conffiles postinst postrm prerm)
  list(APPEND CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/host/${file})
endforeach()
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_COMPONENT_HOST_DESCRIPTION "development IEEE 1905.1 / Multi-AP daemon and tools
The daemon kv1905d, which runs the plug-in libkvMAP1905.so, its command tool
kv1905App, the web page kv1905-view, a stand-in for the platform library and
commands of a device, and a Wireshark dissector.")
include(CPack)
