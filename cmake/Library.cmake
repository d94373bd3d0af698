# The library's two halves, compiled once:
#   tavport_logic     the portable part; sees include/, its own folders and platform/*.h
#   tavport_provider  the Linux services behind platform/*.h
# They are linked into the shared object TavPort (only the exported list is visible) and into an archive for the
# tests that look inside.
set(logic_folders text vpath system paths copy)
set(logic_sources)
foreach(folder IN LISTS logic_folders)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${folder}/*.cpp)
  list(APPEND logic_sources ${sources})
endforeach()
file(GLOB provider_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/platform/linux/*.cpp)

find_package(PkgConfig REQUIRED)
pkg_check_modules(ICU REQUIRED IMPORTED_TARGET icu-uc)
pkg_check_modules(MOUNT REQUIRED IMPORTED_TARGET mount)
pkg_check_modules(UDEV REQUIRED IMPORTED_TARGET libudev)
find_package(Threads REQUIRED)

add_library(tavport_logic OBJECT ${logic_sources})
add_library(tavport_provider OBJECT ${provider_sources})
foreach(part tavport_logic tavport_provider)
  target_include_directories(${part} PUBLIC ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include)
  target_link_libraries(${part} PRIVATE tavport_warnings tavport_hardening)
  # The library's own calls reach its own functions, so they may be inlined and take no detour.
  target_compile_options(${part} PRIVATE -fno-semantic-interposition)
  set_target_properties(${part} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endforeach()
if(TAVPORT_COVERAGE)
  foreach(part tavport_logic tavport_provider)
    target_compile_options(${part} PRIVATE --coverage -fprofile-update=atomic)
    target_link_options(${part} INTERFACE --coverage)
  endforeach()
endif()
# The types behind the exported functions, for debuggers and for the record of the binary interface.
target_compile_options(tavport_logic PRIVATE -g)
# The system calls that only the GNU headers declare, and 64-bit offsets and times on 32-bit hosts. The latter change the
# layout of what the provider's headers pass about, so the tests that include these need them too.
target_compile_definitions(tavport_provider PRIVATE _GNU_SOURCE)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_definitions(tavport_provider PUBLIC _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()
# GCC would move constants from general registers into vectors in every round of these loops.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-mtune-ctrl=^inter_unit_moves_to_vec TAVPORT_KEEPS_VECTOR_CONSTANTS)
if(TAVPORT_KEEPS_VECTOR_CONSTANTS)
  set_source_files_properties(${CMAKE_SOURCE_DIR}/text/utf_blocks.cpp PROPERTIES COMPILE_OPTIONS
                                                                      -mtune-ctrl=^inter_unit_moves_to_vec)
endif()
target_link_libraries(tavport_provider PUBLIC PkgConfig::ICU PkgConfig::MOUNT PkgConfig::UDEV Threads::Threads
                                              ${CMAKE_DL_LIBS})

add_library(tavport_static STATIC)
target_link_libraries(tavport_static PUBLIC tavport_logic tavport_provider)

# The exported list is the one source of the linker's version script.
set(exports ${CMAKE_SOURCE_DIR}/include/TavPort.exports)
set(version_script ${CMAKE_BINARY_DIR}/TavPort.map)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${exports})
file(STRINGS ${exports} symbols REGEX "^[^#]")
list(JOIN symbols "@SEMICOLON@\n    " global)
set(SEMICOLON ";")
file(CONFIGURE OUTPUT ${version_script} CONTENT "TAVPORT_1 {\n  global:\n    ${global};\n  local:\n    *;\n};\n" @ONLY)

# The same objects twice: TavPort lies in the framework, tavport_shared is what `cmake --install` puts into a system's
# library folder.
function(tavport_add_shared_library target)
  add_library(${target} SHARED)
  target_link_libraries(${target} PRIVATE tavport_logic tavport_provider tavport_hardening)
  target_include_directories(${target} INTERFACE $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include>)
  target_link_options(${target} PRIVATE -Wl,--version-script=${version_script} -Wl,--as-needed
                                        -Wl,-Bsymbolic-functions)
  if(NOT TAVPORT_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,-z,defs)
  endif()
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${version_script})
endfunction()
tavport_add_shared_library(TavPort)
