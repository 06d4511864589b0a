# Warnings, sanitizers and fuzzing instrumentation for every target of the project.
# Third-party code built through ExternalProject does not see these flags.

add_compile_options(-Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Wno-missing-field-initializers)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wshadow=local)
endif()
if(HUE_WERROR)
    add_compile_options(-Werror)
endif()

if(HUE_SANITIZE)
    set(_hue_san -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    add_compile_options(${_hue_san})
    add_link_options(${_hue_san})
endif()

if(HUE_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "HUE_FUZZ needs clang: configure with -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang")
    endif()
    # Libraries get coverage instrumentation; the fuzzer targets add -fsanitize=fuzzer for main().
    set(_hue_fuzz_common -fsanitize=address,undefined -fno-omit-frame-pointer)
    add_compile_options(-fsanitize=fuzzer-no-link ${_hue_fuzz_common})
    add_link_options(${_hue_fuzz_common})
endif()

# No fused multiply-add contraction: GCC turns a*b+c into one instruction wherever the target
# has one (aarch64 always, the x86-64 baseline never), and its single rounding changes results,
# e.g. a cross product of collinear points is no longer exactly zero. The hub's build computes
# exactly what the tests check on an x86-64 machine.
if(NOT CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    add_compile_options(-ffp-contract=off)
endif()
