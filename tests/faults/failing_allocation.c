/* failing_allocation: makes one allocation of a program fail, or one and all after it. For the tests alone: it
 * is put before the C library with LD_PRELOAD and never installed.
 *
 *   FAIL_ALLOCATION=n       the n-th allocation fails, counted from 1; 0 fails none
 *   FAIL_ALLOCATION_ON=yes  and so do all that follow
 *   FAIL_ALLOCATION_REPORT=file  receives how many allocations there were and, after a crash, its stack
 *
 * The settings are read at load, since the programs under test clear their environment; so their tools are
 * spared. Sleeping takes no time: a failed update would wait 40 s.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

extern void *__libc_malloc(size_t size);
extern void *__libc_calloc(size_t count, size_t size);
extern void *__libc_realloc(void *block, size_t size);
extern void *__libc_memalign(size_t alignment, size_t size);

static atomic_ulong counted;
static unsigned long failing;
static int fails_on;
static int report = -1;
static pid_t own_process;

static int fails(void)
{
    const unsigned long number = atomic_fetch_add(&counted, 1) + 1;
    if (failing == 0 || (fails_on ? number < failing : number != failing))
        return 0;
    errno = ENOMEM;
    return 1;
}

void *malloc(size_t size)
{
    return fails() ? NULL : __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    return fails() ? NULL : __libc_calloc(count, size);
}

void *realloc(void *block, size_t size)
{
    return fails() ? NULL : __libc_realloc(block, size);
}

void *aligned_alloc(size_t alignment, size_t size)
{
    return fails() ? NULL : __libc_memalign(alignment, size);
}

int posix_memalign(void **block, size_t alignment, size_t size)
{
    if (fails())
        return ENOMEM;
    *block = __libc_memalign(alignment, size);
    return *block ? 0 : ENOMEM;
}

int nanosleep(const struct timespec *wanted, struct timespec *left)
{
    (void)wanted;
    (void)left;
    return 0;
}

static void write_text(const char *text)
{
    const ssize_t written = write(report, text, strlen(text));
    (void)written;
}

/* Writes the modules on the stack, innermost first, and lets the signal do what it would have done. */
static void report_crash(int number)
{
    void *frames[64];
    const int depth = backtrace(frames, 64);
    write_text("crash\n");
    backtrace_symbols_fd(frames, depth, report);
    signal(number, SIG_DFL);
    raise(number);
}

/* The report has a high number, so that the program gets the descriptors that it would get without it. */
static int open_report(void)
{
    const char *path = getenv("FAIL_ALLOCATION_REPORT");
    const int opened = path ? open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600) : -1;
    const int moved = opened == -1 ? -1 : fcntl(opened, F_DUPFD_CLOEXEC, 500);
    if (opened != -1)
        close(opened);
    return moved;
}

__attribute__((constructor)) static void begin(void)
{
    static const int crashes[] = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL};
    void *frame[1];
    report = open_report();
    backtrace(frame, 1); /* loads what it needs now, not in a signal handler */
    for (size_t i = 0; i < sizeof crashes / sizeof *crashes; ++i)
        signal(crashes[i], report_crash);
    const char *number = getenv("FAIL_ALLOCATION");
    const char *on = getenv("FAIL_ALLOCATION_ON");
    own_process = getpid();
    fails_on = on && strcmp(on, "yes") == 0;
    atomic_store(&counted, 0);
    failing = number ? strtoul(number, NULL, 10) : 0;
}

__attribute__((destructor)) static void end(void)
{
    char text[64];
    if (report == -1 || getpid() != own_process)
        return;
    snprintf(text, sizeof text, "allocations %lu\n", atomic_load(&counted));
    write_text(text);
}
