# Third-party libraries, all from Debian packages (the Makefile installs what is missing).
find_package(Threads REQUIRED)

if(KEEL_BUILD_TESTS)
    find_package(GTest REQUIRED)
endif()

if(KEEL_BUILD_BENCH)
    find_package(benchmark REQUIRED)
endif()
