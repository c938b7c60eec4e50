/// The model database: opening a file beside what its parts cost by hand (RC4 by nettle, XML by pugixml, a typed tree),
/// asking a model beside a walk through pugixml's tree, and a database of ten thousand models. Both sides of a ratio
/// are measured turn by turn in one run.

#include <malloc.h>
#include <nettle/arcfour.h>
#include <pugixml.hpp>
#include <time.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include <benchmark/benchmark.h>

#include <dmf/ADMCommunicationInfo.h>
#include <dmf/ADMFunctionalInfo.h>
#include <dmf/ADMInfo.h>
#include <dmf/ADMModelInfoHandler.h>
#include <dmf/ADMModelInfoImp.h>
#include <dmf/ADMModelInfoManager.h>
#include <dmf/ADMSecureData.h>

#include "modelinfo/model/ModelInfoManagers.h"

namespace fs = std::filesystem;

namespace {

using Seconds = std::chrono::duration<double>;

/// The time that the calling thread computes, so that other programs on the machine do not count. Files are read from
/// the system's cache.
struct Clock {
    static Seconds now()
    {
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return Seconds(static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9);
    }
};

/// A folder that goes with the program.
class Folder {
public:
    static const fs::path& path()
    {
        static const Folder folder;
        return folder.path_;
    }

private:
    Folder()
    {
        std::string pattern = (fs::temp_directory_path() / "dmf-bench-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
    }
    ~Folder() { fs::remove_all(path_); }
    fs::path path_;
};

void addFile(const std::string& table, const std::string& name, const std::string& contents)
{
    static ADMInfoFileManager names;
    const fs::path path = Folder::path() / table / names.realFileNameForFile(name).value();
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary)
        << ADMSecureData().encryptData(dmf::Data::fromText(contents), 0).value().text();
}

fs::path pathOf(const std::string& table, const std::string& name)
{
    return Folder::path() / table / ADMInfoFileManager().realFileNameForFile(name).value();
}

std::string readFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    std::string bytes(static_cast<std::size_t>(file.tellg()), '\0');
    file.seekg(0);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

// Model files of a wanted size.

std::string plistOfSize(std::size_t size)
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n";
    for (int i = 0; text.size() < size; ++i) {
        const std::string n = std::to_string(i);
        text += "    <key>Service" + n + "</key>\n    <dict>\n        <key>ClassName</key>\n        <string>QLService" +
                n + "</string>\n        <key>Port</key>\n        <integer>" + std::to_string(9100 + i) +
                "</integer>\n        <key>Secure</key>\n        <true/>\n        <key>Sizes</key>\n        <array>\n" +
                "            <string>A4</string>\n            <string>Letter</string>\n            <real>2.5</real>\n" +
                "        </array>\n    </dict>\n";
    }
    return text + "</dict>\n</plist>\n";
}

std::string xmlOfSize(std::size_t size, const std::string& parent = {})
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Model>\n";
    if (!parent.empty())
        text += "    <Parent>" + parent + "</Parent>\n";
    text += "    <DeviceClass name=\"printer\">\n        <FunctionalInterface name=\"print\">\n"
            "            <ConnectionList><Connection type=\"ip\"><Service name=\"s1\"/><Service name=\"s0\"/>"
            "</Connection></ConnectionList>\n            <ServiceList>\n";
    for (int i = 0; text.size() < size || i < 2; ++i) {
        const std::string n = std::to_string(i);
        text +=
            "                <Service name=\"s" + n + "\">\n                    <ClassName>QLService" + n +
            "</ClassName>\n                    <SpecificInfo><ProtocolsList><Protocol name=\"p\">\n" +
            "                        <ImplementorClass>QLProtocol</ImplementorClass>\n" +
            "                        <FeaturesList><Feature name=\"duplex\"><Property name=\"modes\">none,long" +
            "</Property></Feature></FeaturesList>\n                    </Protocol></ProtocolsList></SpecificInfo>\n" +
            "                </Service>\n";
    }
    return text + "            </ServiceList>\n        </FunctionalInterface>\n    </DeviceClass>\n</Model>\n";
}

// The peer of opening a file: what somebody would write for this very purpose.

struct Node;
using Nodes = std::vector<Node>;
using Members = std::map<std::string, Node, std::less<>>;
struct Node {
    std::variant<std::monostate, bool, std::int64_t, double, std::string, std::unique_ptr<Nodes>,
                 std::unique_ptr<Members>>
        value;
};

Node typedTree(const pugi::xml_node& node)
{
    const std::string_view name = node.name();
    const std::string_view text = node.text().get();
    if (name == "string")
        return {std::string(text)};
    if (name == "true" || name == "false")
        return {name == "true"};
    if (name == "integer") {
        std::int64_t number = 0;
        std::from_chars(text.data(), text.data() + text.size(), number);
        return {number};
    }
    if (name == "real") {
        double number = 0;
        std::from_chars(text.data(), text.data() + text.size(), number);
        return {number};
    }
    if (name == "array") {
        auto nodes = std::make_unique<Nodes>();
        for (const pugi::xml_node& child : node.children())
            nodes->push_back(typedTree(child));
        return {std::move(nodes)};
    }
    auto members = std::make_unique<Members>();
    for (pugi::xml_node key = node.first_child(); key; key = key.next_sibling().next_sibling())
        members->emplace(key.text().get(), typedTree(key.next_sibling()));
    return {std::move(members)};
}

struct Element {
    std::string name;
    std::string text;
    std::map<std::string, std::string, std::less<>> attributes;
    std::vector<std::shared_ptr<Element>> children;
};

std::shared_ptr<Element> elementTree(const pugi::xml_node& node)
{
    auto element = std::make_shared<Element>();
    element->name = node.name();
    for (const pugi::xml_attribute& attribute : node.attributes())
        element->attributes.emplace(attribute.name(), attribute.value());
    for (const pugi::xml_node& child : node.children()) {
        if (child.type() == pugi::node_element)
            element->children.push_back(elementTree(child));
        else
            element->text += child.value();
    }
    return element;
}

void decipher(std::string& bytes)
{
    static constexpr std::uint8_t kKey[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    arcfour_ctx context;
    arcfour128_set_key(&context, kKey);
    auto* const data = reinterpret_cast<std::uint8_t*>(bytes.data());
    arcfour_crypt(&context, bytes.size(), data, data);
}

/// Runs both sides turn by turn and tells the peer's time and the ratio beside the library's own.
template <class Library, class Peer>
void measure(benchmark::State& state, Library library, Peer peer)
{
    Seconds own{0};
    Seconds others{0};
    for (auto _ : state) {
        const auto start = Clock::now();
        library();
        const auto middle = Clock::now();
        peer();
        others += Clock::now() - middle;
        own += middle - start;
        state.SetIterationTime(Seconds(middle - start).count());
    }
    state.counters["peer_us"] = others.count() / static_cast<double>(state.iterations()) * 1e6;
    state.counters["ratio"] = own / others;
}

constexpr int kKilobyte = 1024;

void openFile(benchmark::State& state, const std::string& name, const std::string& contents,
              void (*peerTree)(const pugi::xml_node&))
{
    addFile("Bench", name, contents);
    // The peer's file is enciphered with a key that this program knows.
    const fs::path peerFile = Folder::path() / ("peer-" + name);
    std::string enciphered = contents;
    decipher(enciphered);
    std::ofstream(peerFile, std::ios::binary) << enciphered;

    bool failed = false;
    measure(
        state,
        [&] {
            const auto manager = dmf::internal::ModelInfoManagers::make();
            manager->registerTable("Bench", Folder::path().string());
            const auto info = manager->modelInfoHandlerForFile(name, "Bench")->info();
            failed = failed || !info || info->count() == 0;
        },
        [&] {
            std::string bytes = readFile(peerFile);
            decipher(bytes);
            pugi::xml_document document;
            failed = failed || !document.load_buffer(bytes.data(), bytes.size());
            peerTree(document.document_element());
        });
    if (failed)
        state.SkipWithError("the file did not open");
}

void openPropertyList(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    openFile(state, "list" + std::to_string(size), plistOfSize(size * kKilobyte), [](const pugi::xml_node& root) {
        const Node tree = typedTree(root.first_child());
        benchmark::DoNotOptimize(tree.value.index());
    });
}

void openXml(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    openFile(state, "xml" + std::to_string(size), xmlOfSize(size * kKilobyte), [](const pugi::xml_node& root) {
        const auto tree = elementTree(root);
        benchmark::DoNotOptimize(tree->name.size());
    });
}

BENCHMARK(openPropertyList)->Arg(4)->Arg(64)->Arg(1024)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(openXml)->Arg(4)->Arg(64)->Arg(1024)->UseManualTime()->Unit(benchmark::kMicrosecond);

/// Which classes print over IP, in their order of preference: from a new object over files that are read already.
void queryModel(benchmark::State& state)
{
    const std::string contents = xmlOfSize(64 * kKilobyte);
    addFile("Query", "Bench 1", contents);
    const auto manager = ADMPrivateModelInfoManager::sharedManager();
    manager->registerTable("Query", Folder::path().string());
    pugi::xml_document document;
    document.load_string(contents.c_str());

    std::size_t classes = 0;
    measure(
        state,
        [&] {
            ADMModelInfoImp model("QL Bench 1");
            const auto root = model.infoFromTable("Query");
            const auto interface =
                root->infoNamed("DeviceClass", "printer", "name")->infoNamed("FunctionalInterface", "print", "name");
            const auto info = ADMFunctionalInfo::initWithInfo(interface, "IP");
            for (const auto& service : info->communicationInfoList())
                classes += service->implementorClassName()->size();
        },
        [&] {
            const auto interface = document.document_element()
                                       .find_child_by_attribute("DeviceClass", "name", "printer")
                                       .find_child_by_attribute("FunctionalInterface", "name", "print");
            std::vector<std::string> names;
            for (const auto& service : interface.child("ConnectionList")
                                           .find_child_by_attribute("Connection", "type", "ip")
                                           .children("Service"))
                names.emplace_back(interface.child("ServiceList")
                                       .find_child_by_attribute("Service", "name", service.attribute("name").value())
                                       .child_value("ClassName"));
            for (const std::string& name : names)
                classes += name.size();
        });
    benchmark::DoNotOptimize(classes);
}
BENCHMARK(queryModel)->UseManualTime()->Unit(benchmark::kNanosecond);

/// The same question to an object that has answered it before.
void queryModelAgain(benchmark::State& state)
{
    addFile("Query", "Bench 1", xmlOfSize(64 * kKilobyte));
    const auto manager = ADMPrivateModelInfoManager::sharedManager();
    manager->registerTable("Query", Folder::path().string());
    ADMModelInfoImp model("QL Bench 1");
    const auto interface = model.infoFromTable("Query")
                               ->infoNamed("DeviceClass", "printer", "name")
                               ->infoNamed("FunctionalInterface", "print", "name");
    const auto info = ADMFunctionalInfo::initWithInfo(interface, "IP");
    for (auto _ : state)
        benchmark::DoNotOptimize(info->communicationInfoList());
}
BENCHMARK(queryModelAgain)->Unit(benchmark::kNanosecond);

constexpr int kModels = 10'000;

std::string modelName(int number)
{
    return "ModelName/Bench " + std::to_string(number);
}

void makeLargeDatabase()
{
    static const bool made = [] {
        addFile("Large", "FamilyName/Bench", xmlOfSize(8 * kKilobyte));
        const std::string contents = xmlOfSize(2 * kKilobyte, "FamilyName/Bench");
        for (int i = 0; i < kModels; ++i)
            addFile("Large", modelName(i), contents);
        return ADMModelInfoManager::sharedManager()->registerTable("Large", Folder::path().string());
    }();
    benchmark::DoNotOptimize(made);
}

/// One look-up among ten thousand models by a fresh manager, after a number of others, beside reading the same file.
void lookUp(benchmark::State& state)
{
    makeLargeDatabase();
    int next = 0;
    Seconds own{0};
    Seconds others{0};
    for (auto _ : state) {
        const auto manager = dmf::internal::ModelInfoManagers::make();
        manager->registerTable("Large", Folder::path().string());
        const auto open = [&] {
            next = (next + 7919) % kModels;
            benchmark::DoNotOptimize(manager->modelInfoHandlerForFile(modelName(next), "Large")->info());
        };
        for (int i = 1; i < state.range(0); ++i)
            open();
        const auto start = Clock::now();
        open();
        const Seconds time = Clock::now() - start;
        const fs::path file = pathOf("Large", modelName(next));
        const auto again = Clock::now();
        benchmark::DoNotOptimize(readFile(file));
        others += Clock::now() - again;
        own += time;
        state.SetIterationTime(time.count());
    }
    state.counters["read_us"] = others.count() / static_cast<double>(state.iterations()) * 1e6;
    state.counters["ratio"] = own / others;
}
BENCHMARK(lookUp)->Arg(1)->Arg(100)->UseManualTime()->Unit(benchmark::kMicrosecond);

std::size_t allocatedBytes()
{
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

/// All ten thousand models open at once: memory for each, beside the bytes of its file.
void openAll(benchmark::State& state)
{
    makeLargeDatabase();
    for (auto _ : state) {
        const auto manager = dmf::internal::ModelInfoManagers::make();
        manager->registerTable("Large", Folder::path().string());
        const std::size_t before = allocatedBytes();
        for (int i = 0; i < kModels; ++i)
            benchmark::DoNotOptimize(manager->modelInfoHandlerForFile(modelName(i), "Large")->info());
        state.counters["bytes_each"] = static_cast<double>(allocatedBytes() - before) / kModels;
    }
    state.counters["file_bytes"] = static_cast<double>(fs::file_size(pathOf("Large", modelName(0))));
}
BENCHMARK(openAll)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
