include(CMakePackageConfigHelpers)

install(TARGETS quill-vara-common quill-vara-dme EXPORT QuillVaraDmeTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/dme DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY common/include/quill DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(DME_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QuillVaraDme)
install(EXPORT QuillVaraDmeTargets NAMESPACE QuillVaraDme:: DESTINATION ${DME_CMAKE_DIR})
configure_package_config_file(cmake/QuillVaraDmeConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/QuillVaraDmeConfig.cmake INSTALL_DESTINATION ${DME_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/QuillVaraDmeConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QuillVaraDmeConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/QuillVaraDmeConfigVersion.cmake DESTINATION ${DME_CMAKE_DIR})

# The .pc file locates the prefix relative to itself, so the installed tree can be moved.
file(RELATIVE_PATH DME_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/quill-vara-dme.pc.in ${CMAKE_CURRENT_BINARY_DIR}/quill-vara-dme.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quill-vara-dme.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Installs the binding library `target` with its pkg-config file, which describes it as
# `description` and requires the package `requires`.
function(dme_install_binding target description requires)
    install(TARGETS ${target} EXPORT QuillVaraDmeTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${target}.pc @ONLY CONTENT [[
prefix=${pcfiledir}/@DME_PC_TO_PREFIX@
libdir=${prefix}/@CMAKE_INSTALL_LIBDIR@

Name: @target@
Description: @description@
Version: @PROJECT_VERSION@
Requires: @requires@
Libs: -L${libdir} -Wl,-rpath,${libdir} -l@target@
]])
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${target}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
