#ifndef KQCTL_KQCTL_H
#define KQCTL_KQCTL_H
/*
 * The container control library: running code inside a container and
 * questions about containers' private areas.
 *
 * All functions are thread-safe and keep no state between calls. Failures
 * are reported through the result (negative) and errno; no function prints.
 */
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Opens the library for use. Returns 0, or -1 with errno set when no
 * container platform is present on this host. Calling it more than once is
 * harmless. */
int kqctl_open(void);

/* The function run inside the container; its result becomes the exit
 * status of the process running it. */
typedef int (*kqctl_env_exec_fn)(void* data);

/* Runs `fn(data)` inside the running container `veid` in a new process and
 * returns at once with that process's pid (the caller reaps it).
 *   root        the caller's configuration root; informational only
 *   stdin_fd    becomes the process's standard input (-1: inherited)
 *   stdout_fd   becomes the process's standard output (-1: inherited)
 *   timeout     seconds the process may run, 0 for no limit (not enforced
 *               on this platform)
 *   flags       0; no flags are defined
 *   error       when not null, receives the errno value of a failure
 * The process starts in the container's root directory when that exists
 * (VEID 0, the host, in the host root). Returns the pid, or -1 with errno
 * (and *error) set: ESRCH when the container is not running, EINVAL for a
 * null function or unknown flags, or what fork failed with. */
pid_t kqctl_env_exec_fn_async(int veid, const char* root, kqctl_env_exec_fn fn, void* data, int stdin_fd,
                              int stdout_fd, int timeout, int flags, int* error);

/* The layout version of a container's private area: 4 when
 * "PRIVATE/.ve.layout" holds 4, 3 for any other existing private area.
 * Returns -1 with errno set when `private_dir` is null or not a directory. */
int kqctl_env_layout_version(const char* private_dir);

/* Undoes the escaping the control tool applies to a value it stores between
 * double quotes (a container's name or description): a backslash before
 * '\\', '"', '$' or '`' is dropped, a backslash before a newline is dropped
 * together with the newline, and any other backslash stays as it is.
 * Works in place on the NUL-terminated `text` (the result is never longer)
 * and returns `text`; null gives null. */
char* kqctl_unescapestr_eq(char* text);

#ifdef __cplusplus
}
#endif

#endif /* KQCTL_KQCTL_H */
