// A stand-in, see README.md in this folder.
#pragma once

#include <Availability.h>
#include <stdint.h>
#include <sys/types.h>

struct dispatch_object_s {};
typedef struct dispatch_queue_s : public dispatch_object_s{} * dispatch_queue_t;
typedef struct dispatch_source_s : public dispatch_object_s{} * dispatch_source_t;
typedef const struct dispatch_source_type_s* dispatch_source_type_t;
typedef dispatch_object_s* dispatch_object_t;
typedef uint64_t dispatch_time_t;
typedef void (*dispatch_function_t)(void*);
#define DISPATCH_TIME_NOW (0ull)
#define DISPATCH_TIME_FOREVER (~0ull)
enum { QOS_CLASS_UTILITY = 0x11 };
extern "C" {
extern const struct dispatch_source_type_s _dispatch_source_type_timer STAND_IN_IOS(4.0);
dispatch_queue_t dispatch_get_main_queue(void);
dispatch_queue_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags) STAND_IN_IOS(4.0);
void dispatch_async_f(dispatch_queue_t, void* context, dispatch_function_t) STAND_IN_IOS(4.0);
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) STAND_IN_IOS(4.0);
dispatch_source_t dispatch_source_create(dispatch_source_type_t, uintptr_t handle, uintptr_t mask, dispatch_queue_t)
    STAND_IN_IOS(4.0);
void dispatch_set_context(dispatch_object_t, void*) STAND_IN_IOS(4.0);
void dispatch_source_set_event_handler_f(dispatch_source_t, dispatch_function_t) STAND_IN_IOS(4.0);
void dispatch_source_set_cancel_handler_f(dispatch_source_t, dispatch_function_t) STAND_IN_IOS(4.0);
void dispatch_source_set_timer(dispatch_source_t, dispatch_time_t start, uint64_t interval, uint64_t leeway)
    STAND_IN_IOS(4.0);
void dispatch_source_cancel(dispatch_source_t) STAND_IN_IOS(4.0);
void dispatch_resume(dispatch_object_t) STAND_IN_IOS(4.0);
void dispatch_release(dispatch_object_t) STAND_IN_IOS(4.0);
}
#define DISPATCH_SOURCE_TYPE_TIMER (&_dispatch_source_type_timer)
