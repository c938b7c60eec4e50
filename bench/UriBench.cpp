#include <dmf/ADMServiceInfoImp.h>
#include <dmf/ADMServiceURI.h>
#include <dmf/ADMServiceURIGenerator.h>
#include <dmf/ADMServiceURIParser.h>
#include <dmf/DMKeys.h>

#include <benchmark/benchmark.h>
#include <glib.h>

// Reading and writing device URIs, each beside GLib's general URI functions. Those only split and join; ours fill in
// vendor, model and connection parameters as well.

namespace {

constexpr const char* kSocketUri = "socket://192.168.1.20:9100/?bidi";
constexpr const char* kUsbUri = "usb://QL/Model%20100?serial=CN12%2034";
constexpr const char* kIppUri = "ipp://[fe80::1%25en0]:631/?vendor=QL&product=Model9";
constexpr const char* kUniversalUri =
    "myapp://QLDMF/v=1&connectionType=USB&vendorName=QL&modelName=Model%20100&SerialNumber=CN12%2034";

void parse(benchmark::State& state, const char* uri)
{
    for (auto _ : state) {
        ADMServiceURIParser parser(uri);
        if (!parser.parse())
            state.SkipWithError("refused");
        benchmark::DoNotOptimize(parser.components());
    }
}

void glibParse(benchmark::State& state, const char* text)
{
    for (auto _ : state) {
        GUri* const uri = g_uri_parse(text, G_URI_FLAGS_NONE, nullptr);
        if (!uri) {
            state.SkipWithError("refused");
            break;
        }
        benchmark::DoNotOptimize(uri);
        g_uri_unref(uri);
    }
}

void generate(benchmark::State& state, const char* uri)
{
    const auto service = ADMServiceInfoImp::serviceInfoWithURI(uri, kPrinterDeviceClass);
    ADMServiceURIGenerator generator;
    for (auto _ : state)
        benchmark::DoNotOptimize(generator.generateURIForServiceInfo(service));
}

void glibJoin(benchmark::State& state, const char* scheme, const char* host, const char* model, const char* serial)
{
    for (auto _ : state) {
        char* const path = g_uri_escape_string(model, "/", FALSE);
        char* const query = g_uri_escape_string(serial, "=", FALSE);
        char* const uri = g_uri_join(G_URI_FLAGS_ENCODED, scheme, nullptr, host, -1, path, query, nullptr);
        benchmark::DoNotOptimize(uri);
        g_free(uri);
        g_free(query);
        g_free(path);
    }
}

void make(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(ADMServiceURI::USBServiceURIWithProductName("Model 100", "QL", "CN12 34"));
}

} // namespace

BENCHMARK_CAPTURE(parse, socket, kSocketUri);
BENCHMARK_CAPTURE(glibParse, socket, kSocketUri);
BENCHMARK_CAPTURE(parse, usb, kUsbUri);
BENCHMARK_CAPTURE(glibParse, usb, kUsbUri);
BENCHMARK_CAPTURE(parse, ippOverIPv6, kIppUri);
BENCHMARK_CAPTURE(glibParse, ippOverIPv6, kIppUri);
BENCHMARK_CAPTURE(parse, universal, kUniversalUri);
BENCHMARK_CAPTURE(glibParse, universal, kUniversalUri);
BENCHMARK_CAPTURE(generate, socket, kSocketUri);
BENCHMARK_CAPTURE(glibJoin, socket, "socket", "192.168.1.20", "/", "bidi");
BENCHMARK_CAPTURE(generate, usb, kUsbUri);
BENCHMARK_CAPTURE(glibJoin, usb, "usb", "QL", "/Model 100", "serial=CN12 34");
BENCHMARK(make);
BENCHMARK_MAIN();
