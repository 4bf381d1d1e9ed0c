// Moments written in the machine's time zone. Any thread.
#pragma once

#include <string>

#include "Platform/Dispatch.h"

namespace installer::LocalTime {

// "yyyy-MM-dd HH:mm:ss.SSS"; milliseconds are cut, not rounded.
std::string timestamp(TimePoint moment);

// "yyyy-MM-dd HH:mm:ss".
std::string dateAndTime(TimePoint moment);

// "yyyyMMdd-HHmmss", for file names.
std::string fileStamp(TimePoint moment);

}  // namespace installer::LocalTime
