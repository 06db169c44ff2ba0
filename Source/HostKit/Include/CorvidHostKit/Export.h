#pragma once

// The library hides everything but what carries this mark.
#if defined(__GNUC__)
#define CORVID_HOSTKIT_API __attribute__((visibility("default")))
#else
#define CORVID_HOSTKIT_API
#endif
