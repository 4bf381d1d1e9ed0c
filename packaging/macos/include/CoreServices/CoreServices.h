// The functions, types and constants of CoreServices that the macOS host uses, declared in our own words.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t OSStatus;
typedef uint32_t FourCharCode;
typedef FourCharCode DescType;
typedef FourCharCode AEKeyword;
typedef FourCharCode AEEventClass;
typedef FourCharCode AEEventID;
typedef int16_t AEReturnID;
typedef int32_t AETransactionID;

typedef struct ProcessSerialNumber {
  uint32_t highLongOfPSN;
  uint32_t lowLongOfPSN;
} ProcessSerialNumber;

enum { kCurrentProcess = 2 };

enum { typeProcessSerialNumber = 'psn ' };
enum { kAutoGenerateReturnID = -1, kAnyTransactionID = 0 };
enum { keyDirectObject = '----' };
enum { kASAppleScriptSuite = 'ascr', kASSubroutineEvent = 'psbr' };
enum { keyASSubroutineName = 'snam' };

OSStatus LSRegisterURL(CFURLRef inURL, Boolean inUpdate);

#ifdef __cplusplus
}
#endif
