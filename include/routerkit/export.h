/* How every routerkit header declares its functions. */
#ifndef ROUTERKIT_EXPORT_H
#define ROUTERKIT_EXPORT_H

/* Marks a name that the shared object exports; everything else stays hidden. */
#define ROUTERKIT_API __attribute__((visibility("default")))

/* Let the compiler check the arguments against the format: `format` is the position of the format
 * text, `first` that of the first argument (0 when the arguments come as a va_list). */
#define ROUTERKIT_PRINTF(format, first) __attribute__((__format__(__printf__, format, first)))
#define ROUTERKIT_SCANF(format, first) __attribute__((__format__(__scanf__, format, first)))

#ifdef __cplusplus
#define ROUTERKIT_BEGIN_DECLS extern "C" {
#define ROUTERKIT_END_DECLS }
#else
#define ROUTERKIT_BEGIN_DECLS
#define ROUTERKIT_END_DECLS
#endif

#endif
