// A stand-in, see README.md in this folder.
#pragma once
#define st_mtim st_mtimespec
#define st_ctim st_ctimespec
#include_next <sys/stat.h>
#undef st_mtim
#undef st_ctim
