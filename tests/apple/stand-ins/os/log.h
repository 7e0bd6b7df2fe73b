// A stand-in, see README.md in this folder.
#pragma once

#include <Availability.h>
#include <stdint.h>

typedef struct os_log_s* os_log_t;
typedef uint8_t os_log_type_t;
enum : os_log_type_t { OS_LOG_TYPE_INFO = 0x01, OS_LOG_TYPE_DEBUG = 0x02, OS_LOG_TYPE_ERROR = 0x10 };
extern "C" os_log_t os_log_create(const char* subsystem, const char* category) STAND_IN_IOS(10.0);
extern "C" void os_log_with_type_function(os_log_t, os_log_type_t, const char* format, ...)
    __attribute__((format(os_log, 3, 4))) STAND_IN_IOS(10.0);
#define os_log_with_type(log, type, ...) os_log_with_type_function(log, type, __VA_ARGS__)
