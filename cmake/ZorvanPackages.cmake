# Debian packages: cpack -G DEB in a build tree with the prefix /usr, as scripts/packages.sh makes it.
find_program(GZIP gzip)
configure_file(packaging/changelog.in ${PROJECT_BINARY_DIR}/packaging/changelog)

# zorvan_debian_package(COMPONENT NAME SECTION SUMMARY WORDS DEPENDS): what every package holds.
function(zorvan_debian_package component name section summary words depends)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
    set(CPACK_COMPONENT_${upper}_DESCRIPTION "${summary}\n${words}" PARENT_SCOPE)
    set(folder ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name})
    set(compressed ${PROJECT_BINARY_DIR}/packaging/${name}/changelog.gz)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/packaging/${name})
    execute_process(COMMAND ${GZIP} -9nc ${PROJECT_BINARY_DIR}/packaging/changelog OUTPUT_FILE ${compressed})
    install(FILES packaging/copyright ${compressed} DESTINATION ${folder} COMPONENT ${component})
    if(EXISTS ${PROJECT_SOURCE_DIR}/packaging/${name}.overrides)
        install(FILES packaging/${name}.overrides DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides
            RENAME ${name} COMPONENT ${component})
    endif()
endfunction()

set(same "(= ${PROJECT_VERSION})")
set(what "Finds poses of 3D surface scans without a start, and says how sure it is.")
zorvan_debian_package(library libzorvan libs "registration of 3D surface scans, libraries" "${what}" "")
zorvan_debian_package(development libzorvan-dev libdevel "registration of 3D surface scans, for hosts"
    "${what}\nHeaders, and the package for find_package of CMake." "libzorvan ${same}, libeigen3-dev")
zorvan_debian_package(program zorvan science "registration of 3D surface scans, the program" "${what}"
    "libzorvan ${same}")
set(CPACK_COMPONENTS_ALL library development program)
execute_process(COMMAND ${GZIP} -9nc ${PROJECT_SOURCE_DIR}/packaging/zorvan.1
    OUTPUT_FILE ${PROJECT_BINARY_DIR}/packaging/zorvan.1.gz)
install(FILES ${PROJECT_BINARY_DIR}/packaging/zorvan.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT program)
if(TARGET zorvan_python)
    list(APPEND CPACK_COMPONENTS_ALL python)
    set(Python_EXECUTABLE ${ZORVAN_PYTHON_EXECUTABLE})
    find_package(Python REQUIRED COMPONENTS Interpreter)
    math(EXPR next "${Python_VERSION_MINOR} + 1")
    zorvan_debian_package(python python3-zorvan python "registration of 3D surface scans, for Python" "${what}"
        "libzorvan ${same}, python3 (>= 3.${Python_VERSION_MINOR}), python3 (<< 3.${next}), python3-numpy")
endif()

set(CPACK_PACKAGE_CONTACT "The Zorvan authors <zorvan@packages.invalid>")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
include(CPack)
