# Build-wide instrumentation: address and undefined-behaviour sanitizers, or the thread sanitizer.
option(KEEL_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(KEEL_TSAN "Build with ThreadSanitizer" OFF)

if(KEEL_SANITIZE AND KEEL_TSAN)
    message(FATAL_ERROR "KEEL_SANITIZE and KEEL_TSAN cannot be combined")
endif()

if(KEEL_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
endif()

if(KEEL_TSAN)
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
endif()
