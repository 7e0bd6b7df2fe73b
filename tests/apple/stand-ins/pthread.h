// A stand-in, see README.md in this folder.
#pragma once
#include_next <pthread.h>
extern "C" int pthread_cond_timedwait_relative_np(pthread_cond_t*, pthread_mutex_t*, const struct timespec*);
extern "C" int pthread_setname_np(const char*);
