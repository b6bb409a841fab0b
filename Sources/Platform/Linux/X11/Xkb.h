#pragma once

// The header of the keyboard extension names members with a word that C++ reserves. Compilers warn
// of the way around it, except in a system's header.
#pragma GCC system_header

#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit
