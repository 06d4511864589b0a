/*
 * Preloaded into the aarch64 test programs that run under qemu-user (see the toolchain file).
 *
 * QProcess starts children through Qt's forkfd, which asks the kernel with
 * waitid(P_PIDFD, ...) whether clone(CLONE_PIDFD) is there. Under qemu-user 7.2 that probe
 * reaches the host kernel, which has it, but qemu refuses the clone flag itself with EINVAL, so
 * no child would ever start. Answering the probe with ENOSYS makes forkfd take its classic path
 * (fork and a SIGCHLD handler), which qemu emulates. Every other call goes through unchanged.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <sys/syscall.h>

#ifndef P_PIDFD
#define P_PIDFD 3
#endif

long syscall(long number, ...)
{
    /* Like glibc's own syscall(), always take six arguments; unused ones are ignored. */
    va_list args;
    va_start(args, number);
    long a[6];
    for (int i = 0; i < 6; ++i)
        a[i] = va_arg(args, long);
    va_end(args);

    if (number == SYS_waitid && a[0] == P_PIDFD) {
        errno = ENOSYS;
        return -1;
    }
    static long (*next)(long, ...);
    if (!next)
        next = (long (*)(long, ...))dlsym(RTLD_NEXT, "syscall");
    return next(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}
