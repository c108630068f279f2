// The entity framework: counted pointers, entities and their notifiees, the generated attribute
// pattern, state machines and reactors, hash and ordered collections, reflection, the activity
// loop with its clocks and time, traces, assertions and the failure types.
#pragma once

#include "platform/kel/Activity.h"
#include "platform/kel/Assert.h"
#include "platform/kel/Attribute.h"
#include "platform/kel/Entity.h"
#include "platform/kel/Exception.h"
#include "platform/kel/Hash.h"
#include "platform/kel/HashTable.h"
#include "platform/kel/Ptr.h"
#include "platform/kel/Reactor.h"
#include "platform/kel/Reflection.h"
#include "platform/kel/Text.h"
#include "platform/kel/Time.h"
#include "platform/kel/Trace.h"

namespace Kel {
using String = std::string;
}
