# Client code for Wayland protocols, generated with wayland-scanner from XML kept in the tree.
find_program(WAYLAND_SCANNER wayland-scanner REQUIRED)

# Appends to `out` the header and code generated into `folder` for each XML file given.
function(nubra_wayland_protocols out folder)
    set(sources ${${out}})
    foreach(xml ${ARGN})
        get_filename_component(protocol ${xml} NAME_WE)
        add_custom_command(OUTPUT ${folder}/${protocol}-client.h ${folder}/${protocol}.c
            COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
            COMMAND ${WAYLAND_SCANNER} client-header ${xml} ${folder}/${protocol}-client.h
            COMMAND ${WAYLAND_SCANNER} private-code ${xml} ${folder}/${protocol}.c
            DEPENDS ${xml}
            VERBATIM)
        list(APPEND sources ${folder}/${protocol}-client.h ${folder}/${protocol}.c)
    endforeach()
    set(${out} ${sources} PARENT_SCOPE)
endfunction()
