/*
 * Loaded into Wine (LD_PRELOAD): gives a pseudo-terminal modem lines.
 *
 * To wait for communication events, Wine also reads the modem lines. A pseudo-terminal has none, so
 * Wine ends each such wait at once, where a real port would wait for data. With this library a
 * pseudo-terminal looks like a device that is always ready.
 */

#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <sys/ioctl.h>
#include <termios.h>

typedef int (*ioctl_function)(int, unsigned long, ...);

static ioctl_function next_ioctl(void) {
    static ioctl_function next;
    if (next == 0) *(void**)&next = dlsym(RTLD_NEXT, "ioctl");
    return next;
}

__attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);

    const int result = next_ioctl()(fd, request, argument);
    if (result == 0 || request != TIOCMGET) return result;
    const int error = errno;
    struct termios settings;
    /* The terminal still exists; one that was hung up keeps its error. */
    if (next_ioctl()(fd, TCGETS, &settings) != 0) {
        errno = error;
        return result;
    }
    *(int*)argument = TIOCM_DSR | TIOCM_CTS | TIOCM_CAR | TIOCM_DTR | TIOCM_RTS;
    return 0;
}
