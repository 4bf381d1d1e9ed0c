// The functions and types of CoreFoundation that the macOS host uses, declared in our own words.
#pragma once

#include <objc/objc.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const void* CFTypeRef;
typedef unsigned long CFTypeID;
typedef unsigned char Boolean;
typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFURL* CFURLRef;

CFTypeID CFGetTypeID(CFTypeRef cf);
CFTypeID CFBooleanGetTypeID(void);
Boolean CFNumberIsFloatType(CFNumberRef number);
void CFRelease(CFTypeRef cf);

#ifdef __cplusplus
}
#endif
