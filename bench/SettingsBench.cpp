#include <dmf/ADMDeviceSettingsProxy.h>
#include <dmf/ADMDistributedLock.h>
#include <dmf/ADMFileLock.h>
#include <dmf/ADMPOSIXMutex.h>
#include <dmf/DMDeviceID.h>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <glib.h>
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "../examples/settings/PrinterSettings.h"

// What is done for every keystroke in a settings window, for every device that is found, and around everything that
// others must not disturb: each beside the least that a program would write by hand.

namespace {

void validate(benchmark::State& state, const char* key, const dmf::Value& given)
{
    const auto proxy = ADMDeviceSettingsProxy::initWithModel(std::make_shared<PrinterSettings>());
    for (auto _ : state) {
        dmf::Value value = given;
        dmf::Error error;
        benchmark::DoNotOptimize(proxy->validateValue(value, key, &error));
    }
}

/// The peer: letters and digits of a name, eight characters at most, at least three.
void cleanedByHand(benchmark::State& state, const char* given)
{
    constexpr int shortest = 3, longest = 8;
    for (auto _ : state) {
        GString* const cleaned = g_string_new(nullptr);
        int length = 0;
        for (const char* at = given; *at != '\0' && length < longest; at = g_utf8_next_char(at)) {
            const gunichar character = g_utf8_get_char(at);
            if (!g_unichar_isalnum(character))
                continue;
            g_string_append_unichar(cleaned, character);
            ++length;
        }
        benchmark::DoNotOptimize(length >= shortest);
        g_string_free(cleaned, TRUE);
    }
}

constexpr const char* kDeviceId =
    "MFG:QL;CMD:PJL,PCLXL,POSTSCRIPT;MDL:Aurora 450n;CLS:PRINTER;DES:QL Aurora 450n Printer;SN:CN12345678;BD:1,2,3;";

void readDeviceId(benchmark::State& state)
{
    const std::string deviceId = kDeviceId;
    for (auto _ : state) {
        std::optional<std::string> model, vendor, description;
        if (!ParseDeviceStatusCFString(deviceId, &model, &vendor, &description))
            state.SkipWithError("fields are missing");
        benchmark::DoNotOptimize(model);
    }
}

/// The peer: fields split at their ends, and looked through for the same three.
void deviceIdSplitByHand(benchmark::State& state)
{
    for (auto _ : state) {
        gchar** const fields = g_strsplit(kDeviceId, ";", -1);
        const char *model = nullptr, *vendor = nullptr, *description = nullptr;
        for (gchar** field = fields; *field != nullptr; ++field) {
            if (g_ascii_strncasecmp(*field, "MDL:", 4) == 0)
                model = *field + 4;
            else if (g_ascii_strncasecmp(*field, "MFG:", 4) == 0)
                vendor = *field + 4;
            else if (g_ascii_strncasecmp(*field, "DES:", 4) == 0)
                description = *field + 4;
        }
        if (!model || !vendor || !description)
            state.SkipWithError("fields are missing");
        g_strfreev(fields);
    }
}

void lockMutex(benchmark::State& state, bool recursive)
{
    const auto mutex = ADMPOSIXMutex::initRecursive(recursive);
    for (auto _ : state) {
        mutex->lock();
        mutex->unlock();
    }
}

void lockPthread(benchmark::State& state, int kind)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, kind);
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, &attributes);
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
    }
    pthread_mutex_destroy(&mutex);
    pthread_mutexattr_destroy(&attributes);
}

/// A folder of the benchmark's own.
class Folder {
public:
    Folder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "dmf-bench-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
    }
    ~Folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

void lockFile(benchmark::State& state)
{
    const Folder folder;
    const auto lock = ADMFileLock::lockWithPath((folder.path() / "lock").string());
    for (auto _ : state) {
        if (!lock->tryLock())
            state.SkipWithError("not free");
        lock->unlock();
    }
}

void lockDistributed(benchmark::State& state)
{
    const Folder folder; // for a name that nobody else has
    const auto lock = ADMDistributedLock::lockWithName(folder.path().filename().string());
    for (auto _ : state) {
        if (!lock->lock())
            state.SkipWithError("not free");
        lock->unlock();
    }
}

/// The peer of both: the system's lock on a file, which is opened each time, as the others make theirs.
void lockFlock(benchmark::State& state)
{
    const Folder folder;
    const std::string path = folder.path() / "lock";
    for (auto _ : state) {
        const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (::flock(file, LOCK_EX | LOCK_NB) != 0)
            state.SkipWithError("not free");
        ::flock(file, LOCK_UN);
        ::close(file);
    }
}

} // namespace

BENCHMARK_CAPTURE(validate, string, "deviceName", "office-printer");
BENCHMARK_CAPTURE(cleanedByHand, string, "office-printer");
BENCHMARK_CAPTURE(validate, email, "contactEmail", "help@example.com");
BENCHMARK_CAPTURE(validate, number, "sleepMinutes", 99);
BENCHMARK_CAPTURE(validate, choice, "PaperSize", "Letter");
BENCHMARK(readDeviceId);
BENCHMARK(deviceIdSplitByHand);
BENCHMARK_CAPTURE(lockMutex, plain, false);
BENCHMARK_CAPTURE(lockPthread, plain, PTHREAD_MUTEX_NORMAL);
BENCHMARK_CAPTURE(lockMutex, recursive, true);
BENCHMARK_CAPTURE(lockPthread, recursive, PTHREAD_MUTEX_RECURSIVE);
BENCHMARK(lockFile);
BENCHMARK(lockDistributed);
BENCHMARK(lockFlock);
BENCHMARK_MAIN();
