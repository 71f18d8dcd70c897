/*
 * proc_libs.h - the platform process library (libproc_libs.so), as far as this program uses it.
 */
#ifndef PROC_LIBS_H
#define PROC_LIBS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Installs the crash recorder: from now on a crash of this process leaves a record with the platform. Cannot fail. */
__attribute__((visibility("default"))) void l7proc_crashlog_register(void);

#ifdef __cplusplus
}
#endif

#endif
