# How everything here is compiled: one interface target, zel_build, that every target of ours links.

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

# The preconditions of the samples and image routines are assertions that belong to the shipped library.
foreach(config RELEASE RELWITHDEBINFO MINSIZEREL)
  string(REGEX REPLACE "[-/]D *NDEBUG" "" CMAKE_CXX_FLAGS_${config} "${CMAKE_CXX_FLAGS_${config}}")
endforeach()

# A library and its platform libraries must stand in one folder, next to the host: the build tree has one, too.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_INSTALL_RPATH "$ORIGIN")
# What is linked from outside the system's own folders is found where it was linked.
set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)
# Files are built with the search path that they are installed with. CMake would fill up another one with colons, to
# make room, and an empty element between them is the current folder: anybody's libraries, before the system's.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
# Where the library, its platform libraries and the command are installed together; bin/zel is a link into it.
set(ZEL_INSTALL_APPDIR "${CMAKE_INSTALL_LIBDIR}/zel")

set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_library(zel_build INTERFACE)
target_compile_features(zel_build INTERFACE cxx_std_20)
target_include_directories(zel_build INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(zel_build INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow
  -UNDEBUG
  # Assertions of an installed library name files of the source tree, not of the machine that built it.
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=
  -fvisibility=hidden -fvisibility-inlines-hidden
  # Results are specified as plain IEEE doubles, one rounding per operation.
  -ffp-contract=off)
target_link_options(zel_build INTERFACE -Wl,--as-needed)
# Clang puts the sanitizers' functions into programs only, and leaves them undefined in shared libraries.
if(NOT (CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND ZEL_SANITIZE))
  target_link_options(zel_build INTERFACE -Wl,--no-undefined)
endif()
# x87 arithmetic would round doubles twice.
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(i.86|x86|x86_64|AMD64)$")
  target_compile_options(zel_build INTERFACE -msse2 -mfpmath=sse)
endif()
# What is in place when a damaged file finds a fault after all: checked returns and copies, tables of addresses that
# nobody can write once the program runs, marked targets of indirect calls. Debian's start-up files do not say that they
# have such marks, so that linkers would say it of no file; shadow stacks need none.
target_compile_options(zel_build INTERFACE -fstack-protector-strong)
target_link_options(zel_build INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(i.86|x86|x86_64|AMD64)$")
  target_compile_options(zel_build INTERFACE -fcf-protection=full)
  target_link_options(zel_build INTERFACE -Wl,-z,shstk)
endif()
if(NOT ZEL_SANITIZE)
  target_compile_options(zel_build INTERFACE "$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()
# A library's own names are its own: two copies in one process do not take each other's class table.
target_link_options(zel_build INTERFACE
  "$<$<IN_LIST:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY;MODULE_LIBRARY>:-Wl,-Bsymbolic>")
if(ZEL_WERROR)
  target_compile_options(zel_build INTERFACE -Werror)
endif()

if(ZEL_SANITIZE)
  # 'vptr' would look up the dynamic type of foreign objects, which an interface pointer does not have to have.
  # -O1: instrumented code takes a quarter less time to compile than with the build type's -O2.
  set(zel_sanitize_flags -fsanitize=${ZEL_SANITIZE} -fno-omit-frame-pointer -g1 -O1)
  if(ZEL_SANITIZE MATCHES "undefined")
    list(APPEND zel_sanitize_flags -fno-sanitize=vptr -fno-sanitize-recover=all)
  endif()
  target_compile_options(zel_build INTERFACE ${zel_sanitize_flags})
  target_link_options(zel_build INTERFACE -fsanitize=${ZEL_SANITIZE})
endif()

# Fuzzers are guided by the coverage of all code of ours.
if(ZEL_BUILD_FUZZ)
  target_compile_options(zel_build INTERFACE -fsanitize=fuzzer-no-link)
endif()

# zel_room(<name> <source>...): one room of the library, compiled once and linked both into the shared
# library and, with its private parts in reach, into the unit tests.
function(zel_room name)
  add_library(zel_${name} OBJECT ${ARGN})
  target_link_libraries(zel_${name} PRIVATE zel_build)
endfunction()
