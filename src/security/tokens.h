// Token helpers shared by the security subsystem's exports.
#pragma once

#include <windows.h>

// TRUE when the token holds the administrators group fully enabled (mandatory,
// enabled by default, enabled, owner) and does not belong to SYSTEM.
BOOL IsAdminToken(PHANDLE token);
