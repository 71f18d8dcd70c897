/*
 * openclt.cpp - libopenclt.so for linking the program where the switch's library is missing: all functions by their
 * names, without content. It never runs.
 */
#define OPEN_OPERATION(name, ...) extern "C" void name() {}
#include "openclt_operations.def"
OPEN_OPERATION(openapiClientRegister)
OPEN_OPERATION(openapiClientTearDown)
