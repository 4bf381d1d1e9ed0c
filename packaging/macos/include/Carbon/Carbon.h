// The constants of Carbon that the macOS host uses, declared in our own words: the codes of the Apple event
// that calls a handler of a script. Numbers only; Carbon isn't linked.
#pragma once

#include <ApplicationServices/ApplicationServices.h>

enum { kASAppleScriptSuite = 'ascr', kASSubroutineEvent = 'psbr' };
enum { keyASSubroutineName = 'snam' };
