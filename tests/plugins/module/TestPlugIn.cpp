#include <dmf/ADMFunctionalServiceImp.h>
#include <dmf/ADMIOProvider.h>
#include <dmf/platform/Class.h>

namespace {

struct TEST_PLUGIN_PROVIDER final : ADMIOProvider {
    std::shared_ptr<const dmf::Class> implementorClassForProtocolWithName(std::string_view name) const override
    {
        return dmf::ClassRegistry::shared().classNamed(name);
    }
};

/// An interface that the library has never heard of.
struct Odd {
    using Factory = std::shared_ptr<Odd>();
    static const dmf::Protocol& protocol()
    {
        static constexpr dmf::Protocol kProtocol("Odd", {}, {});
        return kProtocol;
    }
};

// The names come from the build; the macro takes them as they are spelled.
#define REGISTER_NAMED(name) DMF_REGISTER_CLASS(name)

REGISTER_NAMED(TEST_PLUGIN_PROVIDER)
{
    described.implements<ADMIOProvider>(&std::make_shared<TEST_PLUGIN_PROVIDER>);
}

REGISTER_NAMED(TEST_PLUGIN_SERVICE)
{
    described.implements<ADMInterfaceInitialization>(
        [](std::shared_ptr<ADMServiceInfo> info) { return ADMFunctionalServiceImp::initWithServiceInfo(info); });
}

REGISTER_NAMED(TEST_PLUGIN_ODD)
{
    described.implements<Odd>(&std::make_shared<Odd>);
}

} // namespace
