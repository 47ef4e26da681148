// Preloaded into a program: ends it, as the system would, at the call number END_AT_CHANGE that
// changes a file, before the call has its effect; a write has then written half. Writes how many
// such calls there were to the file COUNT_CHANGES. Renaming to the path FAIL_RENAME_TO fails.

#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { kEnded = 99 };

static int calls;

static int IsTheOne(void) {
    const char* wanted = getenv("END_AT_CHANGE");
    return ++calls == (wanted == NULL ? 0 : atoi(wanted));
}

static void EndHere(void) {
    if (IsTheOne()) _exit(kEnded);
}

#define NEXT(name) ((__typeof__(&(name)))dlsym(RTLD_NEXT, #name))

int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if ((flags & O_CREAT) != 0) EndHere();
    return NEXT(open)(path, flags, mode);
}

ssize_t write(int file, const void* data, size_t size) {
    if (file > 2 && IsTheOne()) {
        (void)!NEXT(write)(file, data, size / 2);
        _exit(kEnded);
    }
    return NEXT(write)(file, data, size);
}

int fchmod(int file, mode_t mode) {
    EndHere();
    return NEXT(fchmod)(file, mode);
}

int fchown(int file, uid_t owner, gid_t group) {
    EndHere();
    return NEXT(fchown)(file, owner, group);
}

int fsync(int file) {
    EndHere();
    return NEXT(fsync)(file);
}

int rename(const char* from, const char* to) {
    EndHere();
    const char* fails = getenv("FAIL_RENAME_TO");
    if (fails != NULL && strcmp(fails, to) == 0) {
        errno = EBUSY;
        return -1;
    }
    return NEXT(rename)(from, to);
}

int unlink(const char* path) {
    EndHere();
    return NEXT(unlink)(path);
}

__attribute__((destructor)) static void Count(void) {
    const char* path = getenv("COUNT_CHANGES");
    FILE* file = path == NULL ? NULL : fopen(path, "w");
    if (file == NULL) return;
    fprintf(file, "%d\n", calls);
    fclose(file);
}
