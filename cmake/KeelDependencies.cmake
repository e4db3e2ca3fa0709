# Third-party libraries, all from Debian packages (the Makefile installs what is missing).
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(PCRE2 REQUIRED IMPORTED_TARGET libpcre2-16)
pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET glib-2.0)
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
