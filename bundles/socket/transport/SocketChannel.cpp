#include "SocketChannel.h"

#include <dmf/ADMServiceInfo.h>

#include "SocketProvider.h"

namespace dmf::socket {

std::int16_t SocketChannel::createAndOpenProviderWithTimeout(double timeout)
{
    // The model plays no part in moving bytes, and asking for it could read the whole database.
    const auto made = ADMConnectionProvider::initWithParent<SocketProvider>(shared_from_this(), nullptr,
                                                                            serviceInfo()->device(), timeout);
    if (!made)
        return ProviderStatus::invalidParameter; // the device has gone meanwhile
    setProvider(made);
    return made->open();
}

} // namespace dmf::socket
