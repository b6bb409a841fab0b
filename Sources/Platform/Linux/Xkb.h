#pragma once

// The header of the keyboard extension names members with a word that C++ reserves.
#define explicit explicit_  // NOLINT(clang-diagnostic-keyword-macro)
#include <xcb/xkb.h>
#undef explicit
