/*
 * Preloaded into the daemon by tests (LD_PRELOAD) to play a kernel that
 * refuses socket set-up the daemon relies on: with FACEDET_TEST_REFUSE set,
 * setsockopt(SO_SNDTIMEO) fails with ENOPROTOOPT and the autobind bind (an
 * address of the family alone) with EADDRINUSE. Everything else passes on.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdlib.h>
#include <sys/socket.h>

static int refusing(void) {
    return getenv("FACEDET_TEST_REFUSE") != NULL;
}

int setsockopt(int fd, int level, int name, const void *value, socklen_t length) {
    if (refusing() && level == SOL_SOCKET && name == SO_SNDTIMEO) {
        errno = ENOPROTOOPT;
        return -1;
    }
    int (*real)(int, int, int, const void *, socklen_t) =
        (int (*)(int, int, int, const void *, socklen_t))dlsym(RTLD_NEXT, "setsockopt");
    return real(fd, level, name, value, length);
}

int bind(int fd, const struct sockaddr *address, socklen_t length) {
    if (refusing() && length == sizeof(sa_family_t)) {
        errno = EADDRINUSE;
        return -1;
    }
    int (*real)(int, const struct sockaddr *, socklen_t) =
        (int (*)(int, const struct sockaddr *, socklen_t))dlsym(RTLD_NEXT, "bind");
    return real(fd, address, length);
}
