# vemkn_install_package(name component): what CMake and pkg-config find a library by, made of name.pc.in, nameConfig.cmake.in and
# the export set nameTargets.
function(vemkn_install_package name component)
    set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
    install(EXPORT ${name}Targets NAMESPACE ${name}:: DESTINATION ${config_dir} COMPONENT ${component})
    set(config ${PROJECT_BINARY_DIR}/${name}Config.cmake)
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/${name}Config.cmake.in ${config} INSTALL_DESTINATION ${config_dir})
    # Any newer version serves: the first number is the year, and the interface only grows as long as SOVERSION stays.
    set(version ${PROJECT_BINARY_DIR}/${name}ConfigVersion.cmake)
    write_basic_package_version_file(${version} COMPATIBILITY AnyNewerVersion)
    install(FILES ${config} ${version} DESTINATION ${config_dir} COMPONENT ${component})
    if(VEMKN_PACKAGES)
        # What dpkg installs stays where it is, in folders that every compiler searches: pkg-config leaves these out.
        set(VEMKN_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
    else()
        # The prefix is found from the place of the .pc file, so an installed tree can be moved.
        file(RELATIVE_PATH up /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
        string(REGEX REPLACE "/$" "" up "${up}")
        set(VEMKN_PC_PREFIX "\${pcfiledir}/${up}")
    endif()
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${component})
endfunction()
