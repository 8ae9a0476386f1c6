#pragma once

// Includes every public header of the MQTT binding.

#include "dme/mqtt/client.h"
#include "dme/mqtt/device.h"
