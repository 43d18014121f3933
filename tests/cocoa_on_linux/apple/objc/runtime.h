// GNU's header of this name reads a member of `id` in an inline function, which ARC forbids. This
// one declares what GNUstep's headers and the tests need of it.
#pragma once

#include <objc/objc-decls.h>
#include <objc/objc.h>
#include <stddef.h>

extern "C" {
typedef struct objc_ivar* Ivar;
typedef struct objc_method* Method;
typedef struct objc_property* objc_property_t;

Class objc_getClass(const char* name);
const char* class_getName(Class theClass);
Class class_getSuperclass(Class theClass);
BOOL class_isMetaClass(Class theClass);
BOOL class_respondsToSelector(Class theClass, SEL selector);
size_t class_getInstanceSize(Class theClass);
Method class_getClassMethod(Class theClass, SEL selector);
Method class_getInstanceMethod(Class theClass, SEL selector);
IMP method_setImplementation(Method method, IMP implementation);
const char* sel_getName(SEL selector);
SEL sel_registerName(const char* name);

static inline Class object_getClass(id object) {
  return object == nullptr ? nullptr : *(__unsafe_unretained Class*)(__bridge void*)object;
}
}
