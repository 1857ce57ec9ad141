# One interface target carries the language level, warnings and Qt strictness for every target.
add_library(nubra_options INTERFACE)
target_compile_features(nubra_options INTERFACE cxx_std_20)
target_compile_options(nubra_options INTERFACE -Wall -Wextra -Wpedantic)
if(NUBRA_WERROR)
    target_compile_options(nubra_options INTERFACE -Werror)
endif()
target_compile_definitions(nubra_options INTERFACE
    QT_NO_CAST_TO_ASCII
    QT_NO_URL_CAST_FROM_STRING
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_NO_FOREACH
    QT_USE_QSTRINGBUILDER)

# The hardening Debian builds its own packages with; fortification needs the optimiser, and the
# sanitizers bring their own checks.
if(NOT NUBRA_SANITIZE)
    target_compile_options(nubra_options INTERFACE -fstack-protector-strong)
    target_compile_definitions(nubra_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
    target_link_options(nubra_options INTERFACE LINKER:-z,relro LINKER:-z,now)
endif()

if(NUBRA_SANITIZE)
    target_compile_options(nubra_options INTERFACE
        -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    target_link_options(nubra_options INTERFACE -fsanitize=address,undefined)
    # GCC's flow analysis sees through the sanitizer instrumentation poorly and reports variants of Qt
    # strings as "maybe uninitialized" when optimising; the plain build keeps that warning.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(nubra_options INTERFACE -Wno-maybe-uninitialized)
    endif()
endif()
