# Installs the libraries, the headers, the CMake package and the pkg-config file. Everything finds
# its place relative to itself, so that an installed tree can be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(tx_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tx)

install(TARGETS ${tx_variants}
    EXPORT tx-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/src/tx.h ${PROJECT_SOURCE_DIR}/src/tx.hpp
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/tx DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.hpp")
install(EXPORT tx-targets NAMESPACE tx:: DESTINATION ${tx_package_dir})

# A C program that links the static library needs the C++ runtime by name.
set(tx_cxx_runtime ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
list(FILTER tx_cxx_runtime INCLUDE REGEX "^(stdc\\+\\+|c\\+\\+|c\\+\\+abi)$")
list(REMOVE_DUPLICATES tx_cxx_runtime)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/tx-config.cmake.in
    ${PROJECT_BINARY_DIR}/tx-config.cmake
    INSTALL_DESTINATION ${tx_package_dir}
    NO_SET_AND_CHECK_MACRO)
# Before 1.0 a minor version may change what a program sees.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tx-config-version.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/tx-config.cmake
    ${PROJECT_BINARY_DIR}/tx-config-version.cmake
    DESTINATION ${tx_package_dir})

set(tx_pc_private "")
foreach(library IN LISTS tx_cxx_runtime ITEMS m)
    string(APPEND tx_pc_private " -l${library}")
endforeach()
string(STRIP "${tx_pc_private}" tx_pc_private)
set(tx_pc_always "")
if(NOT TARGET tx_shared)  # every link is a static one
    set(tx_pc_always " ${tx_pc_private}")
endif()
set(tx_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
    message(FATAL_ERROR "CMAKE_INSTALL_LIBDIR and CMAKE_INSTALL_INCLUDEDIR are taken below the prefix")
endif()
file(RELATIVE_PATH tx_pc_prefix "/prefix/${tx_pc_dir}" "/prefix")
string(REGEX REPLACE "/$" "" tx_pc_prefix "${tx_pc_prefix}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/tx.pc.in ${PROJECT_BINARY_DIR}/tx.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tx.pc DESTINATION ${tx_pc_dir})
