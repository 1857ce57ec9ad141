# nubra_add_test(<name> SOURCES <files...> [LIBS <targets...>] [LABELS <labels...>] [TIMEOUT <s>])
#
# One QtTest executable per area, registered with CTest under its own name. Every test gets the
# "unit" label unless it says otherwise; the sanitizer pass runs the "unit" label only.
function(nubra_add_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE nubra_options NubraTestSupport Qt6::Test ${ARG_LIBS})
    add_test(NAME ${name} COMMAND ${name})
    if(NOT ARG_LABELS)
        set(ARG_LABELS unit)
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;LC_ALL=C.UTF-8")
endfunction()
