#pragma once

// Includes every public header of the data model engine.

#include "dme/arguments.h"
#include "dme/atomic_value.h"
#include "dme/container.h"
#include "dme/context.h"
#include "dme/engine.h"
#include "dme/exception.h"
#include "dme/hash_string.h"
#include "dme/json.h"
#include "dme/methods.h"
#include "dme/notifier.h"
#include "dme/path.h"
#include "dme/policy.h"
#include "dme/policy_tester.h"
#include "dme/result.h"
#include "dme/select.h"
#include "dme/session.h"
#include "dme/smart_pointer.h"
#include "dme/structure.h"
#include "dme/subscription.h"
#include "dme/value.h"
