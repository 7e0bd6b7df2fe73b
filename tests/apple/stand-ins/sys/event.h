// A stand-in, see README.md in this folder.
#pragma once
#include <stdint.h>
#include <time.h>
struct kevent {
  uintptr_t ident;
  int16_t filter;
  uint16_t flags;
  uint32_t fflags;
  intptr_t data;
  void* udata;
};
enum { EVFILT_READ = -1, EVFILT_WRITE = -2 };
enum { EV_ADD = 1, EV_DELETE = 2, EV_CLEAR = 0x20, EV_FLAG1 = 0x2000, EV_OOBAND = 0x2000, EV_ERROR = 0x4000 };
#define EV_SET(kev, i, fi, fl, ff, d, u) (*(kev) = {i, fi, fl, ff, d, u})
extern "C" int kqueue(void);
extern "C" int kevent(int, const struct kevent*, int, struct kevent*, int, const struct timespec*);
