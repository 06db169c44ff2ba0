#pragma once

// Takes the place of the GNU runtime's header where sources are checked with automatic reference
// counting, under which one inline function of that header does not compile. Declares what
// GNUstep's own headers need of it.

#include <objc/objc.h>

typedef struct objc_method* Method;
typedef struct objc_ivar* Ivar;

Class object_getClass(id object);
Class class_getSuperclass(Class aClass);
const char* class_getName(Class aClass);
