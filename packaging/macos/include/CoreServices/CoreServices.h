// The functions, types and constants of CoreServices that the macOS host uses, declared in our own words.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t OSStatus;

typedef struct ProcessSerialNumber {
  uint32_t highLongOfPSN;
  uint32_t lowLongOfPSN;
} ProcessSerialNumber;

enum { typeProcessSerialNumber = 'psn ' };
enum { kAutoGenerateReturnID = -1, kAnyTransactionID = 0 };
enum { keyDirectObject = '----' };

OSStatus LSRegisterURL(CFURLRef inURL, Boolean inUpdate);

#ifdef __cplusplus
}
#endif
