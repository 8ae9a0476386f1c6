#pragma once

// Includes every public header of the data model engine.

#include "dme/arguments.h"
#include "dme/context.h"
#include "dme/exception.h"
#include "dme/hash_string.h"
#include "dme/json.h"
#include "dme/methods.h"
#include "dme/path.h"
#include "dme/result.h"
#include "dme/select.h"
#include "dme/session.h"
#include "dme/smart_pointer.h"
