// Plug-ins whose code throws while it is loaded: as they announce a class, or outside of any announcement.
#include <dmf/ADMIOProvider.h>
#include <dmf/platform/Class.h>

#include <stdexcept>

namespace {

#if defined(THROWS_IN_INITIALISER)

const int gThrown = []() -> int { throw std::runtime_error("thrown past the announcement"); }();

#else

DMF_REGISTER_CLASS(ThrowingSound)
{
    described.implements<ADMIOProvider>([] { return std::shared_ptr<ADMIOProvider>(); });
}

DMF_REGISTER_CLASS(ThrowingError)
{
    throw std::runtime_error("no device library for " + described.name());
}

DMF_REGISTER_CLASS(ThrowingNumber)
{
    throw described.name().size();
}

#endif

} // namespace
