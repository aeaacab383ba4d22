/* Preloaded into a program to play a system that refuses threads (a pids or
 * memory limit): TXSCAN_REFUSE_THREAD=N makes the N-th pthread_create fail
 * with EAGAIN, "N+" the N-th and every later one. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdlib.h>
#include <string.h>

typedef int (*create_fn)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

static atomic_long calls;

int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*), void* arg) {
    static create_fn next;
    if (next == NULL) next = (create_fn)dlsym(RTLD_NEXT, "pthread_create");
    const char* rule = getenv("TXSCAN_REFUSE_THREAD");
    const long call = atomic_fetch_add(&calls, 1) + 1;
    if (rule != NULL) {
        const long first = strtol(rule, NULL, 10);
        const int onwards = strchr(rule, '+') != NULL;
        if (call == first || (onwards && call > first)) return EAGAIN;
    }
    return next(thread, attr, start, arg);
}
