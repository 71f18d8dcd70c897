/*
 * log.h - the logger. The switch's management programs share one log file of limited size, and one file with a digit:
 * the threshold.
 */
#ifndef LOG_LOG_H
#define LOG_LOG_H

/* Where lines go; values can be combined. This program opens only the file; the other two stay, as the logger's API. */
enum LogFlags { LOG_TO_FILE = 1, LOG_TO_SYSLOG = 2, LOG_TO_STDOUT = 4 };

/* Levels are syslog priorities. A line is written when its level is at or below the threshold. */
enum LogLevel { LEVEL_ERROR = 3, LEVEL_WARN = 4, LEVEL_NOTICE = 5, LEVEL_INFO = 6, LEVEL_DEBUG = 7 };

/*
 * Opens the log with LogFlags, a syslog facility, and the identity in every line (null: the process name; not copied).
 * Call it again to change them. Failures are silent: without the level file the threshold is 6, without the log file
 * its lines go to standard output. See log_file.h for what counts as such a file.
 */
void logOpen(int flags, int facility, const char *identity);

/*
 * For a process that stays: notices files and a time zone that other processes have changed, removed or replaced, so
 * that the next line is written as by a process that starts now.
 */
void logRefresh();

/* Writes one line; `format` must end with a newline. Before logOpen, lines go to standard output. */
void logWrite(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* Closes what logOpen opened, if a line was written since. */
void logClose();

/* Writes a line that begins with "[function:line] ". LOG_AS: a helper logs under the name of another function. */
#define LOG(level, format, ...) LOG_AS(__func__, level, format __VA_OPT__(, ) __VA_ARGS__)
#define LOG_AS(function, level, format, ...) \
    logWrite(level, "[%s:%d] " format, function, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

/*
 * Replaces each byte of a control character (C0, DEL and C1) by "?". For text from a client: in a log line they could
 * control the reader's terminal.
 */
void logMaskControls(char *text);

#endif
