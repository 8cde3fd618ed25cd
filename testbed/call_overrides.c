/* Preloaded into the tool, to override some of its calls. These variables control it:
 *
 * TARNWICK_TEST_RATE    The steady clock, pauses and waits run this many times as fast.
 * TARNWICK_TEST_SINCE   Instead, only the time of day runs faster, from this second on; in nginx too.
 * TARNWICK_TEST_SIGNAL  The signal to send to the tool; one of these three says when:
 * TARNWICK_TEST_AFTER     so many microseconds after the tool has set its last signal disposition,
 * TARNWICK_TEST_SPAWN     so many microseconds after the tool begins to start freshclam,
 * TARNWICK_TEST_STEP      just before the tool's change of this number to any file.
 * TARNWICK_TEST_RECORD  The file to which the tool's syncs, renames and deletions are written, in their order, each
 *                       with the last part of the path. Tests check that a loss of power would do no harm.
 * TARNWICK_TEST_CALL    The kind of call that fails: "open", "write", "fsync", "rename", "unlink" or "fork". Of these
 * TARNWICK_TEST_NTH       only the call of this number fails, and is recorded as "fail",
 * TARNWICK_TEST_ERROR     with this error. The calls of children do not fail.
 *
 * Files in sticky folders are protected as they are on Debian. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#define REAL(function) ((__typeof__(&function))dlsym(RTLD_NEXT, #function))

static long rate = 1, rate_of_day = 1, since;

static int is_program(const char *name)
{
    return strcmp(program_invocation_short_name, name) == 0;
}

static long number(const char *name)
{
    const char *text = getenv(name);
    return text && is_program("tarnwick") ? atol(text) : 0;
}

/* Runs before main, because nginx later changes its name and clears its environment. */
__attribute__((constructor)) static void read_clocks(void)
{
    const char *text = getenv("TARNWICK_TEST_SINCE");
    if (text && (is_program("tarnwick") || is_program("nginx"))) {
        since = atol(text);
        rate_of_day = atol(getenv("TARNWICK_TEST_RATE"));
    } else if (number("TARNWICK_TEST_RATE") > 0)
        rate = number("TARNWICK_TEST_RATE");
}

static struct timespec scaled(const struct timespec *time, long long times, long long divisor)
{
    long long nanoseconds = (time->tv_sec * 1000000000LL + time->tv_nsec) / divisor * times;
    return (struct timespec){nanoseconds / 1000000000, nanoseconds % 1000000000};
}

int clock_gettime(clockid_t clock, struct timespec *now)
{
    int result = REAL(clock_gettime)(clock, now);
    if (result == 0 && (clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_RAW))
        *now = scaled(now, rate, 1);
    if (result == 0 && clock == CLOCK_REALTIME) {
        now->tv_sec -= since;
        *now = scaled(now, rate_of_day, 1);
        now->tv_sec += since;
    }
    return result;
}

int gettimeofday(struct timeval *now, void *zone)
{
    struct timespec time;
    int result = clock_gettime(CLOCK_REALTIME, &time);
    (void)zone;
    *now = (struct timeval){time.tv_sec, time.tv_nsec / 1000};
    return result;
}

int poll(struct pollfd *files, nfds_t count, int timeout)
{
    return REAL(poll)(files, count, timeout > 0 ? (timeout + (int)rate - 1) / (int)rate : timeout);
}

int nanosleep(const struct timespec *asked, struct timespec *left)
{
    struct timespec shorter = scaled(asked, 1, rate);
    return REAL(nanosleep)(&shorter, left);
}

static void send_signal_after(long microseconds)
{
    static int armed;
    if (microseconds && !armed++) {
        struct sigevent event = {.sigev_notify = SIGEV_SIGNAL, .sigev_signo = (int)number("TARNWICK_TEST_SIGNAL")};
        struct itimerspec once = {.it_value = {microseconds / 1000000, microseconds % 1000000 * 1000}};
        timer_t timer;
        if (timer_create(CLOCK_MONOTONIC, &event, &timer) == 0)
            timer_settime(timer, 0, &once, NULL);
    }
}

/* SIGPIPE is the last signal whose disposition the tool sets; all its handlers are in place then. */
int sigaction(int which, const struct sigaction *action, struct sigaction *before)
{
    int result = REAL(sigaction)(which, action, before);
    if (which == SIGPIPE)
        send_signal_after(number("TARNWICK_TEST_AFTER"));
    return result;
}

static int fails(const char *call, const char *path);

int posix_spawn(pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
                const posix_spawnattr_t *attributes, char *const arguments[], char *const environment[])
{
    static const char freshclam[] = "/usr/local/vestRum/bin/freshclam ";
    if (arguments[1] && arguments[2] && strncmp(arguments[2], freshclam, strlen(freshclam)) == 0)
        send_signal_after(number("TARNWICK_TEST_SPAWN"));
    if (fails("fork", path))
        return errno;
    return REAL(posix_spawn)(child, path, actions, attributes, arguments, environment);
}

static void step(void)
{
    static long steps;
    if (++steps == number("TARNWICK_TEST_STEP"))
        kill(getpid(), (int)number("TARNWICK_TEST_SIGNAL"));
}

static void record(const char *what, const char *path)
{
    const char *to = getenv("TARNWICK_TEST_RECORD");
    int file = to && strcmp(program_invocation_short_name, "tarnwick") == 0
                   ? REAL(open)(to, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644) : -1;
    if (file >= 0) {
        const char *last = strrchr(path, '/');
        dprintf(file, "%s %s\n", what, last ? last + 1 : path);
        close(file);
    }
}

static const char *name_of(int file)
{
    static char path[4096];
    char link[32];
    snprintf(link, sizeof link, "/proc/self/fd/%d", file);
    ssize_t length = readlink(link, path, sizeof path - 1);
    path[length > 0 ? length : 0] = 0;
    return path;
}

static int fails(const char *call, const char *path)
{
    static long calls;
    const char *chosen = is_program("tarnwick") ? getenv("TARNWICK_TEST_CALL") : NULL;
    if (!chosen || strcmp(chosen, call) != 0 || ++calls != number("TARNWICK_TEST_NTH"))
        return 0;
    record("fail", path);
    errno = (int)number("TARNWICK_TEST_ERROR");
    return 1;
}

#define RECORDED(what, path) record(what, path),
#define STEP(call, path, result, name, parameters, arguments, ...) \
    result name parameters                                         \
    {                                                              \
        step();                                                    \
        return fails(call, path) ? -1 : (__VA_ARGS__ REAL(name) arguments); \
    }

STEP("fchmod", "", int, fchmod, (int file, mode_t mode), (file, mode))
STEP("fsync", name_of(file), int, fsync, (int file), (file), RECORDED("sync", name_of(file)))
STEP("open", path, int, mkdir, (const char *path, mode_t mode), (path, mode))
STEP("open", pattern, int, mkostemp, (char *pattern, int flags), (pattern, flags))
STEP("rename", to, int, rename, (const char *from, const char *to), (from, to), RECORDED("rename", to))
STEP("unlink", path, int, rmdir, (const char *path), (path))
STEP("unlink", path, int, unlink, (const char *path), (path), RECORDED("delete", path))
STEP("unlink", path, int, unlinkat, (int folder, const char *path, int flags), (folder, path, flags),
     RECORDED("delete", path))
STEP("write", name_of(file), ssize_t, write, (int file, const void *bytes, size_t count), (file, bytes, count))

/* Not a step: std::filesystem calls it for one file, which is deleted or is not. */
int remove(const char *path)
{
    return fails("unlink", path) ? -1 : (RECORDED("delete", path) REAL(remove)(path));
}

/* Does what the kernel does if fs.protected_regular is 2; a private machine cannot have its own value of that. */
static int is_protected(int folder, const char *path, int flags)
{
    struct stat file, around;
    char parent[4096];
    if (!(flags & O_CREAT) || fstatat(folder, path, &file, flags & O_NOFOLLOW ? AT_SYMLINK_NOFOLLOW : 0) != 0)
        return 0;
    snprintf(parent, sizeof parent, "%s", path);
    char *last = strrchr(parent, '/');
    strcpy(last ? last + (last == parent) : parent, last ? "" : ".");
    return S_ISREG(file.st_mode) && file.st_uid != geteuid() && fstatat(folder, parent, &around, 0) == 0 &&
           around.st_mode & S_ISVTX && around.st_mode & (S_IWGRP | S_IWOTH) && around.st_uid != file.st_uid;
}

/* Not a step: opening a file does not change an existing one. */
#define OPEN(name, parameters, at, ...)                                         \
    int name parameters                                                         \
    {                                                                           \
        va_list rest;                                                           \
        va_start(rest, flags);                                                  \
        mode_t mode = flags & (O_CREAT | O_TMPFILE) ? va_arg(rest, mode_t) : 0; \
        va_end(rest);                                                           \
        if (is_protected(at, path, flags)) {                                    \
            errno = EACCES;                                                     \
            return -1;                                                          \
        }                                                                       \
        return fails("open", path) ? -1 : REAL(name)(__VA_ARGS__, mode);        \
    }

OPEN(open, (const char *path, int flags, ...), AT_FDCWD, path, flags)
OPEN(openat, (int folder, const char *path, int flags, ...), folder, folder, path, flags)

FILE *fopen(const char *path, const char *mode)
{
    return fails("open", path) ? NULL : REAL(fopen)(path, mode);
}

FILE *fopen64(const char *path, const char *mode)
{
    return fails("open", path) ? NULL : REAL(fopen64)(path, mode);
}
