/* Fields out of text with POSIX extended regular expressions (REG_EXTENDED: case counts, "."
 * matches a newline, "^" and "$" match at the ends of the text searched), in one call. Slot 0 is
 * the whole match, slots 1 to 9 the first nine groups in parentheses.
 *
 * The pattern is compiled anew on each call; the heap it takes is the C library's, and so is the
 * stack (with glibc 20 KB). One that does not compile is logged at LOG_DEBUG and finds nothing.
 * Without a match no output is touched; nor is the output of a group that took no part in the
 * match, or of those behind it.
 */
#ifndef ROUTERKIT_REGEX_H
#define ROUTERKIT_REGEX_H

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

enum { REGEX_SLOTS = 10 };

/* Receives one match: where each slot starts in the text and ends behind it (both null for a group
 * that took no part), and the caller's argument. Returns where to search for the next match, beyond
 * the start of this one (as a rule ends[0]), or null to stop. The search starts afresh there: "^"
 * matches. */
typedef char *regex_cb_t(char **starts, char **ends, void *arg);
typedef const char *regex_const_cb_t(const char **starts, const char **ends, void *arg);

/* Hands over match after match; returns the number whose callback asked to go on. */
ROUTERKIT_API int regex_find_all_cb(char *text, const char *pattern, regex_cb_t *callback,
                                    void *arg);
ROUTERKIT_API int regex_find_all_const_cb(const char *text, const char *pattern,
                                          regex_const_cb_t *callback, void *arg);

/* The first match's groups as pointers into the text.
 *   ...  for each group from 1 on: where to store its start (char **, const char ** in the second
 *        form) and the end behind it (null: not wanted); a null start ends the list
 * Returns the end of the whole match, or null. */
ROUTERKIT_API char *regex_find_ref(char *text, const char *pattern, ...);
ROUTERKIT_API const char *regex_find_const_ref(const char *text, const char *pattern, ...);

/* The first match's groups as copies.
 *   ...  for each group from 1 on: a buffer (char *) and its size in bytes (int), to which a longer
 *        group is cut; one below 1 receives nothing. A null buffer ends the list
 * Returns the end of the whole match, or null. */
ROUTERKIT_API const char *regex_find_ex(const char *text, const char *pattern, ...);

ROUTERKIT_END_DECLS

#endif
