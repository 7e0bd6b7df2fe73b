// A stand-in, see README.md in this folder.
#pragma once
#define TARGET_OS_MAC 1
#define TARGET_OS_OSX 0
#define TARGET_OS_IPHONE 1
#define TARGET_OS_IOS 1
#define TARGET_OS_SIMULATOR 0
