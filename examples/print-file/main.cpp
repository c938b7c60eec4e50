// Sends a file to a device: print-file URI FILE
#include <fstream>
#include <iostream>
#include <iterator>

#include <dmf/ADMDataChannelFactory.h>
#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMCore.h>
#include <dmf/DMKeys.h>

int main(int argc, char** argv)
{
    if (argc != 3)
        return std::cerr << "usage: print-file URI FILE\n", 2;
    DMCoreInit();
    const auto service = ADMServiceInfoImp::serviceInfoWithURI(argv[1], kPrinterDeviceClass);
    if (!service)
        return std::cerr << argv[1] << " names no device\n", 1;

    std::ifstream file(argv[2], std::ios::binary);
    const auto data = dmf::Data::fromText(std::string(std::istreambuf_iterator<char>(file), {}));
    const auto channel =
        ADMDataChannelFactory::init()->newDuplexDataChannelWithServiceInfo(service, kDMPrintChannelName);
    dmf::Dictionary error;
    if (!channel || !channel->open() || !channel->writeData(data, 30.0, &error))
        return std::cerr << "cannot print: " << error.description() << "\n", 1;
    channel->close();
    std::cout << "sent " << data.size() << " bytes to " << service->deviceName().value_or("the device") << "\n";
}
