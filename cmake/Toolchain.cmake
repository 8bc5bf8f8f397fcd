# Flags of every target of this project; none of them is exported to a consumer.
add_library(sorrel_flags INTERFACE)
target_compile_features(sorrel_flags INTERFACE cxx_std_20)
target_compile_options(sorrel_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion
                       -Wnon-virtual-dtor -Woverloaded-virtual -Wswitch -Wvla -Wold-style-cast)
# GCC 12 sees an overlap in every `"text" + string` of an optimised build (bug 105651).
target_compile_options(sorrel_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
if(SORREL_DEVELOPER_MODE)
  target_compile_options(sorrel_flags INTERFACE -Werror)
endif()

if(SORREL_SANITIZE)
  string(REPLACE "," ";" sanitizers "${SORREL_SANITIZE}")
  add_compile_options(-fsanitize=${SORREL_SANITIZE} -fno-omit-frame-pointer -O1)
  add_link_options(-fsanitize=${SORREL_SANITIZE})
  # GCC 12 takes instrumented bounds for wrong ones (bug 105562 and similar); the other presets keep the warnings.
  foreach(warning array-bounds maybe-uninitialized stringop-overflow)
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-${warning}>)
  endforeach()
  if("undefined" IN_LIST sanitizers)
    add_compile_options(-fno-sanitize-recover=all)
  endif()
else()
  add_compile_definitions($<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
endif()

find_program(SORREL_CCACHE ccache)
if(SORREL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${SORREL_CCACHE}")
endif()

# mold or lld when they are there: a test program links in a third of the time.
if(NOT SORREL_SANITIZE)
  foreach(linker mold lld)
    find_program(SORREL_LINKER_${linker} NAMES ${linker} ld.${linker})
    if(SORREL_LINKER_${linker})
      add_link_options(-fuse-ld=${linker})
      break()
    endif()
  endforeach()
endif()
