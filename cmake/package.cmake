# The Debian packages, one for each component of the installation:
#     cmake --preset package && cmake --build --preset package && cpack --preset debian
# The preset installs to /usr, where GNUInstallDirs takes the library folder of the architecture.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vemkn)
# The one place where the address stands.
file(STRINGS ${PROJECT_SOURCE_DIR}/SUPPORT.md CPACK_PACKAGE_CONTACT REGEX "^    .*<.*@.*>$" LIMIT_COUNT 1)
string(STRIP "${CPACK_PACKAGE_CONTACT}" CPACK_PACKAGE_CONTACT)
if(NOT CPACK_PACKAGE_CONTACT)
    message(FATAL_ERROR "SUPPORT.md has no address for packages")
endif()
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Each package has a summary of its own, the first line of its description; this would stand in front of them.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_THREADS 1)
set(CPACK_COMPONENTS_ALL library development)
if(VEMKN_BUILD_FIT)
    list(APPEND CPACK_COMPONENTS_ALL fitlibrary fitdevelopment fit)
endif()
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian_files.cmake)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SOURCE vemkn)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Else that of the machine which makes them.
if(VEMKN_PROCESSOR STREQUAL "aarch64")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
else()
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
endif()

set(about "libvemkn evaluates a small dense feed-forward network and differentiates it
exactly: outputs, residuals, a robust objective, its gradient,
Hessian-vector products, and Jacobian products in both directions. It is
meant for programs that fit the weights with an optimiser of their own.")

# dpkg-shlibdeps finds the libraries that are needed, and libopenblas0, which the serial OpenBLAS would satisfy: with that
# one calls run on one thread, whatever the host asks for.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libvemkn1)
# Packages of several architectures may be installed side by side: their libraries lie in folders of their own, what they share is
# equal. CPack 3.25 has no variable for the field that says so, which therefore comes with the section.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION "libs\nMulti-Arch: same")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libopenblas0-pthread | libopenblas0-openmp")
# A trigger runs ldconfig. The two names that are not there keep CPack from writing scripts that do it once more.
set(control ${PROJECT_BINARY_DIR}/debian/control)
file(CONFIGURE OUTPUT ${control}/triggers CONTENT "activate-noawait ldconfig\n")
file(CONFIGURE OUTPUT ${control}/shlibs CONTENT "libvemkn 1 libvemkn1 (>= ${PROJECT_VERSION})\n")
file(CONFIGURE OUTPUT ${control}/fit/shlibs CONTENT "libvemknfit 1 libvemknfit1 (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
    ${control}/triggers ${control}/shlibs ${control}/postinst ${control}/postrm)
set(CPACK_DEBIAN_FITLIBRARY_PACKAGE_CONTROL_EXTRA
    ${control}/triggers ${control}/fit/shlibs ${control}/postinst ${control}/postrm)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
    "values and exact derivatives of a small network - library
${about}
.
This package contains the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvemkn-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION "libdevel\nMulti-Arch: same")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libvemkn1 (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "values and exact derivatives of a small network - development
${about}
.
This package contains the headers for C and C++, the manual pages, and what
CMake and pkg-config look for.")

# Libraries of the same build, which no installed package brings yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src ${PROJECT_BINARY_DIR}/src/fit)

set(about_fit "libvemknfit fits a small feed-forward network to rows of numbers, so that up
to 30 % of gross outliers do not pull the curve along, keeps fits in model
files, and predicts new rows.")
set(CPACK_DEBIAN_FITLIBRARY_PACKAGE_NAME libvemknfit1)
set(CPACK_DEBIAN_FITLIBRARY_PACKAGE_SECTION "libs\nMulti-Arch: same")
set(CPACK_DEBIAN_FITLIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FITLIBRARY_PACKAGE_DEPENDS "libvemkn1 (>= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_FITLIBRARY_DESCRIPTION
    "robust regression by a small network - library
${about_fit}
.
This package contains the shared library.")

set(CPACK_DEBIAN_FITDEVELOPMENT_PACKAGE_NAME libvemknfit-dev)
set(CPACK_DEBIAN_FITDEVELOPMENT_PACKAGE_SECTION "libdevel\nMulti-Arch: same")
set(CPACK_DEBIAN_FITDEVELOPMENT_PACKAGE_DEPENDS
    "libvemknfit1 (= ${PROJECT_VERSION}), libvemkn-dev (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_FITDEVELOPMENT_DESCRIPTION
    "robust regression by a small network - development
${about_fit}
.
This package contains the header for C and C++, the manual pages, and what
CMake and pkg-config look for.")

set(CPACK_DEBIAN_FIT_PACKAGE_NAME vemkn-fit)
set(CPACK_DEBIAN_FIT_PACKAGE_SECTION "math\nMulti-Arch: foreign")
set(CPACK_DEBIAN_FIT_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FIT_PACKAGE_DEPENDS "libvemkn1 (>= ${PROJECT_VERSION}), libvemknfit1 (>= ${PROJECT_VERSION})")
# Without it everything is written but the picture.
set(CPACK_DEBIAN_FIT_PACKAGE_RECOMMENDS "gnuplot-nox | gnuplot")
set(CPACK_COMPONENT_FIT_DESCRIPTION
    "robust fits of a small network to the columns of a CSV file
vemkn-fit fits a small feed-forward network to columns of a CSV file, so that
gross outliers do not pull the fit along. It can compare the fit with least
squares, give the uncertainty of its predictions, and draw a plot.")

include(CPack)
