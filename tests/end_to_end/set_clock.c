/** @file
 * Sets the clock of one program while it runs.
 */
#define _GNU_SOURCE // NOLINT: declares syscall()

#include <fcntl.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

/**
 * How many seconds the clock is set forward: VANTOR_CLOCK_STEP as soon as the file VANTOR_CLOCK_SET exists.
 * The first call after that creates the file VANTOR_CLOCK_READ.
 */
static time_t step(void)
{
    if (access(getenv("VANTOR_CLOCK_SET"), F_OK) != 0)
    {
        return 0;
    }
    close(open(getenv("VANTOR_CLOCK_READ"), O_CREAT | O_WRONLY, 0600));
    return strtol(getenv("VANTOR_CLOCK_STEP"), NULL, 10);
}

/** Like the function of the system, but the time of day can be set. */
int clock_gettime(clockid_t clock, struct timespec *now)
{
    const long result = syscall(SYS_clock_gettime, clock, now);
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
    {
        now->tv_sec += step();
    }
    return (int)result;
}

/** Like the function of the system, with the time of clock_gettime(). */
int gettimeofday(struct timeval *now, void *zone)
{
    (void)zone;
    struct timespec exact;
    clock_gettime(CLOCK_REALTIME, &exact);
    now->tv_sec = exact.tv_sec;
    now->tv_usec = exact.tv_nsec / 1000;
    return 0;
}

/** Like the function of the system, with the time of clock_gettime(). */
time_t time(time_t *now)
{
    struct timespec exact;
    clock_gettime(CLOCK_REALTIME, &exact);
    if (now != NULL)
    {
        *now = exact.tv_sec;
    }
    return exact.tv_sec;
}
