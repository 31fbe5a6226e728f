# The C code of the Wayland protocols that Nulo speaks, generated from their XML: that of Debian's
# packages, and where no package has it, the files in wayland/protocols.
pkg_check_modules(WAYLAND REQUIRED IMPORTED_TARGET wayland-client)
pkg_get_variable(wayland_scanner wayland-scanner wayland_scanner)
pkg_get_variable(wayland_protocols wayland-protocols pkgdatadir)
find_path(plasma_protocols fake-input.xml PATH_SUFFIXES share/plasma-wayland-protocols REQUIRED)

set(own ${CMAKE_CURRENT_SOURCE_DIR}/wayland/protocols)
set(generated)
foreach(xml
    ${own}/wlr-data-control-unstable-v1.xml
    ${own}/virtual-keyboard-unstable-v1.xml
    ${own}/wlr-layer-shell-unstable-v1.xml
    ${wayland_protocols}/stable/xdg-shell/xdg-shell.xml  # whose popups the layer shell knows
    ${plasma_protocols}/fake-input.xml)
  get_filename_component(protocol ${xml} NAME_WE)
  set(path ${CMAKE_CURRENT_BINARY_DIR}/protocols/${protocol})
  add_custom_command(OUTPUT ${path}-client.h ${path}.c
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/protocols
    COMMAND ${wayland_scanner} client-header ${xml} ${path}-client.h
    COMMAND ${wayland_scanner} private-code ${xml} ${path}.c
    DEPENDS ${xml} VERBATIM)
  list(APPEND generated ${path}.c ${path}-client.h)
endforeach()

add_library(nulo_wayland_protocols STATIC ${generated})
target_compile_options(nulo_wayland_protocols PRIVATE -w)  # C, under warnings meant for C++
target_include_directories(nulo_wayland_protocols SYSTEM INTERFACE ${CMAKE_CURRENT_BINARY_DIR}/protocols)
target_link_libraries(nulo_wayland_protocols PUBLIC PkgConfig::WAYLAND)
