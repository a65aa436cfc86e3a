#include "sim/HostTime.h"

#include <thread>

namespace sim {

thread_local bool HostTime::active = false;

HostDeadline::HostDeadline(std::chrono::nanoseconds fromNow) {
    const HostTime hostTime;
    using Moment = std::chrono::steady_clock::time_point;
    const Moment now = std::chrono::steady_clock::now();
    moment = fromNow < Moment::max() - now ? now + fromNow : Moment::max();
}

bool HostDeadline::passed() const {
    const HostTime hostTime;
    return std::chrono::steady_clock::now() >= moment;
}

bool HostDeadline::wait(std::condition_variable& condition,
                        std::unique_lock<std::mutex>& lock) const {
    const HostTime hostTime;
    return condition.wait_until(lock, moment) == std::cv_status::no_timeout || !passed();
}

void pauseBriefly() {
    const HostTime hostTime;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

}  // namespace sim
