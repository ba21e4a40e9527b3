// Preloaded into a program, this moves the wall clock that it reads by as many seconds as the file $SKYLET_LAB_CLOCK
// says (a 64-bit number), at any time. The monotonic clock goes on as it does: time namespaces are for that.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace {

std::int64_t offset() {
    static const volatile std::int64_t* const seconds = [] {
        const int file = ::open(std::getenv("SKYLET_LAB_CLOCK"), O_RDONLY | O_CLOEXEC);
        void* const mapped = ::mmap(nullptr, sizeof(std::int64_t), PROT_READ, MAP_SHARED, file, 0);
        ::close(file);
        return mapped == MAP_FAILED ? nullptr : static_cast<const volatile std::int64_t*>(mapped);
    }();
    return seconds ? *seconds : 0;
}

} // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    static const auto real = reinterpret_cast<decltype(&::clock_gettime)>(::dlsym(RTLD_NEXT, "clock_gettime"));
    const int result = real(clock, time);
    if (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE) {
        time->tv_sec += offset();
    }
    return result;
}

int gettimeofday(timeval* time, void* /*zone*/) noexcept {
    timespec now{};
    const int result = clock_gettime(CLOCK_REALTIME, &now);
    *time = {now.tv_sec, now.tv_nsec / 1000};
    return result;
}

time_t time(time_t* result) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}
}
