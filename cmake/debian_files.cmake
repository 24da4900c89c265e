# What Debian wants of every package besides what is installed elsewhere. CPack runs this on the staged files, one folder
# for each component: manual pages are compressed, and each package gets its copyright and its changelog.

function(gzip)
    execute_process(COMMAND gzip -9nf ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# The packages of several architectures share this file, so it bears the date of the sources, not of the build.
set(source ${CMAKE_CURRENT_LIST_DIR}/..)
execute_process(COMMAND git -C ${source} log -1 --format=%cD
                OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE no_commit)
if(no_commit)
    file(TIMESTAMP ${source}/CHANGELOG.md date "%a, %d %b %Y %H:%M:%S +0000" UTC)
endif()
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    set(staged ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component})
    file(GLOB_RECURSE pages ${staged}/usr/share/man/*)
    if(pages)
        gzip(${pages})
    endif()

    string(TOUPPER ${component} key)
    set(docs ${staged}/usr/share/doc/${CPACK_DEBIAN_${key}_PACKAGE_NAME})
    file(MAKE_DIRECTORY ${docs})
    file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/../LICENSE ${docs}/copyright)
    file(WRITE ${docs}/changelog "vemkn (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * What is new: see CHANGELOG.md of libvemkn-dev.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
    if(component STREQUAL "development")
        file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/../CHANGELOG.md ${docs}/CHANGELOG.md)
        gzip(${docs}/CHANGELOG.md)
    endif()
    gzip(${docs}/changelog)

    # Whatever the umask of who builds the packages.
    execute_process(COMMAND chmod -R u=rwX,go=rX ${staged} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
