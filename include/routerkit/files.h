/* Small files: one value per file, flag files, pid files.
 *
 * Every function opens its file, makes one transfer and closes it again. Unless a line says
 * otherwise the result is -1 on failure, with errno as the failing system call left it; nothing is
 * logged. Files are created with mode 0666, less the umask. The functions that format build their
 * text in 2048 bytes: a longer text is refused with -1 and errno ENOBUFS, and nothing is written.
 */
#ifndef ROUTERKIT_FILES_H
#define ROUTERKIT_FILES_H

#include <stddef.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* --- Existence and flags --- */

/* 1 if something exists at the path (a file, a folder or anything else), else 0. */
ROUTERKIT_API int isFileExist(const char *path);

/* 1 if the size is 0, 0 if it is not, -1 if the path cannot be examined. */
ROUTERKIT_API int isFileEmpty(const char *path);

/* Creates an empty file; an existing one is truncated. 0 or -1. */
ROUTERKIT_API int createFile(const char *path);

/* Sets (on != 0: createFile) or clears (on == 0: unlink) a flag file. Clearing a flag that is not
 * set fails with ENOENT. 0 or -1. */
ROUTERKIT_API int flagFile(const char *path, int on);

/* Sets a flag once: 1 if this call created the file, 0 if it was there already (it is not touched),
 * -1 if it cannot be created. */
ROUTERKIT_API int upFlagFile(const char *path);

/* The modification time in UTC, packed: seconds in bits 0-5, minutes 6-11, hours 12-16, day of the
 * month (from 1) 17-21, month (from 0) from bit 22 up; the year is not kept. -1 on failure. */
ROUTERKIT_API int getFileTime(const char *path);

/* --- Folders --- */

/* Creates every missing folder along a path, mode 0777 less the umask.
 *   path        writable text: it is cut at the slashes meanwhile and restored before the return
 *   lastIsFile  non-zero: the last component is a file's name and is not created
 * 0, or -1 if a component is no folder (ENOTDIR) or cannot be made; those made before it stay. */
ROUTERKIT_API int mkpath(char *path, int lastIsFile);

/* Makes one folder, mode 0755 less the umask, no parents; the path is formatted. 0 or -1. */
ROUTERKIT_API int mkdirf(const char *format, ...) ROUTERKIT_PRINTF(1, 2);

/* --- Writing: the whole file is replaced --- */

/* Writes all of a buffer (at most INT_MAX bytes) to an open descriptor, through interruptions and
 * short writes. Returns the length, or the negative result of write. */
ROUTERKIT_API int safe_write(int fd, const void *buffer, size_t length);

/* Formats and makes one write to an open descriptor; returns write's result. */
ROUTERKIT_API int writeFmt(int fd, const char *format, ...) ROUTERKIT_PRINTF(2, 3);

/* Returns the length written; a null buffer removes the file instead (0 or -1). */
ROUTERKIT_API int writeFile(const char *path, const void *buffer, size_t length);

/* Writes the text as it stands, without a newline of its own; returns its length. A null text: -1,
 * errno EINVAL, the file is not touched. */
ROUTERKIT_API int writeStrToFile(const char *path, const char *text);

/* Writes a formatted text; returns its length. */
ROUTERKIT_API int writeFmtToFile(const char *path, const char *format, ...) ROUTERKIT_PRINTF(2, 3);

/* Writes the text and a newline, 2047 characters in all at most; returns the length. A null text is
 * refused as by writeStrToFile. */
ROUTERKIT_API int writeLineToFile(const char *path, const char *text);

/* Writes the number in decimal and a newline; returns the length. */
ROUTERKIT_API int writeNumToFile(const char *path, long number);

/* --- Appending: the file is created where it is missing --- */

/* Returns the length appended. A null buffer: -1, errno EINVAL, nothing is opened. */
ROUTERKIT_API int appendFile(const char *path, const void *buffer, size_t length);

/* As appendFile; a null text returns 0 and touches nothing. */
ROUTERKIT_API int appendStrToFile(const char *path, const char *text);

/* Appends a formatted text; returns its length. */
ROUTERKIT_API int appendFmtToFile(const char *path, const char *format, ...) ROUTERKIT_PRINTF(2, 3);

/* Appends the text and a newline, 2047 characters in all at most; a null text returns 0 and
 * touches nothing. */
ROUTERKIT_API int appendLineToFile(const char *path, const char *text);

/* --- Reading: texts are not trimmed --- */

/* One read, repeated only while a signal interrupts it; returns read's result. */
ROUTERKIT_API int safe_read(int fd, void *buffer, size_t length);

/* Reads up to `length` bytes with one read; no terminator is added. Returns the bytes read. */
ROUTERKIT_API int readFile(const char *path, void *buffer, size_t length);

/* Reads a text of up to size - 1 bytes with one read.
 *   buffer  receives the text and a NUL; untouched on failure
 *   size    room in buffer in bytes, at least 1 (0: -1, errno EINVAL)
 * Returns the bytes read (0: empty file). */
ROUTERKIT_API int readStrFromFile(const char *path, char *buffer, size_t size);

/* Scans the first 2047 bytes with vsscanf; returns the number of conversions made (EOF for a text
 * that ends before the first). */
ROUTERKIT_API int readFmtFromFile(const char *path, const char *format, ...) ROUTERKIT_SCANF(2, 3);

/* The decimal number at the start of a file, as atol reads its first 15 bytes: 0 for a text that is
 * no number, -1 if the file cannot be read (a stored -1 looks the same). */
ROUTERKIT_API long readNumFromFile(const char *path);

/* Reads a whole file into a fresh block, terminated by a NUL, which the caller frees.
 *   length  receives the number of bytes read; may be null
 * The block has the size that the file system reports: files that report 0, as those of /proc do,
 * load as an empty text. Null if the file cannot be examined or read, or without memory. */
ROUTERKIT_API char *loadFile(const char *path, size_t *length);

/* --- Copying --- */

/* Copies a file with one transfer (at most 0x7ffff000 bytes); the destination is replaced, and empty
 * when the transfer fails, as it does for files of /proc. The two must be different files: copying a
 * file to itself empties it. Returns the bytes copied, or -1. */
ROUTERKIT_API int copyFile(const char *destination, const char *source);

ROUTERKIT_END_DECLS

#endif
