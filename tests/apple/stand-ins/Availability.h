// A stand-in, see README.md in this folder.
#pragma once
#define STAND_IN_IOS(version) __attribute__((availability(ios, introduced = version)))
#define STAND_IN_IOS_UNTIL(version, last) __attribute__((availability(ios, introduced = version, deprecated = last)))
