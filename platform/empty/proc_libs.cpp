/*
 * proc_libs.cpp - libproc_libs.so for linking the program when the switch's own library is not there. It never runs.
 */
extern "C" void l7proc_crashlog_register() {}
