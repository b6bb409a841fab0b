# Finds a C library that has a pkg-config file, and gives it a target. On a Mac it is the archive, if
# there is one: the Macs that programs are copied to have no Homebrew.
function(tervain_library target package header library)
  if(APPLE)
    find_path(${target}_INCLUDE_DIR ${header} REQUIRED)
    find_library(${target}_LIBRARY NAMES lib${library}.a ${library} REQUIRED)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
    target_include_directories(${target} SYSTEM INTERFACE ${${target}_INCLUDE_DIR})
    target_link_libraries(${target} INTERFACE ${${target}_LIBRARY})
  else()
    pkg_check_modules(${target} REQUIRED IMPORTED_TARGET GLOBAL ${package})
    add_library(${target} ALIAS PkgConfig::${target})
  endif()
endfunction()

tervain_library(Utf8proc libutf8proc utf8proc.h utf8proc)
tervain_library(Turbojpeg libturbojpeg turbojpeg.h turbojpeg)
