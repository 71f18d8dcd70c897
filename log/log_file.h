/*
 * log_file.h - the files that all users of /tmp share: the log, the log before it, and the level file. Other users can
 * make, link and lock what they like there before this process comes.
 */
#ifndef LOG_LOG_FILE_H
#define LOG_LOG_FILE_H

#include <sys/stat.h>

/*
 * Sizes of the log. Above LIMIT it is rotated. Above PATIENCE it is rotated even while another process holds the lock
 * for rotation. Above HOPELESS its content is dropped, if it cannot be rotated.
 */
enum : long { LOG_LIMIT = 0x100000, LOG_PATIENCE = 2 * LOG_LIMIT, LOG_HOPELESS = 8 * LOG_LIMIT };

/*
 * Opens the level file; creates it when it is missing. Never waits and follows no link. A file with a second name is
 * replaced by a copy of the same mode and owner; the second name keeps the old file. Returns the descriptor, with the
 * file's status; -1 on failure, or when it is no regular file.
 */
int levelFileOpen(struct stat *status);

/* Opens the log in the same way, for appending. */
int logFileOpen(struct stat *status);

/*
 * Are open files of that status still what levelFileOpen and logFileOpen would open now? If so, brings the status up to
 * date.
 */
bool levelFileIsCurrent(struct stat *status);
bool logFileIsCurrent(struct stat *status);

enum RotationResult {
    NOT_ROTATED, /* its lock belongs to another process, or it cannot be rotated; its lines are still there */
    ROTATED,     /* by this process or another one */
    GIVEN_UP     /* its lines are lost; errno says why it cannot be rotated */
};

/*
 * Makes the log of descriptor `file`, which is larger than LOG_LIMIT, the old one. A new log has its mode and owner.
 * Afterwards open the log again: that also gives up the lock.
 */
RotationResult logFileRotate(int file);

#endif
