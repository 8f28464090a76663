/* The uses of kel_lib.h's macros, compiled as C++. */
#include "frame_uses.h"

#define USE(name) cpp_##name
#define TABLE frame_uses_cpp
#include "frame_uses.inc"
