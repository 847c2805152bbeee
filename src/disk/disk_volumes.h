// Partitions, volumes and drive queries: the decisions that need no device, and the
// small owners the device code shares.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "disk/disk_rules.h"

namespace wrenkits {

}  // namespace wrenkits
