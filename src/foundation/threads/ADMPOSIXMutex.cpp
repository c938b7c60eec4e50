#include <dmf/ADMPOSIXMutex.h>

#include <pthread.h>

#include <cerrno>
#include <new>
#include <utility>

struct ADMPOSIXMutex::Mutex {
    pthread_mutex_t mutex;
    bool isReady = false;

    ~Mutex()
    {
        if (isReady)
            pthread_mutex_destroy(&mutex);
    }
    bool initialize(bool recursive)
    {
        pthread_mutexattr_t attributes;
        if (pthread_mutexattr_init(&attributes) != 0)
            return false;
        isReady =
            pthread_mutexattr_settype(&attributes, recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_DEFAULT) == 0 &&
            pthread_mutex_init(&mutex, &attributes) == 0;
        pthread_mutexattr_destroy(&attributes);
        return isReady;
    }
};

ADMPOSIXMutex::ADMPOSIXMutex(std::unique_ptr<Mutex> mutex) : lock_(std::move(mutex)) {}

ADMPOSIXMutex::~ADMPOSIXMutex() = default;

std::shared_ptr<ADMPOSIXMutex> ADMPOSIXMutex::initRecursive(bool recursive)
{
    struct Made : ADMPOSIXMutex {
        explicit Made(std::unique_ptr<Mutex> mutex) : ADMPOSIXMutex(std::move(mutex)) {}
    };
    std::unique_ptr<Mutex> mutex(new (std::nothrow) Mutex);
    if (mutex && !mutex->initialize(recursive))
        return nullptr;
    return std::make_shared<Made>(std::move(mutex));
}

std::int32_t ADMPOSIXMutex::lock()
{
    return lock_ ? pthread_mutex_lock(&lock_->mutex) : EINVAL;
}

std::int32_t ADMPOSIXMutex::unlock()
{
    return lock_ ? pthread_mutex_unlock(&lock_->mutex) : EINVAL;
}

std::int32_t ADMPOSIXMutex::trylock()
{
    return lock_ ? pthread_mutex_trylock(&lock_->mutex) : EINVAL;
}
