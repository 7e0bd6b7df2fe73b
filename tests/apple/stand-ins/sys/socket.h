// A stand-in, see README.md in this folder.
#pragma once
#include_next <sys/socket.h>
#ifndef SO_NOSIGPIPE
#define SO_NOSIGPIPE 0x1022
#endif
