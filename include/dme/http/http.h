#pragma once

// Includes every public header of the HTTP binding.

#include "dme/http/error_document.h"
#include "dme/http/server.h"
