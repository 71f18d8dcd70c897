/*
 * openclt.cpp - libopenclt.so for linking the program when the switch's own library is not there: every function by name, and
 * none does anything. It never runs.
 */
#define OPEN_OPERATION(name, ...) extern "C" void name() {}
#include "openclt_operations.def"
OPEN_OPERATION(openapiClientRegister)
OPEN_OPERATION(openapiClientTearDown)
