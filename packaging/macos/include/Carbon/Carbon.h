// The constants of Carbon that the macOS host uses, declared in our own words: how AppleScript spells the
// call of a handler as an Apple event. Numbers only; nothing of Carbon is linked.
#pragma once

#include <ApplicationServices/ApplicationServices.h>

enum { kASAppleScriptSuite = 'ascr', kASSubroutineEvent = 'psbr' };
enum { keyASSubroutineName = 'snam' };
