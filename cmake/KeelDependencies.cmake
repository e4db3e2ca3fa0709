# Third-party libraries, all from Debian packages (the Makefile installs what is missing).
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(PCRE2 REQUIRED IMPORTED_TARGET libpcre2-16)
pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET glib-2.0)
# Shipped tables may live in one zip archive instead of loose files.
pkg_check_modules(LIBZIP REQUIRED IMPORTED_TARGET libzip)
# XML documents: parsing, XPath selection, and the identity transform that indents them.
pkg_check_modules(LIBXML2 REQUIRED IMPORTED_TARGET libxml-2.0)
pkg_check_modules(LIBXSLT REQUIRED IMPORTED_TARGET libxslt)
# Documents are compound files (structured storage); libgsf reads and writes the container.
pkg_check_modules(GSF REQUIRED IMPORTED_TARGET libgsf-1)
# Databases: SQLite files, for reports and the `db` functions of formulas.
pkg_check_modules(SQLITE3 REQUIRED IMPORTED_TARGET sqlite3)
# Drawing to PNG, PDF and SVG surfaces.
pkg_check_modules(CAIRO REQUIRED IMPORTED_TARGET cairo)
# Line editing, history and completion for `keel repl`; the program alone links it.
pkg_check_modules(LIBEDIT REQUIRED IMPORTED_TARGET libedit)

if(KEEL_BUILD_TESTS)
    find_package(GTest REQUIRED)
endif()

if(KEEL_BUILD_BENCH)
    find_package(benchmark REQUIRED)
    # The peer that the formula benchmark compares the evaluator with.
    pkg_check_modules(MUPARSER REQUIRED IMPORTED_TARGET muparser)
endif()

# Header-only libraries, from the system or unpacked into .deps/ by install-deps.sh. Each is
# optional: without it the build leaves out what needs it and says so here.
if(EXISTS ${CMAKE_SOURCE_DIR}/.deps/usr)
    list(APPEND CMAKE_PREFIX_PATH ${CMAKE_SOURCE_DIR}/.deps/usr)
endif()
# The JSON input of `keel render` and `keel geometry collide`.
find_package(nlohmann_json 3.2 QUIET)
if(NOT nlohmann_json_FOUND)
    message(STATUS "nlohmann-json not found: keel render and keel geometry collide are left out")
endif()
if(KEEL_BUILD_TESTS OR KEEL_BUILD_BENCH)
    # Independent oracles of the geometry tests, and the peers of the geometry benchmarks.
    find_package(Boost 1.74 QUIET CONFIG)
    find_package(glm QUIET CONFIG)
    if(NOT Boost_FOUND)
        message(STATUS "Boost not found: the Boost.Geometry comparisons are left out")
    endif()
    if(NOT glm_FOUND)
        message(STATUS "glm not found: the glm comparisons are left out")
    endif()
endif()

# A PDF reader of its own for the pages Keel writes, from the system or .deps/. Only the tests
# named `*_poppler_test.cpp` link it; without it, or when a library it loads is missing, they are
# left out rather than stopping the whole suite from starting.
if(KEEL_BUILD_TESTS)
    find_path(POPPLER_INCLUDE_DIR PDFDoc.h PATH_SUFFIXES poppler)
    find_library(POPPLER_LIBRARY poppler)
    if(POPPLER_INCLUDE_DIR AND POPPLER_LIBRARY)
        get_filename_component(POPPLER_LIBRARY_DIR ${POPPLER_LIBRARY} DIRECTORY)
        execute_process(COMMAND ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${POPPLER_LIBRARY_DIR}
                                ldd ${POPPLER_LIBRARY}
                        OUTPUT_VARIABLE POPPLER_LOADS ERROR_QUIET)
        string(REGEX MATCHALL "[^\t\n ]+ => not found" POPPLER_MISSING "${POPPLER_LOADS}")
    endif()
    if(NOT POPPLER_INCLUDE_DIR OR NOT POPPLER_LIBRARY)
        message(STATUS "poppler not found: the PDF page checks against it are left out")
    elseif(POPPLER_MISSING)
        message(STATUS "poppler cannot load (${POPPLER_MISSING}): the PDF page checks against it are left out")
    else()
        add_library(keel_poppler UNKNOWN IMPORTED)
        # The libraries poppler loads may be unpacked beside it: an RPATH, unlike a RUNPATH,
        # serves them too, so the test runs without LD_LIBRARY_PATH.
        set_target_properties(keel_poppler PROPERTIES
                              IMPORTED_LOCATION ${POPPLER_LIBRARY}
                              INTERFACE_INCLUDE_DIRECTORIES ${POPPLER_INCLUDE_DIR}
                              INTERFACE_LINK_OPTIONS "-Wl,--disable-new-dtags,-rpath,${POPPLER_LIBRARY_DIR}")
        message(STATUS "poppler found: ${POPPLER_LIBRARY}")
    endif()
endif()
