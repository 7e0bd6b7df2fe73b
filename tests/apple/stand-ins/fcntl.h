// A stand-in, see README.md in this folder.
#pragma once
#include_next <fcntl.h>
#define F_FULLFSYNC 51
