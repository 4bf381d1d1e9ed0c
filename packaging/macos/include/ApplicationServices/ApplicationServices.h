// The constant of ApplicationServices that the macOS host uses, declared in our own words.
#pragma once

#include <CoreServices/CoreServices.h>

// The low half of a process serial number whose high half is zero: the calling process.
enum { kCurrentProcess = 2 };
