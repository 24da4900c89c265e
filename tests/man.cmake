# The manual pages: complete, true to the header and to the program, and without a warning of the formatter.

set(man_source ${PROJECT_SOURCE_DIR}/docs/man)
set(man_build ${PROJECT_BINARY_DIR}/docs/man)

set(lists "")
if(VEMKN_BUILD_FIT)
    list(APPEND lists _fit)
endif()
foreach(list "" ${lists})
    vemkn_script_test(ManPages.NameEveryExportedFunction${list} LABELS abi SCRIPT man/names.cmake
        VARIABLES LIST=${CMAKE_CURRENT_SOURCE_DIR}/abi/exported_symbols${list}.txt
                  PAGES=${man_build} LINKS=${man_build}/links)
endforeach()

if(VEMKN_PYTHON)
    add_test(NAME ManPages.SayWhatTheHeadersSay
        COMMAND ${VEMKN_PYTHON} ${man_source}/make_pages.py --check ${PROJECT_SOURCE_DIR}/include ${man_source})
    set_tests_properties(ManPages.SayWhatTheHeadersSay PROPERTIES LABELS abi TIMEOUT 60)
endif()

if(TARGET vemkn-fit)
    vemkn_script_test(ManPages.ExplainTheOptionsOfTheProgram LABELS abi SCRIPT man/options.cmake
        VARIABLES PROGRAM=$<TARGET_FILE:vemkn-fit> PAGE=${man_build}/vemkn-fit.1
                  EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR})
endif()

file(GLOB man_pages CONFIGURE_DEPENDS ${man_build}/*.3)
if(VEMKN_BUILD_FIT)
    list(APPEND man_pages ${man_build}/vemkn-fit.1)
endif()
find_program(VEMKN_GROFF groff)
if(VEMKN_GROFF)
    foreach(page IN LISTS man_pages)
        cmake_path(GET page FILENAME name)
        # It warns on standard error and ends well; a test that prints anything fails.
        add_test(NAME ManPages.FormatWithoutAWarning/${name} COMMAND ${VEMKN_GROFF} -man -Tutf8 -ww -z ${page})
        set_tests_properties(ManPages.FormatWithoutAWarning/${name} PROPERTIES
            LABELS abi TIMEOUT 60 FAIL_REGULAR_EXPRESSION ".")
    endforeach()
endif()
