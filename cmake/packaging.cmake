# Installs what belongs to the tool as a whole, and packs it: a package with the tool, another with its debug symbols.
install(FILES man/zelmar-frontend.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES completions/zelmar-frontend DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(DIRECTORY docs/events TYPE DOC USE_SOURCE_PERMISSIONS)
install(FILES $<TARGET_FILE:zelmar-frontend>.debug DESTINATION lib/debug/usr/bin COMPONENT debug EXCLUDE_FROM_ALL)

set(CPACK_COMPONENTS_ALL tool debug)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_VENDOR zelmar-frontend)
set(CPACK_PACKAGE_CONTACT "zelmar-frontend maintainers <maintainers@zelmar-frontend.example>")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "To be called when a USB device has been mounted or is gone.")
set(CPACK_COMPONENT_DEBUG_DESCRIPTION "Debug symbols of zelmar-frontend.")

# SQLite's shell creates the database, and completes identifiers.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME zelmar-frontend)
set(CPACK_DEBIAN_TOOL_PACKAGE_RECOMMENDS sqlite3)
set(CPACK_DEBIAN_DEBUG_PACKAGE_NAME zelmar-frontend-dbgsym)
set(CPACK_DEBIAN_DEBUG_PACKAGE_SECTION debug)
set(CPACK_DEBIAN_DEBUG_PACKAGE_DEPENDS "zelmar-frontend (= ${PROJECT_VERSION})")

set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_MAIN_COMPONENT tool)
set(CPACK_RPM_TOOL_PACKAGE_SUGGESTS sqlite)
set(CPACK_RPM_DEBUG_PACKAGE_NAME zelmar-frontend-debuginfo)
set(CPACK_RPM_DEBUG_PACKAGE_REQUIRES "zelmar-frontend = ${PROJECT_VERSION}")
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
    /usr/share/bash-completion /usr/share/bash-completion/completions /usr/share/man /usr/share/man/man1
    /usr/lib/debug /usr/lib/debug/usr /usr/lib/debug/usr/bin)
# The files are as they are to be; the same bytes from any machine.
set(CPACK_RPM_SPEC_INSTALL_POST /bin/true)
set(CPACK_RPM_SPEC_MORE_DEFINE "%define _buildhost localhost
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1
%define _build_id_links none")

if(CMAKE_SYSTEM_PROCESSOR STREQUAL "arm")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    set(CPACK_RPM_PACKAGE_ARCHITECTURE armv7hl)
    # All it loads is the C library, which may not be older than the one that it was linked with.
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dM -E -x c++ -include features.h /dev/null
        OUTPUT_VARIABLE macros COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCH "__GLIBC_MINOR__ ([0-9]+)" minor "${macros}")
    set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libc6 (>= 2.${CMAKE_MATCH_1})")
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
    set(CPACK_RPM_PACKAGE_ARCHITECTURE aarch64)
else()
    set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
endif()

include(CPack)
