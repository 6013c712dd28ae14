// The repeat string and the schedule calculation on any bytes: the first twelve choose the
// present time, the last computed run and the scheduled time within about a year of each
// other, the thirteenth the holidays, the rest is the repeat string. A string that can't be
// read fails with VqError; any other calculation returns a plan that holds together.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "calendar/MUrnik.h"
#include "platform/Error.h"

namespace {

// Seconds within 400 days either side of the base.
vq::VqDate DateOf(const uint8_t* bytes, vq::VqDate base) {
    int32_t value = 0;
    std::memcpy(&value, bytes, sizeof value);
    return vq::AddSeconds(base, value % (400 * 86400));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 13) return 0;
    const vq::VqDate base = vq::MakeDate({2027, 6, 1, 0, 0, 0, 0});
    const vq::VqDate now = DateOf(data, base);
    const vq::VqDate current = data[4] & 1 ? 0 : DateOf(data + 4, base);
    const vq::VqDate scheduled = DateOf(data + 8, base);
    const int holidayEvery = data[12] % 5 + 2;
    const vq::NonWorkTest holidays = [holidayEvery](vq::VqDate date) {
        return vq::SplitDate(date).day % holidayEvery == 0;
    };
    vq::RepeatRule rule;
    try {
        rule = vq::ParseRepeat(std::string(reinterpret_cast<const char*>(data) + 13, size - 13));
    } catch (const vq::VqError&) {
        return 0;
    }
    // Negative and huge counts and intervals are the clients' to send; keep the walk bounded.
    if (rule.EveryHours < 0 || rule.EveryMinutes < 0) return 0;
    const vq::RunPlan plan = vq::NextRunTime(now, current, scheduled, rule, holidays);
    if (plan.RunCount == vq::kNoRunDay && (plan.More || plan.RunNow)) std::abort();
    if (!plan.More && plan.NextRun != 0) std::abort();
    if (plan.More && vq::SecondsBetween(now, plan.NextRun) < -1) std::abort();
    return 0;
}
