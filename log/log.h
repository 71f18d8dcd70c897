/*
 * log.h - the program's only voice besides its answer: a size-capped log file shared with the switch's other
 * management programs, whose threshold is one digit in a file shared by all of them.
 */
#ifndef LOG_LOG_H
#define LOG_LOG_H

/* Where lines go; the values can be combined. */
enum LogFlags { LOG_TO_FILE = 1, LOG_TO_SYSLOG = 2, LOG_TO_STDOUT = 4 };

/* Levels are syslog priorities: a line is written when its level is at or below the threshold. */
enum LogLevel { LEVEL_ERROR = 3, LEVEL_WARN = 4, LEVEL_NOTICE = 5, LEVEL_INFO = 6, LEVEL_DEBUG = 7 };

/*
 * Opens the log: LogFlags, syslog facility, and the identity that stands in every line (kept by reference; null: the
 * process name is used). Can be called again to change them. Failures are silent: without the level file the threshold
 * is 6, without the log file its lines go to standard output.
 */
void logOpen(int flags, int facility, const char *identity);

/* Writes one line; the message carries its own newline. Works before logOpen too, then to standard output. */
void logWrite(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* Closes what logOpen opened, provided a line was ever written. */
void logClose();

/* A line with the customary "[function:line] " in front. */
#define LOG(level, format, ...) logWrite(level, "[%s:%d] " format, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

#endif
