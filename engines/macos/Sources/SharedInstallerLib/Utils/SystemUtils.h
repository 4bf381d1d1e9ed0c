// Small answers about the machine. Any thread.
#pragma once

#include "Base/Error.h"
#include "Platform/Dispatch.h"

namespace installer::SystemUtils {

// What the running process is told, not what the hardware is.
bool isArm64Architecture();

// Whether the publisher's site answers at all. Blocks for at most `timeout` and a second.
bool isInternetReachable(Duration timeout);

// Whether `error` means that the connection failed, so that waiting for the network can help. Narrow on
// purpose. Logs when it is one.
bool isNetworkConnectionError(const Error& error);

}  // namespace installer::SystemUtils
