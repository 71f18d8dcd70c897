/*
 * proc_libs.h - the platform process library (libproc_libs.so), as far as this program uses it.
 */
#ifndef PROC_LIBS_H
#define PROC_LIBS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Installs the crash recorder: if this process crashes, the platform gets a record of it. Cannot fail. */
__attribute__((visibility("default"))) void l7proc_crashlog_register(void);

#ifdef __cplusplus
}
#endif

#endif
