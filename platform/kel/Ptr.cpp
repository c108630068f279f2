#include "platform/kel/Ptr.h"

namespace Kel {

namespace detail {
bool threadSafePtrs = false;
}

void threadSafePtrsIs(bool on) noexcept { detail::threadSafePtrs = on; }

}  // namespace Kel
