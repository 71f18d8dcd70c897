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
 * is 6, without the log file its lines go to standard output. A link, a second name, anything but a regular file, and a
 * file that somebody makes others wait for, count as none.
 */
void logOpen(int flags, int facility, const char *identity);

/* Writes one line; the message carries its own newline. Works before logOpen too, then to standard output. */
void logWrite(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* Closes what logOpen opened, provided a line was ever written. */
void logClose();

/* A line with the customary "[function:line] " in front; LOG_AS is for the helpers of a function of that name. */
#define LOG(level, format, ...) LOG_AS(__func__, level, format __VA_OPT__(, ) __VA_ARGS__)
#define LOG_AS(function, level, format, ...) \
    logWrite(level, "[%s:%d] " format, function, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

/* Text that a client sent, on its way into a line: control bytes, which could steer a terminal, become "?". */
void logMaskControls(char *text);

#endif
